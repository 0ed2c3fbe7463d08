"""The applet under test: how it is started, how its clock is turned, what it has saved."""

import mmap
import os
import re
import signal
from collections.abc import Sequence
from pathlib import Path

import desktop
from panel import Item, Panel
from tools import Tools
from waiting import serve_panel, wait_until

REPOSITORY = Path(__file__).resolve().parents[2]
BUILD = (REPOSITORY / os.environ.get("VELDRIN_BUILD", "build/debug")).resolve()
PROGRAM = BUILD / "veldrin"
QUICK_SLEEP = BUILD / "tests" / "libquick_sleep.so"
NOTICE = BUILD / "tests" / "libnotice.so"
VFS = BUILD / "tests" / "libvfs.so"
# The sanitizers take memory of their own, and keep what was given back.
SANITIZED = BUILD.name in ("asan", "tsan")

STEPS_OF_A_PAUSE = 1800

# Seconds; far below the time that a held or a silent command takes.
AT_ONCE = 5.0

# What sanitizers and coverage take from whoever runs the tests.
PASSED_ON = re.compile(r"(ASAN|UBSAN|LSAN|TSAN)_OPTIONS|G_SLICE|GCOV_\w+|LLVM_PROFILE_FILE")


class Clock:
    """The counters of quick_sleep.c: the sleeps of the program end when the test says so."""

    def __init__(self, path: Path) -> None:
        self.path = path
        path.write_bytes(bytes(4 * 8))
        with path.open("r+b") as file:
            self._counters = memoryview(mmap.mmap(file.fileno(), 4 * 8)).cast("Q")

    def __str__(self) -> str:
        names = ("delays allowed", "begun", "steps allowed", "begun")
        return ", ".join(f"{name}: {counter}" for name, counter in zip(names, self._counters, strict=True))

    def pass_delay(self) -> None:
        self._counters[0] += 1

    @property
    def delays_begun(self) -> int:
        return self._counters[1]

    def pass_steps(self, number: int) -> None:
        self._counters[2] += number

    @property
    def steps_begun(self) -> int:
        return self._counters[3]


def state_text(
    kernel: str = "",
    latest_kernel: str = "",
    mainline: str = "",
    stable: str = "",
    longterm: str = "",
    channel: str = "stable",
) -> str:
    """The state file's exact text."""
    return (
        "{\n"
        f'  "kernel": "{kernel}",\n'
        f'  "latest_kernel": "{latest_kernel}",\n'
        f'  "mainline": "{mainline}",\n'
        f'  "stable": "{stable}",\n'
        f'  "longterm": "{longterm}",\n'
        f'  "channel": "{channel}"\n'
        "}\n"
    )


class Applet(desktop.Program):
    def __init__(self, command, environment, folder: Path, name: str, panel: Panel, clock: Clock) -> None:
        self._panel = panel
        self._known_items = len(panel.items)
        self.clock = clock
        self._checks = 0
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

            wait_until(shown, "the icon in the panel")
            self._item = self._panel.items[self._known_items]
        return self._item

    @property
    def pid(self) -> int:
        return self.item.pid

    def begin_check(self) -> None:
        """Lets the time up to the next check pass."""
        if self._checks == 0:
            self.clock.pass_delay()
        else:
            self.clock.pass_steps(STEPS_OF_A_PAUSE)
        self._checks += 1

    def finish_check(self) -> None:
        """Waits until the check is over and the main loop has dealt with its result."""
        first_step = (self._checks - 1) * STEPS_OF_A_PAUSE + 1
        wait_until(lambda: self.clock.steps_begun >= first_step, lambda: f"the end of the check; {self.clock}")
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

        wait_until(rests, "the main loop at rest")
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


class Machine:
    """A user's home, network and session for one test, and the applets that it starts there."""

    def __init__(self, folder: Path, display: desktop.Display, bus: desktop.SessionBus, panel: Panel) -> None:
        self.folder = folder
        self.panel = panel
        self.home = folder / "home"
        self.runtime = folder / "run"
        self.cache = folder / "cache"
        for made in (self.home / ".config", self.runtime, self.cache):
            made.mkdir(parents=True)
        self.runtime.chmod(0o700)
        self.tools = Tools(folder / "tools")
        self.state_file = self.home / ".config" / "VeldrinWatch" / "app_state.json"
        self.icons = self.runtime / "VeldrinWatch-icons"
        self._applets: list[Applet] = []
        self.environment = {
            "HOME": str(self.home),
            "PATH": str(self.tools.folder),
            "LANG": "C.UTF-8",
            "DISPLAY": display.name,
            "DBUS_SESSION_BUS_ADDRESS": bus.address,
            "XDG_RUNTIME_DIR": str(self.runtime),
            "XDG_CACHE_HOME": str(self.cache),
            "XDG_CONFIG_HOME": str(self.home / ".config"),
            "XDG_DATA_HOME": str(self.home / ".local" / "share"),
            # No accessibility bus and no settings service run here.
            "NO_AT_BRIDGE": "1",
            "GSETTINGS_BACKEND": "memory",
            "GTK_USE_PORTAL": "0",
        }
        self.environment.update((name, value) for name, value in os.environ.items() if PASSED_ON.fullmatch(name))
        # The address sanitizer's library is there before ours, but not first in the list.
        self.environment["ASAN_OPTIONS"] = self.environment.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0"
        # Where that search can't look into the process, or would find the colours that GTK loses in its own tray.
        self.without_leak_search = {"ASAN_OPTIONS": self.environment["ASAN_OPTIONS"] + ":detect_leaks=0"}

    def animates(self, on: bool) -> None:
        """Switches GTK's fades and spinners on, as they are by default, or off."""
        settings = self.home / ".config" / "gtk-3.0" / "settings.ini"
        settings.parent.mkdir()
        settings.write_text(f"[Settings]\ngtk-enable-animations={int(on)}\n")

    # ---- The state file ----

    def saves(self, **fields: str) -> None:
        """As if an earlier run had saved these fields."""
        self.saves_text(state_text(**fields))

    def saves_text(self, text: str) -> None:
        self.state_file.parent.mkdir(exist_ok=True)
        self.state_file.write_text(text)
        # Long ago, so that each later write shows.
        os.utime(self.state_file, (1_000_000_000, 1_000_000_000))

    @property
    def saved(self) -> str | None:
        return self.state_file.read_text() if self.state_file.exists() else None

    @property
    def time_of_save(self) -> int:
        return self.state_file.stat().st_mtime_ns

    # ---- Applets ----

    def launch(
        self,
        *arguments: str,
        environment: dict[str, str | None] | None = None,
        around: Sequence[str | Path] = (),
        preload: Sequence[Path] = (),
    ) -> Applet:
        """Starts the program and does not wait for anything. `environment` changes the usual one, and None takes a
        variable out; `around` is a command line that starts the program."""
        number = len(self._applets)
        clock = Clock(self.folder / f"clock-{number}")
        variables: dict[str, str | None] = {
            **self.environment,
            "LD_PRELOAD": " ".join(map(str, [QUICK_SLEEP, *preload])),
            "QUICK_SLEEP_CLOCK": str(clock.path),
            **(environment or {}),
        }
        applet = Applet(
            [*around, PROGRAM, *arguments],
            {name: value for name, value in variables.items() if value is not None},
            self.folder,
            f"applet-{number}",
            self.panel,
            clock,
        )
        self._applets.append(applet)
        return applet

    def start(self, *arguments: str, **options) -> Applet:
        """Starts the program and waits until it is all there: its icon is shown, its check thread is in its delay."""
        applet = self.launch(*arguments, **options)
        _ = applet.item
        wait_until(lambda: applet.clock.delays_begun, "the check thread's start")
        wait_until(applet.item.menu.is_there, "its menu")
        applet.settle()
        # The first label may come with the icon or after it.
        applet.item.signals.clear()
        return applet

    def start_and_check(self, *arguments: str, **options) -> Applet:
        applet = self.start(*arguments, **options)
        applet.check()
        return applet

    def close(self) -> None:
        for applet in self._applets:
            applet.kill()
        for applet in self._applets:
            applet.end()


def with_gvfs(machine: Machine) -> dict[str, str]:
    """The environment in which GIO finds the stand-in for GVfs, and it alone."""
    modules = machine.folder / "gio-modules"
    modules.mkdir()
    (modules / VFS.name).symlink_to(VFS)
    return {"GIO_EXTRA_MODULES": str(modules)}


def bubblewrap(*options: str | Path) -> list[str | Path]:
    return ["bwrap", "--die-with-parent", *options, "--"]


def other_world(root: Path, *own: Path) -> list[str | Path]:
    """Starts a program on a machine with this tree as `/`: the real one's folders are there, but read-only; its root
    and /tmp are the tree's. `own` are folders that show and can be written."""
    (root / "tmp").mkdir(parents=True)
    options: list[str | Path] = ["--bind", root, "/"]
    for entry in sorted(Path("/").iterdir()):
        if entry.name in ("dev", "proc", "tmp"):
            continue
        if entry.is_symlink():
            options += ["--symlink", os.readlink(entry), entry]
        elif entry.is_dir():
            options += ["--ro-bind", entry, entry]
    options += ["--dev", "/dev", "--proc", "/proc", "--bind", root / "tmp", "/tmp"]
    options += ["--ro-bind-try", "/tmp/.X11-unix", "/tmp/.X11-unix"]
    # Where the checkout lies is hidden by now if it lies below /tmp; the sanitizers read files of it.
    options += ["--ro-bind", REPOSITORY, REPOSITORY]
    for folder in (BUILD, *own):
        options += ["--bind", folder, folder]
    return bubblewrap(*options)


def signal_name(number: int) -> str:
    return f"SIGRTMIN+{number - signal.SIGRTMIN}" if number >= signal.SIGRTMIN else signal.Signals(number).name


WINDOW_SIGNALS = [signal.SIGUSR1, signal.SIGUSR2, signal.SIGRTMIN + 1, signal.SIGRTMIN + 2]
