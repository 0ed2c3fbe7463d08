"""The stage of each test: a display for all tests of a worker, and a session bus, a panel and a user of its own."""

import signal
from collections.abc import Callable, Iterator
from pathlib import Path

import sys

import pytest

sys.path.append(str(Path(__file__).resolve().parents[1] / "stage"))

pytest.register_assert_rewrite(
    "accessibility", "applet", "compositor", "desktop", "hand", "kills", "panel", "probe", "soaking", "tools",
    "waiting", "machines", "world",
)

import applet  # noqa: E402
import desktop  # noqa: E402
from compositor import Compositor  # noqa: E402
from panel import Panel  # noqa: E402


def pytest_sessionstart() -> None:
    # Who runs the tests in the background may have these ignored, and what the tests start would inherit that.
    signal.signal(signal.SIGINT, signal.default_int_handler)
    for number in (signal.SIGHUP, signal.SIGQUIT):
        signal.signal(number, signal.SIG_DFL)
    missing = [str(path) for path in (applet.PROGRAM, applet.QUICK_SLEEP, applet.NOTICE) if not path.exists()]
    if missing:
        raise pytest.UsageError(f"not built: {', '.join(missing)}; VELDRIN_BUILD names the folder of the build")


@pytest.fixture(scope="session")
def display(tmp_path_factory: pytest.TempPathFactory) -> Iterator[desktop.Display]:
    display = desktop.Display(tmp_path_factory.mktemp("display"))
    yield display
    display.stop()


@pytest.fixture(scope="session")
def compositors(
    display: desktop.Display, tmp_path_factory: pytest.TempPathFactory
) -> Iterator[Callable[[int], Compositor]]:
    """One for each scale: on Wayland the display decides, and not the program's environment."""
    made: dict[int, Compositor] = {}

    def with_scale(scale: int) -> Compositor:
        if scale not in made:
            made[scale] = Compositor(tmp_path_factory.mktemp("wayland"), display, scale)
        return made[scale]

    yield with_scale
    for compositor in made.values():
        compositor.stop()


@pytest.fixture
def bus(tmp_path: Path) -> Iterator[desktop.SessionBus]:
    bus = desktop.SessionBus(tmp_path)
    yield bus
    bus.stop()


@pytest.fixture
def panel(bus: desktop.SessionBus) -> Iterator[Panel]:
    panel = Panel(bus.address)
    yield panel
    panel.close()


@pytest.fixture
def machine(
    tmp_path: Path, display: desktop.Display, bus: desktop.SessionBus, panel: Panel
) -> Iterator[applet.Machine]:
    machine = applet.Machine(tmp_path, display, bus, panel)
    yield machine
    machine.close()
