# SPDX-License-Identifier: MIT
"""The four signals that open windows: harmless to a running applet, deadly to one that still starts."""

import errno
import os
import re
import signal
import threading
import time
from pathlib import Path

import pytest
from stage.applet import AT_ONCE, WINDOW_SIGNALS, signal_name
from stage.tools import RELEASE_SITE, page, page_command
from stage.user import state_text
from stage.waiting import wait_until

MANY = 1000
# Each of these opens a dialog of its own, which runs a loop of its own until the user closes it.
ABOUT = signal.SIGUSR2
SEVERAL = 30


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
def test_one_neither_ends_a_running_applet_nor_saves(machine, number):
    applet = machine.start()
    applet.send(number)
    applet.settle()
    assert len(applet.item.menu.entries()) == 8
    assert applet.running
    assert machine.saved is None


@pytest.mark.parametrize("number", [number for number in WINDOW_SIGNALS if number != ABOUT], ids=signal_name)
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


def test_the_tray_goes_on_below_many_about_dialogs(machine):
    machine.tools.publish(page(stable="7.2.4"))
    applet = machine.start()
    for _ in range(SEVERAL):
        applet.send(ABOUT)
        applet.settle()
    assert len(applet.item.menu.entries()) == 8
    applet.check()
    assert applet.item.icon == "tux-green"


def test_all_kinds_at_once_while_it_works(machine):
    machine.tools.publish(page(stable="7.2.4"))
    applet = machine.start()
    pid = applet.pid
    done = threading.Event()

    def storm() -> None:
        for round_ in range(MANY):
            for number in WINDOW_SIGNALS:
                if number != ABOUT or round_ % (MANY // SEVERAL) == 0:
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
    assert len(applet.item.menu.entries()) == 8


def test_only_the_one_of_the_changes_asks_the_net(machine):
    applet = machine.start()
    for number in (signal.SIGUSR1, signal.SIGUSR2, signal.SIGRTMIN + 2):
        applet.send(number)
    applet.settle()
    assert machine.tools.commands() == []
    index = page_command(RELEASE_SITE + "releases.json")
    applet.send(signal.SIGRTMIN + 1)
    wait_until(lambda: machine.tools.commands()[:1] == [index], "the request for the release index")


def test_repeated_ones_present_the_open_window_and_start_one_load(machine):
    held = machine.tools.answer("wget -qO- *releases.json", hold=True)
    machine.animates(False)  # a spinner that turns never lets the main loop rest
    applet = machine.start()
    for _ in range(20):
        applet.send(signal.SIGRTMIN + 1)
        applet.send(signal.SIGUSR1)
    wait_until(machine.tools.commands, "the load")
    applet.settle()
    assert len(machine.tools.commands()) == 1
    held.release()
    assert applet.quit() == 0


def test_quit_with_windows_open_and_a_load_running(machine):
    held = machine.tools.answer("wget -qO- *releases.json", hold=True)
    applet = machine.start()
    applet.send(signal.SIGUSR1)
    applet.send(signal.SIGRTMIN + 1)
    wait_until(machine.tools.commands, "the load")
    applet.item.menu.click("Quit")
    assert applet.exit_status(AT_ONCE) == 0
    held.release()
    assert machine.saved is None
