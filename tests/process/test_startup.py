# SPDX-License-Identifier: MIT
"""What the tray shows before anything was asked of the net, and how the program starts."""

import pytest
from stage.tools import page
from stage.user import state_text
from stage.waiting import wait_until

VERSIONS = {"mainline": "7.3-rc2", "stable": "7.2.4", "longterm": "6.18.31"}


@pytest.mark.parametrize("channel", ["mainline", "stable", "longterm"])
@pytest.mark.parametrize("latest_kernel", ["", "7.2.4", "7.2.9"])
@pytest.mark.parametrize(
    ("kernel", "stable", "icon"),
    [
        ("", "", "tux-red"),
        ("", "7.2.4", "tux-red"),
        ("7.2.4", "", "tux-white"),
        ("7.2.4", "7.2.4", "tux-white"),
        ("7.2.3", "7.2.4", "tux-green"),
        ("7.2.5", "7.2.4", "tux-green"),
        ("7.2.4", "7.2.40", "tux-green"),
    ],
)
def test_first_icon_follows_kernel_and_stable_alone(machine, kernel, stable, icon, latest_kernel, channel):
    machine.saves(kernel=kernel, stable=stable, latest_kernel=latest_kernel, channel=channel)
    assert machine.launch().item.icon == icon


@pytest.mark.parametrize("channel", VERSIONS)
def test_label_is_the_chosen_channels_saved_version(machine, channel):
    machine.saves(**VERSIONS, kernel="7.2.1", channel=channel)
    applet = machine.start()
    assert applet.item.label == VERSIONS[channel]
    assert applet.item.properties()["XAyatanaLabelGuide"] == VERSIONS[channel]


@pytest.mark.parametrize("channel", VERSIONS)
def test_no_label_while_the_chosen_channels_version_is_unknown(machine, channel):
    machine.saves(**{**VERSIONS, channel: ""}, channel=channel)
    assert machine.start().item.label == ""


def test_indicator_says_who_it_is(machine):
    applet = machine.start()
    properties = applet.item.properties()
    assert properties["Id"] == "veldrin-watch"
    assert properties["Category"] == "SystemServices"
    assert properties["Status"] == "Active"
    assert properties["IconThemePath"] == str(machine.icons)
    assert properties["IconName"] == str(machine.icons / "tux-red")
    # It has no title and no tooltip of its own. The library puts the program's name where no title is set.
    assert properties["Title"] == "veldrin"
    assert "ToolTip" not in properties


def test_reading_the_saved_state_writes_nothing(machine):
    machine.saves(**VERSIONS, kernel="7.2.1")
    before = machine.time_of_save
    machine.start()
    assert machine.saved == state_text(**VERSIONS, kernel="7.2.1")
    assert machine.time_of_save == before


def test_saved_state_is_read_once(machine):
    machine.saves(kernel="7.2.4", stable="7.2.4")
    applet = machine.start()
    machine.saves(kernel="6.1", stable="6.2", mainline="6.3-rc1", channel="mainline")
    machine.tools.publish(page(stable="7.2.4", longterm="6.18.31"))
    applet.check()
    assert applet.item.label == "7.2.4"
    assert applet.item.icon == "tux-white"
    assert machine.saved == state_text(kernel="7.2.4", stable="7.2.4", longterm="6.18.31")


def test_nothing_is_asked_before_three_seconds_have_passed(machine):
    applet = machine.start()
    applet.clock.pass_steps(5000)
    applet.settle()
    assert machine.tools.commands() == []
    assert (applet.clock.delays_begun, applet.clock.steps_begun) == (1, 0)


def test_an_indicator_made_before_the_panel_registers_with_it_later(machine):
    # The first panel of the session is gone when the program starts; the second one comes afterwards.
    machine.panel.leave()
    applet = machine.launch()
    wait_until(lambda: applet.clock.delays_begun, "the program's start")
    assert machine.panel.items == []
    machine.panel.come()
    assert applet.item.icon == "tux-red"


def test_without_a_display_gtk_ends_it_with_status_1(machine):
    applet = machine.launch(environment={"DISPLAY": None, "WAYLAND_DISPLAY": None})
    applet.expected_stderr = ".*cannot open display.*"
    assert applet.exit_status() == 1
    assert machine.saved is None
    assert not machine.state_file.parent.exists()
    assert not machine.icons.exists()


def test_display_is_an_option_that_gtk_takes(machine):
    display = machine.environment["DISPLAY"]
    applet = machine.start(f"--display={display}", environment={"DISPLAY": None, "WAYLAND_DISPLAY": None})
    assert applet.item.icon == "tux-red"
    assert applet.quit() == 0


@pytest.mark.parametrize("arguments", [["--no-such-option"], ["--version"], ["-x", "word"], ["--", "--help"]])
def test_words_that_gtk_does_not_know_are_ignored(machine, arguments):
    applet = machine.start(*arguments)
    assert applet.item.icon == "tux-red"
    assert applet.quit() == 0


def test_two_instances_run_side_by_side(machine):
    machine.saves(kernel="7.2.3", stable="7.2.4")
    first = machine.start()
    second = machine.start()
    assert first.item.owner != second.item.owner
    assert [first.item.icon, second.item.icon] == ["tux-green", "tux-green"]
    assert first.quit() == 0
    assert second.item.icon == "tux-green"
    assert second.quit() == 0


def test_of_two_instances_the_last_to_save_determines_the_file(machine):
    first = machine.start()
    second = machine.start()
    machine.tools.publish(page(stable="7.2.4"))
    first.check()
    machine.tools.publish(page(stable="7.2.5", mainline="7.3-rc3"))
    second.check()
    assert machine.saved == state_text(latest_kernel="7.2.5", stable="7.2.5", mainline="7.3-rc3")
    before = machine.time_of_save
    first.item.menu.click("Acknowledge Update")
    wait_until(lambda: machine.time_of_save != before, "the first instance's save")
    first.settle()
    assert machine.saved == state_text(kernel="7.2.4", latest_kernel="7.2.4", stable="7.2.4")
