# SPDX-License-Identifier: MIT
"""Deaths by damage in the heap that the allocator itself meets. Where there are several threads it holds its lock then,
and the signal's handler can't take that once more."""

import signal
import time

import pytest
from stage.crash import PATIENCE, PLACES, REPORT, come_to, report_of
from stage.project import BUILD

pytestmark = [
    pytest.mark.usefixtures("no_core_dump"),
    pytest.mark.skipif(BUILD.sanitized, reason="the sanitizers have an allocator of their own"),
    pytest.mark.skipif(BUILD.name == "coverage", reason="this build takes memory to write its record at the end"),
]

DAMAGES = {
    "double_free": signal.SIGABRT,
    "free_chunk": signal.SIGSEGV,
    "top_chunk": signal.SIGABRT,
}
OLDER = "an older one\n"

# The allocator's own, where it aborts. Nothing else may stand on the terminal.
LAST_WORDS = {
    "double_free": r"double free or corruption \(\S+\)\n",
    "free_chunk": "",
    "top_chunk": r"malloc\(\): corrupted top size\n",
}


def damaged(machine, place: str, damage: str, function: str = ""):
    """A program with this damage at the place, or earlier in that function, and an older crash's report."""
    (machine.runtime / REPORT).write_text(OLDER)
    applet = come_to(machine, place, f"{function}={damage}" if function else PLACES[place].plan(damage))
    applet.expected_stderr = LAST_WORDS[damage]
    return applet


@pytest.mark.parametrize("damage", DAMAGES)
def test_damage_on_the_main_thread_leaves_a_whole_report(machine, orphans, damage):
    applet = damaged(machine, "main", damage)
    begin = time.monotonic()
    assert applet.exit_status(4 * PATIENCE) == -DAMAGES[damage]
    # It did meet the lock: without it, the end comes at once.
    assert time.monotonic() - begin > PATIENCE - 1
    report = report_of(machine, DAMAGES[damage])
    assert PLACES["main"].caller in report.symbols
    assert orphans.none(applet)


@pytest.mark.parametrize("damage", DAMAGES)
def test_damage_on_another_thread_leaves_no_half_report(machine, orphans, damage):
    applet = damaged(machine, "check", damage)
    assert applet.exit_status(4 * PATIENCE) == -DAMAGES[damage]
    if (machine.runtime / REPORT).read_text() != OLDER:
        report_of(machine, DAMAGES[damage])
    assert orphans.none(applet)


@pytest.mark.parametrize("damage", DAMAGES)
def test_damage_before_there_are_other_threads_leaves_a_whole_report(machine, orphans, damage):
    # There is no lock yet.
    applet = damaged(machine, "start", damage, "memfd_create")
    # The child may meet the damage once more.
    applet.expected_stderr = f"(?:{LAST_WORDS[damage]}){{1,2}}"
    assert applet.exit_status(PATIENCE - 1) == -DAMAGES[damage]
    report_of(machine, DAMAGES[damage])
    orphans.status(applet)
