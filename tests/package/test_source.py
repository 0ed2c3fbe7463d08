# SPDX-License-Identifier: MIT
"""The release's archive: the project's own files and nothing that builds have left among them, byte by byte the same
from each copy of the tree, and named by its checksum in the recipe for Arch."""

import hashlib
import os
import re
import shutil
import subprocess
import tarfile
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
# By what README's commands leave, or such a file's folder does.
LEFT = [
    "build/debug/veldrin",
    "tests/package/__pycache__/recipes.cpython-311.pyc",
    ".pytest_cache/README.md",
    "parts/veldrin/src/README.md",
    "prime/usr/bin/veldrin",
    "stage/usr/bin/veldrin",
    "overlay/packages",
    "veldrin_1.3_amd64.snap",
    ".flatpak-builder/build/veldrin-1/src/main.cpp",
    "packaging/flatpak/shared-modules/libayatana-appindicator/libayatana-appindicator-gtk3.json",
    "packaging/arch/src/veldrin-1.3/README.md",
    "packaging/arch/pkg/veldrin/.PKGINFO",
    "packaging/arch/veldrin-1.3.tar.gz",
    "packaging/arch/veldrin-1.3-1-x86_64.pkg.tar.zst",
    "packaging/arch/veldrin-1.3-1-x86_64-build.log",
]


@pytest.fixture(name="own", scope="module")
def own_files() -> list[str]:
    listed = subprocess.run(
        ["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
        cwd=ROOT, check=True, capture_output=True, text=True,
    ).stdout.split("\0")  # fmt: skip
    return sorted(name for name in set(listed) if name and (ROOT / name).exists())


def copied(own: list[str], place: Path) -> Path:
    for name in own:
        (place / name).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(ROOT / name, place / name, follow_symlinks=False)
    return place


def leave(tree: Path) -> None:
    for name in LEFT:
        (tree / name).parent.mkdir(parents=True, exist_ok=True)
        (tree / name).write_text("left")
    (tree / "snap").symlink_to("packaging/snap")


def archived(tree: Path) -> Path:
    subprocess.run(["tools/package", "source"], cwd=tree, check=True, stdout=subprocess.DEVNULL)
    (archive,) = (tree / "build/packages").glob("*.tar.gz")
    return archive


@pytest.fixture(name="tree", params=["a clone", "an unpacked archive"])
def used_tree(request, own, tmp_path) -> Path:
    tree = copied(own, tmp_path / "veldrin")
    leave(tree)
    if request.param == "a clone":
        subprocess.run(["git", "init", "--quiet"], cwd=tree, check=True)
    return tree


def test_what_builds_have_left_is_not_packed(tree, own):
    with tarfile.open(archived(tree)) as archive:
        (top,) = {member.name.split("/")[0] for member in archive}
        packed = sorted(member.name.removeprefix(f"{top}/") for member in archive if not member.isdir())
    assert re.fullmatch(r"veldrin-[0-9.]+", top)
    assert packed == own


def test_git_sees_nothing_of_what_builds_have_left(own, tmp_path):
    tree = copied(own, tmp_path)
    subprocess.run(["git", "init", "--quiet"], cwd=tree, check=True)
    subprocess.run(["git", "add", "--all"], cwd=tree, check=True)
    leave(tree)
    command = ["git", "ls-files", "--others", "--exclude-standard"]
    assert subprocess.run(command, cwd=tree, check=True, capture_output=True, text=True).stdout == ""


def test_the_same_files_give_the_same_archive_and_the_recipe_its_checksum(own, tmp_path):
    first = archived(copied(own, tmp_path / "first"))
    second = copied(own, tmp_path / "second")
    for file in second.rglob("*"):
        if not file.is_symlink():
            file.chmod(0o700 if os.access(file, os.X_OK) else 0o600)
            os.utime(file, (1, 1))
    second = archived(second)
    assert first.read_bytes() == second.read_bytes()
    recipe = (second.parent / "PKGBUILD").read_text()
    assert re.findall(r"^sha256sums=(.*)$", recipe, re.MULTILINE) == [
        f"({hashlib.sha256(first.read_bytes()).hexdigest()})"
    ]
    committed = (ROOT / "packaging/arch/PKGBUILD").read_text()
    assert recipe.replace(re.search("^sha256sums=.*$", recipe, re.MULTILINE)[0], "sha256sums=(SKIP)") == re.sub(
        "^# .*checksum.*\n", "", committed, flags=re.MULTILINE
    )
