"""What Wayland asks of a program beside what X11 does."""

from applet import BUILD, without_panel
from desktop import Display, Program
from waiting import let_pass, wait_until

SYSTEM_TRAY = BUILD / "tests" / "system_tray"
# The indicator library waits a tenth of one for a panel before it looks for another tray.
HALF_A_SECOND = 0.5


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


@without_panel
def test_on_x11_the_icon_goes_to_a_tray_of_the_old_kind(machine, tmp_path):
    display = Display(tmp_path)
    environment = {"DISPLAY": display.name, "PATH": ""}
    tray = Program([SYSTEM_TRAY], environment, tmp_path, "tray")
    try:
        wait_until(lambda: tray.stdout == "ready\n", lambda: f"the tray; {tray.stderr}")
        machine.panel.leave()
        applet = machine.launch(environment={"DISPLAY": display.name})
        wait_until(lambda: "\nveldrin\n" in tray.stdout, lambda: f"the icon; {tray.stdout}")
        machine.panel.come()
        assert applet.item.icon == "tux-red"
        assert applet.quit() == 0
    finally:
        tray.kill()
        display.stop()
