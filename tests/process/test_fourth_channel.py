# SPDX-License-Identifier: MIT
"""A channel more: whoever adds one is told by the compiler where else it belongs, and once it stands everywhere it
compiles. The steps are those of CONTRIBUTING.md."""

import re
import shutil
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
MODULES = ["state", "kernel_checker", "theme", "info_window", "changes_window", "app"]

# Which files a step changes, how, and which module says what while the step is missing. The order is that of the steps.
STATE = [("state.h", "    std::string longterm;\n", "    std::string longterm;\n    std::string next;\n")]
TABLE = [
    (
        "state.h",
        '{"longterm", "Longterm", &AppState::longterm}',
        '{"longterm", "Longterm", &AppState::longterm}, {"next", "Next", &AppState::next}',
    )
]
FILE = [
    ("state.cpp", '{"longterm", &AppState::longterm}', '{"longterm", &AppState::longterm}, {"next", &AppState::next}')
]
CHECK = [
    (
        "kernel_checker.h",
        "    std::string longterm;  ///< The first longterm row's.\n",
        "    std::string longterm;\n    std::string next;\n",
    )
]
PAGE = [
    (
        "kernel_checker.cpp",
        "auto& [mainline, stable, longterm, success]",
        "auto& [mainline, stable, longterm, next, success]",
    ),
    ("kernel_checker.cpp", "    success = !stable", '    next = extract_first(html, "next");\n    success = !stable'),
]
CHECKED = [("app.cpp", "&KernelVersions::longterm}", "&KernelVersions::longterm, &KernelVersions::next}")]
KNOWN = [
    ("changes_window.cpp", "    std::string longterm;\n", "    std::string longterm;\n    std::string next;\n"),
    ("changes_window.cpp", "&ChannelVersions::longterm}", "&ChannelVersions::longterm, &ChannelVersions::next}"),
]
ACCENT = [("theme.cpp", '"acc-longterm"}', '"acc-longterm", "acc-next"}')]
RULE = [("theme.cpp", ".hdr.acc-system {", ".hdr.acc-next { color: red; }\n.hdr.acc-system {")]

STEPS = [
    (STATE, "state", "one string for each channel"),
    (TABLE, "state", "one string for each channel"),
    (FILE, "state", "every string of AppState has a line here"),
    (CHECK, "app", "every channel is checked"),
    (PAGE, "kernel_checker", "names"),
    (CHECKED, "app", "every channel is checked"),
    (KNOWN, "changes_window", "every channel has its known version"),
    (ACCENT, "theme", "every channel has an accent"),
    (RULE, "theme", "every accent has a rule"),
]


def flags() -> list[str]:
    packages = ["gtk+-3.0", "ayatana-appindicator3-0.1"]
    found = subprocess.run(["pkg-config", "--cflags", *packages], check=True, capture_output=True, text=True)
    return ["-std=c++20", "-D_GNU_SOURCE", "-fsyntax-only", *found.stdout.split()]


def complaints(source: Path, module: str) -> list[str]:
    done = subprocess.run(
        ["c++", *flags(), source / f"{module}.cpp"],
        capture_output=True,
        text=True,
        env={"PATH": "/usr/bin:/bin", "LC_ALL": "C"},
    )
    return re.findall(r"error: (.*)", done.stderr)


@pytest.fixture(name="source")
def copied_source(tmp_path: Path) -> Path:
    return Path(shutil.copytree(ROOT / "src", tmp_path / "src"))


def take(source: Path, steps) -> None:
    for changes, _, _ in steps:
        for name, old, new in changes:
            text = (source / name).read_text()
            assert text.count(old) == 1, (name, old)
            (source / name).write_text(text.replace(old, new))


@pytest.mark.parametrize("module", MODULES)
def test_with_every_step_it_compiles(source, module):
    take(source, STEPS)
    assert complaints(source, module) == []


@pytest.mark.parametrize("missing", range(1, len(STEPS)))
def test_a_step_that_is_missing_does_not_compile(source, missing):
    # The first one alone names what all others need.
    changes, module, words = STEPS[missing]
    needed = [
        step for step in STEPS if step[0] is not changes and not (changes is CHECK and step[0] in (PAGE, CHECKED))
    ]
    if changes is ACCENT:
        needed = [step for step in needed if step[0] is not RULE]
    take(source, needed)
    found = complaints(source, module)
    assert found and any(words in complaint for complaint in found), found


def test_a_string_that_no_channel_names_does_not_compile(source):
    take(source, STEPS[:1])
    assert any("one string for each channel" in complaint for complaint in complaints(source, "state"))
