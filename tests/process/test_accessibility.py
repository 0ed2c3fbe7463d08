# SPDX-License-Identifier: MIT
"""The windows for those who cannot see them and for those who have no mouse: every text is there for a screen reader,
and the keyboard alone does everything."""

import json
import os

import pytest
from stage.accessibility import (
    Desk,
    Node,
    button,
    contains,
    described,
    expander,
    in_order_of_reading,
    reads,
    until,
)
from stage.applet import Applet, Machine
from stage.tools import Answer, Tools
from stage.user import state_text

VERSIONS = {"mainline": "9.5-rc3", "stable": "9.4.1", "longterm": "9.1.20"}
CHANGELOGS = "https://cdn.kernel.org/pub/linux/kernel/v9.x/ChangeLog-"
CHANNELS = ["Mainline", "Stable", "Longterm"]
HINT = "This channel's version is what the tray shows, and it is preselected in Latest Changes."
LINK = "Open the full changelog on Kernhaven"
INDEX = "wget -qO- *releases.json"

LEAK = "The buffer was kept\nwhen the line went down.\n\nCc: someone <someone@example.org>"
FAN = "It ran at full speed."
CHANGELOG = """commit aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa
Author: Grace Keeper <grace@example.org>
Date:   Mon May 5 10:00:00 2031 +0200

    Linux 9.4.1

commit bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb
Author: Łukasz Example <lukasz@example.org>
Date:   Sun May 4 09:00:00 2031 +0000

    wires: fix a leak

    The buffer was kept
    when the line went down.

    Cc: someone <someone@example.org>

commit cccccccccccccccccccccccccccccccccccccccc
Author: Bo Example <bo@example.org>
Date:   Sat May 3 08:00:00 2031 -0700

    hwmon: calm the fan

    It ran at full speed.
"""


@pytest.fixture
def machine(desk: Desk) -> Machine:
    return desk.machine


def release_record(channel: str, version: str) -> dict:
    return {
        "moniker": channel,
        "version": version,
        "changelog": CHANGELOGS + version,
        "released": {"timestamp": 1936000000, "isodate": "2031-05-05"},
    }


def publish(tools: Tools, hold: bool = False) -> Answer:
    """Gives every channel a release with the three commits. The last answer of a load can be held."""
    tools.answer(INDEX, stdout=json.dumps({"releases": [release_record(*pair) for pair in VERSIONS.items()]}))
    return tools.answer(f"wget -qO- *{CHANGELOGS}*", stdout=CHANGELOG, hold=hold)


@pytest.fixture
def applet(machine: Machine, desk: Desk) -> Applet:
    machine.saves(kernel="9.4.1", latest_kernel="9.4.1", **VERSIONS)
    return desk.start()


@pytest.fixture
def settings(applet: Applet, desk: Desk) -> Node:
    window = desk.open("Settings", "Settings")
    desk.wait_for_focus(selector(window))
    return window


def open_changes(desk: Desk) -> Node:
    return desk.open("Latest Changes", "Latest Kernel Changes")


def shows_commits(window: Node, release: str = "stable  ·  9.4.1") -> None:
    until(lambda: window.says(f"{release}  ·  released 2031-05-05", "3 changes"), f"the commits of {release}")


@pytest.fixture
def changes(machine: Machine, applet: Applet, desk: Desk) -> Node:
    """The window with the three commits of the stable release, with the keyboard at the selector."""
    publish(machine.tools)
    window = open_changes(desk)
    shows_commits(window)
    desk.wait_for_focus(selector(window))
    return window


def selector(window: Node, channel: str = "Stable") -> Node:
    return window.find("combo box", channel)


# ---- Settings: what is read ----


def test_settings_reads_out_every_text(settings):
    reads(
        settings,
        "Veldrin", "Linux kernel overview",
        "SHOWN IN PANEL", "Channel", "Stable", HINT,
        "YOUR SYSTEM", "Running", os.uname().release,
        "KERNHAVEN", "Mainline", "9.5-rc3", "Stable", "9.4.1", "panel", "Longterm", "9.1.20", "www.kernel.org",
        "Close",
    )  # fmt: skip


def test_settings_selector_is_called_by_its_label(settings):
    assert selector(settings).labels == ["Channel"]


def test_settings_controls_tell_what_they_offer(settings):
    (menu,) = selector(settings).children
    assert described(menu.children) == [("menu item", channel) for channel in CHANNELS]
    assert button(settings, "www.kernel.org").address == "https://www.kernel.org/"


def test_settings_badge_is_read_beside_the_chosen_channel_alone(settings, desk):
    desk.press("Up")
    until(lambda: selector(settings, "Mainline"), "the channel above")
    until(lambda: settings.texts().count("panel") == 1, "the badge")
    texts = settings.texts()
    assert texts[texts.index("panel") - 1] == "9.5-rc3"


# ---- Settings: the keyboard ----


def test_settings_keys_follow_the_eye(settings, desk):
    stops = desk.stops()
    assert described(stops) == [
        ("combo box", "Stable"),
        ("label", os.uname().release),
        ("label", "9.5-rc3"),
        ("label", "9.4.1"),
        ("label", "9.1.20"),
        ("push button", "www.kernel.org"),
        ("push button", "Close"),
    ]
    assert stops == in_order_of_reading(stops)
    assert desk.stops("shift+Tab") == [stops[0], *reversed(stops[1:])]


def test_settings_channel_changes_with_an_arrow_key(settings, desk, applet, machine):
    desk.press("Down")
    until(lambda: applet.item.label == "9.1.20", "the other channel's version in the panel")
    assert machine.saved == state_text("9.4.1", "9.4.1", **VERSIONS, channel="longterm")
    assert described([desk.focus]) == [("combo box", "Longterm")]


def test_settings_channel_changes_in_the_open_list(settings, desk, applet):
    desk.press("alt+Down")
    settings.find("menu item", "Mainline")
    desk.press("Up", "Return")
    until(lambda: applet.item.label == "9.5-rc3", "the other channel's version in the panel")
    assert described([desk.move()]) == [("label", os.uname().release)]


def test_escape_leaves_the_open_list_without_a_choice(settings, desk, applet, machine):
    desk.press("alt+Down")
    above = settings.find("menu item", "Mainline")
    desk.press("Up", "Escape")
    # Until then the list takes the keys.
    until(lambda: "showing" not in above.states, "the list to close")
    assert described([desk.move()]) == [("label", os.uname().release)]
    assert selector(settings, "Stable").states >= {"showing", "sensitive"}
    assert applet.item.label == "9.4.1"


def test_settings_closes_and_opens_again(settings, desk):
    for key in ("space", "Return"):
        desk.go_to(button(settings, "Close"))
        desk.press(key)
        until(lambda: not desk.windows(), f"{key} to close the window")
        settings = desk.open("Settings", "Settings")
        desk.wait_for_focus(selector(settings))


@pytest.mark.parametrize("window", ["settings", "changes"])
def test_escape_closes_no_window(request, desk, window):
    node = request.getfixturevalue(window)
    before = desk.focus
    desk.press("Escape")
    # The window has dealt with Escape once it answers to the next key.
    assert desk.move() != before
    assert desk.windows() == [node]
    assert "active" in node.states


# ---- Latest Changes: what is read ----


def test_changes_reads_out_every_text(changes):
    reads(
        changes,
        "Latest Kernel Changes", "stable  ·  9.4.1  ·  released 2031-05-05",
        "3 changes", "Stable", "Refresh",
        "Linux 9.4.1", "Grace Keeper  ·  Mon May 5 10:00:00 2031 +0200", "aaaaaaaaaaaa",
        "wires", "fix a leak", "Łukasz Example  ·  Sun May 4 09:00:00 2031 +0000", "bbbbbbbbbbbb",
        "hwmon", "calm the fan", "Bo Example  ·  Sat May 3 08:00:00 2031 -0700", "cccccccccccc",
        LINK, "Close",
    )  # fmt: skip


def test_changes_controls_tell_what_they_offer(changes):
    assert selector(changes).description.startswith("Which channel to show.")
    (menu,) = selector(changes).children
    assert described(menu.children) == [("menu item", channel) for channel in CHANNELS]
    assert button(changes, LINK).address == CHANGELOGS + "9.4.1"


def test_running_load_is_read_out(machine, applet, desk):
    publish(machine.tools, hold=True)
    window = open_changes(desk)
    until(lambda: window.says("Loading changes …"), "the load")
    reads(
        window,
        "Latest Kernel Changes", "stable  ·  loading …", "Contacting Kernhaven …", "Stable", "Refresh",
        "Spinner", "Loading changes …", "Close",
    )  # fmt: skip
    for waiting in (selector(window), button(window, "Refresh")):
        assert "sensitive" not in waiting.states


def test_failed_load_is_read_out(machine, desk):
    machine.saves()
    machine.tools.disconnect()
    desk.start()
    window = open_changes(desk)
    until(lambda: window.says("Nothing loaded."), "the failure")
    reads(
        window,
        "Latest Kernel Changes", "no data", "Nothing loaded.", "Stable", "Refresh",
        "Could not load the changes",
        "Could not reach Kernhaven and no version is known yet.\nCheck your network connection and try Refresh.",
        "Close",
    )  # fmt: skip


# ---- Latest Changes: the keyboard ----


def test_changes_keys_follow_the_eye(changes, desk):
    stops = desk.stops()
    # What the closed cards hide is no stop.
    assert described(stops) == [
        ("combo box", "Stable"),
        ("push button", "Refresh"),
        ("toggle button", "fix a leak"),
        ("toggle button", "calm the fan"),
        ("push button", LINK),
        ("push button", "Close"),
    ]
    assert stops == in_order_of_reading(stops)
    assert desk.stops("shift+Tab") == [stops[0], *reversed(stops[1:])]


@pytest.mark.parametrize("key", ["space", "Return"])
def test_card_opens_and_closes(changes, desk, key):
    card = expander(changes, "fix a leak")
    desk.go_to(card)
    assert "expanded" not in card.states and not changes.says(LEAK)
    desk.press(key)
    until(lambda: changes.says(LEAK) and contains(changes, card.find("label", LEAK)), "the message")
    assert "expanded" in card.states and desk.focus == card
    texts = changes.texts()
    assert texts.index(LEAK) == texts.index("fix a leak") + 1 and FAN not in texts

    # To be selected and copied, the message takes keys, but only as long as it shows.
    message = desk.move()
    assert message == card.find("label", LEAK)
    assert described([desk.move("shift+Tab")]) == [("toggle button", "fix a leak")]
    desk.press(key)
    until(lambda: "expanded" not in card.states, "the card to close")
    assert described([desk.move()]) == [("toggle button", "calm the fan")]


def test_keys_reach_the_words_of_a_failure(machine, desk):
    machine.saves()
    machine.tools.disconnect()
    desk.start()
    window = open_changes(desk)
    until(lambda: window.says("Nothing loaded."), "the failure")
    desk.wait_for_focus(selector(window))
    assert [stop.text.partition("\n")[0] for stop in desk.stops()] == [
        "Stable",
        "Refresh",
        "Could not reach Kernhaven and no version is known yet.",
        "Close",
    ]


def test_changes_channel_changes_with_an_arrow_key(changes, desk, applet):
    desk.press("Down")
    shows_commits(changes, "longterm  ·  9.1.20")
    desk.wait_for_focus(selector(changes, "Longterm"))
    desk.press("Up")
    shows_commits(changes, "stable  ·  9.4.1")
    assert applet.item.label == "9.4.1"


def test_changes_channel_changes_in_the_open_list(changes, desk):
    desk.press("alt+Down")
    changes.find("menu item", "Mainline")
    desk.press("Up", "Return")
    shows_commits(changes, "mainline  ·  9.5-rc3")
    desk.wait_for_focus(selector(changes, "Mainline"))
    assert desk.move() == button(changes, "Refresh")


def test_refresh_keeps_the_keys(changes, desk, machine):
    refresh = button(changes, "Refresh")
    desk.go_to(refresh)
    for key in ("space", "Return"):
        commits = CHANGELOG.replace("calm the fan", f"press {key}")
        answer = machine.tools.answer(f"wget -qO- *{CHANGELOGS}*", stdout=commits, hold=True)
        desk.press(key)
        # Asked for: the events tell of one gain twice, the second time when there is nothing else to do.
        until(lambda: changes.says("Contacting Kernhaven …") and "focused" not in refresh.states, "the load")
        answer.release()
        until(lambda: changes.says(f"press {key}"), "the commits")
        until(lambda: "focused" in refresh.states, "the keys to come back")


def test_keys_stay_where_they_were_led_during_a_load(changes, desk, machine):
    desk.go_to(button(changes, "Refresh"))
    answer = publish(machine.tools, hold=True)
    desk.press("space")
    until(lambda: changes.says("Contacting Kernhaven …"), "the load")
    close = button(changes, "Close")
    desk.go_to(close)
    answer.release()
    shows_commits(changes)
    # A focus that was taken from it would lead elsewhere.
    assert described([desk.move("shift+Tab")]) == [("push button", LINK)]
    assert desk.move() == close


def test_changes_closes_during_a_load_and_after_it(applet, desk, machine):
    answer = publish(machine.tools, hold=True)
    window = open_changes(desk)
    until(lambda: window.says("Loading changes …"), "the load")
    desk.move()
    desk.go_to(button(window, "Close"))
    desk.press("space")
    until(lambda: not desk.windows(), "the window to close")
    answer.release()

    window = open_changes(desk)
    shows_commits(window)
    desk.wait_for_focus(selector(window))
    desk.go_to(button(window, "Close"))
    desk.press("Return")
    until(lambda: not desk.windows(), "the window to close")
    assert applet.running
