# SPDX-License-Identifier: MIT
"""What a tray program costs, which the benchmarks measure: the time to its icon, its memory, its wake-ups, its size."""

import os
import statistics
import subprocess
import sys
import tempfile
import time
from collections.abc import Iterator, Sequence
from contextlib import contextmanager, suppress
from dataclasses import dataclass
from pathlib import Path

from stage.applet import Machine
from stage.waiting import let_pass, wait_until


# A program that does not wait for its bus, as few do, loses its icon now and then: the indicator library asks for the
# bus twice, and drops the icon if the second answer comes late.
TRIES = 3
PATIENCE = 5.0  # seconds


@dataclass(frozen=True)
class Running:
    """A program whose icon has just come. `seconds` is the time from the fork to the item's call to the panel,
    `computed` the milliseconds of processor time until then."""

    pid: int
    seconds: float
    computed: float


def end(process: subprocess.Popen) -> None:
    """Ends it and all that it has started."""
    for pid in reversed(family(process.pid)):
        try:
            os.kill(pid, 9)
        except ProcessLookupError:
            pass
    process.wait()


@contextmanager
def running(machine: Machine, command: Sequence[str], **environment: str) -> Iterator[Running]:
    """Starts the command and waits for its item. It and all that it has started end behind this."""
    items = machine.panel.items
    for _ in range(TRIES):
        known = len(items)
        begun = time.monotonic()
        process = subprocess.Popen(
            command,
            cwd=machine.folder,
            env={**machine.environment, **environment},
            stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
            start_new_session=True,
        )
        try:
            with suppress(AssertionError):
                wait_until(lambda: len(items) > known or process.poll() is not None, "the icon", PATIENCE)
            if len(items) > known:
                yield Running(process.pid, items[known].registered - begun, own_time(process.pid))
                return
        finally:
            end(process)
    sys.exit(f"{command[0]} shows no icon")


def family(pid: int) -> list[int]:
    """The process and all that come from it."""
    children: dict[int, list[int]] = {}
    for status in Path("/proc").glob("[0-9]*/stat"):
        try:
            parent = int(status.read_text().rpartition(")")[2].split()[1])
        except (FileNotFoundError, ProcessLookupError):
            continue
        children.setdefault(parent, []).append(int(status.parent.name))
    found = [pid]
    for member in found:
        found += children.get(member, [])
    return found


def fastest(times: Sequence[float]) -> float:
    """The median of the fastest quarter: what nothing else has disturbed is among these."""
    return statistics.median(sorted(times)[: max(1, len(times) // 4)])


def own_time(pid: int) -> float:
    """Milliseconds of processor time that the process's living threads have taken."""
    return sum(int((task / "schedstat").read_text().split()[0]) for task in Path(f"/proc/{pid}/task").iterdir()) / 1e6


@dataclass(frozen=True)
class Memory:
    """In MiB. What is shared counts in `proportional` by the number of those who share it, in `private` not at all."""

    proportional: float
    private: float


def memory(pid: int) -> Memory:
    """That of the process and of all that come from it."""
    pages: dict[str, int] = {}
    for member in family(pid):
        for line in Path(f"/proc/{member}/smaps_rollup").read_text().splitlines()[1:]:
            kind, kilobytes = line.split()[:2]
            pages[kind] = pages.get(kind, 0) + int(kilobytes)
    return Memory(pages["Pss:"] / 1024, (pages["Private_Clean:"] + pages["Private_Dirty:"]) / 1024)


def sleeps(pid: int) -> dict[str, int]:
    """How often each thread of the process, and of all that come from it, has gone to sleep."""
    found = {}
    for member in family(pid):
        for task in Path(f"/proc/{member}/task").iterdir():
            for line in (task / "status").read_text().splitlines():
                if line.startswith("voluntary_ctxt_switches:"):
                    found[task.name] = int(line.split()[1])
    return found


def wakeups(pid: int, seconds: float) -> float:
    """Wake-ups a second, watched for so long."""
    before = sleeps(pid)
    let_pass(seconds)
    after = sleeps(pid)
    return sum(after[task] - before.get(task, 0) for task in after) / seconds


def stripped_size(program: Path) -> float:
    """In KiB."""
    with tempfile.NamedTemporaryFile() as stripped:
        subprocess.run(["strip", "-o", stripped.name, program], check=True)
        return Path(stripped.name).stat().st_size / 1024


def verdict(met: bool) -> str:
    return "met" if met else "MISSED"
