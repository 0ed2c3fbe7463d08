# SPDX-License-Identifier: MIT
"""A program killed in the middle of a save, and every way in which its file can be damaged."""

from collections import Counter

import pytest
from stage.kills import (
    CHANNELS,
    NEW,
    OLD,
    check_every_replacement,
    check_every_truncation,
    check_start,
    kill_driver,
    kill_program,
    kill_program_within_save,
    text_of,
)
from stage.project import BUILD
from stage.waiting import wait_until

ACKNOWLEDGED = (OLD[1], *OLD[1:])


@pytest.mark.parametrize("channel", CHANNELS)
def test_file_cut_anywhere_gives_its_whole_fields_and_no_other(tmp_path, channel):
    assert check_every_truncation(tmp_path, (*NEW[:-1], channel)) > 100


def test_file_with_any_one_byte_replaced_gives_what_it_says(tmp_path):
    assert check_every_replacement(tmp_path, OLD) > 25_000


def test_kill_at_any_moment_of_a_save_leaves_what_can_be_read(tmp_path):
    found: Counter[str] = Counter()
    kill_driver(tmp_path, 25, found)
    assert found.total() == 25


def test_program_killed_at_any_moment_starts_again(machine):
    found: Counter[str] = Counter()
    kill_program(machine, 5, found)
    assert found.total() == 5


@pytest.mark.skipif(BUILD.name == "tsan", reason="that sanitizer wants the calls of the C library for itself")
@pytest.mark.parametrize(
    ("place", "left"),
    [
        ("opened", b""),
        ("0", b""),
        ("40", text_of(ACKNOWLEDGED)[:40]),
        ("130", text_of(ACKNOWLEDGED)[:130]),
        (str(len(text_of(ACKNOWLEDGED))), text_of(ACKNOWLEDGED)),
    ],
    ids=["before its first byte", "after no byte", "within a key", "within the channel", "at its end"],
)
def test_program_killed_within_a_save_starts_again_with_what_was_written(machine, place, left):
    assert kill_program_within_save(machine, place) == left


# What is recorded of its coverage is a file, too.
@pytest.mark.skipif(BUILD.name == "coverage", reason="this build writes files of its own")
def test_program_runs_on_where_no_file_may_grow(machine):
    machine.saves_text(text_of(OLD).decode())
    nothing_more = ["sh", "-c", "trap '' XFSZ; ulimit -f 0; exec \"$@\"", "sh"]
    applet = machine.start(around=nothing_more)
    assert applet.item.label == OLD[2]
    applet.item.menu.click("Acknowledge Update")
    wait_until(lambda: applet.item.icon == "tux-white", "the white icon")
    assert applet.quit() == 0
    # Emptied, as on a full disk; the next start is a first one.
    assert machine.state_file.read_bytes() == b""
    check_start(machine, b"")
