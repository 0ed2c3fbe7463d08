# SPDX-License-Identifier: MIT
"""The window "System & Kernel Modules" and the about dialog for those who cannot see them and for those who have no
mouse."""

import os
from collections.abc import Callable, Sequence
from pathlib import Path

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
from stage.project import site
from stage.project import version as built_version
from stage.world import Module, machine_with_modules

VERSION = f"v{built_version()}"
RELEASE = os.uname().release
MACHINE = os.uname().machine
OS_RELEASE = 'PRETTY_NAME="Skua 24"\n'
FILES = {
    "/proc/version": "Linux version 6.9 (gannet@quay.example) (gcc (Skua 14.2) 14.2, GNU ld 2.43) #1 SMP "
    "PREEMPT_DYNAMIC Fri Oct 18 07:11:39 UTC 2024\n",
    "/proc/uptime": "4980.00 9000.00\n",
    "/proc/cmdline": "root=LABEL=skua ro quiet\n",
    "/etc/os-release": OS_RELEASE,
}
# Of the kernels that are not running.
IMAGES = ["6.1.0-2-skua", "5.19.0-9-skua"]
TREES = ["6.1.0-2-skua", "5.18.0-1-skua", "5.17.0-1-skua"]

MODULES = [
    Module(b"auklet 16384 0 - Live 0x0000000000000000"),
    Module(
        b"dunlin 24576 0 - Loading 0x0000000000000000 (OE)",
        {
            b"version": b"2.4-quay\n",
            b"srcversion": b"7C0FFEE5A11AD0F1E57A7E5\n",
            b"taint": b"OE\n",
            b"parameters/depth": b"7\n",
            b"parameters/nickname": b"\n",
            b"parameters/route": b"from the quay to the marsh, over all the reed there is\n",
        },
    ),
    Module(b"plover 1310720 2 auklet,dunlin, Live 0x0000000000000000"),
]
PLOVER = ["plover", "1.2 MB", "2", "auklet,dunlin"]
DUNLIN = ["dunlin", "24 KB", "0"]
AUKLET = ["auklet", "16 KB", "0"]
STATUS = "3 of 3 modules  ·  1 in use"
HEADINGS = ["Module", "Size", "Used", "Used by"]
PLACEHOLDER = "Select a module to see its details."
PARAMETERS = ["depth = 7", "nickname = (empty)", "route = from the quay to the marsh, over all the reed there is"]
DUNLIN_DETAILS = [
    "dunlin", "Loading", "24 KB", "GPL", "Counts dunlins",
    "Version", "2.4-quay", "Author", "Jo Gannet", "Taint", "OE", "srcversion", "7C0FFEE5A11AD0F1E57A7E5",
    "File", "/lib/modules/6.9/dunlin.ko", "Parameters",
    *PARAMETERS,
]  # fmt: skip
AUKLET_DETAILS = [
    "auklet", "Live", "16 KB", "GPL", "Counts auklets", "Author", "Jo Gannet", "File", "/lib/modules/6.9/auklet.ko",
]  # fmt: skip
MODINFO = """echo "filename: /lib/modules/6.9/$1.ko"
echo "license: GPL"
echo "author: Jo Gannet"
echo "description: Counts $1s"
"""

SNAP = {"SNAP": "/snap/veldrin/31", "SNAP_NAME": "veldrin", "SNAP_INSTANCE_NAME": "veldrin"}
# The indicator library knows where a snap's icons should not lie.
SNAP_WARNINGS = r"(\n\(veldrin:\d+\): libayatana-appindicator-WARNING \*\*: [\d:.]+: Using '/tmp' paths in [^\n]*\n)*"
PERMISSION = (
    "The module list and the host system details need one permission. Run this in a terminal, then reopen this window "
    "(click the command to copy it):"
)
COMMAND = "sudo snap connect veldrin:system-observe"
NONE_LOADED = (
    "This kernel appears to be fully built-in — everything it needs is compiled into the image rather than loaded at "
    "runtime."
)

HEADER = ["System & Kernel Modules", f"{RELEASE}  ·  Skua 24"]
LEFTOVERS = "2 module trees without a kernel image"


@pytest.fixture
def machine(desk: Desk) -> Machine:
    return desk.machine


def other_kernels(machine: Machine) -> list[str | Path]:
    """Options of bubblewrap for a machine with other kernels in /boot and /lib/modules. The latter need not be there,
    and nothing may be made in its stead."""
    boot, trees, libraries = (machine.folder / name for name in ("boot", "trees", "libraries"))
    for folder in (boot, libraries, *(trees / version for version in TREES)):
        folder.mkdir(parents=True)
    for version in [RELEASE, *IMAGES]:
        (boot / f"vmlinuz-{version}").touch()
    release = machine.folder / "os-release"
    release.write_text(OS_RELEASE)
    real = Path("/lib").resolve()
    options: list[str | Path] = ["--bind", boot, "/boot", "--bind", real, libraries, "--tmpfs", real]
    for entry in real.iterdir():
        if entry.name not in ("modules", release.name):
            options += ["--symlink", libraries / entry.name, entry]
    # In many places /etc has but a link to it.
    return [*options, "--bind", trees, real / "modules", "--ro-bind", release, real / release.name]


def start(machine: Machine, desk: Desk, modules: Sequence[Module], environment: dict[str, str] | None = None) -> Applet:
    machine.tools.put_script("modinfo", MODINFO)
    files = {name: text.encode() for name, text in FILES.items()}
    options = [*other_kernels(machine), "--unshare-uts", "--hostname", "mudflat"]
    return desk.start(around=machine_with_modules(machine, modules, files, *options), environment=environment)


def load(machine: Machine, modules: Sequence[Module]) -> None:
    """From now on the kernel lists these. It is the file itself that shows in the applet's world."""
    (machine.folder / "modules" / "list").write_bytes(b"".join(module.line + b"\n" for module in modules))


def open_system(desk: Desk) -> Node:
    window = desk.open("System & Modules", "System & Kernel Modules")
    desk.wait_for_focus(tab(window, "System"))
    return window


@pytest.fixture
def system(machine: Machine, desk: Desk) -> Node:
    """The window on its first page, with the keyboard at the page's tab."""
    start(machine, desk, MODULES)
    return open_system(desk)


@pytest.fixture
def modules(system: Node, desk: Desk) -> Node:
    """The same on the second page."""
    return turn_to_modules(system, desk)


@pytest.fixture
def confined(machine: Machine, desk: Desk) -> Node:
    """The window of a snap whose list of modules is empty."""
    start(machine, desk, [], SNAP).expected_stderr = SNAP_WARNINGS
    return open_system(desk)


@pytest.fixture
def about(machine: Machine, desk: Desk) -> Node:
    desk.start()
    window = desk.open("About", "About Veldrin")
    desk.wait_for_focus(button(window, CONTACT))
    return window


def tab(window: Node, name: str) -> Node:
    return window.find("page tab", name)


def turn_to_modules(window: Node, desk: Desk) -> Node:
    desk.press("ctrl+Next")
    desk.wait_for_focus(tab(window, "Modules"))
    return window


def the(role: str, window: Node) -> Node:
    """The one of its role that shows."""
    found = [node for node in window.shown() if node.role == role]
    if len(found) != 1:
        raise LookupError(f"{len(found)} times {role} among {window.texts()}")
    return found[0]


def entry(window: Node) -> Node:
    return the("text", window)


def table(window: Node) -> Node:
    return the("table", window)


def selected(window: Node) -> list[str]:
    """What stands in the selected row."""
    return [cell.text for cell in table(window).children if "selected" in cell.states and cell.role == "table cell"]


def details(window: Node) -> list[str]:
    """What is written below the table."""
    return the("split pane", window).children[1].texts()


def shows_details(window: Node, *expected: str) -> None:
    """Waits until just these stand below the table. The order of parameters has a test of its own."""
    until(lambda: sorted(details(window)) == sorted(expected), lambda: f"details; these are there: {details(window)}")


def select_dunlin(window: Node, desk: Desk) -> None:
    desk.go_to(table(window))
    desk.press("Home", "Down")
    shows_details(window, *DUNLIN_DETAILS)


# ---- System: what is read ----


SYSTEM_PAGE = [
    *HEADER, "System",
    "RUNNING KERNEL", RELEASE, MACHINE, "SMP", "PREEMPT",
    "Built", "Fri Oct 18 07:11:39 UTC 2024", "Built by", "gannet@quay.example", "Compiler", "gcc (Skua 14.2) 14.2",
    "Boot line", "root=LABEL=skua ro quiet",
    "SYSTEM", "Distribution", "Skua 24", "Hostname", "mudflat", "Uptime", "1 h 23 min",
    "Modules", "3 loaded", "1 in use",
    "INSTALLED KERNELS", RELEASE, "running", "6.1.0-2-skua", "image + modules", "5.19.0-9-skua", "image only",
]  # fmt: skip
SYSTEM_PAGE_BEHIND = ["Modules", "Close"]


def test_system_page_reads_out_every_text(system):
    reads(system, *SYSTEM_PAGE, LEFTOVERS, *SYSTEM_PAGE_BEHIND)


def test_confined_system_page_reads_out_its_notes_and_the_permission_bar(confined):
    texts = confined.texts()
    distribution, modules = texts.index("Distribution"), texts.index("Modules")
    assert texts[distribution + 1 : distribution + 3] == [
        "Skua 24",
        "sandbox base — run: snap connect veldrin:system-observe",
    ]
    assert texts[modules + 1 : modules + 3] == ["not readable", "see the Modules tab"]
    assert texts[-5:] == ["Modules", PERMISSION, COMMAND, "Copy", "Close"]


# ---- System: the keyboard ----


SYSTEM_STOPS = [
    ("page tab", "System"),
    ("label", RELEASE),
    ("label", "Fri Oct 18 07:11:39 UTC 2024"),
    ("label", "gannet@quay.example"),
    ("label", "gcc (Skua 14.2) 14.2"),
    ("label", "root=LABEL=skua ro quiet"),
    ("label", "Skua 24"),
    ("label", "mudflat"),
    ("label", "1 h 23 min"),
    ("label", RELEASE),
    ("label", "6.1.0-2-skua"),
    ("label", "5.19.0-9-skua"),
    ("toggle button", LEFTOVERS),
]


def test_system_page_keys_follow_the_eye(system, desk):
    stops = desk.stops()
    # What the closed expander hides is no stop.
    assert described(stops) == [*SYSTEM_STOPS, ("push button", "Close")]
    assert stops == in_order_of_reading(stops)
    assert desk.stops("shift+Tab") == [stops[0], *reversed(stops[1:])]


@pytest.mark.parametrize("key", ["space", "Return"])
def test_leftover_trees_open_and_close(system, desk, key):
    leftovers = expander(system, LEFTOVERS)
    desk.go_to(leftovers)
    assert "expanded" not in leftovers.states
    desk.press(key)
    reads(
        system,
        *SYSTEM_PAGE, LEFTOVERS, "5.18.0-1-skua", "modules only", "5.17.0-1-skua", "modules only", *SYSTEM_PAGE_BEHIND,
    )  # fmt: skip
    assert "expanded" in leftovers.states and desk.focus == leftovers
    until(lambda: contains(system, leftovers.find("label", "5.17.0-1-skua")), "the trees")
    rows = [desk.move(), desk.move()]
    assert described(rows) == [("label", "5.18.0-1-skua"), ("label", "5.17.0-1-skua")]
    assert described([desk.move()]) == [("push button", "Close")]

    desk.go_to(leftovers)
    desk.press(key)
    reads(system, *SYSTEM_PAGE, LEFTOVERS, *SYSTEM_PAGE_BEHIND)
    assert described([desk.move()]) == [("push button", "Close")]


@pytest.mark.parametrize(("there", "back"), [("ctrl+Next", "ctrl+Prior"), ("Right", "Left")])
def test_keys_turn_the_page(system, desk, there, back):
    desk.press(there)
    desk.wait_for_focus(tab(system, "Modules"))
    until(lambda: system.says(STATUS) and not system.says("RUNNING KERNEL"), "the second page")
    desk.press(back)
    desk.wait_for_focus(tab(system, "System"))
    until(lambda: system.says("RUNNING KERNEL") and not system.says(STATUS), "the first page")


def test_keys_turn_the_page_from_anywhere_in_it(system, desk):
    hostname = system.find("label", "mudflat")
    desk.go_to(hostname)
    desk.press("ctrl+Next")
    until(lambda: desk.focus == entry(system), "the keys to go to the other page's first place")
    # The table takes that key for itself, and GTK has one more.
    desk.go_to(table(system))
    desk.press("ctrl+alt+Prior")
    desk.wait_for_focus(hostname)


@pytest.mark.parametrize("key", ["space", "Return"])
def test_system_window_closes_and_opens_again(machine, desk, key):
    start(machine, desk, MODULES)
    for _ in range(2):
        window = open_system(desk)
        desk.go_to(button(window, "Close"))
        desk.press(key)
        until(lambda: not desk.windows(), f"{key} to close the window")


def test_closing_says_nothing_on_the_terminal(machine, desk):
    applet = start(machine, desk, MODULES)
    desk.go_to(button(open_system(desk), "Close"))
    desk.press("space")
    until(lambda: not desk.windows(), "the window to close")
    applet.settle()
    assert applet.stderr == ""


# ---- Modules: what is read ----


def test_modules_page_reads_out_every_text(modules):
    reads(
        modules,
        *HEADER, "System", "Modules", "Reload", STATUS, *HEADINGS, *AUKLET, *DUNLIN, *PLOVER, PLACEHOLDER, "Close",
    )  # fmt: skip
    assert entry(modules).hint == "Filter by module name or user…"


def test_filter_and_table_have_names(modules):
    assert entry(modules).name == "Filter by module name or user"
    assert table(modules).labels == [STATUS]


def test_command_has_a_name(confined):
    assert entry(confined).name == "Command"


def test_values_are_called_by_their_keys(system, desk):
    for value, key in {
        "Fri Oct 18 07:11:39 UTC 2024": "Built",
        "root=LABEL=skua ro quiet": "Boot line",
        "mudflat": "Hostname",
    }.items():
        assert system.find("label", value).labels == [key]
    turn_to_modules(system, desk)
    select_dunlin(system, desk)
    assert system.find("label", "2.4-quay").labels == ["Version"]


def test_details_are_read_in_their_order(modules, desk):
    select_dunlin(modules, desk)
    assert details(modules) == DUNLIN_DETAILS


def test_error_panel_is_read_out(confined, desk):
    turn_to_modules(confined, desk)
    reads(
        confined,
        *HEADER, "System", "Modules", "Reload", "no access", "No modules loaded", NONE_LOADED,
        PERMISSION, COMMAND, "Copy", "Close",
    )  # fmt: skip
    (locked, command) = [node for node in confined.shown() if node.role == "text"]
    assert locked.text == "" and "sensitive" not in locked.states
    assert command.text == COMMAND and "sensitive" in command.states


# ---- Modules: the keyboard ----


def test_filter_takes_keys_and_tab_leads_on(modules, desk):
    desk.move()
    assert desk.focus == entry(modules)
    desk.press(*"DUN")
    until(lambda: modules.says("2 of 3 modules  ·  1 in use  ·  filter: DUN"), "the filter")
    # Also the module that one of this name uses.
    reads(
        modules,
        *HEADER, "System", "Modules", "DUN", "Reload", "2 of 3 modules  ·  1 in use  ·  filter: DUN",
        *HEADINGS, *DUNLIN, *PLOVER, PLACEHOLDER, "Close",
    )  # fmt: skip
    assert described([desk.move()]) == [("push button", "Reload")]
    desk.go_to(table(modules))
    desk.press("Down")
    until(lambda: selected(modules), "a selection")


def test_arrow_keys_select_modules_and_the_details_follow(modules, desk):
    desk.go_to(table(modules))
    desk.press("Home")
    until(lambda: selected(modules) == [*AUKLET, ""], lambda: f"the first row; {selected(modules)}")
    desk.press("Down")
    shows_details(modules, *DUNLIN_DETAILS)
    assert selected(modules) == [*DUNLIN, ""]
    until(lambda: desk.cell and desk.cell.text == "dunlin", "the reader to be told of the row")
    desk.press("Down")
    shows_details(
        modules,
        "plover",
        "Live",
        "1.2 MB",
        "used by 2",
        "GPL",
        "Counts plovers",
        "Used by",
        "auklet,dunlin",
        "Author",
        "Jo Gannet",
        "File",
        "/lib/modules/6.9/plover.ko",
    )
    assert selected(modules) == PLOVER
    until(lambda: desk.cell and desk.cell.text == "plover", "the reader to be told of the row")
    desk.press("Up")
    shows_details(modules, *DUNLIN_DETAILS)
    assert desk.focus == table(modules)


def test_every_detail_can_be_reached_to_be_copied(modules, desk):
    select_dunlin(modules, desk)
    texts = [stop.text for stop in desk.stops() if stop.role == "label"]
    assert texts == [
        "dunlin",
        "Counts dunlins",
        "2.4-quay",
        "Jo Gannet",
        "OE",
        "7C0FFEE5A11AD0F1E57A7E5",
        "/lib/modules/6.9/dunlin.ko",
        *PARAMETERS,
    ]


@pytest.mark.parametrize("size", ["few details", "many details"])
def test_modules_page_keys_follow_the_eye(modules, desk, size):
    select_dunlin(modules, desk)
    if size == "few details":
        desk.press("Home")
        shows_details(modules, *AUKLET_DETAILS)
    # The divider moves in its own time.
    upper, lower = the("split pane", modules).children
    until(lambda: (upper.box[3] > lower.box[3]) == (size == "few details"), "the halves of the page")
    desk.go_to(tab(modules, "Modules"))
    stops = desk.stops()
    assert [stop.role for stop in stops[:4]] == ["page tab", "text", "push button", "table"]
    assert stops == in_order_of_reading(stops)


def test_every_stop_of_the_modules_page_has_something_to_say(modules, desk):
    assert "scroll pane" not in [stop.role for stop in desk.stops()]


def test_keys_sort_the_table(modules, desk):
    desk.go_to(table(modules))
    heading = desk.move("shift+Tab")
    assert described([heading]) == [("table column header", "Module")]

    def names() -> list[str]:
        return [cell.text for cell in table(modules).children if cell.role == "table cell"][::4]

    for expected in (["auklet", "dunlin", "plover"], ["plover", "dunlin", "auklet"]):
        desk.press("space")
        until(lambda expected=expected: names() == expected, lambda: f"another order; {names()}")
    assert described([desk.move("Right")]) == [("table column header", "Size")]


def test_reload_by_space_keeps_the_keys_and_the_filter(modules, desk, machine):
    desk.move()
    desk.press(*"lin")
    until(lambda: modules.says("2 of 3 modules  ·  1 in use  ·  filter: lin"), "the filter")
    reload = button(modules, "Reload")
    desk.go_to(reload)
    load(machine, [MODULES[0], Module(b"merlin 4096 0 - Live 0x0000000000000000")])
    desk.press("space")
    reads(
        modules,
        *HEADER, "System", "Modules", "lin", "Reload", "1 of 2 modules  ·  0 in use  ·  filter: lin",
        *HEADINGS, "merlin", "4 KB", "0", PLACEHOLDER, "Close",
    )  # fmt: skip
    assert desk.focus == reload


def test_error_panel_goes_and_comes_by_keys(confined, desk, machine):
    turn_to_modules(confined, desk)
    stops = desk.stops()
    assert described(stops) == [
        ("page tab", "Modules"),
        ("push button", "Reload"),
        ("label", NONE_LOADED),
        ("text", COMMAND),
        ("push button", "Copy"),
        ("push button", "Close"),
    ]
    assert stops == in_order_of_reading(stops)
    desk.go_to(button(confined, "Reload"))
    load(machine, MODULES)
    desk.press("space")
    until(lambda: confined.says(STATUS) and not confined.says("no access"), "the list")
    load(machine, [])
    desk.press("space")
    until(lambda: confined.says("no access", NONE_LOADED) and not confined.says(STATUS), "the error")


def test_command_is_copied_by_space(confined, desk, machine):
    turn_to_modules(confined, desk)
    copy = button(confined, "Copy")
    desk.go_to(copy)
    desk.press("space")
    until(lambda: copy.text == "Copied", "the answer")
    assert desk.focus == copy
    until(lambda: copy.text == "Copy", "the button's own words")

    load(machine, MODULES)
    desk.go_to(button(confined, "Reload"))
    desk.press("space")
    until(lambda: confined.says(STATUS), "the list")
    desk.move("shift+Tab")
    desk.press("ctrl+v")
    until(lambda: desk.focus and desk.focus.text == COMMAND, "the command in the filter")


# ---- About ----

CONTACT = site("VELDRIN_CONTACT")
WEBSITE = site("VELDRIN_WEBSITE")
WEBSITE_LABEL = WEBSITE.partition("://")[2]
COMMENTS = "Monitors Linux kernel releases from Kernhaven"
COPYRIGHT = "Copyright © 2026\nThe Veldrin developers"

HANDLER = """[Desktop Entry]
Type=Application
Name=Recorder
Exec={script} %u
MimeType=x-scheme-handler/https;x-scheme-handler/mailto;
"""


@pytest.fixture
def opened(machine: Machine) -> Callable[[], str]:
    """Gives the address that the user's browser or mail program was last asked for."""
    record = machine.folder / "opened"
    script = machine.folder / "browser"
    script.write_text(f'#!/bin/sh\nprintf %s "$1" >"{record}"\n')
    script.chmod(0o755)
    applications = machine.home / ".local" / "share" / "applications"
    applications.mkdir(parents=True)
    (applications / "recorder.desktop").write_text(HANDLER.format(script=script))
    kinds = "".join(f"x-scheme-handler/{scheme}=recorder.desktop\n" for scheme in ("https", "mailto"))
    (machine.home / ".config" / "mimeapps.list").write_text(f"[Default Applications]\n{kinds}")
    return lambda: record.read_text() if record.exists() else ""


def test_about_reads_out_every_text(about):
    reads(about, "About Veldrin", "Veldrin", VERSION, COMMENTS, WEBSITE_LABEL, COPYRIGHT, CONTACT, "License", "Close")


def test_about_keys_reach_everything(about, desk):
    stops = desk.stops()
    first = stops.index(about.find("label", "Veldrin"))
    stops = stops[first:] + stops[:first]
    assert described(stops) == [
        ("label", "Veldrin"),
        ("label", VERSION),
        ("label", COMMENTS),
        ("label", WEBSITE_LABEL),
        ("label", COPYRIGHT),
        ("push button", CONTACT),
        ("toggle button", "License"),
        ("push button", "Close"),
    ]
    assert stops == in_order_of_reading(stops)


def test_about_links_open_by_keys(opened, about, desk):
    desk.press("space")
    until(lambda: opened() == f"mailto:{CONTACT}", "the mail program")
    desk.go_to(about.find("label", WEBSITE_LABEL))
    # All of it is selected now, and keys of a link need a place within it.
    desk.press("Home", "Return")
    until(lambda: opened() == WEBSITE, "the browser")
    assert desk.windows() == [about]


def test_about_license_shows_and_hides_by_keys(about, desk):
    license_button = expander(about, "License")
    comments = about.find("label", COMMENTS)
    desk.go_to(license_button)
    desk.press("space")
    text = until(lambda: entry(about), "the text")
    assert text.text.startswith("DISCLAIMER\n") and COMMENTS not in about.texts()
    # While the pages fade over, the keys still go to the first.
    until(lambda: "showing" not in comments.states, "the end of the first page")
    assert desk.focus == license_button
    assert text in desk.stops()
    desk.press("space")
    until(lambda: about.says(COMMENTS) and text.text not in about.texts(), "the first page")


@pytest.mark.parametrize("page", ["first", "license"])
def test_escape_closes_about(about, desk, page):
    if page == "license":
        desk.go_to(expander(about, "License"))
        desk.press("space")
        until(lambda: entry(about), "the text")
    desk.press("Escape")
    until(lambda: not desk.windows(), "the dialog to close")


@pytest.mark.parametrize("key", ["space", "Return"])
def test_about_closes_by_its_button(about, desk, key):
    desk.go_to(button(about, "Close"))
    desk.press(key)
    until(lambda: not desk.windows(), f"{key} to close the dialog")
