# SPDX-License-Identifier: MIT
"""Waiting for conditions. A wait serves the panel meanwhile, which lives in this process."""

import time
from collections.abc import Callable
from typing import TypeVar

from gi.repository import GLib

T = TypeVar("T")

DEADLINE = 15.0
INTERVAL = 0.004


def serve_panel() -> None:
    context = GLib.MainContext.default()
    while context.iteration(False):
        pass


def wait_until(
    condition: Callable[[], T], what: str | Callable[[], str], deadline: float = DEADLINE, interval: float = INTERVAL
) -> T:
    """Returns the first result of `condition` that counts as true. `what` may tell how things stand in the end."""
    end = time.monotonic() + deadline
    while True:
        serve_panel()
        if result := condition():
            return result
        if time.monotonic() > end:
            raise AssertionError(f"waited {deadline:g} s in vain: {what if isinstance(what, str) else what()}")
        GLib.timeout_add(int(interval * 1000), lambda: False)
        GLib.MainContext.default().iteration(True)


def let_pass(seconds: float) -> None:
    """Serves the panel for so long."""
    end = time.monotonic() + seconds
    wait_until(lambda: time.monotonic() > end, "the end of the time", 2 * seconds + DEADLINE)
