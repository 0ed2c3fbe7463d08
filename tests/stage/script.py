# SPDX-License-Identifier: MIT
"""The whole stage for a script from the command line: it ends with everything on it, however the script ends."""

import signal
import sys
import tempfile
from collections.abc import Iterator
from contextlib import closing, contextmanager
from pathlib import Path

from stage.applet import Machine
from stage.desktop import Display, SessionBus
from stage.panel import Panel
from stage.project import BUILD, Build
from stage.waiting import DEADLINE


def end_like_ctrl_c() -> None:
    """A script that is ended from outside clears up as one does that Ctrl-C ends."""
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda *_: sys.exit("ended from outside"))


@contextmanager
def put_up(build: Build = BUILD, deadline: float = DEADLINE) -> Iterator[Machine]:
    """A display, a bus, a panel, and a user who has this build of the program and waits so long for it."""
    if not build.program.exists():
        sys.exit(f"{build.program} is not built; VELDRIN_BUILD names the folder of the build")
    end_like_ctrl_c()
    with tempfile.TemporaryDirectory(prefix="veldrin-") as name:
        folder = Path(name)
        with (
            closing(Display(folder)) as display,
            closing(SessionBus(folder)) as bus,
            closing(Panel(bus.address)) as panel,
            closing(Machine(folder, display, bus, panel, build, deadline)) as machine,
        ):
            yield machine
