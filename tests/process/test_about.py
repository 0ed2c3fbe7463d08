# SPDX-License-Identifier: MIT
"""The about dialog from outside: what opens it, what goes on below it, and that it holds up the end."""

import signal
import subprocess

import pytest
from stage.tools import SYSTEM, page
from stage.waiting import wait_until


class Screen:
    def __init__(self, machine) -> None:
        self._environment = {"DISPLAY": machine.environment["DISPLAY"], "PATH": SYSTEM}

    def _xdotool(self, *words: str) -> str:
        def run() -> subprocess.CompletedProcess | None:
            command = ["xdotool", *words]
            done = subprocess.run(command, env=self._environment, capture_output=True, text=True, check=False)
            # A window that goes while it looks is the end of it.
            return None if "BadWindow" in done.stderr else done

        return wait_until(run, f"xdotool {' '.join(words)}").stdout

    def windows(self, title: str) -> list[str]:
        return self._xdotool("search", "--onlyvisible", "--name", f"^{title}$").split()

    def dialogs(self) -> list[str]:
        return self.windows("About Veldrin")

    def wait_for(self, number: int) -> list[str]:
        return wait_until(
            lambda: len(found := self.dialogs()) == number and (found or True), lambda: f"{number}: {self.dialogs()}"
        )

    def close_newest(self) -> None:
        """Keys go to the newest, whichever has the focus: the others are held up by it."""
        standing = self.dialogs()
        self._xdotool("windowfocus", standing[-1], "key", "Escape")
        wait_until(lambda: len(self.dialogs()) < len(standing), "the dialog's end")


@pytest.fixture
def screen(machine) -> Screen:
    return Screen(machine)


def open_by_signal(applet) -> None:
    applet.send(signal.SIGUSR2)


def open_by_menu(applet) -> None:
    applet.item.menu.click("About")


@pytest.mark.parametrize("open_dialog", [open_by_signal, open_by_menu])
def test_opens(machine, screen, open_dialog):
    applet = machine.start()
    assert screen.dialogs() == []
    open_dialog(applet)
    screen.wait_for(1)
    screen.close_newest()
    applet.settle()
    assert applet.running
    assert applet.quit() == 0


def test_each_request_opens_one_more(machine, screen):
    applet = machine.start()
    for number, open_dialog in enumerate((open_by_signal, open_by_menu, open_by_signal), 1):
        open_dialog(applet)
        screen.wait_for(number)
    for number in (2, 1, 0):
        screen.close_newest()
        screen.wait_for(number)
    assert applet.quit() == 0


@pytest.mark.parametrize("open_dialog", [open_by_signal, open_by_menu])
def test_tray_goes_on_while_it_stands(machine, screen, open_dialog):
    machine.tools.publish(page(stable="7.2.4"))
    applet = machine.start()
    open_dialog(applet)
    screen.wait_for(1)
    assert len(applet.item.menu.entries()) == 8
    applet.check()
    assert (applet.item.icon, applet.item.label) == ("tux-green", "7.2.4")
    applet.item.menu.click("Acknowledge Update")
    wait_until(lambda: applet.item.icon == "tux-white", "the acknowledgement")
    assert len(screen.dialogs()) == 1


def test_quit_waits_until_the_last_is_closed(machine, screen):
    applet, number = machine.start(), 3
    for standing in range(1, number + 1):
        open_by_signal(applet)
        screen.wait_for(standing)
    applet.item.menu.click("Quit")
    for standing in range(number, 0, -1):
        applet.settle()
        assert len(screen.dialogs()) == standing
        assert applet.running
        screen.close_newest()
    assert applet.exit_status() == 0


def test_quit_takes_the_windows_and_leaves_the_dialog(machine, screen):
    applet = machine.start()
    applet.send(signal.SIGUSR1)
    wait_until(lambda: screen.windows("Settings"), "the window")
    open_by_menu(applet)
    screen.wait_for(1)
    applet.item.menu.click("Quit")
    wait_until(lambda: not screen.windows("Settings"), "the window's end")
    assert len(screen.dialogs()) == 1
    screen.close_newest()
    assert applet.exit_status() == 0
