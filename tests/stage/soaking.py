# SPDX-License-Identifier: MIT
"""A soak: what a user's months do to one process, in minutes. Its rounds, its site and its judgement."""

import json
import shutil
import signal
from collections.abc import Callable
from dataclasses import dataclass
from datetime import datetime, timedelta, timezone
from email.utils import format_datetime
from pathlib import Path

from stage.applet import Machine
from stage.hand import DEADLINE, Footprint, Hand, footprint
from stage.project import BUILD
from stage.tools import SearchPath, page
from stage.waiting import wait_until

CDN = "https://cdn.kernel.org/pub/linux/kernel/v7.x"

# Few enough for thousands of loads in minutes.
COMMITS = 25
SHOWN = f"{COMMITS} changes"
MODULES = 150


class Site(SearchPath):
    """Quick stand-ins for the download tools, and what they give."""

    def __init__(self, folder: Path) -> None:
        super().__init__(folder)
        for name in ("wget", "curl"):
            shutil.copy(BUILD.driver("quick_tool"), folder / name)
        for name in ("grep", "sed"):
            self.put(name)
        self._give("changelog", "".join(self._commit(number) for number in range(COMMITS)))
        self._edition = 0
        self.publish()

    @staticmethod
    def _commit(number: int) -> str:
        kind = ("net: fix a lock", "Merge tag 'usb'", "mm/slub: count pages", "Linux 7.2.1")[number % 4]
        return (
            f"commit {number * 2654435761 % 2**64:040x}\n"
            f"Author: Writer Number {number} <writer-{number}@mail.invalid>\n"
            "Date:   Mon Sep 14 10:11:12 2026 +0200\n\n"
            f"    {kind}, part {number}\n\n    It was late, and nobody had counted\n    how often this is called.\n\n"
        )

    def _give(self, name: str, text: str) -> None:
        made = self.folder / "made"
        made.write_text(text)
        made.rename(self.folder / name)

    @property
    def stable(self) -> str:
        return f"7.2.{self._edition}"

    def publish(self) -> None:
        """From now on the site has a new stable release."""
        self._edition += 1
        others = {"mainline": "7.3-rc2", "longterm": "6.18.31"}
        releases = [
            {
                "moniker": moniker,
                "version": version,
                "changelog": f"{CDN}/ChangeLog-{version}",
                "released": {"isodate": "2026-09-14"},
            }
            for moniker, version in {**others, "stable": self.stable}.items()
        ]
        self._give("index", json.dumps({"releases": releases}, indent=1))
        self._give("page", page(stable=self.stable, **others))
        day = datetime(2026, 1, 1, tzinfo=timezone.utc) + timedelta(days=self._edition % 300)
        # A date with these three digits in a row would look like the answer "not modified".
        self._give("modified", format_datetime(day, usegmt=True))


def modules_text() -> str:
    """What the machine's kernel says of its modules. Two of three are in use."""
    lines = []
    for number in range(MODULES):
        user = "soak_000," if number % 3 else "-"
        lines.append(f"soak_{number:03} {4096 * (4 + number)} {number % 3} {user} Live 0x0000000000000000\n")
    return "".join(lines)


@dataclass(frozen=True)
class Rounds:
    checks: int
    windows: int  # how often each window is opened and closed; Latest Changes loads twice each time


class Soak:
    """One program, with the hand inside, and everything that its user does over and over again."""

    def __init__(
        self, machine: Machine, site: Site, animations: bool = False, deadline: float = DEADLINE, **options
    ) -> None:
        """`options` are those of Machine.launch."""
        self._site = site
        self._deadline = deadline
        # GTK keeps a symbolic icon, such as a selector's arrow, in every colour that it ever drew it in, and a fade
        # from one colour to another has as many as it has frames.
        machine.animates(animations)
        self._checks = 0
        modules = machine.folder / "modules"
        modules.write_text(modules_text())
        self.hand = Hand(machine.folder, modules, deadline)
        machine.saves(kernel="7.2.0", latest_kernel="7.2.0", stable="7.2.0")
        # With GLib's own pools, what is free would count as used.
        environment = {**self.hand.environment, "PATH": str(site.folder), "G_SLICE": "always-malloc"}
        self.applet = machine.start(preload=self.hand.preload, environment=environment, **options)
        self._acknowledge = self.applet.item.menu.entry("Acknowledge Update")
        self.counts = dict.fromkeys(("checks", "loads", "Settings", "Latest Changes", "System & Modules", "About"), 0)

    def check(self) -> None:
        """Lets half an hour pass. Every other time there is a new release."""
        if self._checks % 2 == 0:
            self._site.publish()
        self.applet.begin_check()
        self._wait(lambda: self.applet.clock.check_is_over, "the check's end")
        self._checks += 1
        self.counts["checks"] += 1

    def _wait(self, condition: Callable[[], object], what: str) -> None:
        # Often: there are thousands of them.
        wait_until(condition, what, self._deadline, interval=0.001)

    def _show(self, number: int, name: str) -> None:
        self.applet.send(number)
        self._wait(lambda: self.hand.ask("windows") == 1, name)
        self.counts[name] += 1

    def settings(self) -> None:
        self._show(signal.SIGUSR1, "Settings")
        assert self.hand.ask("shows Linux kernel overview") == 1
        self.hand.close_windows()

    def about(self) -> None:
        self._show(signal.SIGUSR2, "About")
        assert self.hand.ask("shows Monitors Linux kernel releases") == 1
        self.hand.close_windows()

    def changes(self) -> None:
        self._show(signal.SIGRTMIN + 1, "Latest Changes")
        self._wait(lambda: self.hand.ask(f"shows {SHOWN}") == 1, "the load's end")
        # When this is answered the window shows a load that runs.
        assert self.hand.ask("press Refresh") == 1
        self._wait(lambda: self.hand.ask(f"shows {SHOWN}") == 1, "the second load's end")
        self.counts["loads"] += 2
        self.hand.close_windows()

    def system(self) -> None:
        self._show(signal.SIGRTMIN + 2, "System & Modules")
        assert self.hand.ask(f"shows {MODULES} loaded") == 1
        assert self.hand.ask("press Reload") == 1
        self.hand.close_windows()

    def windows(self) -> None:
        self.settings()
        self.changes()
        self.system()
        self.about()

    def acknowledge(self) -> None:
        self.applet.item.menu.click_entry(self._acknowledge)
        wait_until(lambda: self.applet.item.icon == "tux-white", "the white icon", self._deadline)

    def run(self, rounds: Rounds, progress: Callable[[str], None] = lambda line: None) -> None:
        """Mixes checks and windows evenly."""
        windows = max(rounds.windows, 1)
        done = 0
        for number in range(windows):
            while done < (number + 1) * rounds.checks // windows:
                self.check()
                done += 1
            if rounds.windows:
                self.windows()
            self.acknowledge()
            progress(f"{done} checks, {number + 1} times each window")

    def footprint(self) -> Footprint:
        """After what the main loop still has to do."""
        self.applet.settle()
        self.applet.item.signals.clear()
        return footprint(self.applet, self.hand)

    def close(self) -> None:
        self.hand.close()
