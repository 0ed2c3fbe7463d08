# SPDX-License-Identifier: MIT
"""Veldrin in the real panels of desktops: what each host of tray icons is known to do with it, found in the picture of
the screen. A walk through a host is taken once, for all tests of that host; its pictures are in build/demo/panels."""

import os
import sys
from collections.abc import Iterator
from dataclasses import dataclass
from pathlib import Path
from typing import Any

import pytest

sys.path.append(str(Path(__file__).resolve().parents[2] / "tools" / "panels"))
from hosts import Host, chosen  # noqa: E402
from program import FIRST, NEXT  # noqa: E402
from tour import finish, stage, walk  # noqa: E402
from walk import ENTRIES, WINDOWS  # noqa: E402

# The steps in which the icon is looked for: its colour, and the version that the program tells.
STEPS = {
    "red": ("red", ""),
    "green": ("green", FIRST),
    "white": ("white", FIRST),
    "newer": ("green", NEXT),
    "panel-back": ("green", NEXT),
    "started-again": ("green", NEXT),
}


@dataclass(frozen=True)
class Walked:
    host: Host
    record: dict[str, Any]

    def sight(self, step: str) -> dict[str, Any]:
        (sight,) = [sight for sight in self.record["sights"] if sight["step"] == step]
        return sight


@pytest.fixture(scope="session")
def records() -> Iterator[list[tuple[Host, dict[str, Any]]]]:
    taken: list[tuple[Host, dict[str, Any]]] = []
    yield taken
    finish(*zip(*taken))


@pytest.fixture(scope="session")
def folder() -> Iterator[Path]:
    with stage() as folder:
        yield folder


@pytest.fixture(scope="module", params=chosen(os.environ.get("VELDRIN_PANELS", "").split()), ids=lambda host: host.name)
def walked(request, folder, records) -> Walked:
    record = walk(request.param, folder)
    records.append((request.param, record))
    if record["problem"]:
        pytest.fail(record["problem"])
    return Walked(request.param, record)


@pytest.mark.parametrize("step", STEPS)
def test_icon_has_its_colour_and_its_pixels(walked, step):
    sight = walked.sight(step)
    assert sight["colour"] == STEPS[step][0]
    assert sight["box"], f"the icon is not in {sight['picture']}"
    assert tuple(sight["size"]) == walked.host.icon
    assert sight["differing"] <= walked.host.differing


@pytest.mark.parametrize("step", STEPS)
def test_version_stands_beside_the_icon_where_the_host_has_it(walked, step):
    version = STEPS[step][1]
    assert walked.sight(step)["label"] == (version if walked.host.label else "")


@pytest.mark.parametrize("button", ["left", "right"])
def test_click_on_the_icon(walked, button):
    assert walked.record["clicks"][button]["opens"] == getattr(walked.host, button)


def test_menu_has_its_entries_and_separators(walked):
    menus = [click for click in walked.record["clicks"].values() if click["opens"] == "menu"]
    assert menus
    for menu in menus:
        assert tuple(menu["entries"]) == ENTRIES
        assert menu["groups"] == [3, 2, 1]


@pytest.mark.parametrize("window", [window.name for window in WINDOWS])
def test_entry_opens_its_window(walked, window):
    assert walked.record["windows"][window]


def test_icon_goes_with_the_panel(walked):
    assert walked.record["gone"]


def test_quit_ends_the_program_and_takes_the_icon_away(walked):
    assert walked.record["quits"]
    assert walked.record["leaves"]


def test_terminal_stays_quiet(walked):
    assert walked.record["terminal"] == []
