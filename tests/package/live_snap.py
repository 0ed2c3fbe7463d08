#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Uses the Snap as an ordinary user does: its first start asks snapd to start it with the next session, and snapd does
so, by its own rule, until the user removes the entry.

    live_snap.py HOME      the user's home, as the system's list of users has it
"""

import os
import signal
import subprocess
import sys
from collections.abc import Callable
from contextlib import ExitStack
from pathlib import Path

sys.dont_write_bytecode = True

from live import Session, step  # noqa: E402

from stage.processes import Program  # noqa: E402
from stage.waiting import wait_until  # noqa: E402

COMMAND = "/snap/bin/veldrin"
PROGRAM = "/snap/veldrin/x1/usr/bin/veldrin"


def check(home: Path) -> None:
    folder = home / "session"
    folder.mkdir()
    with ExitStack() as stack:
        session = Session(folder, stack, PROGRAM)
        session.environment["HOME"] = str(home)
        data = home / "snap/veldrin/current"
        entry = data / ".config/autostart/org.veldrin.Veldrin.desktop"
        stack.callback(lambda: [os.kill(process, signal.SIGKILL) for process in session.applets()])

        def start() -> None:
            stack.callback(Program([COMMAND], session.environment, folder, "applet").kill)

        def start_session() -> None:
            # What it starts outlives it, and keeps its output.
            with (folder / "session.log").open("wb") as log:
                rule = ["snap", "userd", "--autostart"]
                subprocess.run(rule, env=session.environment, check=True, timeout=20, stdout=log, stderr=log)

        def shows_and_ends(started: Callable[[], None]) -> None:
            assert session.applets() == []
            session.panel.items.clear()
            started()
            wait_until(lambda: session.panel.items, lambda: f"the icon; applets: {session.applets()}", deadline=30)
            (item,) = session.panel.items
            assert session.applets() == [item.pid]
            wait_until(lambda: item.label == "7.2.4", "the label")
            os.kill(item.pid, signal.SIGTERM)
            wait_until(lambda: not session.applets(), "its end")

        with step("the first start brings the icon into the panel"):
            shows_and_ends(start)

        with step("it has left the entry for the next session, and its state, in the Snap's data"):
            assert "\nExec=veldrin\n" in entry.read_text()
            assert (data / "app_state.json").is_file(), sorted(data.rglob("*"))

        with step("snapd starts it with the next session"):
            shows_and_ends(start_session)

        with step("an entry that the user removed stays away, and the session starts nothing"):
            entry.unlink()
            shows_and_ends(start)
            assert not entry.exists()
            start_session()
            assert session.applets() == []


if __name__ == "__main__":
    check(Path(sys.argv[1]))
