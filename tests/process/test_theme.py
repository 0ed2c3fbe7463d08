# SPDX-License-Identifier: MIT
"""The user's theme, which GTK reads for the first thing that it shows, and not before: a session may never open a
window. Each theme here is a colour of its own, and whether GTK has read it is seen on the display."""

import signal

import pytest
from stage.applet import Machine
from stage.crash import GERMAN, dies
from stage.probe import ABOUT, ENTRIES, Probe
from stage.screen import screenshot
from stage.waiting import let_pass, wait_until
from stage.witness import LINKS, Witness, browser

COLOURS = {"Magenta": (255, 0, 255)}
AREA = 5000  # pixels


def write_theme(machine: Machine, name: str) -> None:
    folder = machine.home / ".themes" / name / "gtk-3.0"
    folder.mkdir(parents=True, exist_ok=True)
    red, green, blue = COLOURS[name]
    (folder / "gtk.css").write_text(f".background {{ background-color: rgb({red}, {green}, {blue}); }}")


def remove_theme(machine: Machine, name: str) -> None:
    (machine.home / ".themes" / name / "gtk-3.0" / "gtk.css").unlink()


def choose_in_settings(machine: Machine, name: str) -> dict[str, str | None]:
    folder = machine.home / ".config" / "gtk-3.0"
    folder.mkdir(parents=True)
    (folder / "settings.ini").write_text(f"[Settings]\ngtk-theme-name={name}\n")
    return {}


def choose_in_environment(_: Machine, name: str) -> dict[str, str | None]:
    return {"GTK_THEME": name}


def choose_nothing_in_environment(machine: Machine, name: str) -> dict[str, str | None]:
    """An empty variable is none."""
    return {**choose_in_settings(machine, name), "GTK_THEME": ""}


def shows(machine: Machine, name: str) -> bool:
    colours = screenshot(machine.environment["DISPLAY"]).getcolors(1 << 24)
    return any(count > AREA for count, colour in colours if colour == COLOURS[name])


def start(machine: Machine, environment: dict[str, str | None]):
    probe = Probe(machine.folder)
    environment = {**probe.options["environment"], **environment}
    return probe, machine.start(preload=probe.options["preload"], environment=environment)


@pytest.mark.parametrize("choose", [choose_in_settings, choose_in_environment, choose_nothing_in_environment])
@pytest.mark.parametrize("window", ENTRIES)
def test_each_window_can_be_the_first_and_has_the_theme(machine, choose, window):
    probe, applet = start(machine, choose(machine, "Magenta"))
    # Had GTK read it already, it would have found nothing.
    write_theme(machine, "Magenta")
    probe.open(applet, window)
    wait_until(lambda: shows(machine, "Magenta"), "the theme's colour")


def test_a_menu_that_opens_has_it_read_before_an_entry_is_picked(machine):
    write_theme(machine, "Magenta")
    probe, applet = start(machine, choose_in_environment(machine, "Magenta"))
    assert not applet.item.menu.opens()
    applet.settle()
    remove_theme(machine, "Magenta")
    probe.open(applet, ABOUT)
    wait_until(lambda: shows(machine, "Magenta"), "the theme's colour")


def test_the_theme_is_read_once(machine):
    write_theme(machine, "Magenta")
    probe, applet = start(machine, choose_in_environment(machine, "Magenta"))
    probe.open(applet, ABOUT)
    wait_until(lambda: shows(machine, "Magenta"), "the theme's colour")
    probe.close(ABOUT)
    remove_theme(machine, "Magenta")
    probe.open(applet, ABOUT)
    wait_until(lambda: shows(machine, "Magenta"), "the theme's colour")


def test_without_a_window_nothing_is_read_and_nothing_drawn(machine):
    write_theme(machine, "Magenta")
    probe, applet = start(machine, choose_in_environment(machine, "Magenta"))
    let_pass(0.5)
    remove_theme(machine, "Magenta")
    probe.open(applet, ABOUT)
    let_pass(0.5)
    assert not shows(machine, "Magenta")


def test_where_gtk_shows_the_menu_itself_it_has_the_theme_by_then(machine):
    write_theme(machine, "Magenta")
    machine.panel.leave()
    probe = Probe(machine.folder)
    environment = {**probe.options["environment"], **machine.without_leak_search, "GTK_THEME": "Magenta"}
    applet = machine.launch(preload=probe.options["preload"], environment=environment)
    # A tenth of a second after the start the indicator library gives the panel up.
    wait_until(lambda: applet.clock.delays_begun, "the check thread's start")
    let_pass(1)
    remove_theme(machine, "Magenta")
    machine.panel.come()
    probe.open(applet, ABOUT)
    wait_until(lambda: shows(machine, "Magenta"), "the theme's colour")


@pytest.mark.parametrize("window", LINKS)
@pytest.mark.parametrize("theme", [None, "Magenta"])
def test_what_a_link_starts_finds_the_users_own_choice(machine, window, theme):
    witness = browser(machine)
    probe, applet = start(machine, {"GTK_THEME": theme})
    probe.open(applet, window)
    assert probe.do(f"click {LINKS[window]}")
    assert witness.environment.get("GTK_THEME") == theme


@pytest.mark.usefixtures("no_core_dump")
@pytest.mark.parametrize("theme", [None, "Magenta"])
def test_dialog_after_a_crash_finds_the_users_own_choice(machine, theme, orphans):
    witness = Witness(machine.tools.folder / "zenity", "exit 1")
    applet = machine.start(environment={**GERMAN, "GTK_THEME": theme})
    dies(applet, signal.SIGSEGV)
    assert orphans.status(applet) == 0
    assert witness.environment.get("GTK_THEME") == theme


def test_the_theme_of_the_start_is_in_no_other_programs_environment(machine):
    witness = Witness(machine.tools.folder / "wget", "exit 4")
    machine.start_and_check(environment={"GTK_THEME": None})
    assert not witness.environment.get("GTK_THEME")
