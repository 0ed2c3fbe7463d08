# SPDX-License-Identifier: MIT
"""The Flatpak's start asks the desktop's portal once to start it with the next session, and waits for nobody."""

import os
import subprocess
import sys
import time
from ast import literal_eval
from collections.abc import Callable, Iterator
from pathlib import Path

import pytest

SCRIPT = Path(__file__).resolve().parents[2] / "packaging/flatpak/autostart-once"
DEADLINE = 20.0

# Writes down what it is asked, and answers unless it is to be silent.
PORTAL = """
import sys
from pathlib import Path
from gi.repository import Gio, GLib

told, silent = Path(sys.argv[1]), sys.argv[2] == "silent"
XML = '''<node><interface name="org.freedesktop.portal.Background"><method name="RequestBackground">
<arg type="s" name="parent_window" direction="in"/><arg type="a{sv}" name="options" direction="in"/>
<arg type="o" name="handle" direction="out"/></method></interface></node>'''

def asked(connection, sender, path, interface, method, parameters, invocation):
    with told.open("a") as file:
        print(parameters.unpack(), file=file)
    if not silent:
        invocation.return_value(GLib.Variant("(o)", ("/org/freedesktop/portal/desktop/request/1_1/t",)))

def have_bus(connection, name):
    interface = Gio.DBusNodeInfo.new_for_xml(XML).interfaces[0]
    connection.register_object("/org/freedesktop/portal/desktop", interface, asked)

Gio.bus_own_name(Gio.BusType.SESSION, "org.freedesktop.portal.Desktop", 0, have_bus,
                 lambda *_: print("ready", flush=True), None)
GLib.MainLoop().run()
"""
# In place of the applet: its words, and the children that it finds itself with.
APPLET = """#!/bin/sh
read -r children <"/proc/$$/task/$$/children"
echo started "$@" $children
"""


def wait_until(condition: Callable[[], object], what: str) -> None:
    end = time.monotonic() + DEADLINE
    while not condition():
        assert time.monotonic() < end, f"waited in vain for {what}"
        time.sleep(0.02)


class World:
    def __init__(self, folder: Path) -> None:
        self.folder = folder
        self.data = folder / "data"
        self.data.mkdir()
        self.told = folder / "told"
        (folder / "bin").mkdir()
        (folder / "bin/veldrin").write_text(APPLET)
        (folder / "bin/veldrin").chmod(0o755)
        self.running: list[subprocess.Popen] = []
        command = ["dbus-daemon", "--session", "--nofork", "--print-address=1", f"--address=unix:path={folder}/bus"]
        self.environment = {"PATH": f"{folder}/bin:/usr/bin:/bin", "XDG_DATA_HOME": str(self.data)}
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = self._run(command, dict(os.environ))

    def _run(self, command: list[str], environment: dict[str, str]) -> str:
        self.running.append(subprocess.Popen(command, env=environment, stdout=subprocess.PIPE, text=True))
        return self.running[-1].stdout.readline().strip()

    def portal(self, kind: str = "answers") -> None:
        assert self._run([sys.executable, "-c", PORTAL, str(self.told), kind], self.environment) == "ready"

    def start(self, *words: str) -> str:
        """What the applet says once it runs; whoever holds its start up, or its output open, fails this."""
        command = [str(SCRIPT), *words]
        result = subprocess.run(
            command, env=self.environment, capture_output=True, text=True, timeout=5, check=True, cwd=self.folder
        )
        assert result.stderr == ""
        return result.stdout

    def asked(self) -> list[str]:
        return self.told.read_text().splitlines() if self.told.exists() else []

    @property
    def offered(self) -> bool:
        return any(self.data.iterdir())

    def close(self) -> None:
        for process in reversed(self.running):
            process.kill()
            process.wait()
            process.stdout.close()


@pytest.fixture(name="world")
def flatpak_world(tmp_path) -> Iterator[World]:
    world = World(tmp_path)
    yield world
    world.close()


def test_the_first_start_asks_to_be_started_with_the_session(world):
    world.portal()
    # With no child that the applet has not started itself.
    assert world.start() == "started\n"
    wait_until(lambda: world.offered, "the end of the question")
    (question,) = world.asked()
    window, options = literal_eval(question)
    assert window == ""
    assert options == {
        "reason": "Watch the releases of the Linux kernel", "autostart": True, "commandline": ["veldrin"],
    }  # fmt: skip


def test_later_starts_ask_nothing(world):
    world.portal()
    world.start()
    wait_until(lambda: world.offered, "the end of the question")
    world.start()
    world.start()
    # A question would be on its way before this one's answer is.
    (world.data / ".autostart-offered").unlink()
    world.start()
    wait_until(lambda: world.offered, "the end of the question")
    assert len(world.asked()) == 2


def test_without_a_portal_the_applet_starts_and_the_next_start_asks(world):
    assert world.start() == "started\n"
    time.sleep(0.5)
    assert not world.offered
    world.portal()
    world.start()
    wait_until(lambda: world.offered, "the end of the question")
    assert len(world.asked()) == 1


def test_a_portal_that_does_not_answer_holds_nothing_up(world):
    world.portal("silent")
    assert world.start() == "started\n"
    wait_until(world.asked, "the question")
    assert not world.offered


def test_without_a_bus_the_applet_starts_all_the_same(world):
    world.environment["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=/nowhere"
    assert world.start() == "started\n"


def test_the_applet_gets_the_words_that_the_script_gets(world):
    world.portal()
    assert world.start("--display=:7", "a word") == "started --display=:7 a word\n"
