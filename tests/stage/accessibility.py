# SPDX-License-Identifier: MIT
"""What a screen reader is told of the applet's windows, and what keys do in them: a desk with a keyboard, and a client
of the accessibility bus."""

from __future__ import annotations

import re
import shutil
import subprocess
from collections.abc import Callable, Iterator, Mapping
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from gi.repository import Gio, GLib
from stage.applet import Applet, Machine
from stage.bus import CALL_TIMEOUT, PROPERTIES, ask_bus, call, connect
from stage.desktop import SessionBus
from stage.tools import SYSTEM
from stage.waiting import serve_panel, wait_until

ACCESSIBLE = "org.a11y.atspi.Accessible"
COMPONENT = "org.a11y.atspi.Component"
HYPERLINK = "org.a11y.atspi.Hyperlink"
OBJECT_EVENT = "org.a11y.atspi.Event.Object"
REGISTRY = "org.a11y.atspi.Registry"
TEXT = "org.a11y.atspi.Text"

# The numbers that the protocol gives to what the tests look at.
STATES = {"active": 1, "expanded": 10, "focused": 12, "selected": 23, "sensitive": 24, "showing": 25}
LABELLED_BY = 2
OF_THE_SCREEN = 0

SERVICE = "org.a11y.Bus"


# A session bus with this service starts an accessibility bus when somebody asks for it.
BUS_SERVICE = Path("/usr/share/dbus-1/services", f"{SERVICE}.service")


def until(condition: Callable[[], Any], what: str | Callable[[], str]) -> Any:
    """Waits for `condition`, in which something may be looked for that is not there yet or just goes."""

    def holds() -> Any:
        try:
            return condition()
        except (GLib.Error, LookupError):
            return None

    return wait_until(holds, what)


@dataclass(frozen=True)
class Node:
    """Something that a program shows, as it is at the moment of the question."""

    connection: Gio.DBusConnection
    owner: str
    path: str

    def _ask(self, interface: str, method: str, signature: str = "()", *values) -> Any:
        (answer,) = call(self.connection, self.owner, self.path, interface, method, signature, *values)
        return answer

    def _property(self, name: str) -> Any:
        return self._ask(PROPERTIES, "Get", "(ss)", ACCESSIBLE, name)

    @property
    def role(self) -> str:
        """What kind of thing it is. What was a push button is called a button in at-spi2 2.56."""
        name = self._ask(ACCESSIBLE, "GetRoleName")
        return "push button" if name == "button" else name

    @property
    def name(self) -> str:
        return self._property("Name")

    @property
    def description(self) -> str:
        return self._property("Description")

    @property
    def text(self) -> str:
        """What it says: all of its text, be it cut off on the screen; of what has no text the name."""
        if TEXT in self._ask(ACCESSIBLE, "GetInterfaces"):
            return self._ask(TEXT, "GetText", "(ii)", 0, -1)
        return self.name

    @property
    def states(self) -> set[str]:
        low, high = self._ask(ACCESSIBLE, "GetState")
        return {name for name, number in STATES.items() if (low | high << 32) >> number & 1}

    @property
    def hint(self) -> str:
        """What it says for as long as nothing is written in it."""
        return self._ask(ACCESSIBLE, "GetAttributes").get("placeholder-text", "")

    @property
    def labels(self) -> list[str]:
        """What the labels say that belong to it."""
        relations = dict(self._ask(ACCESSIBLE, "GetRelationSet"))
        return [Node(self.connection, *place).text for place in relations.get(LABELLED_BY, [])]

    @property
    def address(self) -> str:
        """Where it leads to as a link."""
        return self._ask(HYPERLINK, "GetURI", "(i)", 0)

    @property
    def box(self) -> tuple[int, int, int, int]:
        """Left, top, width and height on the screen."""
        return self._ask(COMPONENT, "GetExtents", "(u)", OF_THE_SCREEN)

    @property
    def parent(self) -> Node:
        return Node(self.connection, *self._property("Parent"))

    @property
    def children(self) -> list[Node]:
        return [Node(self.connection, *place) for place in self._ask(ACCESSIBLE, "GetChildren")]

    def shown(self) -> Iterator[Node]:
        """It and everything in it that shows, in the order in which a screen reader walks through it."""
        states = self.states
        if "showing" not in states:
            return
        yield self
        # A closed expander's content calls itself shown, although nothing of it is.
        if self.role != "toggle button" or "expanded" in states:
            for child in self.children:
                yield from child.shown()

    def texts(self) -> list[str]:
        """What is written in it, empty texts left out."""
        wordless = ("frame", "filler", "icon", "table")
        return [text for node in self.shown() if node.role not in wordless and (text := node.text)]

    def find(self, role: str, text: str) -> Node:
        """The one thing in it that shows and has this role and text, as soon as it is there."""

        def found() -> Node | None:
            nodes = [node for node in self.shown() if node.role == role and node.text == text]
            return nodes[0] if len(nodes) == 1 else None

        return until(found, lambda: f"{role} {text!r} among {self.texts()}")

    def says(self, *texts: str) -> bool:
        written = self.texts()
        return all(text in written for text in texts)


def button(window: Node, name: str) -> Node:
    return window.find("push button", name)


def expander(window: Node, subject: str) -> Node:
    return window.find("toggle button", subject)


def reads(window: Node, *texts: str) -> None:
    """Waits until just this is written in the window, in this order."""
    until(lambda: window.texts() == list(texts), lambda: f"other texts; these are there: {window.texts()}")


def described(stops: list[Node]) -> list[tuple[str, str]]:
    return [(stop.role, stop.text) for stop in stops]


def in_order_of_reading(stops: list[Node]) -> list[Node]:
    """From above to below, and in a line from left to right. What overlaps in height stands in a line."""

    def middle(node: Node) -> float:
        return node.box[1] + node.box[3] / 2

    lines: list[list[Node]] = []
    for stop in sorted(stops, key=middle):
        if lines and middle(stop) < lines[-1][0].box[1] + lines[-1][0].box[3]:
            lines[-1].append(stop)
        else:
            lines.append([stop])
    return [stop for line in lines for stop in sorted(line, key=lambda node: node.box[0])]


def contains(outer: Node, inner: Node) -> bool:
    left, top, width, height = inner.box
    outer_left, outer_top, outer_width, outer_height = outer.box
    return (
        outer_left <= left
        and left + width <= outer_left + outer_width
        and outer_top <= top
        and top + height <= outer_top + outer_height
        and width > 1
        and height > 1
    )


class Desk:
    """Where a user sits who has a keyboard, a screen reader's ears, and no mouse."""

    def __init__(self, machine: Machine, bus: SessionBus) -> None:
        self.machine = machine
        self._focus: Node | None = None
        self.cell: Node | None = None  # where the keys are within the table that has them
        self._applet: Applet | None = None
        self._xdotool = shutil.which("xdotool", path=SYSTEM)
        self._session = connect(bus.address)
        # What the bus starts is to live in the test's home, not in that of whoever runs the test.
        services_environment = {name: value for name, value in machine.environment.items() if name != "DISPLAY"}
        ask_bus(self._session, "UpdateActivationEnvironment", "(a{ss})", services_environment)
        (address,) = call(self._session, SERVICE, "/org/a11y/bus", SERVICE, "GetAddress")
        self._ears = connect(address)
        self._ears.signal_subscribe(
            None, OBJECT_EVENT, "StateChanged", None, "focused", Gio.DBusSignalFlags.NONE, self._on_focus
        )
        self._ears.signal_subscribe(
            None, OBJECT_EVENT, "ActiveDescendantChanged", None, None, Gio.DBusSignalFlags.NONE, self._on_cell
        )
        for event in ("object:state-changed:focused", "object:active-descendant-changed"):
            call(self._ears, REGISTRY, "/org/a11y/atspi/registry", REGISTRY, "RegisterEvent", "(sass)", event, [], "")

    def close(self) -> None:
        self._ears.close_sync(None)
        self._session.close_sync(None)

    def _xdo(self, *words: str) -> bool:
        done = subprocess.run(
            [self._xdotool, *words], env=self.machine.environment, capture_output=True, timeout=CALL_TIMEOUT
        )
        return done.returncode == 0

    def _on_focus(self, connection, sender, path, interface, signal, arguments) -> None:
        _, gained, *_ = arguments.unpack()
        node = Node(connection, sender, path)
        if gained:
            self._focus = node
        elif self._focus == node:
            self._focus = None

    def _on_cell(self, connection, sender, path, interface, signal, arguments) -> None:
        _, _, _, cell, *_ = arguments.unpack()
        self.cell = Node(connection, *cell)

    # ---- The applet ----

    def start(self, *, environment: Mapping[str, str] | None = None, **options) -> Applet:
        """Starts the applet such that it talks to the screen reader."""
        self._applet = self.machine.start(environment={"NO_AT_BRIDGE": None, **(environment or {})}, **options)
        menu = self._applet.item.menu
        # On a busy machine the icon may show for a while without it.
        until(menu.entries, "the menu")
        return self._applet

    def windows(self) -> list[Node]:
        return [
            window
            for program in Node(self._ears, REGISTRY, "/org/a11y/atspi/accessible/root").children
            for window in program.children
        ]

    def open(self, entry: str, title: str) -> Node:
        """Picks the entry in the tray's menu, waits for its window and gives it the keyboard."""
        self._applet.item.menu.click(entry)
        # As a window manager would. None runs here: on a busy machine it takes longer to start than all else.
        by_title = ["search", "--onlyvisible", "--name", f"^{re.escape(title)}$"]
        wait_until(lambda: self._xdo(*by_title, "windowfocus"), f"the window {title!r}")

        def active() -> list[Node]:
            return [window for window in self.windows() if window.name == title and "active" in window.states]

        return until(active, f"the keyboard to go to {title!r}")[0]

    # ---- The keyboard ----

    @property
    def focus(self) -> Node | None:
        """What takes the keys, as the events tell it."""
        serve_panel()
        if self._focus is None:
            return None
        role = self._focus.role
        # The notebook is told of first and its tab next.
        if role == "page tab list":
            return None
        if role == "table cell":
            return self._focus.parent
        # A selector's keys go to a nameless button within it.
        node = self._focus
        for _ in range(2):
            node = node.parent
            if node.owner and node.role == "combo box":
                return node
        return self._focus

    def press(self, *keys: str) -> None:
        if not self._xdo("key", *keys):
            raise ValueError(f"not all of these are keys: {keys}")

    def wait_for_focus(self, node: Node) -> None:
        until(lambda: self.focus == node, lambda: f"the keys to go to {node.text!r}; they go to {self._told_focus()}")

    def _told_focus(self) -> str:
        return f"{self.focus.role} {self.focus.text!r}" if self.focus else "nothing"

    def move(self, key: str = "Tab") -> Node:
        """Presses a key that leads the focus elsewhere. Returns where."""
        before = self.focus
        self.press(key)
        return until(lambda: self.focus if self.focus != before else None, lambda: f"{key} to lead anywhere")

    def stops(self, key: str = "Tab") -> list[Node]:
        """Where the key leads, one after the other, until it is back where it began."""
        first = self.focus
        stops = [first]
        while (stop := self.move(key)) != first:
            names = [f"{node.role} {node.text!r}" for node in (*stops, stop)]
            assert stop not in stops, f"{key} does not come back to {first.text!r} but leads to {names}"
            stops.append(stop)
        return stops

    def go_to(self, node: Node) -> None:
        """Leads the focus there by the keyboard."""
        came_by = [self.focus]
        while self.focus != node:
            came_by.append(self.move())
            assert came_by.count(came_by[-1]) == 1, f"no Tab leads to {node.text!r}"
