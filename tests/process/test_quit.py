# SPDX-License-Identifier: MIT
"""How the program ends: by the menu, and by signals that end any program."""

import signal

import pytest
from stage.applet import AT_ONCE, signal_name
from stage.clock import STEPS_OF_A_PAUSE
from stage.tools import ASK, ASK_QUIETLY, CURL, HEADER, PAGE, page
from stage.user import state_text
from stage.waiting import wait_until


def test_quit_exits_with_status_0_and_saves_nothing(machine):
    machine.saves_text("  " + state_text(kernel="7.2.3", stable="7.2.4"))
    before = machine.time_of_save
    applet = machine.start()
    assert applet.quit() == 0
    assert machine.time_of_save == before
    assert machine.saved == "  " + state_text(kernel="7.2.3", stable="7.2.4")


def test_quit_after_a_check_saves_nothing_more(machine):
    machine.tools.publish(page(stable="7.2.4"))
    applet = machine.start_and_check()
    machine.saves_text("mine")
    before = machine.time_of_save
    assert applet.quit() == 0
    assert machine.saved == "mine"
    assert machine.time_of_save == before


def test_icon_files_stay(machine):
    assert machine.start().quit() == 0
    assert len(list(machine.icons.iterdir())) == 3


def test_quit_during_the_first_delay_runs_no_check(machine):
    machine.tools.publish(page(stable="7.2.4"))
    applet = machine.start()
    applet.item.menu.click("Quit")
    assert applet.exit_status(AT_ONCE) == 0
    assert machine.tools.commands() == []
    assert machine.saved is None


@pytest.mark.parametrize("held", [PAGE, CURL, HEADER])
def test_quit_during_a_first_check_drops_its_result(machine, held):
    machine.saves(kernel="7.2.3", stable="7.2.3")
    before = machine.time_of_save
    machine.tools.publish(page(stable="7.2.4"))
    if held == CURL:
        machine.tools.answer(PAGE, status=4)
    answer = machine.tools.answer(held, stdout=page(stable="7.2.4"), hold=True)
    applet = machine.start()
    applet.begin_check()
    tool = held.split()[0]
    wait_until(lambda: len(machine.tools.commands()) == (1 if held == PAGE else 2), f"the held {tool}")
    applet.item.menu.click("Quit")
    assert applet.exit_status(AT_ONCE) == 0
    answer.release()
    assert machine.time_of_save == before
    assert machine.saved == state_text(kernel="7.2.3", stable="7.2.3")


@pytest.mark.parametrize(("held", "number"), [(ASK_QUIETLY, 1), (ASK, 2)])
def test_quit_during_a_conditional_request(machine, held, number):
    machine.tools.publish(page(stable="7.2.4"))
    applet = machine.start_and_check()
    asked = len(machine.tools.commands())
    answer = machine.tools.answer(held, hold=True)
    applet.begin_check()
    wait_until(lambda: len(machine.tools.commands()) == asked + number, "the held request")
    applet.item.menu.click("Quit")
    assert applet.exit_status(AT_ONCE) == 0
    answer.release()
    assert len(machine.tools.commands()) == asked + number


def test_quit_during_the_pause(machine):
    machine.tools.publish(page(stable="7.2.4"))
    applet = machine.start_and_check()
    applet.clock.pass_steps(STEPS_OF_A_PAUSE // 2)
    wait_until(lambda: applet.clock.steps_begun == STEPS_OF_A_PAUSE // 2 + 1, "half of the pause")
    applet.item.menu.click("Quit")
    assert applet.exit_status(AT_ONCE) == 0
    assert len(machine.tools.commands()) == 2


def test_quit_picked_twice_is_still_a_clean_exit(machine):
    applet = machine.start()
    menu = applet.item.menu
    entry = menu.entry("Quit")
    menu.click_entry(entry)
    menu.click_entry(entry)
    assert applet.exit_status(AT_ONCE) == 0


ENDING_SIGNALS = [signal.SIGTERM, signal.SIGINT, signal.SIGHUP]


@pytest.mark.parametrize("number", ENDING_SIGNALS, ids=signal_name)
def test_signal_ends_it_at_once_in_the_first_delay(machine, number):
    machine.saves(kernel="7.2.3", stable="7.2.4")
    before = machine.time_of_save
    applet = machine.start()
    applet.send(number)
    assert applet.exit_status(AT_ONCE) == -number
    assert machine.time_of_save == before


@pytest.mark.parametrize("number", ENDING_SIGNALS, ids=signal_name)
def test_signal_ends_it_at_once_during_a_check(machine, number):
    machine.tools.answer(PAGE, stdout=page(stable="7.2.4"), hold=True)
    applet = machine.start()
    applet.begin_check()
    wait_until(machine.tools.commands, "the held wget")
    applet.send(number)
    assert applet.exit_status(AT_ONCE) == -number
    assert machine.saved is None


@pytest.mark.parametrize("number", ENDING_SIGNALS, ids=signal_name)
def test_signal_ends_it_at_once_in_the_pause_and_loses_nothing(machine, number):
    machine.tools.publish(page(stable="7.2.4"))
    applet = machine.start_and_check()
    applet.send(number)
    assert applet.exit_status(AT_ONCE) == -number
    assert machine.saved == state_text(latest_kernel="7.2.4", stable="7.2.4")
    assert machine.start().item.label == "7.2.4"
