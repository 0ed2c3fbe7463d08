# SPDX-License-Identifier: MIT
"""Measures Veldrin beside other tray programs, each on the same stage. bench/peers installs them and runs this."""

import shutil
import statistics
import subprocess
import sys
from collections.abc import Iterator
from contextlib import contextmanager
from dataclasses import dataclass, field
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.append(str(Path(__file__).resolve().parents[1] / "tests"))
from stage.applet import Machine  # noqa: E402
from stage.measuring import fastest, memory, running, stripped_size, verdict, wakeups  # noqa: E402
from stage.project import ROOT, Build  # noqa: E402
from stage.script import put_up  # noqa: E402
from stage.waiting import let_pass  # noqa: E402

BUILD = Build(ROOT / "build" / "bench")
STARTS = 24
MEMORY_RUNS = 3
REST = 5  # seconds from the icon until a program is at rest
WATCHED_SECONDS = 20

FLOOR = "floor"
OURS = "Veldrin"
LIGHTEST = "package-update-indicator"


@dataclass
class Program:
    name: str
    command: list[str]
    language: str
    starts: list[float] = field(default_factory=list)
    computed: list[float] = field(default_factory=list)
    alone: float = 0
    beside: float = 0
    private: float = 0
    rate: float = 0

    @property
    def size(self) -> str:
        """A script is no binary."""
        return "" if self.language == "Python" else f"{stripped_size(Path(self.command[0])):.0f}"


def programs(icon: str) -> list[Program]:
    found = [
        Program(FLOOR, [str(BUILD.folder / "bench" / "bench_floor"), icon], "C"),
        Program(OURS, [str(BUILD.program)], "C++"),
        Program("package-update-indicator", ["package-update-indicator"], "C"),
        Program("diodon", ["diodon"], "Vala"),
        Program("pasystray", ["pasystray"], "C"),
        Program("psensor", ["psensor"], "C"),
        # Of a place and a screen it knows nothing here.
        Program("redshift-gtk", ["redshift-gtk", "-l", "50:10", "-m", "dummy"], "Python"),
    ]
    for program in found:
        program.command[0] = shutil.which(program.command[0], path="/usr/bin") or program.command[0]
    return found


def build() -> None:
    configure = ["cmake", "--preset", "release", "-B", str(BUILD.folder), "-DVELDRIN_BENCH=ON", "-DVELDRIN_TESTS=ON"]
    subprocess.run(configure, cwd=ROOT, check=True, stdout=subprocess.DEVNULL)
    targets = ["veldrin", "bench_floor", "bench_neighbour", "quick_sleep"]
    subprocess.run(["cmake", "--build", str(BUILD.folder), "--target", *targets], check=True, stdout=subprocess.DEVNULL)


@contextmanager
def neighbour(machine: Machine) -> Iterator[None]:
    command = [str(BUILD.folder / "bench" / "bench_neighbour")]
    with subprocess.Popen(command, env=machine.environment, stdout=subprocess.PIPE) as process:
        try:
            process.stdout.readline()
            yield
        finally:
            process.kill()


def measure(machine: Machine, everything: list[Program]) -> None:
    for _ in range(STARTS):
        for program in everything:
            with running(machine, program.command, PATH="/usr/bin:/bin") as found:
                program.starts.append(found.seconds * 1000)
                program.computed.append(found.computed)
    for program in everything:
        runs = []
        for _ in range(MEMORY_RUNS):
            with running(machine, program.command, PATH="/usr/bin:/bin") as found:
                let_pass(REST)
                alone = memory(found.pid)
                with neighbour(machine):
                    let_pass(1)
                    runs.append((alone.proportional, memory(found.pid).proportional, alone.private))
        program.alone, program.beside, program.private = (statistics.median(column) for column in zip(*runs))
        with running(machine, program.command, PATH="/usr/bin:/bin") as found:
            # By then the libraries' helper threads have ended.
            let_pass(20)
            program.rate = wakeups(found.pid, WATCHED_SECONDS)


def show(everything: list[Program]) -> None:
    everything.sort(key=lambda program: fastest(program.starts))
    print("|  | start | computed | memory alone | beside C++ | private | wake-ups | stripped | written in |")
    print("|---|---:|---:|---:|---:|---:|---:|---:|---|")
    for program in everything:
        name = f"**{program.name}**" if program.name == OURS else program.name
        print(
            f"| {name} | {fastest(program.starts):.1f} ms | {fastest(program.computed):.1f} ms "
            f"| {program.alone:.1f} MiB | {program.beside:.1f} MiB | {program.private:.1f} MiB "
            f"| {program.rate:.2f}/s | {program.size} | {program.language} |"
        )


def goals(everything: list[Program]) -> bool:
    by_name = {program.name: program for program in everything}
    ours = by_name.pop(OURS)
    del by_name[FLOOR]
    quickest = min(fastest(program.starts) for program in by_name.values())
    met = [fastest(ours.starts) <= quickest, ours.beside <= by_name[LIGHTEST].beside]
    print(f"\nStart at most the quickest peer's: {verdict(met[0])}")
    print(f"Memory beside another C++ program at most {LIGHTEST}'s: {verdict(met[1])}")
    return all(met)


def main() -> int:
    build()
    with put_up(BUILD) as machine:
        machine.saves(kernel="7.2.3", latest_kernel="7.2.4", stable="7.2.4")
        # The floor shows the icon that the program has left.
        with running(machine, [str(BUILD.program)]):
            icon = machine.panel.items[-1].icon_path
        everything = programs(icon)
        measure(machine, everything)
    show(everything)
    return 0 if goals(everything) else 1


if __name__ == "__main__":
    sys.exit(main())
