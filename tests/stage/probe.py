"""A look into the program's windows from outside, by window_probe.c, and a machine with modules for them to show."""

import os
import re
import socket
from collections.abc import Mapping, Sequence
from dataclasses import dataclass, field
from pathlib import Path

from applet import BUILD, Applet, Machine, bubblewrap
from waiting import DEADLINE, wait_until

WINDOW_PROBE = BUILD / "tests" / "libwindow_probe.so"

SETTINGS = "Settings"
ABOUT = "About Veldrin"
CHANGES = "Latest Kernel Changes"
SYSTEM = "System & Kernel Modules"
ENTRIES = {SETTINGS: "Settings", CHANGES: "Latest Changes", SYSTEM: "System & Modules", ABOUT: "About"}


@dataclass(frozen=True)
class Label:
    classes: frozenset[str]
    text: str


@dataclass
class Window:
    title: str
    frames: int  # drawn so far
    scale: int
    width: int
    height: int
    labels: list[Label] = field(default_factory=list)
    entries: list[str] = field(default_factory=list)
    boxes: list[frozenset[str]] = field(default_factory=list)
    rows: list[list[str]] = field(default_factory=list)

    @property
    def texts(self) -> list[str]:
        return [label.text for label in self.labels]


def excerpt(text: str) -> str:
    """What the panel, a header and the overview show of a text."""
    line, *more = re.split("[\n\v\f\r\x85\u2028\u2029]", text, maxsplit=1)
    return line[:499] + "…" if more or len(line) > 500 else line


class Probe:
    """The windows of one applet, which must be started with `options`."""

    def __init__(self, folder: Path, name: str = "probe") -> None:
        self.options = {"preload": [WINDOW_PROBE], "environment": {"WINDOW_PROBE": name}}
        self._folder = folder
        self._name = name

    def ask_later(self, request: str | bytes) -> socket.socket:
        """Sends a request; the answer can be read from the result."""
        line = socket.socket(socket.AF_UNIX)
        # The path of a socket has narrow limits, the way to a test's folder has none.
        folder = os.open(self._folder, os.O_PATH)
        try:
            line.connect(f"/proc/self/fd/{folder}/{self._name}")
        finally:
            os.close(folder)
        line.sendall(request if isinstance(request, bytes) else request.encode())
        line.shutdown(socket.SHUT_WR)
        line.setblocking(False)
        return line

    @staticmethod
    def answer(line: socket.socket, deadline: float = DEADLINE) -> list[list[str]]:
        answer = bytearray()

        def complete() -> bool:
            try:
                while part := line.recv(1 << 20):
                    answer.extend(part)
                return True
            except BlockingIOError:
                return False

        with line:
            wait_until(complete, "the probe's answer", deadline)
        return [record.split("\x1f") for record in answer.decode().split("\x1e")[:-1]]

    def do(self, request: str | bytes) -> bool:
        return self.answer(self.ask_later(request)) == [["done"]]

    def windows(self) -> dict[str, Window]:
        windows: list[Window] = []
        for kind, *fields in self.answer(self.ask_later("dump")):
            if kind == "window":
                *numbers, title = fields
                windows.append(Window(title, *map(int, numbers)))
            elif kind == "row":
                windows[-1].rows.append(fields)
            elif kind == "box":
                windows[-1].boxes.append(frozenset(fields[0].split()))
            elif kind == "entry":
                windows[-1].entries.append(fields[1])
            else:
                windows[-1].labels.append(Label(frozenset(fields[0].split()), fields[1]))
        return {window.title: window for window in windows}

    def open(self, applet: Applet, title: str) -> Window:
        """Picks a window's entry in the menu and waits until the window is drawn."""
        applet.item.menu.click(ENTRIES[title])
        wait_until(lambda: title in (shown := self.windows()) and shown[title].frames > 0, f"the window {title!r}")
        applet.settle()
        return self.windows()[title]

    def open_all(self, applet: Applet) -> dict[str, Window]:
        for title in ENTRIES:
            self.open(applet, title)
        return self.windows()

    def close(self, title: str) -> None:
        assert self.do(f"close {title}")
        wait_until(lambda: title not in self.windows(), f"the end of the window {title!r}")

    def changes(self, applet: Applet, *, channel: str = "") -> Window:
        """Opens the changes, or loads them anew (those of that channel, which must be another one), and waits for the
        load's end."""
        if CHANGES not in self.windows():
            self.open(applet, CHANGES)
        elif not channel:
            assert self.do("click Refresh")
        if channel:
            self._wait_for_load()
            assert self.do(f"choose {channel}")
        return self._wait_for_load()

    def _wait_for_load(self) -> Window:
        loading = "Contacting Kernhaven …"
        wait_until(lambda: loading not in self.windows()[CHANGES].texts, "the end of the load")
        return self.windows()[CHANGES]


@dataclass
class Module:
    line: bytes  # as /proc/modules has it, without the line feed
    files: Mapping[bytes, bytes] = field(default_factory=dict)  # below the module's folder in /sys/module

    @property
    def name(self) -> bytes:
        return self.line.split()[0]


def machine_with_modules(
    machine: Machine, modules: Sequence[Module], files: Mapping[str, bytes] | None = None, *options: str | Path
) -> list[str | Path]:
    """Starts a program on a machine with these modules, and with these contents in `files` below / (those in /proc
    need not exist; the folders of all others must). Takes further options of bubblewrap."""
    folder = machine.folder / "modules"
    (folder / "proc").mkdir(parents=True)
    listed = folder / "list"
    listed.write_bytes(b"".join(module.line + b"\n" for module in modules))
    sys_module = os.fsencode(folder / "sys")
    os.mkdir(sys_module)
    for module in modules:
        for name, contents in module.files.items():
            path = os.path.join(sys_module, module.name, name)
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "wb") as file:
                file.write(contents)

    # The kernel lets nobody add files to its own /proc.
    real = folder / "proc"
    world: list[str | Path] = ["--dev-bind", "/", "/", "--bind", "/proc", real, "--tmpfs", "/proc"]
    given = dict(files or {})
    for name in ("self", "thread-self", "version", "cmdline", "uptime", "mounts", "meminfo", "stat", "sys"):
        if f"/proc/{name}" not in given:
            world += ["--symlink", real / name, f"/proc/{name}"]
    world += ["--ro-bind", listed, "/proc/modules", "--ro-bind", folder / "sys", "/sys/module"]
    for number, (path, contents) in enumerate(given.items()):
        made = folder / f"file-{number}"
        made.write_bytes(contents)
        # Debian's /etc/os-release is a link, and not every bubblewrap mounts on what that leads to.
        world += ["--ro-bind", made, os.path.realpath(path)]
    # Nor does this one have the folders of processes, which the search for leaks needs.
    world += ["--setenv", "ASAN_OPTIONS", machine.without_leak_search["ASAN_OPTIONS"]]
    return bubblewrap(*world, *options)
