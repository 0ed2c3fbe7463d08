# SPDX-License-Identifier: MIT
"""Every build that users run is fortified, and one whose builder knows better as the builder says."""

import json
import shlex
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
KINDS = ["MinSizeRel", "Release", "RelWithDebInfo"]


def fortified(build: Path, *options: str) -> str | None:
    """The level that the compiler sees in a build with these options."""
    words = ["cmake", "-S", ROOT, "-B", build, "-G", "Ninja", "-DVELDRIN_TESTS=OFF", *options]
    subprocess.run(words, check=True, stdout=subprocess.DEVNULL)
    (entry,) = (
        entry
        for entry in json.loads((build / "compile_commands.json").read_text())
        if entry["file"] == str(ROOT / "src/main.cpp")
    )
    command = shlex.split(entry["command"])
    command[command.index("-o") + 1] = "-"
    macros = subprocess.run([*command, "-E", "-dM"], cwd=build, check=True, capture_output=True, text=True).stdout
    levels = [line.split()[2] for line in macros.splitlines() if line.startswith("#define _FORTIFY_SOURCE ")]
    return levels[0] if levels else None


@pytest.mark.parametrize("kind", KINDS)
def test_what_users_run_is_fortified(kind, tmp_path):
    assert fortified(tmp_path, f"-DCMAKE_BUILD_TYPE={kind}") == "2"


@pytest.mark.parametrize("kind", KINDS)
def test_a_builder_that_sets_a_level_keeps_it(kind, tmp_path):
    flags = "-O2 -Wp,-D_FORTIFY_SOURCE=3"
    assert fortified(tmp_path, f"-DCMAKE_BUILD_TYPE={kind}", f"-DCMAKE_CXX_FLAGS={flags}") == "3"


def test_a_build_without_optimisation_is_not_warned_of_a_level_that_it_cannot_keep(tmp_path):
    assert fortified(tmp_path, "-DCMAKE_BUILD_TYPE=Debug") is None


@pytest.mark.parametrize("kind", KINDS)
def test_sanitizers_see_the_calls_that_a_level_would_hide(kind, tmp_path):
    assert fortified(tmp_path, f"-DCMAKE_BUILD_TYPE={kind}", "-DVELDRIN_SANITIZE=undefined") is None
