# SPDX-License-Identifier: MIT
"""The program's sleeps, which end when the script says so."""

import mmap
from pathlib import Path

STEPS_OF_A_PAUSE = 1800


class Clock:
    """The counters of quick_sleep.c, and how many checks they were turned on for."""

    def __init__(self, path: Path) -> None:
        self.environment = {"QUICK_SLEEP_CLOCK": str(path)}
        path.write_bytes(bytes(4 * 8))
        with path.open("r+b") as file:
            self._counters = memoryview(mmap.mmap(file.fileno(), 4 * 8)).cast("Q")
        self._checks = 0

    def __str__(self) -> str:
        names = ("delays allowed", "begun", "steps allowed", "begun")
        return ", ".join(f"{name}: {counter}" for name, counter in zip(names, self._counters, strict=True))

    def pass_delay(self) -> None:
        self._counters[0] += 1

    @property
    def delays_begun(self) -> int:
        return self._counters[1]

    def pass_steps(self, number: int) -> None:
        self._counters[2] += number

    @property
    def steps_begun(self) -> int:
        return self._counters[3]

    def begin_check(self) -> None:
        """Lets the time up to the next check pass."""
        if self._checks == 0:
            self.pass_delay()
        else:
            self.pass_steps(STEPS_OF_A_PAUSE)
        self._checks += 1

    @property
    def check_is_over(self) -> bool:
        """Whether the check that was begun last is: the pause behind it has begun."""
        return self.steps_begun > (self._checks - 1) * STEPS_OF_A_PAUSE
