# SPDX-License-Identifier: MIT
"""What each test stands on: a display for all tests of a worker, and a session bus, a panel and a user of its own."""

import contextlib
import resource
import signal
import sys
from collections.abc import Callable, Iterator
from pathlib import Path

import pytest

sys.path.append(str(Path(__file__).resolve().parents[1]))
pytest.register_assert_rewrite("stage")

from stage.accessibility import BUS_SERVICE, Desk  # noqa: E402
from stage.applet import Machine  # noqa: E402
from stage.compositor import Compositor  # noqa: E402
from stage.crash import Orphans, orphans_adopted  # noqa: E402
from stage.desktop import Display, SessionBus  # noqa: E402
from stage.panel import Panel  # noqa: E402
from stage.project import BUILD  # noqa: E402
from stage.site import KernelSite  # noqa: E402


def pytest_sessionstart() -> None:
    # Who runs the tests in the background may have these ignored, and what the tests start would inherit that.
    signal.signal(signal.SIGINT, signal.default_int_handler)
    for number in (signal.SIGHUP, signal.SIGQUIT):
        signal.signal(number, signal.SIG_DFL)
    wanted = (BUILD.program, BUILD.library("quick_sleep"), BUILD.library("notice"))
    if missing := [str(path) for path in wanted if not path.exists()]:
        raise pytest.UsageError(f"not built: {', '.join(missing)}; VELDRIN_BUILD names the folder of the build")


@pytest.fixture(scope="session")
def display(tmp_path_factory: pytest.TempPathFactory) -> Iterator[Display]:
    with contextlib.closing(Display(tmp_path_factory.mktemp("display"))) as display:
        yield display


@pytest.fixture(scope="session")
def compositors(display: Display, tmp_path_factory: pytest.TempPathFactory) -> Iterator[Callable[[int], Compositor]]:
    """One for each scale: on Wayland the display decides, and not the program's environment."""
    made: dict[int, Compositor] = {}

    def with_scale(scale: int) -> Compositor:
        if scale not in made:
            made[scale] = Compositor(tmp_path_factory.mktemp("wayland"), display, scale)
        return made[scale]

    yield with_scale
    for compositor in made.values():
        compositor.close()


@pytest.fixture
def bus(tmp_path: Path) -> Iterator[SessionBus]:
    with contextlib.closing(SessionBus(tmp_path)) as bus:
        yield bus


@pytest.fixture
def panel(bus: SessionBus) -> Iterator[Panel]:
    with contextlib.closing(Panel(bus.address)) as panel:
        yield panel


@pytest.fixture
def machine(tmp_path: Path, display: Display, bus: SessionBus, panel: Panel) -> Iterator[Machine]:
    with contextlib.closing(Machine(tmp_path, display, bus, panel)) as machine:
        yield machine


@pytest.fixture
def desk(tmp_path: Path) -> Iterator[Desk]:
    """A user with a keyboard and a screen reader, on a display of their own: the keyboard goes to one window alone."""
    with contextlib.ExitStack() as stack:

        def keep(made):
            return stack.enter_context(contextlib.closing(made))

        display, bus = keep(Display(tmp_path)), keep(SessionBus(tmp_path, [BUS_SERVICE]))
        machine = keep(Machine(tmp_path, display, bus, keep(Panel(bus.address))))
        yield keep(Desk(machine, bus))


@pytest.fixture
def site() -> Iterator[KernelSite]:
    with KernelSite() as site:
        site.publish(mainline="7.9-rc3", stable="7.8.4", longterm="7.6.21")
        yield site


@pytest.fixture
def no_core_dump() -> Iterator[None]:
    before = resource.getrlimit(resource.RLIMIT_CORE)
    resource.setrlimit(resource.RLIMIT_CORE, (0, before[1]))
    yield
    resource.setrlimit(resource.RLIMIT_CORE, before)


@pytest.fixture
def orphans(machine: Machine) -> Iterator[Orphans]:
    with orphans_adopted(machine):
        yield Orphans()
