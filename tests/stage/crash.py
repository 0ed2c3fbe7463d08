# SPDX-License-Identifier: MIT
"""Deaths of the program by a fatal signal: the reports that they leave, and the children that they orphan."""

import contextlib
import os
import re
import signal
from collections.abc import Iterator
from dataclasses import dataclass

from stage.applet import Applet, Machine
from stage.processes import adopt_orphans
from stage.project import BUILD
from stage.waiting import wait_until

CRASH = BUILD.library("crash")
REPORT = "Veldrin_crash.txt"

SIGNALS = {
    signal.SIGSEGV: "SIGSEGV (Segmentation fault) (11)",
    signal.SIGABRT: "SIGABRT (Abort) (6)",
    signal.SIGFPE: "SIGFPE (Floating point exception) (8)",
    signal.SIGBUS: "SIGBUS (Bus error) (7)",
    signal.SIGILL: "SIGILL (Illegal instruction) (4)",
}

# Module, symbol where there is one, offset and address.
FRAME = r"[^\n()\[\]]+\((?:[\w.$]*\+0x[0-9a-f]+)?\) ?\[0x[0-9a-f]+\]"

# The thread sanitizer blocks all signals while a handler runs: a second fault ends the process at once.
BLOCKS_SIGNALS = BUILD.program.exists() and b"__tsan_init" in BUILD.program.read_bytes()

SANITIZER = re.compile(r"/lib[a-z]+san\.so")

# The one language in which the dialog's script is one. Without zenity on the search path it ends at once, silently.
GERMAN = {"LANGUAGE": "de"}

PATIENCE = 5.0  # how long the handler may take


# ---- Deaths ----


def dies(applet: Applet, number: signal.Signals) -> None:
    applet.process.send_signal(number)
    assert applet.exit_status() == -number


@dataclass(frozen=True)
class Place:
    """A function that the program calls at a time that the test chooses, and what of the program's calls it."""

    function: str
    text: str
    caller: str

    def plan(self, what: str) -> str:
        return f"{self.function}={what}" + (f":{self.text}" if self.text else "")


PLACES = {
    "start": Place("gtk_init", "", "app_run"),
    "main": Place("gtk_window_new", "", "show_info_window"),
    "check": Place("popen", "", "fetch_kernel_versions"),
    "load": Place("popen", "releases.json", "fetch_changelog"),
}


def come_to(machine: Machine, place: str, plan: str, **environment: str | None) -> Applet:
    """Starts the program with the plan and lets it come to the place."""
    options = {"preload": [CRASH], "environment": {**GERMAN, "CRASH": plan, **environment}}
    if place == "start":
        return machine.launch(**options)
    applet = machine.start(**options)
    if place == "main":
        applet.process.send_signal(signal.SIGUSR1)
    if place == "check":
        applet.begin_check()
    if place == "load":
        applet.process.send_signal(signal.SIGRTMIN + 1)
    return applet


@contextlib.contextmanager
def orphans_adopted(machine: Machine) -> Iterator[None]:
    """What the machine's applets leave behind comes to this process, which so learns how it ended."""
    adopt_orphans()
    try:
        yield
        for applet in machine.applets:
            applet.kill()
            with contextlib.suppress(ChildProcessError):
                while True:
                    os.waitpid(-applet.process.pid, 0)
    finally:
        adopt_orphans(False)


class Orphans:
    """Asks for what ended applets left, while orphans are adopted."""

    @staticmethod
    def running(applet: Applet) -> bool:
        """Whether the ended applet has left a child that runs. Without one at all this raises."""
        return os.waitid(os.P_PGID, applet.process.pid, os.WEXITED | os.WNOHANG | os.WNOWAIT) is None

    @staticmethod
    def status(applet: Applet, deadline: float = 10.0) -> int:
        """Waits for the end of the ended applet's one child. The number of the signal that ended it comes negative."""
        results: list[int] = []

        def ended() -> bool:
            pid, status = os.waitpid(-applet.process.pid, os.WNOHANG)
            if pid:
                results.append(os.waitstatus_to_exitcode(status))
            return bool(pid)

        wait_until(ended, "the child's end", deadline)
        assert Orphans.none(applet)
        return results[0]

    @staticmethod
    def none(applet: Applet) -> bool:
        try:
            os.waitpid(-applet.process.pid, os.WNOHANG)
        except ChildProcessError:
            return True
        return False


# ---- Reports ----


@dataclass(frozen=True)
class Report:
    time: str
    frames: list[str]

    @property
    def symbols(self) -> str:
        return "\n".join(self.frames)


def read(
    text: str,
    number: signal.Signals,
    desktop: str = "unknown (unknown)",
    snap: str = "no",
    system: str | None = None,
) -> Report:
    """Takes a report apart that must be one to the letter."""
    names = os.uname()
    if system is None:
        system = f"System: {names.sysname} {names.release} {names.machine}\n"
    found = re.fullmatch(
        "=== Veldrin Crash Report ===\n"
        "Version: 1\\.2\n"
        f"Signal: {re.escape(SIGNALS[number])}\n"
        "Time: (\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d)\n"
        f"{re.escape(system)}"
        f"Desktop: {re.escape(desktop)}\n"
        f"Snap: {re.escape(snap)}\n"
        "\n"
        "Backtrace:\n"
        f"((?:{FRAME}\n){{1,32}})"
        "\n"
        "=== End Report ===\n",
        text,
    )
    assert found, text
    report = Report(found[1], found[2].splitlines())
    # The handler's own frames come first; a sanitizer's may stand before them.
    own = [frame for frame in report.frames if not SANITIZER.search(frame)]
    assert "/veldrin(" in own[0]
    return report


def report_of(machine: Machine, number: signal.Signals, **parts: str) -> Report:
    return read((machine.runtime / REPORT).read_text(), number, **parts)


def no_report(machine: Machine) -> bool:
    return not (machine.runtime / REPORT).exists()
