"""A desktop session of the test's own: display, session bus, and programs that end with the test, however it ends."""

import os
import shutil
import subprocess
from collections.abc import Sequence
from pathlib import Path
from typing import IO

from waiting import wait_until


def tied(command: Sequence[str | Path], signal: str = "TERM") -> list[str | Path]:
    """The command such that it gets the signal when the test's process dies, even by SIGKILL. Both are found now: the
    search path that the command gets is a test's."""
    program, *arguments = command
    return [shutil.which("setpriv"), "--pdeathsig", signal, "--", shutil.which(program), *arguments]


class Service:
    """A server that says where it can be reached once it can be."""

    def __init__(self, command: Sequence[str | Path], errors: Path) -> None:
        read_end, write_end = os.pipe()
        command = [str(word).replace("{fd}", str(write_end)) for word in command]
        with errors.open("ab") as log:
            self._process = subprocess.Popen(
                tied(command), pass_fds=[write_end], stdin=subprocess.DEVNULL, stdout=log, stderr=log
            )
        os.close(write_end)
        with os.fdopen(read_end) as answer:
            self.address = answer.readline().strip()
        if not self.address:
            self.stop()
            raise RuntimeError(f"{command[0]} did not start: {errors.read_text()}")

    def stop(self) -> None:
        self._process.terminate()
        try:
            self._process.wait(10)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()


class Display(Service):
    WIDTH, HEIGHT = 1280, 800

    def __init__(self, folder: Path) -> None:
        screen = ["-screen", "0", f"{self.WIDTH}x{self.HEIGHT}x24"]
        options = [*screen, "-nolisten", "tcp", "-noreset", "-displayfd", "{fd}"]
        super().__init__(["Xvfb", *options], folder / "xvfb.log")
        self.name = f":{self.address}"


class SessionBus(Service):
    CONFIGURATION = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:dir={folder}</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
"""

    def __init__(self, folder: Path) -> None:
        configuration = folder / "bus.conf"
        configuration.write_text(self.CONFIGURATION.replace("{folder}", str(folder)))
        options = [f"--config-file={configuration}", "--nofork", "--nopidfile", "--nosyslog", "--print-address={fd}"]
        super().__init__(["dbus-daemon", *options], folder / "bus.log")


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
        try:
            os.killpg(self.process.pid, 9)
        except ProcessLookupError:
            pass
        self.process.wait()
