# SPDX-License-Identifier: MIT
"""Where the state file lies, what it holds and what becomes of a bad one."""

from pathlib import Path

import pytest
from stage.tools import page
from stage.user import state_text
from stage.waiting import wait_until
from stage.world import bubblewrap, other_world

VERSIONS = {"mainline": "7.3-rc2", "stable": "7.2.4", "longterm": "6.18.31"}

# Root may write everything; without its privileges it is a user like any other.
UNPRIVILEGED = bubblewrap("--dev-bind", "/", "/", "--cap-drop", "ALL")


def acknowledge(applet) -> None:
    """Picks the entry and waits for its last effect, which comes after the save."""
    applet.item.menu.click("Acknowledge Update")
    wait_until(lambda: applet.item.icon == "tux-white", "the white icon")
    applet.settle()


# ---- Its place ----


def test_lies_below_home(machine):
    acknowledge(machine.start())
    assert machine.home / ".config" / "VeldrinWatch" / "app_state.json" == machine.state_file
    assert [path for path in machine.home.rglob("*") if path.is_file()] == [machine.state_file]


def test_folder_asks_for_mode_0755_and_file_is_for_reading(machine):
    acknowledge(machine.start(around=["sh", "-c", 'umask 022; exec "$@"', "sh"]))
    assert machine.state_file.parent.stat().st_mode & 0o7777 == 0o755
    assert machine.state_file.stat().st_mode & 0o7777 == 0o644


def test_xdg_config_home_plays_no_part(machine):
    elsewhere = machine.folder / "elsewhere"
    elsewhere.mkdir()
    acknowledge(machine.start(environment={"XDG_CONFIG_HOME": str(elsewhere)}))
    assert machine.saved == state_text()
    assert list(elsewhere.rglob("app_state.json")) == []


def test_snap_user_data_goes_before_home(machine):
    snap = machine.folder / "snap"
    machine.saves(kernel="7.2.4")
    applet = machine.start(environment={"SNAP_USER_DATA": str(snap)})
    assert applet.item.icon == "tux-red"
    acknowledge(applet)
    assert (snap / "app_state.json").read_text() == state_text()
    assert machine.saved == state_text(kernel="7.2.4")


def test_state_below_snap_user_data_is_read(machine):
    snap = machine.folder / "snap"
    snap.mkdir()
    (snap / "app_state.json").write_text(state_text(**VERSIONS, kernel="7.2.4"))
    applet = machine.start(environment={"SNAP_USER_DATA": str(snap)})
    assert applet.item.icon == "tux-white"
    assert applet.item.label == "7.2.4"


def test_empty_snap_user_data_means_the_root_folder(machine):
    root = machine.folder / "root"
    machine.saves(kernel="7.2.4")
    world = other_world(root, machine.folder)
    applet = machine.start(around=world, environment={"SNAP_USER_DATA": ""})
    assert applet.item.icon == "tux-red"
    acknowledge(applet)
    assert (root / "app_state.json").read_text() == state_text()
    assert machine.saved == state_text(kernel="7.2.4")


def test_without_home_it_lies_in_tmp(machine):
    root = machine.folder / "root"
    world = other_world(root, machine.folder)
    (root / "tmp" / "app_state.json").write_text(state_text(**VERSIONS, kernel="7.2.4"))
    applet = machine.start(around=world, environment={"HOME": None})
    assert (applet.item.icon, applet.item.label) == ("tux-white", "7.2.4")
    applet.item.menu.click("Acknowledge Update")
    acknowledged = state_text(**VERSIONS)
    wait_until(lambda: (root / "tmp" / "app_state.json").read_text() == acknowledged, "the save")
    assert machine.saved is None


def test_only_the_last_level_of_the_folder_is_made(machine):
    machine.tools.publish(page(**VERSIONS))
    bare = machine.folder / "bare"
    bare.mkdir()
    config = {"XDG_CONFIG_HOME": str(machine.folder / "elsewhere")}
    applet = machine.start_and_check(environment={"HOME": str(bare), **config})
    assert (applet.item.icon, applet.item.label) == ("tux-green", "7.2.4")
    acknowledge(applet)
    assert not (bare / ".config").exists()
    assert applet.quit() == 0


def test_start_makes_the_folder_but_no_file(machine):
    machine.start()
    assert machine.state_file.parent.is_dir()
    assert list(machine.state_file.parent.iterdir()) == []


# ---- Its contents ----


def test_unknown_channel_is_corrected_with_the_next_save(machine):
    machine.saves(**VERSIONS, channel="nightly")
    acknowledge(machine.start())
    assert machine.saved == state_text(**VERSIONS)


# ---- What the reader makes of other texts ----

FULL = state_text("7.2.4", "7.2.4", "7.3-rc2", "7.2.4", "6.18.31", "mainline")


@pytest.mark.parametrize(
    ("text", "icon", "label"),
    [
        pytest.param("", "tux-red", "", id="empty"),
        pytest.param('\0\xff\n}{ not JSON "', "tux-red", "", id="junk"),
        pytest.param("x" * 1_000_000, "tux-red", "", id="a-megabyte-of-junk"),
        pytest.param(FULL[: FULL.index("longterm")], "tux-white", "7.2.4", id="cut-before-longterm"),
        pytest.param(FULL[: FULL.index('7.2.4",\n  "longterm')], "tux-white", "", id="cut-within-stable"),
        pytest.param(FULL[: FULL.index("7.2.4") + 3], "tux-red", "", id="cut-within-kernel"),
        pytest.param(FULL.replace("\n", " "), "tux-white", "7.3-rc2", id="one-line"),
        pytest.param(FULL.replace("\n", "\r\n"), "tux-white", "7.3-rc2", id="carriage-returns"),
        pytest.param(FULL.replace(": ", " \t:\n"), "tux-white", "7.3-rc2", id="white-space"),
        pytest.param('{"channel":"mainline"}', "tux-red", "", id="channel-only"),
        pytest.param('{"channel": "stable", "stable": "6.1", "kernel": "6"}', "tux-green", "6.1", id="value-as-key"),
        pytest.param('{"stable": "6.1", "extra": [1], "kernel": "6"}', "tux-green", "6.1", id="order-and-extra"),
        pytest.param('{"latest_kernel": "7.2.4"}', "tux-red", "", id="key-within-a-key"),
        pytest.param('{"kernel": 5, "x": "y"}', "tux-white", "", id="number-as-value"),
        pytest.param('{"stable": "7.2\\"4"}', "tux-red", "7.2\\", id="escaped-quote"),
        pytest.param('{"kernel": "7.2.4", "stable"', "tux-white", "", id="key-at-the-end"),
    ],
)
def test_other_texts(machine, text, icon, label):
    machine.saves_text(text)
    applet = machine.start()
    assert (applet.item.icon, applet.item.label) == (icon, label)


def test_bad_file_is_replaced_by_the_next_check(machine):
    machine.saves_text("\0 junk")
    machine.tools.publish(page(**VERSIONS))
    machine.start_and_check()
    assert machine.saved == state_text(**VERSIONS, latest_kernel="7.2.4")


# ---- Files that can't be read or written ----


def test_unreadable_file_gives_defaults(machine):
    machine.saves(**VERSIONS, kernel="7.2.4")
    machine.state_file.chmod(0)
    applet = machine.start(around=UNPRIVILEGED)
    assert (applet.item.icon, applet.item.label) == ("tux-red", "")


def folder_in_its_place(machine) -> None:
    machine.state_file.mkdir(parents=True)


def file_in_the_folders_place(machine) -> None:
    machine.state_file.parent.write_text("not a folder")


def dangling_link(machine) -> None:
    machine.state_file.parent.mkdir()
    machine.state_file.symlink_to(machine.folder / "missing" / "file")


@pytest.mark.parametrize("obstacle", [folder_in_its_place, file_in_the_folders_place, dangling_link])
def test_obstacle_in_its_place_costs_only_the_saving(machine, obstacle):
    obstacle(machine)
    machine.tools.publish(page(**VERSIONS))
    applet = machine.start()
    assert (applet.item.icon, applet.item.label) == ("tux-red", "")
    applet.check()
    assert (applet.item.icon, applet.item.label) == ("tux-green", "7.2.4")
    acknowledge(applet)
    assert applet.quit() == 0
    assert not machine.state_file.is_file()


def read_only_file(machine) -> Path:
    machine.state_file.chmod(0o444)
    return machine.state_file


def read_only_folder(machine) -> Path:
    machine.state_file.chmod(0o444)
    machine.state_file.parent.chmod(0o555)
    return machine.state_file.parent


@pytest.mark.parametrize("protect", [read_only_file, read_only_folder])
def test_read_only_state_stays_and_is_tried_again(machine, protect):
    text = state_text(**VERSIONS, kernel="7.2.4")
    machine.saves_text(text)
    before = machine.time_of_save
    protected = protect(machine)
    try:
        machine.tools.publish(page(stable="7.2.5"))
        applet = machine.start_and_check(around=UNPRIVILEGED)
        assert (applet.item.icon, applet.item.label) == ("tux-green", "7.2.5")
        assert machine.saved == text
        assert machine.time_of_save == before
    finally:
        protected.chmod(0o755)
        machine.state_file.chmod(0o644)
    acknowledge(applet)
    assert machine.saved == state_text(kernel="7.2.5", latest_kernel="7.2.5", stable="7.2.5")


def test_bytes_that_are_no_text_are_kept_and_shown_as_far_as_they_can_be(machine):
    machine.state_file.parent.mkdir()
    saved = state_text(stable="7.2").encode().replace(b"7.2", b"7\xff2\xc3")
    machine.state_file.write_bytes(saved)
    applet = machine.start()
    assert applet.item.label == "7\N{REPLACEMENT CHARACTER}2\N{REPLACEMENT CHARACTER}"
    applet.item.menu.click("Acknowledge Update")
    wait_until(lambda: applet.item.icon == "tux-white", "the white icon")
    assert machine.state_file.read_bytes() == saved
    assert applet.quit() == 0
