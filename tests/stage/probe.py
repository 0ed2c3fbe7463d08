# SPDX-License-Identifier: MIT
"""A look into the program's windows from outside, by window_probe.c."""

import os
import re
import socket
from dataclasses import dataclass, field
from pathlib import Path

from stage.applet import Applet
from stage.project import BUILD
from stage.waiting import DEADLINE, wait_until

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
        self.options = {"preload": [BUILD.library("window_probe")], "environment": {"WINDOW_PROBE": name}}
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
