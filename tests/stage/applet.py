# SPDX-License-Identifier: MIT
"""The applet under test, and the machine that starts it."""

import os
import re
import signal
from collections.abc import Sequence
from pathlib import Path

from stage.clock import Clock
from stage.desktop import Display, SessionBus
from stage.panel import Item, Panel
from stage.processes import Program
from stage.project import BUILD, Build, instruments
from stage.tools import Tools
from stage.user import User
from stage.waiting import DEADLINE, serve_panel, wait_until

# Seconds; far below the time that a held or a silent command takes.
AT_ONCE = 5.0


class Applet(Program):
    def __init__(
        self,
        command: Sequence[str | Path],
        environment: dict[str, str],
        folder: Path,
        name: str,
        panel: Panel,
        clock: Clock,
        deadline: float,
    ) -> None:
        self._panel = panel
        self._known_items = len(panel.items)
        self._deadline = deadline
        self.clock = clock
        self._item: Item | None = None
        self.expected_stderr = ""  # a pattern; anything else on it is a failure of the test
        super().__init__(command, environment, folder, name)

    @property
    def item(self) -> Item:
        """Its icon in the panel, waited for."""
        if self._item is None:

            def shown() -> bool:
                assert self.running, f"ended at start with {self.process.returncode}: {self.stderr}"
                return len(self._panel.items) > self._known_items

            wait_until(shown, "the icon in the panel", self._deadline)
            self._item = self._panel.items[self._known_items]
        return self._item

    @property
    def pid(self) -> int:
        return self.item.pid

    def begin_check(self) -> None:
        """Lets the time up to the next check pass."""
        self.clock.begin_check()

    def finish_check(self) -> None:
        """Waits until the check is over and the main loop has dealt with its result."""
        wait_until(lambda: self.clock.check_is_over, lambda: f"the end of the check; {self.clock}", self._deadline)
        self.settle()

    def check(self) -> None:
        self.begin_check()
        self.finish_check()

    def settle(self) -> None:
        """Waits until the main loop has nothing left to do: several looks in a row find it in the same sleep. A window
        that moves all the time keeps it from that."""
        self.item.properties()
        looks: list[tuple[str, ...]] = []

        def rests() -> bool:
            looks.append(self._main_thread())
            return looks[-1][0].startswith("S") and looks[-4:] == [looks[-1]] * 4

        wait_until(rests, "the main loop at rest", self._deadline)
        # What it has sent before comes ahead of this answer.
        self.item.properties()
        serve_panel()

    def _main_thread(self) -> tuple[str, ...]:
        """Its state and how often it went to sleep and was interrupted."""
        status = Path(f"/proc/{self.pid}/status").read_text()
        return tuple(re.findall(r"^(?:State|\w*voluntary_ctxt_switches):\s*(.*)$", status, re.MULTILINE))

    def send(self, number: int) -> None:
        os.kill(self.pid, number)

    def quit(self) -> int:
        self.item.menu.click("Quit")
        return self.exit_status()

    def end(self) -> None:
        self.kill()
        assert self.stdout == ""
        if self.expected_stderr:
            assert re.fullmatch(self.expected_stderr, self.stderr, re.DOTALL)
        else:
            assert self.stderr == ""


class Machine(User):
    """A user's home, network and session for one test, and the applets that it starts there."""

    def __init__(
        self,
        folder: Path,
        display: Display,
        bus: SessionBus,
        panel: Panel,
        build: Build = BUILD,
        deadline: float = DEADLINE,
    ) -> None:
        self.tools = Tools(folder / "tools")
        super().__init__(folder, str(self.tools.folder))
        self.joins(bus, display)
        self.panel = panel
        self._build = build
        self._deadline = deadline
        self.applets: list[Applet] = []
        self.environment |= instruments()
        # The address sanitizer's library is there before ours, but not first in the list.
        self.environment["ASAN_OPTIONS"] = self.environment.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0"
        # Where that search can't look into the process, or would find the colours that GTK loses in its own tray.
        self.without_leak_search = {"ASAN_OPTIONS": self.environment["ASAN_OPTIONS"] + ":detect_leaks=0"}

    def launch(
        self,
        *arguments: str,
        environment: dict[str, str | None] | None = None,
        around: Sequence[str | Path] = (),
        preload: Sequence[Path] = (),
    ) -> Applet:
        """Starts the program and does not wait for anything. `environment` changes the usual one, and None takes a
        variable out; `around` is a command line that starts the program."""
        number = len(self.applets)
        clock = Clock(self.folder / f"clock-{number}")
        variables: dict[str, str | None] = {
            **self.environment,
            "LD_PRELOAD": " ".join(map(str, [self._build.library("quick_sleep"), *preload])),
            **clock.environment,
            **(environment or {}),
        }
        applet = Applet(
            [*around, self._build.program, *arguments],
            {name: value for name, value in variables.items() if value is not None},
            self.folder,
            f"applet-{number}",
            self.panel,
            clock,
            self._deadline,
        )
        self.applets.append(applet)
        return applet

    def start(self, *arguments: str, **options) -> Applet:
        """Starts the program and waits until it is all there: its icon is shown, its check thread is in its delay."""
        applet = self.launch(*arguments, **options)
        _ = applet.item
        wait_until(lambda: applet.clock.delays_begun, "the check thread's start", self._deadline)
        wait_until(applet.item.menu.is_there, "its menu", self._deadline)
        applet.settle()
        # The first label may come with the icon or after it.
        applet.item.signals.clear()
        return applet

    def start_and_check(self, *arguments: str, **options) -> Applet:
        applet = self.start(*arguments, **options)
        applet.check()
        return applet

    def close(self) -> None:
        for applet in self.applets:
            applet.kill()
        for applet in self.applets:
            applet.end()


def with_gvfs(machine: Machine) -> dict[str, str]:
    """The environment in which GIO finds the stand-in for GVfs, and it alone."""
    modules = machine.folder / "gio-modules"
    modules.mkdir()
    library = BUILD.library("vfs")
    (modules / library.name).symlink_to(library)
    return {"GIO_EXTRA_MODULES": str(modules)}


def signal_name(number: int) -> str:
    return f"SIGRTMIN+{number - signal.SIGRTMIN}" if number >= signal.SIGRTMIN else signal.Signals(number).name


WINDOW_SIGNALS = [signal.SIGUSR1, signal.SIGUSR2, signal.SIGRTMIN + 1, signal.SIGRTMIN + 2]
