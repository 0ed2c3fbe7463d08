# SPDX-License-Identifier: MIT
"""A session bus that is slow, or takes connections and never answers: what the start makes of it."""

import contextlib
import signal
import socket
import threading
import time
from collections.abc import Iterator
from pathlib import Path

import pytest
from stage.accessibility import BUS_SERVICE
from stage.applet import Applet, Machine, with_gvfs
from stage.desktop import SessionBus
from stage.probe import SETTINGS, Probe
from stage.tools import page
from stage.user import state_text
from stage.waiting import wait_until
from stage.witness import LINKS, browser

# How long the start waits for the bus, in seconds, and how long a busy machine may take on top.
PATIENCE = 5.0
TOLERANCE = 10.0

# On a user's desktop GTK's bridge to screen readers asks the session bus, too.
BRIDGE = pytest.mark.parametrize("bridge", [None, "1"], ids=["accessible", "not-accessible"])


@pytest.fixture
def bus(tmp_path: Path) -> Iterator[SessionBus]:
    with contextlib.closing(SessionBus(tmp_path, [BUS_SERVICE])) as bus:
        yield bus


class Sleeper:
    """The session bus as long as it is stopped: the system takes connections for it, and nobody answers."""

    def __init__(self, bus) -> None:
        self._process = bus.process
        self._process.send_signal(signal.SIGSTOP)
        status = Path(f"/proc/{self._process.pid}/status")
        wait_until(lambda: "State:\tT" in status.read_text(), "the stopped bus")

    def wake(self) -> None:
        self._process.send_signal(signal.SIGCONT)


@pytest.fixture
def sleeper(machine, bus) -> Iterator[Sleeper]:
    sleeper = Sleeper(bus)
    yield sleeper
    sleeper.wake()


class HalfABus:
    """A bus that answers authentication and then falls silent."""

    ANSWERS = {b"AUTH": b"REJECTED EXTERNAL", b"AUTH EXTERNAL": b"DATA", b"NEGOTIATE_UNIX_FD": b"AGREE_UNIX_FD"}

    def __init__(self, path: Path) -> None:
        self.address = f"unix:path={path}"
        self.greeted = 0
        self._listener = socket.socket(socket.AF_UNIX)
        self._listener.bind(str(path))
        self._listener.listen()
        threading.Thread(target=self._serve, daemon=True).start()

    def _serve(self) -> None:
        with contextlib.suppress(OSError):
            while True:
                threading.Thread(target=self._talk, args=self._listener.accept()[:1], daemon=True).start()

    def _talk(self, connection: socket.socket) -> None:
        with connection, connection.makefile("rb") as lines:
            while line := lines.readline().strip(b"\0\r\n"):
                if line == b"BEGIN":
                    self.greeted += 1
                    lines.read()
                else:
                    connection.sendall(self.ANSWERS.get(line, b"OK 0123456789abcdef0123456789abcdef") + b"\r\n")

    def close(self) -> None:
        self._listener.shutdown(socket.SHUT_RDWR)
        self._listener.close()


@pytest.fixture
def half_a_bus(machine) -> Iterator[HalfABus]:
    bus = HalfABus(machine.folder / "half-a-bus")
    yield bus
    bus.close()


def launch(machine: Machine, probe: Probe, **environment: str | None) -> Applet:
    surroundings = {**probe.options["environment"], **with_gvfs(machine), **machine.without_leak_search, **environment}
    return machine.launch(preload=probe.options["preload"], environment=surroundings)


def seconds_of_start(applet: Applet) -> float:
    begin = time.monotonic()
    wait_until(lambda: applet.clock.delays_begun, "the check thread's start", PATIENCE + TOLERANCE)
    return time.monotonic() - begin


def watches_on_unseen(machine: Machine, applet: Applet, probe: Probe) -> None:
    """It checks and saves, and shows its windows."""
    applet.clock.pass_delay()
    wait_until(lambda: applet.clock.steps_begun, "the end of the check")
    wait_until(lambda: machine.saved == state_text(latest_kernel="7.2.4", stable="7.2.4"), "the save")
    applet.process.send_signal(signal.SIGUSR1)
    wait_until(lambda: SETTINGS in probe.windows(), "the window")
    assert "7.2.4" in probe.windows()[SETTINGS].texts
    probe.close(SETTINGS)


@BRIDGE
def test_silent_bus_holds_up_the_start_for_five_seconds(machine, sleeper, bridge):
    machine.tools.publish(page(stable="7.2.4"))
    probe = Probe(machine.folder)
    applet = launch(machine, probe, NO_AT_BRIDGE=bridge)
    assert PATIENCE - 1 < seconds_of_start(applet) < PATIENCE + TOLERANCE
    watches_on_unseen(machine, applet, probe)
    applet.process.send_signal(signal.SIGTERM)
    assert applet.exit_status() == -signal.SIGTERM


@BRIDGE
def test_bus_that_never_greets_holds_up_the_start_for_five_seconds(machine, half_a_bus, bridge):
    machine.tools.publish(page(stable="7.2.4"))
    probe = Probe(machine.folder)
    applet = launch(machine, probe, NO_AT_BRIDGE=bridge, DBUS_SESSION_BUS_ADDRESS=half_a_bus.address)
    assert PATIENCE - 1 < seconds_of_start(applet) < PATIENCE + TOLERANCE
    assert half_a_bus.greeted
    watches_on_unseen(machine, applet, probe)
    applet.process.send_signal(signal.SIGTERM)
    assert applet.exit_status() == -signal.SIGTERM


@BRIDGE
def test_slow_bus_is_waited_for(machine, sleeper, bridge):
    machine.tools.publish(page(stable="7.2.4"))
    applet = machine.launch(environment={**with_gvfs(machine), "NO_AT_BRIDGE": bridge})
    begin = time.monotonic()
    wait_until(lambda: time.monotonic() > begin + 2, "two seconds")
    assert not applet.clock.delays_begun
    sleeper.wake()
    wait_until(lambda: machine.panel.items, "its icon")
    assert applet.item.icon == "tux-red"
    applet.check()
    assert applet.item.label == "7.2.4"
    environment = machine.tools.calls()[0].environment
    assert (environment.get("NO_AT_BRIDGE"), environment.get("GIO_USE_VFS")) == (bridge, None)
    assert applet.quit() == 0


@BRIDGE
def test_bus_that_answers_later_shows_the_icon_then(machine, sleeper, bridge):
    machine.tools.publish(page(stable="7.2.4"))
    probe = Probe(machine.folder)
    applet = launch(machine, probe, NO_AT_BRIDGE=bridge)
    seconds_of_start(applet)
    watches_on_unseen(machine, applet, probe)
    sleeper.wake()
    wait_until(lambda: machine.panel.items, "its icon")
    assert (applet.item.icon, applet.item.label) == ("tux-green", "7.2.4")
    # What it does without is not what a link's program has to do without.
    witness = browser(machine)
    probe.open(applet, SETTINGS)
    assert probe.do(f"click {LINKS[SETTINGS]}")
    environment = witness.environment
    assert (environment.get("NO_AT_BRIDGE"), environment.get("GIO_USE_VFS")) == (bridge, None)
    assert applet.quit() == 0
