# SPDX-License-Identifier: MIT
"""A desktop session on a display of its own: what a host stands on, and the eyes and the mouse of its user."""

from __future__ import annotations

import contextlib
import os
import signal
import subprocess
import sys
import time
from collections.abc import Callable
from pathlib import Path
from typing import NoReturn, TypeVar

from PIL import Image

sys.path.append(str(Path(__file__).resolve().parents[2] / "tests"))
from stage.desktop import Bus, Display  # noqa: E402
from stage.panel import WATCHER  # noqa: E402
from stage.processes import Service, tied  # noqa: E402
from stage.screen import screenshot, still  # noqa: E402

T = TypeVar("T")

SCREEN = (1280, 800)
NOWHERE = (SCREEN[0] // 2, SCREEN[1] - 150)
BACKGROUND = "#5b7c99"
DEADLINE = 60.0
LOOKS_A_SECOND = 20
STILL_FOR = 0.5


class Failure(Exception):
    pass


def fail(problem: str) -> NoReturn:
    raise Failure(problem)


class Session:
    """A display, a session bus and a home. `environment` is what programs get; hosts add to it."""

    def __init__(self, folder: Path) -> None:
        self.folder = folder
        self.home = folder / "home"
        self.runtime = folder / "run"
        self.config = self.home / ".config"
        for made in (self.config, self.home / ".local" / "share", self.home / ".cache", self.runtime):
            made.mkdir(parents=True, mode=0o700)
        self._log_file = folder / "log.txt"
        self.log = self._log_file.open("ab")
        self.environment = {
            "PATH": "/usr/local/bin:/usr/bin:/bin:/usr/local/sbin:/usr/sbin:/sbin",
            "LANG": "C.UTF-8",
            "HOME": str(self.home),
            "USER": os.environ.get("USER", ""),
            "SHELL": "/bin/sh",
            "XDG_RUNTIME_DIR": str(self.runtime),
            "XDG_CONFIG_HOME": str(self.config),
            "XDG_DATA_DIRS": "/usr/local/share:/usr/share",
            "XDG_SESSION_TYPE": "x11",
            # No machine of ours has a graphics card for this.
            "LIBGL_ALWAYS_SOFTWARE": "1",
            "GTK_USE_PORTAL": "0",
        }
        self._kept: dict[str, subprocess.Popen] = {}

        self.display = Display(folder, *SCREEN, log=self._log_file).name
        self.environment["DISPLAY"] = self.display
        self.run("xsetroot", "-solid", BACKGROUND)
        # Not the tests' own: a desktop has all of the system's services.
        bus = ["dbus-daemon", "--session", "--nofork", "--nopidfile", "--nosyslog", "--print-address={fd}"]
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = Service(bus, self._log_file, self.environment).address

    # ---- Programs ----

    def start(self, *command: str | Path, **environment: str) -> subprocess.Popen:
        return subprocess.Popen(
            tied(command, "KILL"),
            env={**self.environment, **environment},
            cwd=self.home,
            stdin=subprocess.DEVNULL,
            stdout=self.log,
            stderr=self.log,
            start_new_session=True,
        )

    def keep(self, name: str, *command: str | Path, **environment: str) -> None:
        """Starts a program that `drop` ends by that name."""
        self._kept[name] = self.start(*command, **environment)

    def drop(self, name: str) -> None:
        stop(self._kept.pop(name))

    def run(self, *command: str | Path, **environment: str) -> str:
        """Runs a command to its end and returns what it says, or nothing if it fails."""
        done = subprocess.run(
            command,
            env={**self.environment, **environment},
            cwd=self.home,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=self.log,
            text=True,
            timeout=DEADLINE,
        )
        return done.stdout.strip() if done.returncode == 0 else ""

    def write(self, path: str, text: str) -> None:
        """A file below the home."""
        file = self.home / path
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text)

    def enter_compositor(self, name: str = "") -> None:
        """Programs that are started from now on show in the compositor of that name, or in the one that comes."""

        def socket() -> Path | None:
            return next((path for path in self.runtime.glob(name or "wayland-*") if path.is_socket()), None)

        self.environment |= {
            "WAYLAND_DISPLAY": self.wait(socket, "no compositor").name,
            "XDG_SESSION_TYPE": "wayland",
            "GDK_BACKEND": "wayland",
            "QT_QPA_PLATFORM": "wayland",
        }
        self.environment.pop("DISPLAY")
        self.tell_bus()

    # ---- Buses ----

    def tell_bus(self) -> None:
        """Services that the bus starts from now on get this environment, too."""
        names = (
            "DISPLAY",
            "WAYLAND_DISPLAY",
            "XDG_RUNTIME_DIR",
            "XDG_CURRENT_DESKTOP",
            "XDG_SESSION_TYPE",
            "XDG_CONFIG_DIRS",
            "QT_QPA_PLATFORM",
            "GDK_BACKEND",
            "LIBGL_ALWAYS_SOFTWARE",
        )
        known = [f"{name}={self.environment[name]}" for name in names if name in self.environment]
        self.run("dbus-update-activation-environment", *known)

    def call(self, name: str, path: str, method: str, *arguments: str) -> str:
        """What a service of the session answers, or nothing."""
        return self.run(
            "gdbus", "call", "--session", "--dest", name, "--object-path", path, "--method", method, *arguments
        )

    def tells(self, name: str, path: str, value: str) -> bool:
        """Whether that property of a service is true; its interface is called like the service."""
        return "true" in self.call(name, path, "org.freedesktop.DBus.Properties.Get", name, value)

    def has_name(self, name: str) -> bool:
        bus = "org.freedesktop.DBus"
        return "true" in self.call(bus, "/org/freedesktop/DBus", f"{bus}.NameHasOwner", name)

    def wait_for_name(self, name: str) -> None:
        self.wait(lambda: self.has_name(name), f"nobody owns {name}")

    def wait_for_host(self) -> None:
        """Until a panel says that it shows icons."""
        self.wait(
            lambda: self.tells(WATCHER, "/StatusNotifierWatcher", "IsStatusNotifierHostRegistered"),
            "no panel shows icons",
        )

    def start_system_bus(self, *templates: str) -> None:
        """A system bus of the session's own, with stand-ins for the services of these names."""
        address = f"unix:path={self.folder / 'system-bus'}"
        self.environment["DBUS_SYSTEM_BUS_ADDRESS"] = address
        Bus(self.folder, "system", address, log=self._log_file, environment=self.environment)
        for template in templates:
            self.start("/usr/bin/python3", "-m", "dbusmock", "--system", "--template", template)
        if "logind" in templates:
            self._log_in()

    def _log_in(self) -> None:
        """A seat, and this user's session on it."""
        mock = (
            "gdbus",
            "call",
            "--system",
            "--dest",
            "org.freedesktop.login1",
            "--object-path",
            "/org/freedesktop/login1",
            "--method",
        )
        user = str(os.getuid())
        name = self.environment["USER"]
        method = "org.freedesktop.DBus.Mock."
        self.wait(lambda: self.run(*mock, method + "AddSeat", "seat0"), "no stand-in for logind")
        self.run(*mock, method + "AddUser", user, name, "true")
        self.run(*mock, method + "AddSession", "c1", "seat0", user, name, "true")
        self.environment["XDG_SESSION_ID"] = "c1"

    # ---- Eyes and mouse ----

    def screenshot(self) -> Image.Image:
        return screenshot(self.display)

    def still(self, seconds: float = STILL_FOR) -> Image.Image:
        """A picture of the screen once nothing on it has changed for so long."""
        return still(self.screenshot, self.wait, seconds)

    def xdotool(self, *words: str | int) -> str:
        return self.run("xdotool", *map(str, words), DISPLAY=self.display)

    def click(self, x: int, y: int, button: int = 1) -> None:
        self.xdotool("mousemove", x, y)
        # A compositor must have told the panel where the pointer is before the button goes down.
        time.sleep(0.2)
        self.xdotool("click", button)

    def point_nowhere(self) -> None:
        """Takes the pointer off everything that would light up under it."""
        self.xdotool("mousemove", *NOWHERE)

    def wait(self, condition: Callable[[], T], problem: str, patience: float = DEADLINE) -> T:
        """Returns the condition's first result that counts as true."""
        return self.hopes(condition, patience) or fail(f"after {patience:g} seconds: {problem}")

    def hopes(self, condition: Callable[[], T], patience: float = DEADLINE) -> T:
        """Returns the condition's first result that counts as true, or in the end its last one."""
        end = time.monotonic() + patience
        while not (result := condition()) and time.monotonic() < end:
            time.sleep(1 / LOOKS_A_SECOND)
        return result


def stop(process: subprocess.Popen) -> None:
    """Ends a program with all that it has started in its session."""
    for number in (signal.SIGTERM, signal.SIGKILL):
        with contextlib.suppress(ProcessLookupError):
            os.killpg(process.pid, number)
        with contextlib.suppress(subprocess.TimeoutExpired):
            process.wait(5)
            return
