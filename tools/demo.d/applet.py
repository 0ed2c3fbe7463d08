# SPDX-License-Identifier: MIT
"""The applet as its user sees it, and the program behind it on a machine of the demo's."""

import contextlib
import os
import re
import signal
from collections.abc import Callable
from pathlib import Path

from assistive import Hand
from desktop import DEADLINE, Desktop
from failure import fail
from gi.repository import GLib
from PIL import Image
from pictures import Box, Where, find, has_header, is_plain, release_edge
from stage.clock import Clock
from stage.site import KernelSite
from subjects import CHANGES, CHANNELS, FATAL, MENU, SETTINGS, SIGNALS, SQUARES, WORKSTATION, Channel, Machine, Window
from workshop import PROGRAM, Workshop

FIRST_COMMIT = (90, 162)  # in its window
COPIES = 10  # tries to take a picture of what shows for two seconds


class Program:
    """The program on a machine of the demo's."""

    def __init__(self, desktop: Desktop, machine: Machine, workshop: Workshop, **environment: str) -> None:
        self.desktop = desktop
        # The way into that machine may be set-user-ID, and then takes no libraries along.
        variables = {"LD_PRELOAD": str(workshop.uname), **machine.environment, **environment}
        settings = [word for name, value in variables.items() for word in ("--setenv", name, value)]
        self._process = desktop.start(*workshop.way_into(machine), *settings, "--", PROGRAM)
        self._pid = desktop.wait(self._find, "the program does not start")
        self._address = desktop.wait(lambda: desktop.bus.address_of(self._pid), "the program is not on the bus")
        self._hand: Hand | None = None

    def _find(self) -> int | None:
        for child in Path(f"/proc/{self._process.pid}/task/{self._process.pid}/children").read_text().split():
            with contextlib.suppress(OSError):
                if Path(f"/proc/{child}/comm").read_text().strip() == PROGRAM.name:
                    return int(child)
        return None

    @property
    def hand(self) -> Hand:
        if not self._hand:
            self._hand = Hand(self.desktop, self._pid)
        return self._hand

    def send(self, number: int) -> None:
        os.kill(self._pid, number)

    def ends(self) -> None:
        self.desktop.expect_end(self._process)
        self.send(signal.SIGTERM)
        self._process.wait(DEADLINE)


class Applet(Program):
    def __init__(
        self,
        desktop: Desktop,
        site: KernelSite,
        workshop: Workshop,
        machine: Machine = WORKSTATION,
        **environment: str,
    ) -> None:
        self.icon: Box = (0, 0, 0, 0)
        self._clock = Clock(desktop.folder / "clock")
        preloaded = f"{workshop.quick_sleep} {workshop.uname}"
        variables = {"LD_PRELOAD": preloaded, **self._clock.environment, **site.environment, **environment}
        super().__init__(desktop, machine, workshop, **variables)

    def check(self) -> None:
        """Lets the time up to the next check pass at once."""
        self._clock.begin_check()

    def shows(self, colour: str, label: str, drawn_label: bool = True) -> None:
        """Waits until the program says so on the bus and the panel draws it so, the penguin pixel by pixel."""
        stem = f"tux-{colour}"
        said: tuple[str, str] = ("", "")

        def told() -> bool:
            nonlocal said
            with contextlib.suppress(GLib.Error):
                said = self.desktop.bus.icon_and_label(self._address)
            return (Path(said[0]).name, said[1]) == (stem, label)

        self.desktop.wait(told, lambda: f"the program should show {stem} and the label {label!r}, but shows {said}")

        penguin = Image.open(said[0], formats=["PNG"]).convert("RGB")
        if penguin.getpixel((0, 0)) != SQUARES[colour]:
            fail(f"the square of {stem} is {penguin.getpixel((0, 0))}")

        def drawn() -> bool:
            picture = self.desktop.screenshot()
            places = find(penguin, picture)
            if len(places) != 1:
                return False
            x, y = places[0]
            right, bottom = x + penguin.width, y + penguin.height
            self.icon = (x, y, right, bottom)
            # A label starts within these few pixels, and nothing else does.
            has_label = not is_plain(picture.crop((right + 2, y, right + 2 + 8, bottom)))
            return has_label == bool(label and drawn_label)

        self.desktop.wait(drawn, f"the panel does not draw {stem} {'and a label' if label else 'alone'}")

    def open_menu(self) -> Box:
        left, top, right, bottom = self.icon
        self.desktop.xdotool("mousemove", (left + right) // 2, (top + bottom) // 2, "click", 1)
        (menu,) = self.desktop.wait(self.desktop.popups, "a click on the icon opens no menu")
        self.desktop.point_nowhere()
        return menu

    def close_menu(self) -> None:
        self.desktop.xdotool("key", "Escape")
        self.desktop.wait(lambda: not self.desktop.popups(), "Escape does not close the menu")

    def choose(self, entry: str) -> None:
        self.open_menu()
        self.desktop.xdotool("key", *["Down"] * (MENU.index(entry) + 1), "Return")
        self.desktop.wait(lambda: not self.desktop.popups(), f"{entry!r} does not close the menu")

    def ask_for(self, window: Window) -> None:
        if window.opened_by in FATAL:
            self.desktop.expect_end(self._process)
        if isinstance(window.opened_by, int):
            self.send(window.opened_by)
        else:
            self.choose(window.opened_by)

        def drawn() -> bool:
            box = self.desktop.frame(window.title)
            return box is not None and not is_plain(self.desktop.screenshot().crop(box))

        self.desktop.wait(drawn, f"no window {window.title!r} opens")

    def signal_for(self, window: Window) -> None:
        self.send(SIGNALS[window.name])
        self.desktop.wait(lambda: self.desktop.frame(window.title), f"no window {window.title!r} opens")

    def where(self, window: Window) -> Where:
        return lambda _: self.desktop.frame(window.title)

    def _activate(self, window: Window) -> None:
        title = f"^{re.escape(window.title)}$"
        self.desktop.xdotool("search", "--onlyvisible", "--name", title, "windowactivate", "--sync")

    def choose_channel(self, channel: Channel) -> None:
        """Picks a channel in the overview, where the selector has the keyboard at first."""
        self._activate(SETTINGS)
        self.desktop.xdotool("key", "space")
        self.desktop.wait(self.desktop.popups, "the selector does not open")
        self.desktop.xdotool("key", "Home", *["Down"] * CHANNELS.index(channel), "Return")
        self.desktop.wait(lambda: not self.desktop.popups(), "the selector does not close")

    def shows_header(self, window: Window, channel: Channel) -> Box:
        """Waits until the window has the channel's colour; returns where it stands."""

        def drawn() -> Box | None:
            box = self.desktop.frame(window.title)
            return box if box and has_header(self.desktop.screenshot().crop(box), channel.accent) else None

        return self.desktop.wait(drawn, f"the header of {window.title!r} is not that of {channel.name}")

    def shows_commits(self, box: Box) -> None:
        self.desktop.wait(lambda: release_edge(self.desktop.screenshot().crop(box)), "no commit of a release is shown")

    def shows_failure(self, box: Box) -> None:
        # While it loads, something moves.
        if release_edge(self.desktop.still().crop(box)):
            fail("there are commits in the window, but the site gave none")

    def open_first_commit(self) -> None:
        self._activate(CHANGES)
        before = self.desktop.still().tobytes()
        left, top, *_ = self.desktop.client(CHANGES.title)
        self.desktop.xdotool("mousemove", left + FIRST_COMMIT[0], top + FIRST_COMMIT[1], "click", 1)
        self.desktop.point_nowhere()
        self.desktop.wait(lambda: self.desktop.screenshot().tobytes() != before, "a click opens no commit")

    def scrolls_down(self, window: Window) -> None:
        left, top, right, bottom = self.desktop.client(window.title)
        before = self.desktop.still().tobytes()
        self.desktop.xdotool("mousemove", (left + right) // 2, (top + bottom) // 2, "click", "--repeat", 30, 5)
        self.desktop.point_nowhere()
        self.desktop.wait(lambda: self.desktop.screenshot().tobytes() != before, f"{window.title!r} does not scroll")

    def clicks_command(self, take_picture: Callable[[], None]) -> None:
        """Clicks on the command in the system window and takes a picture while the window tells that it is copied."""
        for _ in range(COPIES):
            self.hand.clicks("text")
            self.desktop.point_nowhere()
            self.desktop.wait(lambda: self.hand.sees("Copied"), "a click on the command does not copy it")
            take_picture()
            # After two seconds it tells no more, and a busy machine may need more than these.
            if self.hand.sees("Copied"):
                return
        fail("no picture could be taken within two seconds")

    def shrink(self, window: Window) -> Box:
        """Makes it as small as window manager and toolkit let it be."""
        title = f"^{re.escape(window.title)}$"
        self.desktop.still()
        before = self.desktop.frame(window.title)
        self.desktop.xdotool("search", "--onlyvisible", "--name", title, "windowsize", 1, 1)
        self.desktop.wait(lambda: self.desktop.frame(window.title) != before, f"{window.title!r} keeps its size")
        return self.desktop.frame(window.title) or fail(f"the window {window.title!r} closes by itself")

    def close_window(self, window: Window) -> None:
        self._activate(window)
        self.desktop.xdotool("key", "alt+F4")
        self.desktop.wait(lambda: not self.desktop.frame(window.title), f"the window {window.title!r} does not close")

    def quit(self) -> None:
        self.desktop.expect_end(self._process)
        self.choose("Quit")
        self.desktop.wait(lambda: self._process.poll() is not None, "Quit does not end the program")
        if self._process.returncode != 0:
            fail(f"after Quit the program ended with {self._process.returncode}")
