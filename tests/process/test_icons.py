# SPDX-License-Identifier: MIT
"""The three icon files that each start writes."""

import pytest
from PIL import Image
from stage.tools import page
from stage.waiting import wait_until
from stage.world import bubblewrap

COLOURS = {"tux-red": (220, 60, 60), "tux-green": (60, 180, 60), "tux-white": (240, 240, 240)}
CORNERS = [(0, 0), (21, 0), (0, 21), (21, 21)]


def pixels(path) -> list[tuple[int, ...]]:
    with Image.open(path) as picture:
        return list(picture.getdata())


def test_exactly_three_files_without_extension(machine):
    machine.start()
    assert sorted(path.name for path in machine.icons.iterdir()) == sorted(COLOURS)


@pytest.mark.parametrize(("stem", "colour"), COLOURS.items())
def test_each_is_an_opaque_png_of_22_by_22_pixels_on_its_exact_colour(machine, stem, colour):
    machine.start()
    with Image.open(machine.icons / stem) as picture:
        assert (picture.format, picture.size, picture.mode) == ("PNG", (22, 22), "RGBA")
        for corner in CORNERS:
            assert picture.getpixel(corner) == (*colour, 255)
        assert picture.getextrema()[3] == (255, 255)


def test_all_three_show_the_same_penguin_on_their_colour(machine):
    machine.start()
    pictures = {stem: pixels(machine.icons / stem) for stem in COLOURS}
    places = list(zip(*pictures.values(), strict=True))
    background = tuple((*colour, 255) for colour in COLOURS.values())
    plain = [place for place in places if place == background]
    penguin = [place for place in places if len(set(place)) == 1]
    # The artwork leaves 138 of the 484 pixels free; some of its soft edge may be too faint to show.
    assert len(plain) >= 138
    # What is neither plain nor penguin is the soft edge between them.
    assert len(penguin) > 200
    assert len(plain) + len(penguin) < len(places)
    red, green, blue = (sorted(place[0][channel] for place in penguin) for channel in range(3))
    assert red[0] < 40 and green[0] < 40 and blue[0] < 40, "nothing black in it"
    assert min(red[-1], green[-1], blue[-1]) > 220, "nothing white in it"


def test_older_files_are_replaced(machine):
    machine.icons.mkdir()
    for stem in COLOURS:
        (machine.icons / stem).write_text("an icon of last year")
    machine.start()
    for stem, colour in COLOURS.items():
        assert pixels(machine.icons / stem)[0] == (*colour, 255)


def test_a_restart_writes_the_same_bytes(machine):
    assert machine.start().quit() == 0
    first = {stem: (machine.icons / stem).read_bytes() for stem in COLOURS}
    machine.start()
    assert {stem: (machine.icons / stem).read_bytes() for stem in COLOURS} == first


@pytest.mark.parametrize("stem", COLOURS)
def test_the_shown_icon_is_the_path_of_its_file(machine, stem):
    machine.saves(kernel={"tux-red": "", "tux-green": "7.2.3", "tux-white": "7.2.4"}[stem], stable="7.2.4")
    applet = machine.start()
    assert applet.item.icon_path == str(machine.icons / stem)
    assert (machine.icons / stem).is_file()


def test_without_a_runtime_directory_they_lie_in_the_users_cache(machine):
    applet = machine.start(environment={"XDG_RUNTIME_DIR": None})
    folder = machine.cache / "VeldrinWatch-icons"
    assert sorted(path.name for path in folder.iterdir()) == sorted(COLOURS)
    assert applet.item.icon_path == str(folder / "tux-red")
    assert applet.item.properties()["IconThemePath"] == str(folder)


def test_missing_parents_of_the_folder_are_made(machine):
    runtime = machine.folder / "run" / "user" / "1000"
    machine.start(environment={"XDG_RUNTIME_DIR": str(runtime)})
    assert sorted(path.name for path in (runtime / "VeldrinWatch-icons").iterdir()) == sorted(COLOURS)


def test_folder_asks_for_mode_0755(machine):
    umask = ["sh", "-c", 'umask 022; exec "$@"', "sh"]
    machine.start(around=umask)
    assert machine.icons.stat().st_mode & 0o7777 == 0o755


def in_the_way_of_the_folder(machine) -> list:
    machine.icons.write_text("not a folder")
    return []


def read_only(machine) -> list:
    return bubblewrap("--dev-bind", "/", "/", "--ro-bind", machine.runtime, machine.runtime)


def in_the_way_of_a_file(machine) -> list:
    (machine.icons / "tux-red").mkdir(parents=True)
    return []


@pytest.mark.parametrize("obstacle", [in_the_way_of_the_folder, read_only, in_the_way_of_a_file])
def test_without_icon_files_the_applet_runs_all_the_same(machine, obstacle):
    around = obstacle(machine)
    applet = machine.start(around=around)
    assert applet.item.icon_path == str(machine.icons / "tux-red")
    machine.tools.publish(page(stable="7.2.4"))
    applet.check()
    assert applet.item.icon_path == str(machine.icons / "tux-green")
    assert applet.item.label == "7.2.4"
    assert applet.quit() == 0


@pytest.mark.parametrize("by", ["a check", "the user"])
def test_description_comes_with_the_first_change_of_the_icon(machine, by):
    machine.tools.publish(page(stable="7.2.4"))
    applet = machine.start()
    assert applet.item.properties()["IconAccessibleDesc"] == ""
    if by == "a check":
        applet.check()
    else:
        applet.item.menu.click("Acknowledge Update")
        wait_until(lambda: applet.item.icon == "tux-white", "the white icon")
    assert applet.item.properties()["IconAccessibleDesc"] == "Veldrin Panel"
