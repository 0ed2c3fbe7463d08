# SPDX-License-Identifier: MIT
"""The desktop on Wayland: a compositor without input, which lets itself be photographed."""

import subprocess

from applet import Program
from assistive import Hand
from desktop import DEADLINE, STILL_WINDOW_FOR, Desktop
from needs import INDICATORS
from PIL import Image, ImageColor
from pictures import difference, has_header
from stage.compositor import CONFIGURATION
from stage.panel import WATCHER
from stage.site import KernelSite
from subjects import (
    ABOUT,
    BACKGROUND,
    CHANNELS,
    SCREEN,
    SIGNALS,
    SYSTEM,
    SYSTEM_ACCENT,
    WORKSTATION,
    Channel,
    Machine,
    Window,
)
from workshop import Workshop

WESTON = ("--backend=headless-backend.so", "--use-pixman", f"--width={SCREEN[0]}", f"--height={SCREEN[1]}", "--debug")


class WaylandDesktop(Desktop):
    """A compositor without input, a session bus and a host for indicators. It shows one program at a time."""

    kind = "wayland"
    remark = "; on Wayland"

    def __init__(self, theme: str, workshop: Workshop) -> None:
        super().__init__(theme, "indicator", workshop)
        self.still_for = STILL_WINDOW_FOR
        self.environment |= {"XDG_SESSION_TYPE": "wayland", "GDK_BACKEND": "wayland", "WAYLAND_DISPLAY": "wayland-demo"}
        self._pictures = self.folder / "pictures"
        self._pictures.mkdir()

    def _come_up(self) -> None:
        configuration = self.folder / "weston.ini"
        configuration.write_text(f"{CONFIGURATION}background-color=0xff{BACKGROUND[1:]}\n")
        self.start("weston", *WESTON, f"--config={configuration}", f"--socket={self.environment['WAYLAND_DISPLAY']}")
        self._start_session(None)
        self.start(INDICATORS)
        self.wait(lambda: self.bus.has(WATCHER), "no host for indicators")
        background = ImageColor.getrgb(BACKGROUND)
        socket = self.user.runtime / self.environment["WAYLAND_DISPLAY"]
        self.wait(socket.exists, "no compositor")
        self.wait(lambda: self.screenshot().getpixel((0, 0)) == background, "no background")

    def opens(self, window: Window, what: Channel | Machine, site: KernelSite) -> None:
        """Starts the program as its user left it on that channel, or on that machine, and opens a window."""
        channel, machine = (what, WORKSTATION) if isinstance(what, Channel) else (CHANNELS[1], what)
        self.user.saves(channel=channel.name, **{other.name: other.version for other in CHANNELS})
        self._program = Program(self, machine, self._workshop, **site.environment)
        self._program.send(SIGNALS[window.name])
        accent = {SYSTEM: SYSTEM_ACCENT, ABOUT: None}.get(window, channel.accent)
        self.wait(lambda: self._shows(accent), f"{window.title!r} of {what.name} does not show")

    @property
    def hand(self) -> Hand:
        return self._program.hand

    def ends(self) -> None:
        self._program.ends()
        self.wait(lambda: difference(self.screenshot()) is None, "the window stays")

    def _shows(self, accent: tuple[int, int, int] | None) -> bool:
        picture = self.screenshot()
        box = difference(picture)
        return box is not None and (accent is None or has_header(picture.crop(box), accent))

    def screenshot(self) -> Image.Image:
        subprocess.run(
            ["weston-screenshooter"],
            cwd=self._pictures,
            env=self.environment,
            stdin=subprocess.DEVNULL,
            stdout=self._log,
            stderr=self._log,
            timeout=DEADLINE,
            check=True,
        )
        (path,) = self._pictures.iterdir()
        with Image.open(path) as picture:
            result = picture.convert("RGB")
        path.unlink()
        return result
