# SPDX-License-Identifier: MIT
"""tools/release, in copies of this checkout: what it refuses, what it writes, and what it makes."""

import hashlib
import os
import re
import shutil
import subprocess
import tarfile
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
DERIVED = [
    "data/org.veldrin.Veldrin.metainfo.xml",
    "CMakeLists.txt",
    "debian/changelog",
    "packaging/arch/PKGBUILD",
    "packaging/rpm/veldrin.spec",
    "packaging/snap/snapcraft.yaml",
    "src/about_dialog.cpp",
]
NOTES = """# Changes

## Unreleased

- The penguin waves
  with its `left` flipper & more.
- Second point, 100 % done.

## 1.3 - 2026-11-21

The first release as packages.

- Watches.
"""


def run(folder: Path, *command: str, **options) -> subprocess.CompletedProcess:
    environment = {
        **os.environ,
        "GIT_AUTHOR_DATE": "2026-11-22T10:00:00Z",
        "GIT_COMMITTER_DATE": "2026-11-22T10:00:00Z",
        "GIT_CONFIG_GLOBAL": "/dev/null",
    }
    return subprocess.run(command, cwd=folder, env=environment, text=True, capture_output=True, **options)


def git(folder: Path, *arguments: str) -> str:
    done = run(folder, "git", *arguments)
    assert done.returncode == 0, done.stderr
    return done.stdout.strip()


def copied_checkout(folder: Path) -> Path:
    """Makes a repository of its own with this checkout's files, notes of ours, and a .ci/run that takes no time."""
    copy = folder / "veldrin"
    listed = git(ROOT, "ls-files", "--cached", "--others", "--exclude-standard").splitlines()
    for name in listed:
        if (ROOT / name).is_file():
            (copy / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy2(ROOT / name, copy / name)
    (copy / "CHANGELOG.md").write_text(NOTES)
    (copy / ".ci/run").write_text("#!/bin/sh\nexit 0\n")
    git(copy, "init", "--quiet", "--initial-branch=main")
    git(copy, "config", "user.name", "Somebody")
    git(copy, "config", "user.email", "somebody@veldrin.example")
    git(copy, "add", "--all")
    git(copy, "commit", "--quiet", "--message", "Begin")
    return copy


@pytest.fixture(name="copy")
def fresh_copy(tmp_path: Path) -> Path:
    return copied_checkout(tmp_path)


def release(copy: Path, *arguments: str) -> subprocess.CompletedProcess:
    return run(copy, str(copy / "tools/release"), *arguments)


def change(copy: Path, name: str, old: str, new: str) -> None:
    text = (copy / name).read_text()
    assert old in text
    (copy / name).write_text(text.replace(old, new))
    git(copy, "commit", "--quiet", "--all", "--message", "Change")


def refused(copy: Path, words: str, *arguments: str) -> None:
    before = git(copy, "rev-parse", "HEAD"), git(copy, "tag"), git(copy, "status", "--porcelain")
    done = release(copy, *arguments)
    assert (done.returncode, done.stdout) == (1, "")
    assert words in done.stderr
    assert (git(copy, "rev-parse", "HEAD"), git(copy, "tag"), git(copy, "status", "--porcelain")) == before
    assert not (copy / "build/release").exists()


# ---- What it refuses ----


def test_changes_that_are_not_committed(copy):
    (copy / "README.md").write_text("x")
    refused(copy, "not committed:\n M README.md", "1.4")


def test_a_file_that_git_does_not_know(copy):
    (copy / "new").write_text("x")
    refused(copy, "?? new", "1.4")


@pytest.mark.parametrize("version", ["1.3", "1.2.9", "0.9"])
def test_a_version_that_is_not_later(copy, version):
    refused(copy, f"{version} is not later than 1.3", version)


@pytest.mark.parametrize("version", ["v1.4", "1", "1.4rc1", "1..4", "one"])
def test_what_is_no_version(copy, version):
    refused(copy, f"not {version}", version)


def test_a_version_without_notes(copy):
    change(copy, "CHANGELOG.md", NOTES[NOTES.index("- The penguin") : NOTES.index("## 1.3")], "\n")
    refused(copy, "CHANGELOG.md has no notes for 1.4", "1.4")


def test_a_changelog_without_a_place_for_the_notes(copy):
    change(copy, "CHANGELOG.md", "## Unreleased", "## 1.3.1 - 2026-11-22")
    refused(copy, "CHANGELOG.md has no notes for 1.4", "1.4")


def test_a_version_that_is_tagged(copy):
    git(copy, "tag", "v1.4")
    refused(copy, "There is a tag v1.4 already", "1.4")


def test_a_heading_that_it_cannot_read(copy):
    change(copy, "CHANGELOG.md", "## 1.3 - 2026-11-21", "## 1.3, last week")
    refused(copy, "## 1.3, last week", "1.4")


def test_a_file_that_has_no_place_for_the_version(copy):
    change(copy, "packaging/arch/PKGBUILD", "pkgver=", "version=")
    done = release(copy, "1.4", "--dry-run")
    assert done.returncode == 1
    assert "PKGBUILD" in done.stderr


def test_tests_that_fail_take_the_commit_back(copy):
    change(copy, ".ci/run", "exit 0", "exit 3")
    refused(copy, "The tests failed", "1.4")


# ---- What it makes ----


@pytest.fixture(name="released", scope="module")
def released_copy(tmp_path_factory: pytest.TempPathFactory) -> tuple[Path, str]:
    copy = copied_checkout(tmp_path_factory.mktemp("released"))
    (copy / ".ci/run").write_text('#!/bin/sh\ngit log -1 --format=%s >"$0.seen"\n')
    git(copy, "commit", "--quiet", "--all", "--message", "See what the tests see")
    (copy / ".git/info/exclude").write_text("*.seen\n")
    done = release(copy, "1.4")
    assert done.returncode == 0, done.stderr
    return copy, done.stdout


def text_of(released: tuple[Path, str], name: str) -> str:
    return (released[0] / name).read_text()


def test_the_version_stands_in_every_file(released):
    assert re.search(r"^## 1\.4 - \d{4}-\d\d-\d\d$", text_of(released, "CHANGELOG.md"), re.MULTILINE)
    assert "## Unreleased" not in text_of(released, "CHANGELOG.md")
    assert '<release version="1.4" date="' in text_of(released, DERIVED[0])
    assert text_of(released, "debian/changelog").startswith("veldrin (1.4")
    assert "\npkgver=1.4\n" in text_of(released, "packaging/arch/PKGBUILD")
    assert "\nVersion:        1.4\n" in text_of(released, "packaging/rpm/veldrin.spec")
    assert '\nversion: "1.4"\n' in text_of(released, "packaging/snap/snapcraft.yaml")
    assert 'gtk_about_dialog_set_version(about, "v1.4");' in text_of(released, "src/about_dialog.cpp")
    assert "\nproject(veldrin VERSION 1.4 LANGUAGES C CXX)\n" in text_of(released, "CMakeLists.txt")


def test_the_released_trees_own_test_finds_one_version(released):
    test = "tests/package/test_data.py::test_the_version_is_the_same_everywhere"
    done = run(released[0], "/usr/bin/python3", "-m", "pytest", "-q", "-p", "no:cacheprovider", test)
    assert done.returncode == 0, done.stdout


def test_no_test_waits_for_the_last_version():
    (version,) = re.findall(r'set_version\(about, "(v.*)"\)', (ROOT / "src/about_dialog.cpp").read_text())
    found = git(ROOT, "grep", "--fixed-strings", "--name-only", f'"{version}"')
    assert found.splitlines() == ["src/about_dialog.cpp"]


def test_the_notes_stand_in_every_changelog(released):
    metainfo = text_of(released, "data/org.veldrin.Veldrin.metainfo.xml")
    assert "<li>The penguin waves with its left flipper &amp; more.</li>" in metainfo
    assert "<p>The first release as packages.</p>" in metainfo
    assert "  * The penguin waves with its left flipper & more.\n" in text_of(released, "debian/changelog")
    spec = text_of(released, "packaging/rpm/veldrin.spec")
    assert "- Second point, 100 %% done.\n" in spec
    assert re.search(r"^\* \w{3} \w{3} \d\d \d{4} .* - 1\.4-1$", spec, re.MULTILINE)
    assert spec.count("%changelog") == 1


def test_tools_of_the_packages_read_them(released):
    copy, _ = released
    assert run(copy, "dpkg-parsechangelog", "-S", "Version").stdout.strip().startswith("1.4")
    assert "warning" not in run(copy, "dpkg-parsechangelog", "--all").stderr
    checked = run(copy, "appstreamcli", "validate", "--no-net", DERIVED[0])
    assert checked.returncode == 0, checked.stdout


def test_the_tests_saw_the_commit_of_the_release(released):
    assert (released[0] / ".ci/run.seen").read_text() == "Release 1.4\n"


def test_the_tag_is_on_the_commit_that_the_archive_is_of(released):
    copy, printed = released
    assert git(copy, "log", "-2", "--format=%s").splitlines() == [
        "Name the checksum of the release's archive",
        "Release 1.4",
    ]
    assert git(copy, "rev-parse", "v1.4^{commit}") == git(copy, "rev-parse", "HEAD~1")
    assert git(copy, "cat-file", "-t", "v1.4") == "tag"
    assert "tag v1.4 (annotated)" in printed
    assert git(copy, "status", "--porcelain") == ""


def test_the_archive_is_the_same_from_another_checkout(released, tmp_path):
    copy, _ = released
    archive = (copy / "build/release/veldrin-1.4.tar.gz").read_bytes()
    git(copy, "clone", "--quiet", "--branch", "v1.4", str(copy), str(tmp_path / "other"))
    tar = subprocess.run(
        ["git", "-c", "tar.umask=0022", "archive", "--format=tar", "--prefix=veldrin-1.4/", "HEAD"],
        cwd=tmp_path / "other",
        check=True,
        capture_output=True,
    )
    assert subprocess.run(["gzip", "-n9"], input=tar.stdout, check=True, capture_output=True).stdout == archive
    with tarfile.open(copy / "build/release/veldrin-1.4.tar.gz") as content:
        names = content.getnames()
    assert "veldrin-1.4/src/main.cpp" in names
    assert {name.split("/")[0] for name in names} == {"veldrin-1.4"}


def test_the_checksum_is_that_of_the_archive(released):
    copy, printed = released
    checksum = hashlib.sha256((copy / "build/release/veldrin-1.4.tar.gz").read_bytes()).hexdigest()
    assert text_of(released, "build/release/SHA256SUMS") == f"{checksum}  veldrin-1.4.tar.gz\n"
    assert f"\nsha256sums=({checksum})\n" in text_of(released, "packaging/arch/PKGBUILD")
    assert checksum in printed
    assert "(SKIP)" in git(copy, "show", "v1.4:packaging/arch/PKGBUILD")


def test_a_list_of_what_it_holds_comes_with_it(released):
    copy, _ = released
    bill = text_of(released, "build/release/veldrin-1.4.spdx")
    assert bill.startswith("SPDXVersion: ")
    records = re.findall(r"^FileName: \./(.*)\nSPDXID: .*\nFileChecksum: SHA1: (.*)$", bill, re.MULTILINE)
    with tarfile.open(copy / "build/release/veldrin-1.4.tar.gz") as archive:
        packed = {
            file.name.removeprefix("veldrin-1.4/"): archive.extractfile(file).read()
            for file in archive
            if file.isfile()
        }
    # Texts of licences need none, nor do files without a byte.
    wanted = {
        name: hashlib.sha1(content).hexdigest()
        for name, content in packed.items()
        if content and not re.match(r"LICENSE|\.reuse/", name)
    }
    assert dict(records) == wanted
    assert bill.count("\nLicenseInfoInFile: MIT\n") == len(records) == bill.count("2026 the Veldrin developers")


def test_the_list_names_nothing_that_only_lies_in_the_checkout(copy):
    (copy / ".git/info/exclude").write_text("notes\n")
    (copy / "notes").write_text("mine")
    done = release(copy, "1.4")
    assert done.returncode == 0, done.stderr
    bill = (copy / "build/release/veldrin-1.4.spdx").read_text()
    assert "FileName: ./notes" not in bill
    assert "\nDocumentName: veldrin-1.4\n" in bill


def test_a_machine_that_cannot_list_licences(copy, tmp_path):
    tools = tmp_path / "tools"
    tools.mkdir()
    for tool in ("git", "gzip"):
        (tools / tool).symlink_to(shutil.which(tool))
    before = git(copy, "rev-parse", "HEAD")
    done = subprocess.run(
        ["/usr/bin/python3", copy / "tools/release", "1.4"], env={"PATH": str(tools)}, capture_output=True, text=True
    )
    assert (done.returncode, done.stdout) == (1, "")
    assert "reuse is not installed" in done.stderr
    assert git(copy, "rev-parse", "HEAD") == before


def test_what_is_left_to_a_person_is_printed(released):
    assert "Left to a person (docs/distributions.md says more):" in released[1]
    assert (ROOT / "docs/distributions.md").is_file()


# ---- Without consequences ----


def test_a_dry_run_changes_nothing_and_shows_all(copy):
    before = git(copy, "rev-parse", "HEAD"), git(copy, "tag"), git(copy, "status", "--porcelain")
    done = release(copy, "1.4", "--dry-run")
    assert done.returncode == 0, done.stderr
    assert (git(copy, "rev-parse", "HEAD"), git(copy, "tag"), git(copy, "status", "--porcelain")) == before
    assert not (copy / "build").exists()
    for name in [*DERIVED, "CHANGELOG.md"]:
        assert f"+++ b/{name}" in done.stdout
    assert "sha256" in done.stdout


def test_the_packages_files_have_the_notes_of_the_changelog(tmp_path):
    copy = tmp_path / "veldrin"
    for name in [*DERIVED, "CHANGELOG.md", "debian/control", "tools/release"]:
        (copy / name).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(ROOT / name, copy / name)
    done = release(copy, "--notes")
    assert done.returncode == 0, done.stderr
    for name in DERIVED:
        assert (copy / name).read_text() == (ROOT / name).read_text(), name
