# SPDX-License-Identifier: MIT
"""The desktop around the applet: display, bus, window manager and panel, and the eyes and the mouse of its user."""

import contextlib
import os
import re
import string
import subprocess
import tempfile
from collections.abc import Callable
from pathlib import Path
from typing import Any, TypeVar

from failure import Failure, fail
from gi.repository import Gio, GLib
from needs import ACCESSIBILITY, INDICATORS, XFCONF
from PIL import Image
from pictures import Box
from stage.bus import PROPERTIES, ask_bus, call, connect
from stage.desktop import Display, SessionBus
from stage.panel import ITEM, WATCHER
from stage.processes import tied
from stage.screen import screenshot, still
from stage.user import User
from stage.waiting import wait_until
from subjects import BACKGROUND, SCREEN
from workshop import HERE, Workshop

CONFIGURATION = HERE / "config"
ITEM_PATH = "/org/ayatana/NotificationItem/veldrin_watch"
DEADLINE = 30.0
STILL_FOR = 0.7
STILL_WINDOW_FOR = 0.35  # where no panel follows with changes of its own

T = TypeVar("T")
D = TypeVar("D", bound="Desktop")


class Bus:
    """A client of the session bus."""

    def __init__(self, address: str) -> None:
        self._connection = connect(address)

    def call(
        self,
        owner: str,
        path: str,
        interface: str,
        method: str,
        signature: str = "()",
        *values: object,
        timeout: float = 5.0,
    ) -> Any:
        place, flags = (self._connection, owner, path, interface, method), Gio.DBusCallFlags.NO_AUTO_START
        return call(*place, signature, *values, timeout=timeout, flags=flags)[0]

    def _ask(self, method: str, *texts: str) -> Any:
        return ask_bus(self._connection, method, f"({'s' * len(texts)})", *texts)[0]

    def has(self, name: str) -> bool:
        return self._ask("NameHasOwner", name)

    def process_of(self, address: str) -> int:
        return self._ask("GetConnectionUnixProcessID", address)

    def address_of(self, process: int) -> str | None:
        """The address of the process, once its tray item answers there."""
        for name in self._ask("ListNames"):
            with contextlib.suppress(GLib.Error):
                if name.startswith(":") and self.process_of(name) == process:
                    self.icon_and_label(name)
                    return name
        return None

    def icon_and_label(self, address: str) -> tuple[str, str]:
        # A program may have a second address, at which nobody ever answers.
        said = self.call(address, ITEM_PATH, PROPERTIES, "GetAll", "(s)", ITEM, timeout=0.2)
        return said["IconName"], said["XAyatanaLabel"]

    def close(self) -> None:
        self._connection.close_sync(None)


class Desktop:
    """A display, a session bus, a window manager and a panel, with a user of their own."""

    kind = "window"
    remark = ""

    def __init__(self, theme: str, tray: str, workshop: Workshop) -> None:
        self.folder = Path(tempfile.mkdtemp(dir=workshop.folder))
        self.theme = theme
        self.panel_height = 0
        self.still_for = STILL_FOR
        self._failed = workshop.folder / "failed.png"
        self._log = workshop.log
        self._tray = tray
        self._workshop = workshop
        self._processes: list[subprocess.Popen] = []
        self.user = User(self.folder, os.environ["PATH"])
        self.environment = self.user.environment
        self.environment |= {
            "XDG_DATA_DIRS": f"{workshop.share}:/usr/local/share:/usr/share",
            "XDG_CURRENT_DESKTOP": "XFCE",
            "XDG_SESSION_TYPE": "x11",
            "GDK_BACKEND": "x11",
            # What GTK 3 reads from its settings, a program with libadwaita would ask a service for.
            "ADW_DEBUG_COLOR_SCHEME": f"prefer-{theme}",
        }
        for source in CONFIGURATION.rglob("*"):
            if source.is_file():
                target = self.user.config / source.relative_to(CONFIGURATION)
                target.parent.mkdir(parents=True, exist_ok=True)
                dark = "true" if theme == "dark" else "false"
                target.write_text(string.Template(source.read_text()).substitute(dark=dark, tray=tray))

    def __enter__(self: D) -> D:
        try:
            self._come_up()
        except BaseException:
            self.__exit__()
            raise
        return self

    def _come_up(self) -> None:
        display = Display(self.folder, *SCREEN, log=self._workshop.log_file)
        self._processes.append(display.process)
        self._start_session(display)
        self._run("xsetroot", "-solid", BACKGROUND)
        # It says in the title of a window from which machine it comes, unless that is its own.
        self.start("xfwm4", LD_PRELOAD=str(self._workshop.uname))
        self.wait(lambda: "window id" in self._run("xprop", "-root", "_NET_SUPPORTING_WM_CHECK"), "no window manager")
        if self._tray == "indicator":
            self.start(INDICATORS)
            self.wait(lambda: self.bus.has(WATCHER), "no host for indicators")
        self.start("xfce4-panel", "--disable-wm-check")
        self.wait(lambda: self.bus.has("org.xfce.Panel") and self.bus.has(WATCHER), "no panel")
        _, _, _, self.panel_height = self.wait(self.dock, "the panel is not on the screen")
        self.point_nowhere()

    def _start_session(self, display: Display | None) -> None:
        """The bus can start the panel's settings, and no other service of the machine's."""
        bus = SessionBus(self.folder, [XFCONF], log=self._workshop.log_file, environment=self.environment)
        self._processes.append(bus.process)
        self.user.joins(bus, display)
        self.bus = Bus(bus.address)

    def start_accessibility(self) -> None:
        """Lets assistive technology reach the programs that are started from now on."""
        self.start(ACCESSIBILITY, "--launch-immediately")
        self.wait(lambda: self.bus.has("org.a11y.Bus"), "no assistive technology")
        self.accessibility = Bus(self.bus.call("org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus", "GetAddress"))
        self.environment["NO_AT_BRIDGE"] = "0"

    def start(self, *command: str | Path, **environment: str) -> subprocess.Popen:
        process = subprocess.Popen(
            tied(command, "KILL"),
            env={**self.environment, **environment},
            cwd=self.folder,
            stdin=subprocess.DEVNULL,
            stdout=self._log,
            stderr=self._log,
            # A Ctrl-C on the terminal is for this script alone, which then ends them in their order.
            start_new_session=True,
        )
        self._processes.append(process)
        return process

    def expect_end(self, process: subprocess.Popen) -> None:
        self._processes.remove(process)

    def __exit__(self, kind: type | None = None, *_: object) -> None:
        if kind is Failure:
            with contextlib.suppress(Exception):
                self.screenshot().save(self._failed)
        with contextlib.suppress(AttributeError, GLib.Error):
            self.bus.close()
            self.accessibility.close()
        for process in reversed(self._processes):
            process.terminate()
            try:
                process.wait(3)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
        self._processes.clear()

    def wait(self, condition: Callable[[], T], problem: str | Callable[[], str]) -> T:
        """Returns the condition's first result that counts as true."""

        def holds() -> T:
            if not (result := condition()):
                for process in self._processes:
                    if process.poll() is not None:
                        fail(f"{process.args[process.args.index('--') + 1]} ended with {process.returncode}")
            return result

        try:
            return wait_until(holds, problem, DEADLINE, interval=0.03)
        except AssertionError as late:
            fail(str(late))

    def _run(self, *command: str) -> str:
        """Runs an X client and returns what it says, or nothing if it fails."""
        done = subprocess.run(
            command,
            env=self.environment,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=self._log,
            text=True,
            timeout=DEADLINE,
        )
        return done.stdout if done.returncode == 0 else ""

    def xdotool(self, *words: str | int) -> str:
        return self._run("xdotool", *map(str, words))

    def _windows(self, *wanted: str | int) -> list[str]:
        return self.xdotool("search", "--onlyvisible", *wanted).split()

    def _geometry(self, window: str) -> Box:
        # Not from xdotool: older ones are wrong by the frame.
        said = self._run("xwininfo", "-id", window)
        names = ("Absolute upper-left X", "Absolute upper-left Y", "Width", "Height")
        found = [re.search(rf"{name}: +(-?\d+)", said) for name in names]
        x, y, width, height = (int(match[1]) if match else 0 for match in found)
        return (x, y, x + width, y + height)

    def _property(self, window: str, name: str) -> str:
        return self._run("xprop", "-id", window, name).partition("=")[2].strip()

    def popups(self) -> list[Box]:
        """The open menus."""
        return [
            self._geometry(window)
            for window in self._windows("--maxdepth", 1, "--class", "")
            if re.search("_MENU|_COMBO", self._property(window, "_NET_WM_WINDOW_TYPE"))
        ]

    def dock(self) -> Box | None:
        """The panel, once it has its place."""
        for window in self._windows("--class", "xfce4-panel"):
            if "_DOCK" in self._property(window, "_NET_WM_WINDOW_TYPE"):
                return self._geometry(window)
        return None

    def frame(self, title: str) -> Box | None:
        """The window of that title with its frame, once it has both."""
        for window in self._windows("--name", f"^{re.escape(title)}$"):
            extents = [int(number) for number in self._property(window, "_NET_FRAME_EXTENTS").split(",") if number]
            if len(extents) == 4:
                left, top, right, bottom = self._geometry(window)
                return (left - extents[0], top - extents[2], right + extents[1], bottom + extents[3])
        return None

    def client(self, title: str) -> Box:
        """The window of that title without its frame."""
        (window,) = self._windows("--name", f"^{re.escape(title)}$")
        return self._geometry(window)

    def point_nowhere(self) -> None:
        """Takes the pointer off everything that would light up under it."""
        self.xdotool("mousemove", 20, SCREEN[1] - 20)

    def screenshot(self) -> Image.Image:
        return screenshot(self.environment["DISPLAY"])

    def still(self) -> Image.Image:
        """A picture of the screen once nothing on it has changed for a while."""
        return still(self.screenshot, self.wait, self.still_for)
