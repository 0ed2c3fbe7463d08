# SPDX-License-Identifier: MIT
"""A short soak: what tests/robustness/soak does to one program for minutes."""

import pytest
from stage.project import BUILD
from stage.soaking import Rounds, Site, Soak

WARM_UP = Rounds(checks=20, windows=8)
HALF = Rounds(checks=30, windows=6)

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
    for _ in range(2):
        soak.run(HALF)
        # Each System & Modules leaves its table's filter and store, as it is meant to.
        assert soak.hand.ask("left") == HALF.windows
        assert soak.hand.ask("drop") == HALF.windows
        assert soak.hand.ask("left") == 0
        footprints.append(soak.footprint())
    first, middle, last = footprints
    assert last.descriptors == first.descriptors
    assert last.threads <= first.threads
    assert last.zombies == 0
    if BUILD.name not in SANITIZERS:
        # A leak grows in both halves; a library's helper thread or cache comes or goes in one.
        assert min(middle.heap - first.heap, last.heap - middle.heap) <= GROWTH_ALLOWED
