# SPDX-License-Identifier: MIT
"""Every window on both kinds of display, in the themes that GTK brings, at both scales: the libraries have nothing to
complain of while it opens, is drawn, used and closed."""

import re

import pytest
from stage.applet import AT_ONCE
from stage.compositor import TOOLTIP, surroundings
from stage.probe import ABOUT, CHANGES, ENTRIES, SETTINGS, SYSTEM, Probe
from stage.tools import page
from stage.waiting import wait_until
from stage.world import Module, machine_with_modules

THEMES = ["Adwaita", "Adwaita:dark", "HighContrast", "HighContrastInverse"]

COMMITS = "".join(
    f"commit {number:040x}\nAuthor: Nautilus <nautilus@reef.invalid>\nDate:   Sat Sep 5 08:15:42 2026 +0000\n\n"
    f"    {subject}\n\n    The sand was in the way\n    of the tide.\n\n"
    for number, subject in enumerate(["Linux 7.2.4", "Merge tag 'reef'", "reef: fix the tide", "shell: more sand"])
)
MODULES = [
    Module(b"seaweed 20480 2 kelp, Live 0x0000000000000000", {b"version": b"1.5\n", b"parameters/depth": b"12\n"}),
    Module(b"kelp 1572864 0 - Loading 0x0000000000000000"),
]


def is_drawn_afresh(probe: Probe, title: str, scale: int) -> None:
    """What was done last in the window on top is on the display, or can be. A compositor may ask no frame of one that
    is covered by then."""
    before = probe.windows()[title].frames
    assert probe.windows()[title].scale == scale
    assert probe.do(f"draw {title}")
    wait_until(lambda: probe.windows()[title].frames > before, "another frame")


@pytest.mark.parametrize("backend", ["x11", "wayland"])
@pytest.mark.parametrize("scale", [1, 2])
@pytest.mark.parametrize("theme", THEMES)
def test_windows_open_and_close_without_a_warning(machine, compositors, backend, scale, theme):
    machine.tools.publish(page(mainline="7.3-rc2", stable="7.2.4", longterm="6.18.31"))
    machine.tools.answer("wget -qO- *ChangeLog-7.2.4", stdout=COMMITS)
    machine.tools.answer("wget -qO- *releases.json", status=4)
    probe = Probe(machine.folder)
    environment = {
        **probe.options["environment"],
        **surroundings(compositors, backend, scale),
        "GTK_THEME": theme,
        # A critical message ends it at once, where a warning is only said.
        "G_DEBUG": "fatal-criticals",
    }
    around = machine_with_modules(machine, MODULES)
    applet = machine.start_and_check(around=around, preload=probe.options["preload"], environment=environment)

    assert "7.2.4" in probe.open(applet, SETTINGS).texts
    assert probe.do("choose longterm")
    wait_until(lambda: applet.item.label == "6.18.31", "the other label")
    assert probe.do("choose stable")
    is_drawn_afresh(probe, SETTINGS, scale)
    assert "fix the tide" in probe.changes(applet).texts
    is_drawn_afresh(probe, CHANGES, scale)
    assert probe.open(applet, SYSTEM).rows[1][0] == "seaweed"
    assert probe.do("page 1") and probe.do("select 1")
    assert "depth = 12" in probe.windows()[SYSTEM].texts
    assert probe.do("filter kelp") and probe.do("click Reload") and probe.do("page 0")
    is_drawn_afresh(probe, SYSTEM, scale)
    assert "Monitors Linux kernel releases from Kernhaven" in probe.open(applet, ABOUT).texts
    is_drawn_afresh(probe, ABOUT, scale)

    # Below a dialog the other windows can't be closed.
    for title in reversed(ENTRIES):
        probe.close(title)
    applet.expected_stderr = TOOLTIP if backend == "wayland" else ""
    assert re.fullmatch(applet.expected_stderr, applet.stderr)
    # Once more: a window is built anew each time.
    for title in ENTRIES:
        probe.open(applet, title)
    applet.item.menu.click("Quit")
    # The dialog's own loop goes on until the user closes it.
    assert probe.do(f"close {ABOUT}")
    assert applet.exit_status(AT_ONCE) == 0
