"""The four signals that open windows: harmless to a running applet, deadly to one that still starts."""

import errno
import os
import re
import threading
import time
from pathlib import Path

import pytest
from applet import WINDOW_SIGNALS, signal_name, state_text
from tools import page
from waiting import wait_until

MANY = 1000


class HeldStart:
    """A start that waits in the reading of the saved state, which is a pipe."""

    def __init__(self, machine) -> None:
        machine.state_file.parent.mkdir()
        os.mkfifo(machine.state_file)
        self.applet = machine.launch()
        self._path = machine.state_file
        self._pipe = wait_until(self._open, "the reading of the saved state")

    def _open(self) -> int | None:
        try:
            return os.open(self._path, os.O_WRONLY | os.O_NONBLOCK)
        except OSError as problem:
            if problem.errno == errno.ENXIO:  # nobody reads it yet
                return None
            raise

    def go_on(self) -> None:
        os.write(self._pipe, state_text(stable="7.2.4").encode())
        os.close(self._pipe)


def blocked_signals(task: Path) -> int:
    return int(re.search(r"^SigBlk:\s*(\w+)$", (task / "status").read_text(), re.MULTILINE)[1], 16)


def test_held_start_goes_on_without_a_signal(machine):
    start = HeldStart(machine)
    start.go_on()
    assert start.applet.item.label == "7.2.4"


@pytest.mark.parametrize("number", WINDOW_SIGNALS, ids=signal_name)
def test_ends_a_program_that_still_starts(machine, number):
    start = HeldStart(machine)
    start.applet.process.send_signal(number)
    assert start.applet.exit_status() == -number
    assert machine.tools.commands() == []


def test_none_but_the_main_thread_takes_them(machine):
    # A handler takes GLib's lock; in a thread that may hold that lock or the allocator's it would wait for ever.
    machine.tools.publish(page(stable="7.2.4"))
    applet = machine.start_and_check()
    taken = sum(1 << (number - 1) for number in WINDOW_SIGNALS)
    threads = {int(task.name): task for task in Path(f"/proc/{applet.pid}/task").iterdir()}
    main = threads.pop(applet.pid)
    assert threads
    wait_until(lambda: not blocked_signals(main) & taken, "the main loop's sleep")
    for thread in threads.values():
        assert blocked_signals(thread) & taken == taken, (thread / "comm").read_text()


@pytest.mark.parametrize("number", WINDOW_SIGNALS, ids=signal_name)
def test_one_does_not_end_a_running_applet(machine, number):
    applet = machine.start()
    applet.send(number)
    applet.settle()
    assert len(applet.item.menu.entries()) == 8
    assert applet.running


@pytest.mark.parametrize("number", WINDOW_SIGNALS, ids=signal_name)
def test_many_do_not_end_a_running_applet(machine, number):
    machine.tools.publish(page(stable="7.2.4"))
    applet = machine.start()
    for _ in range(MANY):
        applet.send(number)
    applet.settle()
    assert len(applet.item.menu.entries()) == 8
    applet.check()
    assert applet.item.icon == "tux-green"
    assert applet.quit() == 0


def test_all_kinds_at_once_while_it_works(machine):
    machine.tools.publish(page(stable="7.2.4"))
    applet = machine.start()
    pid = applet.pid
    done = threading.Event()

    def storm() -> None:
        for _ in range(MANY):
            for number in WINDOW_SIGNALS:
                os.kill(pid, number)
            time.sleep(0)  # lets the panel's thread in
        done.set()

    sender = threading.Thread(target=storm)
    sender.start()
    try:
        rounds = 0
        while not done.is_set() or rounds < 3:
            assert len(applet.item.menu.entries()) == 8
            applet.check()
            rounds += 1
    finally:
        sender.join()
    applet.settle()
    assert applet.item.icon == "tux-green"
    assert applet.quit() == 0


@pytest.mark.parametrize("number", WINDOW_SIGNALS, ids=signal_name)
def test_saves_nothing_and_asks_nothing(machine, number):
    applet = machine.start()
    applet.send(number)
    applet.settle()
    assert machine.saved is None
    assert machine.tools.commands() == []
