# SPDX-License-Identifier: MIT
"""The tray menu and the command "Acknowledge Update"."""

from stage.tools import page
from stage.user import state_text
from stage.waiting import wait_until

ENTRIES = [
    ("standard", "Settings"),
    ("standard", "Latest Changes"),
    ("standard", "System & Modules"),
    ("separator", ""),
    ("standard", "Acknowledge Update"),
    ("standard", "About"),
    ("separator", ""),
    ("standard", "Quit"),
]


def shown(applet) -> list[tuple[str, str]]:
    return [(entry.kind, entry.label) for entry in applet.item.menu.entries()]


def acknowledge(applet, machine) -> None:
    """Picks the entry and waits for the save, which is the first effect."""
    before = machine.time_of_save if machine.state_file.exists() else None
    applet.item.menu.click("Acknowledge Update")
    wait_until(lambda: machine.state_file.exists() and machine.time_of_save != before, "the save")
    applet.settle()


def test_eight_entries_in_their_order_all_enabled_visible_and_plain(machine):
    applet = machine.start()
    assert shown(applet) == ENTRIES
    for entry in applet.item.menu.entries():
        assert entry.enabled and entry.visible
        assert entry.children == []
        assert entry.properties.get("toggle-type", "") == ""
        assert "shortcut" not in entry.properties
        assert "icon-name" not in entry.properties and "icon-data" not in entry.properties


def test_stays_the_same_through_checks_and_acknowledgements(machine):
    machine.tools.publish(page(stable="7.2.4"))
    applet = machine.start_and_check()
    assert shown(applet) == ENTRIES
    acknowledge(applet, machine)
    assert shown(applet) == ENTRIES
    assert all(entry.enabled and entry.visible for entry in applet.item.menu.entries())


def test_acknowledge_while_green(machine):
    machine.saves(kernel="7.2.3", stable="7.2.3", mainline="7.3-rc1", channel="mainline")
    machine.tools.publish(page(stable="7.2.4", mainline="7.3-rc2", longterm="6.18.31"))
    applet = machine.start_and_check()
    assert applet.item.icon == "tux-green"
    acknowledge(applet, machine)
    assert applet.item.icon == "tux-white"
    assert applet.item.label == "7.3-rc2"
    assert machine.saved == state_text("7.2.4", "7.2.4", "7.3-rc2", "7.2.4", "6.18.31", "mainline")


def test_acknowledge_while_white_rewrites_the_same(machine):
    text = state_text("7.2.4", "7.2.4", "7.3-rc2", "7.2.4", "6.18.31", "longterm")
    machine.saves_text(text)
    applet = machine.start()
    acknowledge(applet, machine)
    assert machine.saved == text
    assert applet.item.icon == "tux-white"
    assert applet.item.label == "6.18.31"


def test_acknowledge_before_any_check_turns_white_and_knows_nothing(machine):
    applet = machine.start()
    acknowledge(applet, machine)
    assert applet.item.icon == "tux-white"
    assert applet.item.label == ""
    assert machine.saved == state_text()


def test_after_acknowledging_nothing_the_next_check_turns_green(machine):
    machine.tools.publish(page(stable="7.2.4"))
    applet = machine.start()
    acknowledge(applet, machine)
    applet.check()
    assert applet.item.icon == "tux-green"
    assert machine.saved == state_text(latest_kernel="7.2.4", stable="7.2.4")


def test_after_acknowledging_nothing_a_restart_shows_red(machine):
    applet = machine.start()
    acknowledge(applet, machine)
    assert applet.quit() == 0
    assert machine.start().item.icon == "tux-red"


def test_acknowledge_with_no_latest_kernel_empties_kernel(machine):
    machine.saves(kernel="7.2.3", stable="7.2.4", longterm="6.18.31")
    applet = machine.start()
    acknowledge(applet, machine)
    assert applet.item.icon == "tux-white"
    assert machine.saved == state_text(stable="7.2.4", longterm="6.18.31")


def test_acknowledge_copies_latest_kernel_and_not_stable(machine):
    machine.saves(kernel="7.2.1", latest_kernel="7.2.3", stable="7.2.4")
    applet = machine.start()
    acknowledge(applet, machine)
    assert applet.item.icon == "tux-white"
    assert machine.saved == state_text(kernel="7.2.3", latest_kernel="7.2.3", stable="7.2.4")


def test_acknowledged_stays_white_through_checks_that_find_the_same(machine):
    machine.tools.publish(page(stable="7.2.4"))
    applet = machine.start_and_check()
    acknowledge(applet, machine)
    applet.check()
    assert applet.item.icon == "tux-white"
    assert applet.quit() == 0
    assert machine.start().item.icon == "tux-white"


def test_acknowledge_that_cannot_be_saved_holds_for_this_run(machine):
    machine.saves(kernel="7.2.3", latest_kernel="7.2.4", stable="7.2.4")
    applet = machine.start()
    # A folder in the file's place can't be opened for writing, not even by root.
    kept = machine.state_file.rename(machine.folder / "kept")
    machine.state_file.mkdir()
    applet.item.menu.click("Acknowledge Update")
    wait_until(lambda: applet.item.icon == "tux-white", "the white icon")
    machine.tools.publish(page(stable="7.2.4"))
    applet.check()
    assert applet.item.icon == "tux-white"
    assert applet.quit() == 0
    machine.state_file.rmdir()
    kept.rename(machine.state_file)
    assert machine.start().item.icon == "tux-green"
