# SPDX-License-Identifier: MIT
"""Programs that end with the script that started them, however it ends."""

import contextlib
import ctypes
import os
import shutil
import signal
import subprocess
import time
from collections.abc import Mapping, Sequence
from pathlib import Path
from typing import IO

from stage.waiting import wait_until


def tied(command: Sequence[str | Path], signal: str = "TERM") -> list[str | Path]:
    """The command such that it gets the signal when this process dies, even by SIGKILL. Both are found now: the search
    path that the command gets is a test's."""
    program, *arguments = command
    return [shutil.which("setpriv"), "--pdeathsig", signal, "--", shutil.which(program) or program, *arguments]


class Service:
    """A server that says where it can be reached once it can be, by writing it to {fd}."""

    def __init__(self, command: Sequence[str | Path], log: Path, environment: Mapping[str, str] | None = None) -> None:
        read_end, write_end = os.pipe()
        command = [str(word).replace("{fd}", str(write_end)) for word in command]
        with log.open("ab") as errors:
            self.process = subprocess.Popen(
                tied(command),
                env=environment,
                pass_fds=[write_end],
                stdin=subprocess.DEVNULL,
                stdout=errors,
                stderr=errors,
                # A Ctrl-C on the terminal is for the script alone, which then ends them in their order.
                start_new_session=True,
            )
        os.close(write_end)
        with os.fdopen(read_end) as answer:
            self.address = answer.readline().strip()
        if not self.address:
            self.close()
            raise RuntimeError(f"{command[0]} did not start: {log.read_text()}")

    def close(self) -> None:
        self.process.terminate()
        try:
            self.process.wait(10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()


class Program:
    """A running program in a process group of its own, with its output kept in files."""

    def __init__(self, command: Sequence[str | Path], environment: dict[str, str], folder: Path, name: str) -> None:
        self._stdout = folder / f"{name}.stdout"
        self._stderr = folder / f"{name}.stderr"
        with self._stdout.open("wb") as out, self._stderr.open("wb") as err:
            self.process = self._start(tied(command, "KILL"), environment, folder, out, err)

    @staticmethod
    def _start(command, environment, folder: Path, out: IO, err: IO) -> subprocess.Popen:
        return subprocess.Popen(
            command,
            env=environment,
            cwd=folder,
            stdin=subprocess.DEVNULL,
            stdout=out,
            stderr=err,
            start_new_session=True,
        )

    @property
    def stdout(self) -> str:
        return self._stdout.read_text(errors="replace")

    @property
    def stderr(self) -> str:
        return self._stderr.read_text(errors="replace")

    @property
    def running(self) -> bool:
        return self.process.poll() is None

    def exit_status(self, deadline: float = 10.0) -> int:
        """Waits for the end. The number of the signal that ended it comes negative."""
        wait_until(lambda: not self.running, "the program's end", deadline)
        return self.process.returncode

    def kill(self) -> None:
        """Ends it and all commands it has started."""
        with contextlib.suppress(ProcessLookupError):
            os.killpg(self.process.pid, signal.SIGKILL)
        self.process.wait()


def adopt_orphans(adopt: bool = True) -> None:
    """Makes this process the parent of every child's child that loses its own, so that none escapes; or no more."""
    PR_SET_CHILD_SUBREAPER = 36
    assert ctypes.CDLL(None).prctl(PR_SET_CHILD_SUBREAPER, int(adopt), 0, 0, 0) == 0


def end_children(patience: float) -> None:
    """Ends all that is left: politely, and after these seconds not so."""
    end = time.monotonic() + patience
    while children := [
        int(child) for threads in Path("/proc/self/task").glob("*/children") for child in threads.read_text().split()
    ]:
        for child in children:
            with contextlib.suppress(ProcessLookupError, ChildProcessError):
                os.kill(child, signal.SIGTERM if time.monotonic() < end else signal.SIGKILL)
                os.waitpid(child, os.WNOHANG)
        time.sleep(0.02)
