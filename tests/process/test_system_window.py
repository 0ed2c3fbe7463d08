# SPDX-License-Identifier: MIT
"""The system window of the running program: how it is opened, and what it starts."""

import os
import shutil
import signal
import subprocess
from pathlib import Path

import pytest
from stage.applet import AT_ONCE
from stage.project import BUILD
from stage.tools import page
from stage.waiting import wait_until
from stage.world import bubblewrap

TITLE = "System & Kernel Modules"
OPEN = signal.SIGRTMIN + 2
MANY = 300
# Below the filter, where the titles of the table are or the status line above them.
FIRST_CLICK = 185

STARTED_PROCESSES = BUILD.library("started_processes")

MODINFO = """echo "$*" >>"${0%/*}/modinfo-calls"
echo "filename: /lib/modules/7.2.4/$1.ko"
echo "license: GPL"
echo "description: Module $1"
"""


def module_name(number: int) -> str:
    return f"heron_{number:03}"


class Kernel:
    """A machine whose kernel has loaded these modules, and the applet on it."""

    def __init__(self, machine, count: int) -> None:
        self.machine = machine
        self.list = machine.folder / "modules"
        self.load(count)
        # GTK forgets some of a style's values when a window goes in the middle of a transition.
        machine.animates(False)
        self._record = machine.folder / "started"
        self._record.touch()
        machine.tools.put_script("modinfo", MODINFO)
        self._modinfo_calls = machine.tools.folder / "modinfo-calls"
        self._modinfo_calls.touch()
        self.applet = machine.start(
            environment={"STARTED_PROCESSES": str(self._record)},
            around=self._world(),
            preload=[STARTED_PROCESSES],
        )

    def load(self, count: int, first: int = 0) -> None:
        """Written in place: it is the file itself that shows in the other world."""
        self.list.write_text(
            "".join(
                f"{module_name(number)} {4096 * (number + 1)} {number % 3} - Live 0x0000000000000000\n"
                for number in range(first, first + count)
            )
        )

    def _world(self) -> list[str | Path]:
        """The same machine with another list of modules. The real /proc, into which no file can be put, is elsewhere;
        its few processes are those of the world itself, so that their numbers are small."""
        real = self.machine.folder / "proc"
        real.mkdir()
        options: list[str | Path] = ["--dev-bind", "/", "/", "--unshare-pid", "--proc", real, "--tmpfs", "/proc"]
        for name in ("self", "sys", "version", "uptime", "cmdline", "filesystems", "cpuinfo", "meminfo", "stat"):
            options += ["--symlink", real / name, f"/proc/{name}"]
        for number in range(1, 100):
            options += ["--symlink", real / str(number), f"/proc/{number}"]
        return bubblewrap(*options, "--ro-bind", self.list, "/proc/modules")

    # ---- What it started ----

    @property
    def started(self) -> list[str]:
        """The processes that the program has started, by the function that did it."""
        return self._record.read_text().splitlines()

    @property
    def modinfo(self) -> list[str]:
        """The words that each call of modinfo was given."""
        return self._modinfo_calls.read_text().splitlines()

    # ---- The window ----

    def xdotool(self, *words: str | int) -> str:
        """What it answers; nothing where it finds no window."""
        run = subprocess.run(
            [shutil.which("xdotool"), *map(str, words)],
            env={**os.environ, "DISPLAY": self.machine.environment["DISPLAY"]},
            capture_output=True,
            text=True,
            check=False,
        )
        return run.stdout

    def windows(self) -> list[str]:
        return self.xdotool("search", "--onlyvisible", "--name", f"^{TITLE}$").split()

    def wait_for_window(self) -> str:
        wait_until(self.windows, "the window")
        self.applet.settle()
        (window,) = self.windows()
        return window

    def open(self) -> str:
        self.applet.send(OPEN)
        return self.wait_for_window()

    def press(self, *keys: str) -> None:
        self.xdotool("key", *keys)
        self.applet.settle()

    def show_modules(self) -> None:
        """Opens the window, gives it the keyboard and turns to its second page."""
        self.xdotool("windowfocus", "--sync", self.open())
        self.press("ctrl+Next")

    def select_first(self) -> None:
        """Clicks ever further down, from the table's titles on, until a row is hit."""
        (window,) = self.windows()
        known = len(self.modinfo)
        for height in range(FIRST_CLICK, FIRST_CLICK + 300, 10):
            self.xdotool("mousemove", "--window", window, 60, height, "click", 1)
            self.applet.settle()
            if len(self.modinfo) > known:
                return
        raise AssertionError("no row was hit")


@pytest.fixture
def kernel(machine) -> Kernel:
    return Kernel(machine, MANY)


def test_menu_opens_it(kernel):
    kernel.applet.item.menu.click("System & Modules")
    kernel.wait_for_window()
    assert len(kernel.applet.item.menu.entries()) == 8


def test_opened_again_it_is_the_same(kernel):
    first = kernel.open()
    for _ in range(5):
        kernel.applet.send(OPEN)
        kernel.applet.item.menu.click("System & Modules")
    kernel.applet.settle()
    assert kernel.windows() == [first]


def test_opening_it_starts_no_process(kernel):
    kernel.open()
    kernel.applet.send(OPEN)
    kernel.applet.settle()
    assert kernel.started == []
    assert kernel.modinfo == []


def test_what_is_started_is_noted(kernel):
    kernel.machine.tools.publish(page(stable="7.2.4"))
    kernel.applet.check()
    assert kernel.started
    assert all(line.startswith("popen ") for line in kernel.started)


def test_selected_module_runs_modinfo_once(kernel):
    kernel.show_modules()
    assert kernel.started == []
    kernel.select_first()
    expected = [module_name(0)]
    assert kernel.modinfo == expected

    for key, name in [("Down", module_name(1)), ("Down", module_name(2)), ("Up", None), ("Up", None), ("Down", None)]:
        kernel.press(key)
        expected += [name] if name else []
        assert kernel.modinfo == expected
    assert kernel.started == [f"popen modinfo {name} 2>/dev/null" for name in expected]


def test_filter_starts_no_process(kernel):
    kernel.show_modules()
    kernel.press("Tab", *"heron", "BackSpace", "n", "underscore", *"29")
    assert kernel.started == []
    # It did filter: the first row is another one now.
    kernel.select_first()
    assert kernel.modinfo == [module_name(290)]


def test_reload_reads_the_list_anew(kernel):
    kernel.show_modules()
    kernel.load(3, first=MANY - 3)
    # To the filter, and on to the button beside it.
    kernel.press("Tab", "Tab", "space")
    kernel.select_first()
    assert kernel.modinfo == [module_name(MANY - 3)]


def test_quit_with_it_open_and_a_module_selected(kernel):
    kernel.show_modules()
    kernel.select_first()
    kernel.applet.item.menu.click("Quit")
    assert kernel.applet.exit_status(AT_ONCE) == 0
    assert kernel.windows() == []


def test_checks_go_on_while_it_is_open(kernel):
    kernel.machine.tools.publish(page(stable="7.2.4"))
    kernel.open()
    kernel.applet.check()
    assert kernel.applet.item.label == "7.2.4"
    kernel.show_modules()
    kernel.select_first()
    kernel.machine.tools.publish(page(stable="7.2.5"))
    kernel.applet.check()
    assert kernel.applet.item.label == "7.2.5"
    assert kernel.windows()


def test_opens_and_closes_many_times(kernel):
    for _ in range(5):
        window = kernel.open()
        # Without a window manager there is nobody else to ask the program.
        kernel.xdotool("windowfocus", "--sync", window)
        kernel.press("shift+Tab", "space")
        wait_until(lambda: not kernel.windows(), "the end of the window")
    assert kernel.started == []
    assert kernel.applet.quit() == 0


def test_opens_where_no_modules_can_be_read(machine):
    kernel = Kernel(machine, 0)
    kernel.open()
    assert kernel.started == []
    assert kernel.applet.quit() == 0
