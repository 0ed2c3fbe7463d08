# SPDX-License-Identifier: MIT
"""The command lines of a check, to the letter and in their order."""

import pytest
from stage.tools import (
    ASK,
    ASK_QUIETLY,
    CURL,
    HEADER,
    LAST_MODIFIED as EARLIER,
    LATER,
    PAGE,
    ask_commands,
    curl_command,
    header_command,
    headers,
    page,
    page_command,
)


@pytest.fixture
def tools(machine):
    return machine.tools


def new_commands(applet, tools) -> list[list[str]]:
    """Those of the next check."""
    before = len(tools.commands())
    applet.check()
    return tools.commands()[before:]


def test_first_check_asks_for_page_and_header(machine, tools):
    tools.publish(page(stable="7.2.4"))
    assert new_commands(machine.start(), tools) == [page_command(), header_command()]


def test_unchanged_page_costs_two_conditional_requests(machine, tools):
    tools.publish(page(stable="7.2.4"))
    applet = machine.start_and_check()
    tools.leave_unchanged()
    for _ in range(2):
        assert new_commands(applet, tools) == ask_commands(EARLIER)


def test_changed_page_costs_page_and_header_in_addition(machine, tools):
    tools.publish(page(stable="7.2.4"))
    applet = machine.start_and_check()
    tools.publish(page(stable="7.2.5"), LATER)
    changed = [*ask_commands(EARLIER), page_command(), header_command()]
    assert new_commands(applet, tools) == changed
    assert new_commands(applet, tools)[:2] == ask_commands(LATER)


def test_each_start_begins_without_a_stored_header(machine, tools):
    tools.publish(page(stable="7.2.4"))
    assert machine.start_and_check().quit() == 0
    assert new_commands(machine.start(), tools) == [page_command(), header_command()]


def test_commands_are_the_same_under_another_locale_and_channel(machine, tools):
    machine.saves(channel="mainline", kernel="7.2.4", stable="7.2.5")
    tools.publish(page(mainline="7.3-rc2", stable="7.2.4"))
    applet = machine.start(environment={"LANG": "C"})
    assert new_commands(applet, tools) == [page_command(), header_command()]


# ---- Failing and missing tools ----


@pytest.mark.parametrize(
    "given",
    [{"status": 4}, {"stdout": ""}, {"stdout": page(stable="7.9.9"), "status": 4}],
    ids=["nothing-and-fails", "nothing", "a-page-and-fails"],
)
def test_wget_that_gives_no_whole_page_leads_to_curl(machine, tools, given):
    tools.publish("")
    tools.answer(PAGE, **given)
    tools.answer(CURL, stdout=page(stable="7.2.4"))
    applet = machine.start()
    assert new_commands(applet, tools) == [page_command(), curl_command(), header_command()]
    assert applet.item.label == "7.2.4"


def test_errors_of_both_tools_are_not_taken_for_the_page(machine, tools):
    tools.answer(PAGE, stderr=page(stable="7.9.9"))
    tools.answer(CURL, stderr=page(stable="7.9.9"))
    applet = machine.start()
    assert new_commands(applet, tools) == [page_command(), curl_command()]
    assert applet.item.label == ""


def test_failing_tools_end_the_check(machine, tools):
    tools.disconnect()
    applet = machine.start()
    for _ in range(2):
        assert new_commands(applet, tools) == [page_command(), curl_command()]


def test_failure_of_both_tools_keeps_the_stored_header(machine, tools):
    tools.publish(page(stable="7.2.4"))
    applet = machine.start_and_check()
    tools.disconnect()
    failed = [*ask_commands(EARLIER), page_command(), curl_command()]
    for _ in range(2):
        assert new_commands(applet, tools) == failed


def test_wget_that_vanishes_between_checks_counts_as_modified(machine, tools):
    tools.publish(page(stable="7.2.4"))
    applet = machine.start_and_check()
    tools.remove("wget")
    tools.answer(CURL, stdout=page(stable="7.2.5"))
    assert new_commands(applet, tools) == [curl_command()]
    assert applet.item.label == "7.2.5"
    # The header could not be learned any more, so nothing is asked conditionally.
    assert new_commands(applet, tools) == [curl_command()]


def test_curls_error_page_replaces_the_stored_header(machine, tools):
    tools.publish(page(stable="7.2.4"))
    applet = machine.start_and_check()
    tools.publish("", LATER)
    tools.answer(PAGE, status=8)
    tools.answer(CURL, stdout="<html><body><h1>503 Service Unavailable</h1></body></html>\n")
    failed = [*ask_commands(EARLIER), page_command(), curl_command(), header_command()]
    assert new_commands(applet, tools) == failed
    assert new_commands(applet, tools)[:2] == ask_commands(LATER)
    assert applet.item.label == "7.2.4"


def test_page_without_a_stable_row_is_not_looked_at_again(machine, tools):
    tools.publish(page(mainline="7.3-rc2"), LATER)
    applet = machine.start_and_check()
    tools.leave_unchanged(LATER)
    assert new_commands(applet, tools) == ask_commands(LATER)


# ---- The answer to the conditional request ----


def test_304_is_sought_on_standard_output_too(machine, tools):
    tools.publish(page(stable="7.2.4"))
    applet = machine.start_and_check()
    tools.answer(ASK, stdout="HTTP/1.1 304 Not Modified\n")
    assert new_commands(applet, tools) == ask_commands(EARLIER)


@pytest.mark.parametrize("lines", [10, 100])
def test_any_number_of_lines_with_304_counts_as_not_modified(machine, tools, lines):
    tools.publish(page(stable="7.2.4"))
    applet = machine.start_and_check()
    tools.answer(ASK, stderr="  X-Way: 304\n" * lines)
    assert new_commands(applet, tools) == ask_commands(EARLIER)


def test_answer_of_the_quiet_request_is_not_looked_at(machine, tools):
    tools.publish(page(stable="7.2.4"))
    applet = machine.start_and_check()
    tools.publish(page(stable="7.2.5"), LATER)
    tools.answer(ASK_QUIETLY, stdout="HTTP/1.1 304 Not Modified\n")
    assert new_commands(applet, tools) == [*ask_commands(EARLIER), page_command(), header_command()]


def test_failed_conditional_requests_lead_to_the_page(machine, tools):
    tools.publish(page(stable="7.2.4"))
    applet = machine.start_and_check()
    tools.publish(page(stable="7.2.5"), LATER)
    tools.answer(ASK_QUIETLY, status=4)
    tools.answer(ASK, stderr="wget: unable to resolve host address\n", status=4)
    assert new_commands(applet, tools) == [*ask_commands(EARLIER), page_command(), header_command()]
    assert applet.item.label == "7.2.5"


# ---- The stored header ----


def stored(machine, tools, header_lines: str) -> str | None:
    """The value that the second check sends back for these lines among the first one's headers; None if it sends
    nothing."""
    tools.publish(page(stable="7.2.4"))
    tools.answer(HEADER, stderr=headers("200 OK") + header_lines)
    applet = machine.start_and_check()
    commands = new_commands(applet, tools)
    if commands == [page_command(), header_command()]:
        return None
    (value,) = {command[3].removeprefix("--header=If-Modified-Since: ") for command in commands[:2]}
    assert commands[:2] == ask_commands(value)
    return value


@pytest.mark.parametrize(
    ("lines", "value"),
    [
        ("  Date: Sun, 06 Sep 2026 10:11:12 GMT\n", None),
        (f"  last-modified: {LATER}\n", f"  last-modified: {LATER}"),
        (f"  Last-Modified: {LATER}\r\n", LATER),
        (f"  Last-Modified: {EARLIER}\n  Location: elsewhere\n  Last-Modified: {LATER}\n", f"{EARLIER}\n{LATER}"),
        ("  Last-Modified:     two  blanks and one \n", "two  blanks and one "),
        ("  Last-Modified: \tSätze mit Umlauten\t\n", "\tSätze mit Umlauten\t"),
    ],
    ids=["missing", "lower-case", "carriage-return", "redirect-chain", "blanks", "tabs"],
)
def test_header_is_stored(machine, tools, lines, value):
    assert stored(machine, tools, lines) == value


def test_header_of_a_failing_wget_counts_too(machine, tools):
    tools.publish(page(stable="7.2.4"))
    tools.answer(HEADER, stderr=headers("404 Not Found", f"Last-Modified: {LATER}"), status=8)
    applet = machine.start_and_check()
    assert new_commands(applet, tools)[:2] == ask_commands(LATER)


def test_line_feed_within_the_header_runs_nothing(machine, tools):
    tools.put("touch")
    lines = "  Last-Modified: Sat'\n  Last-Modified: touch marker\n  Last-Modified: '\n"
    assert stored(machine, tools, lines) == "Sat'\ntouch marker\n'"
    assert not (machine.folder / "marker").exists()
