# SPDX-License-Identifier: MIT
"""Assistive technology at work on the program: it reads what shows, and presses it without a key or a pointer."""

from __future__ import annotations

import contextlib
from collections.abc import Iterator
from typing import Any

from desktop import Desktop
from gi.repository import GLib
from pictures import Box
from stage.bus import PROPERTIES
from subjects import LEFTOVERS, MODULE_TREES


class Hand:
    ATSPI = "org.a11y.atspi."
    ROOT = "/org/a11y/atspi/accessible/root"
    SHOWING = 1 << 25

    def __init__(self, desktop: Desktop, process: int) -> None:
        self._desktop = desktop
        self._bus = desktop.accessibility
        self._owner = desktop.wait(lambda: self._find(process), "the program cannot be reached by assistive technology")

    def _find(self, process: int) -> str | None:
        registry = self.ATSPI + "Registry"
        for owner, _ in self._bus.call(registry, self.ROOT, self.ATSPI + "Accessible", "GetChildren"):
            with contextlib.suppress(GLib.Error):
                if self._bus.process_of(owner) == process:
                    return owner
        return None

    def _call(self, place: str, interface: str, method: str, form: str = "()", *values: object) -> Any:
        return self._bus.call(self._owner, place, self.ATSPI + interface, method, form, *values)

    def _name(self, place: str) -> str:
        return self._bus.call(self._owner, place, PROPERTIES, "Get", "(ss)", self.ATSPI + "Accessible", "Name")

    def _role(self, place: str) -> str:
        return self._call(place, "Accessible", "GetRoleName")

    def _shows(self, place: str) -> bool:
        return bool(self._call(place, "Accessible", "GetState")[0] & self.SHOWING)

    def _showing(self, place: str = ROOT) -> Iterator[str]:
        """All that shows, but for what is in a table."""
        for _, child in self._call(place, "Accessible", "GetChildren"):
            if self._shows(child):
                yield child
                if "table" not in self._role(child):
                    yield from self._showing(child)

    def _has(self, role: str, name: str = "") -> str | None:
        # What shows may go while it is looked at.
        with contextlib.suppress(GLib.Error):
            for place in self._showing():
                if self._role(place) == role and name in ("", self._name(place)):
                    return place
        return None

    def _extents(self, place: str) -> Box:
        SCREEN_COORDINATES = 0
        left, top, width, height = self._call(place, "Component", "GetExtents", "(u)", SCREEN_COORDINATES)
        return (left, top, left + width, top + height)

    def _get(self, role: str, name: str = "") -> str:
        return self._desktop.wait(lambda: self._has(role, name), f"there is no {role} {name}")

    def _press(self, place: str) -> None:
        self._call(place, "Action", "DoAction", "(i)", 0)

    def sees(self, text: str) -> bool:
        """Whether something shows that has this text in its name."""
        with contextlib.suppress(GLib.Error):
            return any(text in self._name(place) for place in self._showing())
        return False

    def _waits_for(self, text: str) -> None:
        self._desktop.wait(lambda: self.sees(text), f"the window should show {text!r}")

    def clicks(self, role: str) -> None:
        """Clicks with the mouse, where there is one."""
        left, top, right, bottom = self._extents(self._get(role))
        self._desktop.xdotool("mousemove", (left + right) // 2, (top + bottom) // 2, "click", 1)

    def opens_leftovers(self) -> None:
        self._press(self._get("toggle button", LEFTOVERS))
        self._waits_for(MODULE_TREES[-1])

    def opens_license(self) -> None:
        # On Wayland it is one half of a switch in the title bar.
        role = "radio button" if self._desktop.kind == "wayland" else "toggle button"
        self._press(self._get(role, "License"))
        self._get("text")

    def shows_modules(self, text: str) -> None:
        """Turns to the modules tab, which then shows this text."""
        self._call(self._get("page tab list"), "Selection", "SelectChild", "(i)", 1)
        self._waits_for(text)

    def _named_cell(self, row: int, module: str) -> str | None:
        """The first cell of that row, if the row is the module's."""
        cell = self._call(self._get("table"), "Table", "GetAccessibleAt", "(ii)", row, 0)[1]
        return cell if self._name(cell) == module else None

    def picks(self, module: str, row: int) -> None:
        cell = self._desktop.wait(lambda: self._named_cell(row, module), f"row {row} of the table is not {module}")
        table = self._get("table")
        header = self._call(table, "Table", "GetColumnHeader", "(i)", 0)[1]

        def picked() -> bool:
            self._call(cell, "Component", "GrabFocus")
            if not self.sees(module):
                return False
            # The pane below grows with what it tells of the module, and may so hide the row again.
            self._desktop.still()
            _, top, _, bottom = self._extents(cell)
            return self._extents(header)[3] <= top and bottom <= self._extents(table)[3]

        self._desktop.wait(picked, f"{module} cannot be selected in sight")

    def filters(self, text: str) -> None:
        self._call(self._get("text"), "EditableText", "SetTextContents", "(s)", text)
        self._desktop.wait(
            lambda: self.sees(f"filter: {text}") if text else not self.sees("filter: "),
            f"the table is not filtered by {text!r}",
        )

    def sorts_by_size(self, largest: str) -> None:
        SIZE = 1
        for _ in ("the smallest first", "the largest first"):
            self._press(self._call(self._get("table"), "Table", "GetColumnHeader", "(i)", SIZE)[1])
        self._desktop.wait(lambda: self._named_cell(0, largest), "the table is not sorted by size")
