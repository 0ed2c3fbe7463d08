# SPDX-License-Identifier: MIT
"""The hand inside the program (hand.c), and what can be seen of the program's process from outside."""

import os
import re
import select
from dataclasses import dataclass
from pathlib import Path

from stage.applet import Applet
from stage.project import BUILD
from stage.waiting import wait_until

DEADLINE = 60.0


@dataclass(frozen=True)
class Footprint:
    """What the process has, in bytes and in numbers."""

    heap: int
    private_dirty: int
    proportional: int
    descriptors: int
    threads: int
    zombies: int


class Hand:
    """One program's hand. It comes with `preload` and `environment` at the program's start."""

    def __init__(self, folder: Path, modules: Path, deadline: float = DEADLINE) -> None:
        self.preload = [BUILD.library("hand")]
        self._deadline = deadline
        asked, answers = folder / "hand-asked", folder / "hand-answers"
        os.mkfifo(asked)
        os.mkfifo(answers)
        self.environment = {"HAND_ASKED": str(asked), "HAND_ANSWERS": str(answers), "HAND_MODULES": str(modules)}
        # Both ends at once, so that opening waits for nobody.
        self._asked = os.open(asked, os.O_RDWR)
        self._answers = os.open(answers, os.O_RDWR)

    def close(self) -> None:
        os.close(self._asked)
        os.close(self._answers)

    def ask(self, command: str) -> int:
        os.write(self._asked, command.encode() + b"\n")
        answer = b""
        while not answer.endswith(b"\n"):
            if not select.select([self._answers], [], [], self._deadline)[0]:
                raise AssertionError(f"no answer to: {command}")
            answer += os.read(self._answers, 100)
        return int(answer)

    def close_windows(self) -> None:
        self.ask("close")
        wait_until(lambda: self.ask("windows") == 0, "the closed window", self._deadline)


def _children_in_state(pid: int, state: str) -> int:
    count = 0
    for stat in Path("/proc").glob("[0-9]*/stat"):
        try:
            fields = stat.read_text().rpartition(")")[2].split()
        except OSError:  # it has ended meanwhile
            continue
        count += fields[0] == state and int(fields[1]) == pid
    return count


def footprint(applet: Applet, hand: Hand) -> Footprint:
    process = Path(f"/proc/{applet.pid}")
    heap = hand.ask("memory")
    # Until the main loop sleeps again, it may have a file open.
    applet.settle()
    sizes = dict(re.findall(r"^(\w+): +(\d+) kB$", (process / "smaps_rollup").read_text(), re.MULTILINE))
    return Footprint(
        heap,
        int(sizes["Private_Dirty"]) * 1024,
        int(sizes["Pss"]) * 1024,
        len(list((process / "fd").iterdir())),
        len(list((process / "task").iterdir())),
        _children_in_state(applet.pid, "Z"),
    )
