"""A display, a bus, a panel and a user, for long runs from the command line. Set up as the tests from outside are."""

from __future__ import annotations

import os
import signal
import sys
import tempfile
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
os.environ.setdefault("VELDRIN_BUILD", str(ROOT / "build" / "debug"))
sys.dont_write_bytecode = True
sys.path.insert(0, str(ROOT / "tests" / "stage"))
import applet  # noqa: E402
import desktop  # noqa: E402
from panel import Panel  # noqa: E402

# As Ctrl-C does, so that all that was started ends with the run.
for ending in (signal.SIGTERM, signal.SIGHUP):
    signal.signal(ending, lambda *_: sys.exit("ended from outside"))


@contextmanager
def stage() -> Iterator[applet.Machine]:
    """Ends everything that was started on it, however the run ends."""
    if not applet.PROGRAM.exists():
        sys.exit(f"{applet.PROGRAM} is not built; VELDRIN_BUILD names the folder of the build")
    with tempfile.TemporaryDirectory(prefix="veldrin-") as name:
        folder = Path(name)
        display = desktop.Display(folder)
        try:
            bus = desktop.SessionBus(folder)
            try:
                panel = Panel(bus.address)
                machine = applet.Machine(folder, display, bus, panel)
                try:
                    yield machine
                finally:
                    machine.close()
                    panel.close()
            finally:
                bus.stop()
        finally:
            display.stop()
