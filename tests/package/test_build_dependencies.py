# SPDX-License-Identifier: MIT
"""Whoever builds the package installs what a build and the unit tests need; one profile asks for every test's needs,
another for those of the packages' own."""

import os
import re
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
PROFILE = "pkg.veldrin.alltests"
PACKAGES = "pkg.veldrin.packages"


def control() -> list[str]:
    field = re.search(r"^Build-Depends:(.*?)\n(?=\S)", (ROOT / "debian/control").read_text(), re.MULTILINE | re.DOTALL)
    return [entry.strip() for entry in field[1].split(",")]


def test_all_but_a_builds_own_needs_are_the_profiles():
    kinds = {"": [], "!nocheck": [], PROFILE: [], PACKAGES: []}
    for entry in control():
        name, _, kind = entry.partition("<")
        kinds[kind.removesuffix(">")].append(name.strip())
    assert [re.sub(r" \(.*\)", "", name) for name in kinds[""]] == [
        "debhelper-compat", "cmake", "libayatana-appindicator3-dev", "libgtk-3-dev", "ninja-build",
        "pkgconf | pkg-config",
    ]  # fmt: skip
    assert kinds["!nocheck"] == ["libgtest-dev"]
    assert {"xvfb", "zenity", "python3-pytest", "lintian", "rpmlint"} <= set(kinds[PROFILE])
    assert {"autopkgtest", "makepkg", "pacman-package-manager", "piuparts"} <= set(kinds[PACKAGES])


def asked_of_apt(function: str, tmp_path: Path) -> list[str]:
    """How one of the tools' functions asks apt for what is missing."""
    script = f'. "{ROOT}/tests/package/common"; apt_install() {{ echo "$*"; }}; {function}'
    result = subprocess.run(["bash", "-euc", script], capture_output=True, text=True, check=True, cwd=tmp_path)
    return [line.replace(str(ROOT), ".") for line in result.stdout.splitlines() if line.startswith("build-dep")]


@pytest.mark.parametrize(
    ("function", "words"),
    [("install_for_building", "build-dep -P nocheck ."), ("install_for_packaging", "build-dep ."),
     ("install_for_testing", f"build-dep -P {PROFILE} ."),
     ("install_for_packages", f"build-dep -P {PROFILE},{PACKAGES} .")],
)  # fmt: skip
def test_each_tool_asks_for_as_much_as_it_needs(function, words, tmp_path):
    assert asked_of_apt(function, tmp_path) == [words]


def planned(**settings: str) -> str:
    """What the package's build would do for its tests."""
    environment = {name: value for name, value in os.environ.items() if not name.startswith("DEB_")}
    command = ["make", "--dry-run", "--no-print-directory", "-f", "debian/rules", "override_dh_auto_test"]
    return subprocess.run(
        command, cwd=ROOT, env=environment | settings, capture_output=True, text=True, check=True
    ).stdout


def test_a_build_runs_the_unit_tests_alone():
    plan = planned()
    assert re.search(r"^ctest .* -R '\^unit", plan, re.MULTILINE)
    assert "tools/test" not in plan


def test_a_build_with_the_profile_runs_every_test():
    plan = planned(DEB_BUILD_PROFILES=PROFILE)
    assert re.search(r"^env --unset=\S.* tools/test$", plan, re.MULTILINE)
    assert "ctest" not in plan


@pytest.mark.parametrize("setting", ["DEB_BUILD_OPTIONS", "DEB_BUILD_PROFILES"])
def test_a_build_without_checks_runs_none(setting):
    plan = planned(**{setting: "nocheck"})
    assert "ctest" not in plan
    assert "tools/test" not in plan
