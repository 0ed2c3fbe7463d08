# SPDX-License-Identifier: MIT
"""What a check makes of label, icon and state file, and when the next one comes."""

import pytest
from stage.clock import STEPS_OF_A_PAUSE
from stage.tools import CURL, HEADER, LATER, PAGE, headers, page, page_command
from stage.user import state_text
from stage.waiting import wait_until


def test_first_check_of_a_first_run_shows_all_that_is_new(machine):
    machine.tools.publish(page(mainline="7.3-rc2", stable="7.2.4", longterm="6.18.31"))
    applet = machine.start_and_check()
    assert applet.item.label == "7.2.4"
    assert applet.item.icon == "tux-green"
    assert machine.saved == (
        '{\n  "kernel": "",\n  "latest_kernel": "7.2.4",\n  "mainline": "7.3-rc2",\n  "stable": "7.2.4",\n'
        '  "longterm": "6.18.31",\n  "channel": "stable"\n}\n'
    )


def test_changes_reach_the_panel_as_signals(machine):
    machine.tools.publish(page(stable="7.2.4"))
    applet = machine.start_and_check()
    assert ("NewIcon",) in applet.item.signals
    assert ("XAyatanaNewLabel", "7.2.4", "7.2.4") in applet.item.signals


@pytest.mark.parametrize(("channel", "label"), [("mainline", "7.3-rc2"), ("longterm", "6.18.31")])
def test_channel_decides_the_label_alone(machine, channel, label):
    machine.saves(kernel="7.2.4", stable="7.2.4", channel=channel)
    machine.tools.publish(page(mainline="7.3-rc2", stable="7.2.4", longterm="6.18.31"))
    applet = machine.start_and_check()
    assert applet.item.label == label
    assert applet.item.icon == "tux-white"
    machine.tools.publish(page(mainline="7.3-rc2", stable="7.2.5", longterm="6.18.31"), LATER)
    applet.check()
    assert applet.item.label == label
    assert applet.item.icon == "tux-green"


def test_stable_equal_to_kernel_leaves_a_green_icon_green(machine):
    machine.saves(kernel="7.2.4", latest_kernel="7.2.5", mainline="7.3-rc1", stable="7.2.5", longterm="6.18.30")
    machine.tools.publish(page(mainline="7.3-rc2", stable="7.2.4", longterm="6.18.31"))
    applet = machine.start_and_check()
    assert applet.item.icon == "tux-green"
    assert applet.item.label == "7.2.4"
    assert machine.saved == state_text("7.2.4", "7.2.5", "7.3-rc2", "7.2.4", "6.18.31")
    assert ("NewIcon",) not in applet.item.signals
    assert applet.quit() == 0
    assert machine.start().item.icon == "tux-white"


def test_same_contents_are_saved_anew_by_a_successful_check(machine):
    machine.saves(kernel="7.2.4", stable="7.2.4")
    before = machine.time_of_save
    machine.tools.publish(page(stable="7.2.4"))
    machine.start_and_check()
    assert machine.time_of_save != before
    assert machine.saved == state_text(kernel="7.2.4", stable="7.2.4")


def test_channel_that_the_page_lacks_becomes_empty_but_its_label_stays_until_it_is_back(machine):
    machine.saves(kernel="7.2.4", mainline="7.3-rc2", stable="7.2.4", longterm="6.18.31", channel="mainline")
    machine.tools.publish(page(stable="7.2.4"))
    applet = machine.start_and_check()
    assert applet.item.label == "7.3-rc2"
    assert machine.saved == state_text(kernel="7.2.4", stable="7.2.4", channel="mainline")
    machine.tools.publish(page(mainline="7.3-rc3", stable="7.2.4"), LATER)
    applet.check()
    assert applet.item.label == "7.3-rc3"


# ---- Checks that find nothing ----


def dead_network(tools) -> None:
    tools.disconnect()


def error_page(tools) -> None:
    tools.disconnect()
    tools.answer(CURL, stdout="<html><head><title>503 Service Unavailable</title></head><body></body></html>\n")


def empty_page(tools) -> None:
    tools.publish("")


def page_without_stable(tools) -> None:
    tools.publish(page(mainline="7.3-rc5", longterm="6.18.32"))


def page_whose_tool_fails_at_its_end(tools) -> None:
    tools.disconnect()
    tools.answer(PAGE, stdout=page(stable="7.2.9"), status=4)


def no_tools(tools) -> None:
    tools.remove("wget")
    tools.remove("curl")


FAILURES = [dead_network, error_page, empty_page, page_without_stable, page_whose_tool_fails_at_its_end, no_tools]


@pytest.mark.parametrize("failure", FAILURES)
def test_failed_first_check_of_a_first_run_changes_nothing(machine, failure):
    failure(machine.tools)
    applet = machine.start_and_check()
    assert applet.item.icon == "tux-red"
    assert applet.item.label == ""
    assert applet.item.news == []
    assert machine.saved is None


@pytest.mark.parametrize("failure", FAILURES)
def test_failed_check_keeps_what_is_known(machine, failure):
    text = state_text("7.2.3", "7.2.4", "7.3-rc2", "7.2.4", "6.18.31", "longterm")
    machine.saves_text(text)
    before = machine.time_of_save
    failure(machine.tools)
    applet = machine.start_and_check()
    assert applet.item.icon == "tux-green"
    assert applet.item.label == "6.18.31"
    assert applet.item.news == []
    assert machine.saved == text
    assert machine.time_of_save == before


def test_failures_end_with_the_first_check_that_succeeds(machine):
    machine.tools.disconnect()
    applet = machine.start()
    for _ in range(3):
        applet.check()
        assert applet.item.icon == "tux-red"
    machine.tools.publish(page(stable="7.2.4"))
    applet.check()
    assert applet.item.icon == "tux-green"
    assert applet.item.label == "7.2.4"


def test_unchanged_site_costs_neither_a_download_nor_a_write(machine):
    machine.tools.publish(page(mainline="7.3-rc2", stable="7.2.4"))
    applet = machine.start_and_check()
    before = machine.time_of_save
    machine.tools.leave_unchanged()
    news = applet.item.news
    for _ in range(5):
        applet.check()
    assert machine.time_of_save == before
    assert applet.item.news == news
    assert machine.tools.commands().count(page_command()) == 1
    assert len(machine.tools.commands()) == 2 + 5 * 2


# ---- Rhythm ----


@pytest.mark.parametrize("succeeds", [True, False])
def test_next_check_comes_after_1800_pauses_of_a_second(machine, succeeds):
    if succeeds:
        machine.tools.publish(page(stable="7.2.4"))
    else:
        machine.tools.disconnect()
    applet = machine.start_and_check()
    asked = len(machine.tools.commands())
    for round_ in (1, 2):
        end = round_ * STEPS_OF_A_PAUSE
        applet.clock.pass_steps(STEPS_OF_A_PAUSE - 1)
        wait_until(lambda: applet.clock.steps_begun == end, "the last second of the pause")
        applet.settle()
        assert len(machine.tools.commands()) == asked
        applet.clock.pass_steps(1)
        wait_until(lambda: applet.clock.steps_begun == end + 1, "the end of the next check")
        assert len(machine.tools.commands()) > asked
        asked = len(machine.tools.commands())
    assert applet.clock.delays_begun == 1


def test_pause_begins_when_the_check_has_ended(machine):
    machine.tools.publish(page(stable="7.2.4"))
    held = machine.tools.answer(HEADER, stderr=headers("200 OK"), hold=True)
    applet = machine.start()
    applet.begin_check()
    wait_until(lambda: len(machine.tools.commands()) == 2, "the check's last command")
    applet.clock.pass_steps(STEPS_OF_A_PAUSE - 1)
    applet.settle()
    assert applet.clock.steps_begun == 0
    held.release()
    wait_until(lambda: applet.clock.steps_begun == STEPS_OF_A_PAUSE, "the last second of the pause")
    assert len(machine.tools.commands()) == 2


def test_nothing_of_a_check_shows_before_its_end(machine):
    machine.saves(kernel="7.2.3", stable="7.2.3")
    before = machine.time_of_save
    machine.tools.publish(page(stable="7.2.4"))
    held = machine.tools.answer(HEADER, stderr=headers("200 OK"), hold=True)
    applet = machine.start()
    applet.begin_check()
    wait_until(lambda: len(machine.tools.commands()) == 2, "the check's last command")
    applet.settle()
    assert (applet.item.icon, applet.item.label) == ("tux-white", "7.2.3")
    assert machine.time_of_save == before
    held.release()
    applet.finish_check()
    assert (applet.item.icon, applet.item.label) == ("tux-green", "7.2.4")


def test_menu_answers_during_a_check(machine):
    held = machine.tools.answer(PAGE, hold=True)
    applet = machine.start()
    applet.begin_check()
    wait_until(machine.tools.commands, "the check's first command")
    applet.item.menu.click("Acknowledge Update")
    wait_until(lambda: applet.item.icon == "tux-white", "the white icon")
    held.release()
    applet.finish_check()
