# SPDX-License-Identifier: MIT
"""docs/architecture.md and its picture against the source: who includes whom, in the table and in the arrows."""

import re
from collections.abc import Callable, Iterator
from pathlib import Path
from xml.etree import ElementTree

import pytest

ROOT = Path(__file__).resolve().parents[2]
SVG = "{http://www.w3.org/2000/svg}"
TIP = "url(#tip)"
# How far from its box's edge an arrow may begin or end, for the eye to see it touch.
REACH = 3
# What nobody needs an arrow for: constants, and small inline functions.
NOT_DRAWN = {"sites", "tux_rgba", "logo_rgba", "widgets"}

Pairs = set[tuple[str, str]]
Point = tuple[float, float]


def included() -> Pairs:
    """Who includes whom in the source; a module is its header and its source together."""
    return {
        (file.stem, other)
        for file in (ROOT / "src").glob("*.[ch]*")
        for other in re.findall(r'^#include "(\w+)\.h"', file.read_text(), re.MULTILINE)
        if other != file.stem
    }


def chapter() -> str:
    text = (ROOT / "docs/architecture.md").read_text()
    return text.split("## Who includes whom")[1].split("\n## ")[0]


def told(text: str) -> Pairs:
    """Who includes whom by the table."""
    pairs = set()
    for line in text.splitlines():
        if line.startswith("| `"):
            module, *others = re.findall(r"`(\w+)`", line)
            pairs |= {(module, other) for other in others}
    return pairs


def layers(text: str) -> list[list[str]]:
    line = text.split("From the ground up:")[1].split(".")[0]
    return [re.findall(r"`(\w+)`", layer) for layer in line.split("·")]


def test_the_table_tells_what_the_source_includes():
    assert told(chapter()) == included()


def test_every_module_has_its_layer():
    named = [module for layer in layers(chapter()) for module in layer]
    assert sorted(named) == sorted({file.stem for file in (ROOT / "src").glob("*.[ch]*")})


def test_an_include_points_down():
    level = {module: number for number, layer in enumerate(layers(chapter())) for module in layer}
    assert [(who, whom) for who, whom in sorted(included()) if level[who] <= level[whom]] == []


# ---- The picture ----


def numbers(text: str) -> list[float]:
    return [float(number) for number in re.findall(r"-?\d+(?:\.\d+)?", text)]


def ends(path: str) -> tuple[Point, Point]:
    """Where a path begins and ends. It may be drawn with M, L, H, V and C alone."""
    x = y = 0.0
    start = None
    for command, rest in re.findall(r"([A-Za-z])([^A-Za-z]*)", path):
        assert command in "MLHVC", f"{command} in {path}"
        values = numbers(rest)
        if start is None:
            start = (values[0], values[1])
        if command == "H":
            x = values[-1]
        elif command == "V":
            y = values[-1]
        else:
            x, y = values[-2:]
    assert start
    return start, (x, y)


def touches(box: ElementTree.Element, point: Point) -> bool:
    left, top, width, height = (float(box.attrib[name]) for name in ("x", "y", "width", "height"))
    # How far the point lies outside; negative within.
    outside = max(left - point[0], point[0] - left - width, top - point[1], point[1] - top - height)
    return abs(outside) <= REACH


def arrows(picture: ElementTree.Element) -> Iterator[ElementTree.Element]:
    """The arrows between modules, not those to what lies outside the program."""
    for group in picture.iter(f"{SVG}g"):
        if group.get("marker-end") == TIP and group.get("id") != "outside":
            yield from group.iter(f"{SVG}path")
    yield from (path for path in picture.iter(f"{SVG}path") if path.get("marker-end") == TIP)


def picture_faults(picture: ElementTree.Element) -> list[str]:
    """What is wrong with the picture, one line for each fault."""
    faults = []
    boxes = {box.attrib["id"]: box for box in picture.iter(f"{SVG}rect") if "id" in box.attrib}
    drawn = []
    for arrow in arrows(picture):
        name = arrow.get("id", "")
        who, _, whom = name.partition("-")
        if whom not in boxes or who not in boxes:
            faults.append(f"an arrow that joins no modules: {name or arrow.get('d')}")
            continue
        drawn.append((who, whom))
        start, end = ends(arrow.attrib["d"])
        # A thread's box stands for the module that starts it.
        if not touches(boxes[arrow.get("data-from", who)], start):
            faults.append(f"{name} does not begin at its box")
        if not touches(boxes[whom], end):
            faults.append(f"{name} does not end at its box")
    wanted = {(who, whom) for who, whom in included() if whom not in NOT_DRAWN}
    faults += [f"{who}-{whom} is drawn twice" for who, whom in sorted(set(drawn)) if drawn.count((who, whom)) > 1]
    faults += [f"{who}-{whom} is not drawn" for who, whom in sorted(wanted - set(drawn))]
    faults += [f"{who}-{whom} is drawn, but not included" for who, whom in sorted(set(drawn) - wanted)]
    return faults


@pytest.fixture
def picture() -> ElementTree.Element:
    return ElementTree.parse(ROOT / "docs/architecture.svg").getroot()


def test_the_picture_shows_what_the_source_includes(picture: ElementTree.Element):
    assert picture_faults(picture) == []


def the(picture: ElementTree.Element, name: str) -> ElementTree.Element:
    (found,) = (element for element in picture.iter() if element.get("id") == name)
    return found


def drop(picture: ElementTree.Element) -> None:
    for group in picture.iter():
        for arrow in list(group):
            if arrow.get("id") == "main-app":
                group.remove(arrow)


def add(name: str, path: str) -> Callable[[ElementTree.Element], None]:
    def change(picture: ElementTree.Element) -> None:
        attributes = {"id": name, "d": path, "marker-end": TIP}
        ElementTree.SubElement(picture, f"{SVG}path", {key: value for key, value in attributes.items() if value})

    return change


def lead(name: str, path: str) -> Callable[[ElementTree.Element], None]:
    return lambda picture: the(picture, name).set("d", path)


@pytest.mark.parametrize(
    ("change", "fault"),
    [
        (drop, "main-app is not drawn"),
        (add("main-theme", "M223 116 300 326"), "main-theme is drawn, but not included"),
        (add("main-app", "M260 98H288"), "main-app is drawn twice"),
        (add("", "M260 98H288"), "an arrow that joins no modules: M260 98H288"),
        (add("main-moon", "M260 98H288"), "an arrow that joins no modules: main-moon"),
        (lead("main-app", "M260 98H260"), "main-app does not end at its box"),
        (lead("main-app", "M240 140 288 98"), "main-app does not begin at its box"),
        (lead("app-state", "M294 116C170 136 30 124 30 196V398L326 422"), "app-state does not end at its box"),
        (lead("app-kernel_checker", "M760 310V338"), "app-kernel_checker does not begin at its box"),
        (lambda picture: the(picture, "theme").set("y", "340"), "app-theme does not end at its box"),
    ],
)
def test_a_wrong_picture_is_told(
    picture: ElementTree.Element, change: Callable[[ElementTree.Element], None], fault: str
):
    change(picture)
    assert fault in picture_faults(picture)


def test_no_arrow_of_another_kind_is_overlooked(picture: ElementTree.Element):
    """Each arrow is one of a group's, of the outside's, or carries its own tip: there is no path besides."""
    known = [*arrows(picture)]
    for group in picture.iter(f"{SVG}g"):
        if group.get("id") == "outside" or group.get("marker-end") == "url(#hand)":
            known += group.iter(f"{SVG}path")
    for marker in picture.iter(f"{SVG}marker"):
        known += marker.iter(f"{SVG}path")
    assert len(known) == len(list(picture.iter(f"{SVG}path")))
