# SPDX-License-Identifier: MIT
"""A short soak: what tests/robustness/soak does to one program for minutes."""

import statistics
from itertools import pairwise

import pytest
from stage.project import BUILD
from stage.soaking import Rounds, Site, Soak

WARM_UP = Rounds(checks=20, windows=8)
PART = Rounds(checks=30, windows=6)
PARTS = 5

# What one window or one load holds is more than that.
GROWTH_ALLOWED = 30_000

# Under these, memory is theirs, and they find what is lost by themselves.
SANITIZERS = ("asan", "tsan")


@pytest.fixture
def soak(machine, tmp_path):
    soak = Soak(machine, Site(tmp_path / "site"))
    yield soak
    soak.close()


def test_checks_and_windows_leave_nothing_behind_but_each_table(soak):
    soak.run(WARM_UP)
    assert soak.hand.ask("drop") == WARM_UP.windows
    footprints = [soak.footprint()]
    for _ in range(PARTS):
        soak.run(PART)
        # Each System & Modules leaves its table's filter and store, as it is meant to.
        assert soak.hand.ask("left") == PART.windows
        assert soak.hand.ask("drop") == PART.windows
        assert soak.hand.ask("left") == 0
        footprints.append(soak.footprint())
    first, last = footprints[0], footprints[-1]
    assert last.descriptors == first.descriptors
    assert last.threads <= first.threads
    assert last.zombies == 0
    if BUILD.name not in SANITIZERS:
        # A leak adds to each part. On a busy machine, some 100 KB are there when one part ends, and gone when another
        # does.
        growths = [after.heap - before.heap for before, after in pairwise(footprints)]
        assert statistics.median(growths) <= GROWTH_ALLOWED, growths
