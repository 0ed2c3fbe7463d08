# SPDX-License-Identifier: MIT
"""What reviewers of distributions ask before a package comes in: Debian's new packages, Fedora's reviews."""

import re
import shutil
import subprocess
import tarfile
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
SPEC = ROOT / "packaging/rpm/veldrin.spec"


def text(name: str) -> str:
    return (ROOT / name).read_text()


def version() -> str:
    return re.search(r"^project\(veldrin VERSION (\S+)", text("CMakeLists.txt"), re.MULTILINE)[1]


# ---- Debian ----


@pytest.fixture(name="source", scope="module")
def debian_source(tmp_path_factory) -> Path:
    """The folder with the source package of this checkout's files, made as tools/package makes it."""
    place = tmp_path_factory.mktemp("debian")
    tree = place / "veldrin"
    listed = subprocess.check_output(
        ["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"], cwd=ROOT, text=True
    )
    for name in filter(None, listed.split("\0")):
        if (ROOT / name).exists():
            (tree / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy2(ROOT / name, tree / name, follow_symlinks=False)
    subprocess.run(["tools/package", "source"], cwd=tree, check=True, stdout=subprocess.DEVNULL)
    archive = tree / f"build/packages/veldrin-{version()}.tar.gz"
    archive.rename(place / f"veldrin_{version()}.orig.tar.gz")
    shutil.rmtree(tree / "build")
    subprocess.run(["dpkg-source", "--build", "veldrin"], cwd=place, check=True, stdout=subprocess.DEVNULL)
    return place


def test_the_source_package_is_the_releases_archive_and_the_folder_debian(source):
    assert text("debian/source/format") == "3.0 (quilt)\n"
    described = (source / f"veldrin_{version()}-1.dsc").read_text()
    files = re.findall(r"^ [0-9a-f]{64} \d+ (\S+)$", described, re.MULTILINE)
    added = f"veldrin_{version()}-1.debian.tar.xz"
    assert sorted(set(files)) == [added, f"veldrin_{version()}.orig.tar.gz"]
    with tarfile.open(source / added) as archive:
        names = archive.getnames()
    assert {name.split("/")[0] for name in names} == {"debian"}
    # No patch: what is packed is what was released.
    assert not [name for name in names if name.startswith("debian/patches")]


def test_the_source_package_unpacks_to_this_tree(source):
    subprocess.run(
        ["dpkg-source", "--no-check", "--extract", f"veldrin_{version()}-1.dsc", "unpacked"],
        cwd=source, check=True, stdout=subprocess.DEVNULL,
    )  # fmt: skip
    # dpkg-source's own notes on patches are not in the tree.
    command = ["diff", "-r", "--exclude=.pc", "veldrin", "unpacked"]
    compared = subprocess.run(command, cwd=source, capture_output=True, text=True)
    assert compared.stdout == ""


def test_debian_finds_new_releases_where_they_are_put():
    watch = text("debian/watch")
    assert "\nversion=4\n" in watch
    folder, pattern = re.search(r"^(https://\S+) (\S+)$", watch, re.MULTILINE).groups()
    # As uscan(1) says what these stand for.
    meanings = {
        "@PACKAGE@": "veldrin",
        "@ANY_VERSION@": r"[-_]?[Vv]?(\d[\-+\.:\~\da-zA-Z]*)",
        "@ARCHIVE_EXT@": r"(?:\.(?:tar\.xz|tar\.bz2|tar\.gz|tar\.zstd?|zip|tgz|tbz|txz))",
    }
    for name, meaning in meanings.items():
        pattern = pattern.replace(name, meaning)
    arch = re.search(r'^source=\("(.*)"\)$', text("packaging/arch/PKGBUILD"), re.MULTILINE)[1]
    assert arch.startswith(folder)
    released = arch.removeprefix(folder).replace("$pkgname", "veldrin").replace("$pkgver", "1.4.2")
    assert re.fullmatch(pattern, released)[1] == "1.4.2"


def test_debians_control_has_what_a_reviewer_looks_for():
    control = text("debian/control")
    for field in ("Section: x11", "Rules-Requires-Root: no", "Standards-Version: 4.7.2"):
        assert f"\n{field}\n" in control
    synopsis = re.search(r"^Description: (.*)$", control, re.MULTILINE)[1]
    assert len(synopsis) < 80
    assert not synopsis.endswith(".")
    assert not re.match(r"(?i)an? |the |veldrin", synopsis)


def test_debians_request_says_what_the_package_says():
    said = text("docs/distributions.md")
    control = text("debian/control")
    synopsis, description = re.search(r"^Description: (.*)\n((?: .*\n)+)", control, re.MULTILINE).groups()
    assert f"Subject: ITP: veldrin -- {synopsis}\n" in said
    assert re.search(rf"^  Description     : {re.escape(synopsis)}$", said, re.MULTILINE)
    assert description in said
    maintainer = re.search(r"^Maintainer: .*(<.*>)$", control, re.MULTILINE)[1]
    assert f"* License         : {re.search('^License: (.*)$', text('debian/copyright'), re.MULTILINE)[1]}\n" in said
    assert f"* URL             : {re.search('^Homepage: (.*)$', control, re.MULTILINE)[1]}\n" in said
    assert re.search(rf"^  Upstream Author : .*{re.escape(maintainer)}$", said, re.MULTILINE)


# ---- Fedora ----


def expanded(*definitions: str) -> str:
    """The recipe as rpm reads it."""
    options = [word for definition in definitions for word in ("--define", definition)]
    return subprocess.run(["rpmspec", "--parse", *options, SPEC], check=True, capture_output=True, text=True).stdout


def section(recipe: str, name: str) -> str:
    return re.search(rf"^%{name}\b(.*?)(?=^%(?:prep|build|install|check|files|changelog|pre|post)|\Z)", recipe,
                     re.MULTILINE | re.DOTALL)[1]  # fmt: skip


def test_fedoras_head_has_what_a_reviewer_looks_for():
    recipe = expanded("dist .fc99")
    tags = dict(re.findall(r"^(\w+): +(.*)$", recipe.split("%description")[0], re.MULTILINE))
    assert re.fullmatch(r"\d+\.fc99", tags["Release"])
    assert tags["License"] == "MIT"
    assert tags["Source0"].startswith("https://")
    assert tags["Source0"].endswith(f"/veldrin-{version()}.tar.gz")
    assert not tags["Summary"].endswith(".")
    needs = re.findall(r"^BuildRequires: +(.*)$", recipe, re.MULTILINE)
    # No compiler comes by itself.
    assert {"gcc", "gcc-c++", "cmake >= 3.21", "ninja-build", "desktop-file-utils", "systemd-rpm-macros"} <= set(needs)
    assert needs == sorted(needs)
    for obsolete in ("Group", "BuildRoot", "Vendor", "Packager", "Copyright"):
        assert obsolete not in tags


def test_fedora_unpacks_with_the_macro_that_applies_patches():
    assert "\n%prep\n%autosetup\n" in SPEC.read_text()


def test_fedoras_flags_reach_the_compiler_and_the_linker():
    recipe = expanded("optflags -O2 -flto=mark", "build_ldflags -Wl,mark")
    # For what is packed, and for what is tested.
    assert recipe.count('export CXXFLAGS="-O2 -flto=mark" LDFLAGS="-Wl,mark"\ncmake ') == 2


def test_fedora_checks_tests_entries_and_metainfo():
    check = section(expanded(), "check")
    assert re.search(r"^ctest .*--no-tests=error", check, re.MULTILINE)
    assert len(re.findall(r"^desktop-file-validate \S+\.desktop$", check, re.MULTILINE)) == 2
    assert re.search(r"^appstreamcli validate --no-net \S+\.metainfo\.xml$", check, re.MULTILINE)


def test_fedora_marks_licence_documents_and_settings():
    files = section(expanded(), "files").splitlines()
    assert "%license LICENSE" in files
    assert any(line.startswith("%doc ") and "README.md" in line for line in files)
    for line in files:
        # Whole folders of others would be claimed by this package, too.
        assert not re.search(r"/(bin|applications|apps|man1|user|autostart|metainfo)/?$", line), line
        assert line.startswith("%config(noreplace)") == line.endswith("/autostart/org.veldrin.Veldrin.desktop")


def test_fedora_treats_the_unit_by_its_macros_where_there_are_any():
    macros = [f"systemd_user_{when}() echo {when} %1" for when in ("post", "preun", "postun")]
    recipe = expanded(*macros)
    for when in ("post", "preun", "postun"):
        assert f"\n%{when}\necho {when} veldrin.service\n" in recipe
    # Elsewhere an empty script would be a fault.
    assert not re.search(r"^%(post|preun|postun)\b", expanded(), re.MULTILINE)


def test_nothing_of_others_is_bundled():
    listed = subprocess.check_output(["git", "ls-files"], cwd=ROOT, text=True).splitlines()
    assert not [name for name in listed if re.search(r"(?i)(^|/)(third_?party|vendor|extern\w*|bundled|deps)/", name)]
    assert "bundled(" not in SPEC.read_text()
