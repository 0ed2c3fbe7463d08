# SPDX-License-Identifier: MIT
"""Deaths by a fatal signal: the report that they leave, and that the signal itself still ends the process."""

import re
import shutil
import signal
import time
from datetime import datetime, timedelta, timezone
from pathlib import Path

import pytest
from stage.crash import (
    BLOCKS_SIGNALS,
    CRASH,
    GERMAN,
    PATIENCE,
    PLACES,
    REPORT,
    SIGNALS,
    come_to,
    dies,
    no_report,
    read,
    report_of,
)
from stage.tools import page
from stage.waiting import wait_until
from stage.world import bubblewrap, other_world

pytestmark = pytest.mark.usefixtures("no_core_dump")


def start(machine, **environment: str | None):
    return machine.start(environment={**GERMAN, **environment})


# ---- Signals from outside ----


@pytest.mark.parametrize("number", SIGNALS, ids=lambda number: number.name)
def test_fatal_signal_leaves_a_report_and_ends_the_process(machine, number):
    applet = start(machine)
    dies(applet, number)
    report = report_of(machine, number)
    # The main thread sleeps in its loop, far below the program's exported functions.
    assert "app_run" in report.symbols
    assert "main" in report.symbols


def test_quit_leaves_no_report(machine):
    applet = start(machine)
    assert applet.quit() == 0
    assert no_report(machine)


@pytest.mark.parametrize(
    "number",
    [signal.SIGTERM, signal.SIGINT, signal.SIGHUP, signal.SIGQUIT, signal.SIGTRAP, signal.SIGSYS, signal.SIGALRM],
    ids=lambda number: number.name,
)
def test_other_signals_leave_no_report(machine, orphans, number):
    applet = start(machine)
    dies(applet, number)
    assert no_report(machine)
    assert orphans.none(applet)


def test_time_is_the_local_one_of_the_crash(machine):
    applet = start(machine, TZ="XYZ-05:45")
    zone = timezone(timedelta(hours=5, minutes=45))
    before = datetime.now(zone).replace(microsecond=0, tzinfo=None)
    dies(applet, signal.SIGSEGV)
    after = datetime.now(zone).replace(tzinfo=None)
    assert before <= datetime.fromisoformat(report_of(machine, signal.SIGSEGV).time) <= after


# ---- Faults of its own ----


FAULTS = {
    "segv": signal.SIGSEGV,
    "bus": signal.SIGBUS,
    "fpe": signal.SIGFPE,
    "ill": signal.SIGILL,
    "abrt": signal.SIGABRT,
    "throw": signal.SIGABRT,
}


@pytest.mark.parametrize("place", PLACES)
@pytest.mark.parametrize("fault", FAULTS)
def test_fault_on_any_thread_leaves_a_report_and_ends_the_process(machine, place, fault):
    applet = come_to(machine, place, PLACES[place].plan(fault))
    assert applet.exit_status() == -FAULTS[fault]
    report = report_of(machine, FAULTS[fault])
    assert PLACES[place].caller in report.symbols
    if place in ("check", "load"):
        assert "app_run" not in report.symbols
    assert applet.stderr == ""


def test_without_a_fault_the_same_places_leave_no_report(machine):
    machine.tools.publish(page(stable="7.2.4"))
    applet = machine.start_and_check(preload=[CRASH], environment=GERMAN)
    applet.send(signal.SIGUSR1)
    applet.send(signal.SIGRTMIN + 1)
    wait_until(lambda: any("releases.json" in " ".join(command) for command in machine.tools.commands()), "the load")
    applet.settle()
    assert applet.quit() == 0
    assert no_report(machine)


def test_crash_in_gtks_own_start_comes_before_the_icon(machine):
    applet = come_to(machine, "start", "gtk_init=segv")
    assert applet.exit_status() == -signal.SIGSEGV
    report_of(machine, signal.SIGSEGV)
    assert machine.panel.items == []
    assert not machine.icons.exists()


def test_crash_leaves_the_saved_state_alone(machine):
    machine.saves(kernel="7.2.3", stable="7.2.4")
    before, time_of_save = machine.saved, machine.time_of_save
    dies(start(machine), signal.SIGSEGV)
    assert (machine.saved, machine.time_of_save) == (before, time_of_save)


@pytest.mark.parametrize("place", ["main", "check"])
def test_exhausted_stack_leaves_no_report(machine, orphans, place):
    applet = come_to(machine, place, PLACES[place].plan("overflow"))
    assert applet.exit_status() == -signal.SIGSEGV
    assert no_report(machine)
    assert orphans.none(applet)


@pytest.mark.parametrize("place", ["main", "check"])
def test_backtrace_ends_after_32_frames(machine, place):
    applet = come_to(machine, place, PLACES[place].plan("deep"))
    assert applet.exit_status() == -signal.SIGSEGV
    assert len(report_of(machine, signal.SIGSEGV).frames) == 32


# ---- What goes wrong within the handler ----


def test_same_signal_within_the_handler_cuts_the_report_off(machine, orphans):
    applet = come_to(machine, "main", "backtrace_symbols_fd=segv")
    dies(applet, signal.SIGSEGV)
    text = (machine.runtime / REPORT).read_text()
    # The head is there, since the frames are written past the stream.
    assert text.startswith("=== Veldrin Crash Report ===\nVersion: 1.2\nSignal: SIGSEGV (Segmentation fault) (11)\n")
    assert text.endswith("\nSnap: no\n\nBacktrace:\n")
    assert orphans.none(applet)


@pytest.mark.parametrize(
    ("first", "plan", "second"),
    [
        (signal.SIGSEGV, f"fopen=abrt:{REPORT}", signal.SIGABRT),
        (signal.SIGSEGV, "backtrace_symbols_fd=abrt", signal.SIGABRT),
        (signal.SIGABRT, "backtrace_symbols_fd=segv", signal.SIGSEGV),
        (signal.SIGABRT, "backtrace_symbols_fd=fpe", signal.SIGFPE),
        (signal.SIGFPE, "fork=bus", signal.SIGBUS),
        (signal.SIGBUS, "backtrace_symbols_fd=throw", signal.SIGABRT),
    ],
)
def test_another_signal_within_the_handler_starts_the_report_afresh(machine, orphans, first, plan, second):
    if BLOCKS_SIGNALS and second != signal.SIGABRT:
        pytest.skip("the thread sanitizer lets no signal but abort()'s into a handler")
    applet = come_to(machine, "none", plan)
    applet.process.send_signal(first)
    assert applet.exit_status() == -second
    report_of(machine, second)
    # The second signal's dialog is the only one.
    assert orphans.status(applet) == 0


# ---- A handler that hangs ----

HANG = f"fopen=hang:{REPORT}"


def hangs_and_ends(applet, number: signal.Signals) -> None:
    begin = time.monotonic()
    assert applet.exit_status(4 * PATIENCE) == -number
    assert PATIENCE - 1 < time.monotonic() - begin < PATIENCE + 5


def is_handled(applet, number: signal.Signals) -> bool:
    """Whether the signal has got its default action back."""
    status = Path(f"/proc/{applet.pid}/status").read_text()
    caught = int(re.search(r"^SigCgt:\s*(\w+)$", status, re.MULTILINE)[1], 16)
    return not caught >> (number - 1) & 1


@pytest.mark.parametrize("around", [[], ["env", "--ignore-signal=ALRM", "--block-signal=ALRM"]], ids=["", "alarm_off"])
def test_handler_that_hangs_comes_to_an_end_by_its_signal(machine, orphans, around):
    applet = machine.start(preload=[CRASH], environment={**GERMAN, "CRASH": HANG}, around=around)
    applet.process.send_signal(signal.SIGSEGV)
    hangs_and_ends(applet, signal.SIGSEGV)
    assert no_report(machine)
    assert orphans.none(applet)


def test_handler_that_hangs_on_another_thread_comes_to_an_end_by_its_signal(machine, orphans):
    # The alarm rings on the main thread.
    applet = come_to(machine, "check", f"popen=segv {HANG}")
    hangs_and_ends(applet, signal.SIGSEGV)
    assert no_report(machine)
    assert orphans.none(applet)


def test_handler_that_hangs_behind_its_report_leaves_that(machine, orphans):
    applet = come_to(machine, "none", "fork=hang")
    applet.process.send_signal(signal.SIGFPE)
    hangs_and_ends(applet, signal.SIGFPE)
    report_of(machine, signal.SIGFPE)
    assert orphans.none(applet)


def test_last_signal_ends_a_handler_that_hangs_within_another(machine, orphans):
    applet = come_to(machine, "none", "backtrace_symbols_fd=abrt fork=hang")
    applet.process.send_signal(signal.SIGSEGV)
    hangs_and_ends(applet, signal.SIGABRT)
    report_of(machine, signal.SIGABRT)
    assert orphans.none(applet)


@pytest.mark.parametrize("fault", ["bus", "ill"])
def test_last_signal_ends_two_handlers_that_hang(machine, orphans, fault):
    applet = come_to(machine, "none", f"popen={fault} {HANG}")
    applet.process.send_signal(signal.SIGFPE)
    wait_until(lambda: is_handled(applet, signal.SIGFPE), "the first handler")
    applet.begin_check()
    hangs_and_ends(applet, FAULTS[fault])
    assert orphans.none(applet)


def test_same_signal_on_another_thread_ends_the_process_at_once(machine, orphans):
    applet = come_to(machine, "none", f"popen=segv {HANG}")
    applet.process.send_signal(signal.SIGSEGV)
    wait_until(lambda: is_handled(applet, signal.SIGSEGV), "the first handler")
    applet.begin_check()
    assert applet.exit_status(PATIENCE - 1) == -signal.SIGSEGV
    assert orphans.none(applet)


def test_dialog_that_hangs_before_it_is_one_comes_to_an_end(machine, orphans):
    applet = come_to(machine, "none", "setenv=hang")
    dies(applet, signal.SIGSEGV)
    begin = time.monotonic()
    assert orphans.running(applet)
    assert orphans.status(applet, 4 * PATIENCE) == -signal.SIGALRM
    assert PATIENCE - 2 < time.monotonic() - begin < PATIENCE + 5
    report_of(machine, signal.SIGSEGV)


# ---- What the machine refuses ----


def test_full_disk_costs_the_report_alone(machine, orphans):
    (machine.runtime / REPORT).symlink_to("/dev/full")
    applet = start(machine)
    dies(applet, signal.SIGSEGV)
    assert orphans.status(applet) == 0


def test_unknown_system_is_left_out(machine):
    applet = come_to(machine, "none", "uname=fail")
    dies(applet, signal.SIGSEGV)
    report_of(machine, signal.SIGSEGV, system="")


# ---- What the environment tells ----


@pytest.mark.parametrize(
    ("desktop", "session", "line"),
    [
        ("GNOME", "wayland", "GNOME (wayland)"),
        (None, "x11", "unknown (x11)"),
        ("XFCE", None, "XFCE (unknown)"),
        (None, None, "unknown (unknown)"),
        ("", "x11", " (x11)"),
        ("ubuntu:GNOME %s%n", "", "ubuntu:GNOME %s%n ()"),
        pytest.param("K" * 10_000, "x11", "K" * 10_000 + " (x11)", id="longer than the stream's buffer"),
    ],
)
def test_desktop_line_tells_desktop_and_session(machine, desktop, session, line):
    applet = start(machine, XDG_CURRENT_DESKTOP=desktop, XDG_SESSION_TYPE=session)
    dies(applet, signal.SIGSEGV)
    report_of(machine, signal.SIGSEGV, desktop=line)


@pytest.mark.parametrize(("version", "line"), [("1.3", "yes (v1.3)"), ("", "yes (v)"), (None, "no")])
def test_snap_line_tells_the_snaps_version(machine, version, line):
    applet = start(machine, SNAP_VERSION=version)
    dies(applet, signal.SIGSEGV)
    report_of(machine, signal.SIGSEGV, snap=line)


# ---- Where it lies ----


@pytest.mark.parametrize(("runtime", "folder"), [(None, "tmp"), ("", ".")], ids=["unset", "empty"])
def test_report_of_a_session_without_a_runtime_folder(machine, runtime, folder):
    root = machine.folder / "root"
    environment = {**GERMAN, "XDG_RUNTIME_DIR": runtime}
    applet = machine.start(around=other_world(root, machine.folder), environment=environment)
    # GTK says what it thinks of an empty name for a folder.
    applet.expected_stderr = ".*"
    applet.send(signal.SIGSEGV)
    # That is how the world tells that a signal ended the program.
    assert applet.exit_status() == 128 + signal.SIGSEGV
    read((root / folder / REPORT).read_text(), signal.SIGSEGV)
    assert no_report(machine)


@pytest.mark.parametrize("obstacle", ["missing", "folder", "loop"])
@pytest.mark.parametrize("number", SIGNALS, ids=lambda number: number.name)
def test_without_a_place_for_it_the_signal_ends_the_process_all_the_same(machine, orphans, number, obstacle):
    applet = start(machine)
    if obstacle == "missing":
        shutil.rmtree(machine.runtime)
    if obstacle == "folder":
        (machine.runtime / REPORT).mkdir()
    if obstacle == "loop":
        (machine.runtime / REPORT).symlink_to(REPORT)
    dies(applet, number)
    assert not (machine.runtime / REPORT).is_file()
    # Without a report there is nothing to ask about.
    assert orphans.none(applet)


def test_report_of_a_folder_that_cannot_be_written(machine):
    world = bubblewrap("--bind", "/", "/", "--dev-bind", "/dev", "/dev", "--ro-bind", machine.runtime, machine.runtime)
    applet = machine.start(around=world, environment=GERMAN)
    applet.send(signal.SIGSEGV)
    assert applet.exit_status() == 128 + signal.SIGSEGV
    assert no_report(machine)


@pytest.mark.parametrize("fault", FAULTS)
def test_without_a_place_for_it_a_fault_ends_the_process_all_the_same(machine, orphans, fault):
    (machine.runtime / REPORT).mkdir()
    applet = come_to(machine, "check", f"popen={fault}")
    assert applet.exit_status() == -FAULTS[fault]
    assert orphans.none(applet)


def test_next_crash_overwrites_the_report(machine):
    file = machine.runtime / REPORT
    file.write_text("an older one\n" * 10_000)
    dies(start(machine), signal.SIGSEGV)
    report_of(machine, signal.SIGSEGV)
    dies(start(machine), signal.SIGBUS)
    report_of(machine, signal.SIGBUS)


def test_next_start_leaves_the_report_alone(machine):
    dies(start(machine), signal.SIGSEGV)
    file = machine.runtime / REPORT
    before = (file.read_text(), file.stat().st_mtime_ns)
    applet = start(machine)
    assert applet.quit() == 0
    assert (file.read_text(), file.stat().st_mtime_ns) == before


def test_crash_leaves_nothing_but_the_report(machine):
    applet = start(machine)
    before = set(machine.folder.rglob("*"))
    dies(applet, signal.SIGSEGV)
    assert set(machine.folder.rglob("*")) - before == {machine.runtime / REPORT}
