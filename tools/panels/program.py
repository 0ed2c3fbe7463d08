# SPDX-License-Identifier: MIT
"""The program under the walk: its network, its clock and its saved state."""

from __future__ import annotations

import subprocess
import sys
import time
from pathlib import Path

from session import Session, stop
from stage.clock import Clock
from stage.tools import SYSTEM, Tools, page

sys.path.append(str(Path(__file__).resolve().parents[2] / "tests" / "site"))
from kernel_history import change, release_commit  # noqa: E402

FIRST = "7.2.4"
NEXT = "7.2.5"
COMMITS = 18


def changelog(version: str) -> str:
    """A release as the kernel's site tells it."""
    when = 1_789_000_000
    commits = [
        release_commit(version, when),
        *(change(version, number, when - 3600 * number) for number in range(1, COMMITS)),
    ]
    texts = []
    for number, commit in enumerate(commits):
        day = time.strftime("%a %b %d %H:%M:%S %Y +0000", time.gmtime(commit.written))
        message = "".join(f"    {line}".rstrip() + "\n" for line in commit.message.splitlines())
        name, address, _ = commit.author
        texts.append(f"commit {number + 1:040x}\nAuthor: {name} <{address}>\nDate:   {day}\n\n{message}\n")
    return "".join(texts)


class Program:
    def __init__(self, session: Session, binary: Path, quick_sleep: Path) -> None:
        self._session = session
        self._binary = binary
        self._quick_sleep = quick_sleep
        self._tools = Tools(session.folder / "tools")
        self._said = session.folder / "terminal.txt"
        self._said.touch()
        self._process: subprocess.Popen | None = None

    def publish(self, stable: str) -> None:
        day = {FIRST: "Sat, 05 Sep 2026 08:15:42 GMT", NEXT: "Mon, 14 Sep 2026 17:01:09 GMT"}[stable]
        self._tools.publish(page(mainline="7.3-rc2", stable=stable, longterm="6.18.50"), day)
        self._tools.answer("wget -qO- *releases.json", status=4)
        self._tools.answer(f"wget -qO- *ChangeLog-{stable}", stdout=changelog(stable))

    def start(self) -> None:
        self._clock = Clock(self._session.folder / "clock")
        environment = (
            self._session.environment
            | {
                "PATH": f"{self._tools.folder}:{SYSTEM}",
                "LD_PRELOAD": str(self._quick_sleep),
            }
            | self._clock.environment
        )
        with self._said.open("ab") as said:
            self._process = subprocess.Popen(
                [self._binary],
                env=environment,
                cwd=self._session.home,
                stdin=subprocess.DEVNULL,
                stdout=said,
                stderr=said,
                start_new_session=True,
            )

    def check(self) -> None:
        """Lets the time up to the next check pass at once."""
        self._clock.begin_check()

    @property
    def running(self) -> bool:
        return self._process is not None and self._process.poll() is None

    @property
    def said(self) -> list[str]:
        """What it has printed on the terminal."""
        return self._said.read_text(errors="replace").splitlines()

    def stop(self) -> None:
        if self._process:
            stop(self._process)
