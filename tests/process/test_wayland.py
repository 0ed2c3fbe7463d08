# SPDX-License-Identifier: MIT
"""What Wayland asks of a program beside what X11 does."""

import re
import subprocess

import pytest
from stage.compositor import TOOLTIP, toplevels
from stage.desktop import Display
from stage.probe import ENTRIES, SETTINGS, Probe
from stage.processes import Program
from stage.project import BUILD
from stage.waiting import DEADLINE, let_pass, wait_until

SYSTEM_TRAY = BUILD.driver("system_tray")
# The indicator library waits a tenth of one for a panel before it looks for another tray.
HALF_A_SECOND = 0.5

# In a snap the indicator library minds where a test keeps its files.
SNAP_WARNINGS = r"(\n?\(veldrin:\d+\): libayatana-appindicator-WARNING \*\*: [\d:.]+: Using '/tmp' paths in [^\n]*\n)*"


# ---- Without a panel ----


def test_there_is_nothing_to_say_when_panels_end(machine, compositors):
    machine.panel.leave()
    applet = machine.launch(environment=compositors(1).environment)
    wait_until(lambda: applet.clock.delays_begun, "the program's start")
    let_pass(HALF_A_SECOND)
    for taken in (1, 2, 3):
        machine.panel.come()
        wait_until(lambda: len(machine.panel.items) == taken, "the icon in the panel")
        assert applet.item.icon == "tux-red"
        machine.panel.leave()
        let_pass(HALF_A_SECOND)
        assert (applet.stdout, applet.stderr) == ("", "")
    assert applet.quit() == 0


def test_on_x11_the_icon_goes_to_a_tray_of_the_old_kind(machine, tmp_path):
    display = Display(tmp_path)
    environment = {"DISPLAY": display.name, "PATH": ""}
    tray = Program([SYSTEM_TRAY], environment, tmp_path, "tray")
    try:
        wait_until(lambda: tray.stdout == "ready\n", lambda: f"the tray; {tray.stderr}")
        machine.panel.leave()
        # A tray whose own window holds the icons makes GTK read one after its end. The sanitizers have a way of their
        # own with memory that was freed.
        preload = [] if BUILD.sanitized else [BUILD.library("rubbish")]
        variables = {"DISPLAY": display.name, "G_SLICE": "always-malloc", **machine.without_leak_search}
        applet = machine.launch(preload=preload, environment=variables)
        wait_until(lambda: "\nveldrin\n" in tray.stdout, lambda: f"the icon; {tray.stdout}")
        machine.panel.come()
        assert applet.item.icon == "tux-red"
        assert applet.quit() == 0
    finally:
        tray.kill()
        display.close()


# ---- Whose a window is ----


@pytest.mark.parametrize(
    ("variables", "application_id"),
    [
        ({}, "org.veldrin.Veldrin"),
        ({"FLATPAK_ID": "org.veldrin.Veldrin"}, "org.veldrin.Veldrin"),
        ({"SNAP": "/snap/veldrin/x1", "SNAP_NAME": "veldrin"}, "veldrin_veldrin"),
    ],
    ids=["package", "flatpak", "snap"],
)
def test_every_window_says_which_desktop_file_is_its_own(machine, compositors, variables, application_id):
    probe = Probe(machine.folder)
    environment = {
        **probe.options["environment"],
        **compositors(1).environment,
        **variables,
        "WAYLAND_DEBUG": "client",
    }
    applet = machine.start(preload=probe.options["preload"], environment=environment)
    applet.expected_stderr = ".*"
    # Twice: a window is built anew each time.
    for _ in range(2):
        for title in ENTRIES:
            probe.open(applet, title)
        # Below a dialog the other windows can't be closed.
        for title in reversed(ENTRIES):
            probe.close(title)
    assert applet.quit() == 0

    windows = toplevels(applet.stderr)
    assert [window.title for window in windows] == [*ENTRIES, *ENTRIES]
    for window in windows:
        assert window.has_contents
        assert window.ids_before_contents == ["veldrin", application_id]
        assert window.ids_afterwards == []
    said = "".join(line for line in applet.stderr.splitlines(keepends=True) if not re.match(r"\[ *\d+\.\d+\] ", line))
    assert re.fullmatch((SNAP_WARNINGS if "SNAP" in variables else "") + TOOLTIP, said)


def test_on_x11_a_window_keeps_the_programs_class(machine):
    applet = machine.start()
    applet.item.menu.click(SETTINGS)

    def window_class() -> str:
        asked = ["xprop", "-display", machine.environment["DISPLAY"], "-name", SETTINGS, "WM_CLASS"]
        return subprocess.run(asked, capture_output=True, text=True, timeout=DEADLINE).stdout

    assert wait_until(window_class, "the window") == 'WM_CLASS(STRING) = "veldrin", "Veldrin"\n'
