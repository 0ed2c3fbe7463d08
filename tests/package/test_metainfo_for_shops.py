# SPDX-License-Identifier: MIT
"""What shops of programs, Flathub above all, ask of the metainfo beyond its form."""

import re
import xml.etree.ElementTree as xml
from pathlib import Path

import pytest
from PIL import Image

ROOT = Path(__file__).resolve().parents[2]
LANGUAGE = "{http://www.w3.org/XML/1998/namespace}lang"
# The pictures of one window each.
WINDOWS = ["changes.png", "system.png", "modules.png"]


@pytest.fixture(name="metainfo")
def metainfo_tree() -> xml.Element:
    return xml.parse(ROOT / "data/org.veldrin.Veldrin.metainfo.xml").getroot()


def test_the_developer_has_an_id_of_the_programs_domain(metainfo):
    assert metainfo.find("developer").get("id") == metainfo.findtext("id").rpartition(".")[0]


def test_the_name_and_the_summary_fit_a_shops_list(metainfo):
    assert len(metainfo.findtext("name")) <= 15
    summaries = [summary.text for summary in metainfo.findall("summary")]
    assert len(summaries) == 2
    for summary in summaries:
        assert 10 <= len(summary) <= 35
        assert not summary.endswith(".")
        assert "Veldrin" not in summary


def luminance(colour: str) -> float:
    """As the guidelines for accessible web contents reckon it."""
    parts = [int(colour[at : at + 2], 16) / 255 for at in (1, 3, 5)]
    red, green, blue = (part / 12.92 if part <= 0.03928 else ((part + 0.055) / 1.055) ** 2.4 for part in parts)
    return 0.2126 * red + 0.7152 * green + 0.0722 * blue


def contrast(one: str, other: str) -> float:
    dark, light = sorted((luminance(one), luminance(other)))
    return (light + 0.05) / (dark + 0.05)


def test_the_banner_has_a_colour_for_light_and_dark_on_which_its_text_can_be_read(metainfo):
    colours = {colour.get("scheme_preference"): colour.text for colour in metainfo.findall("branding/color")}
    assert list(colours) == ["light", "dark"]
    assert all(re.fullmatch("#[0-9a-f]{6}", colour) for colour in colours.values())
    assert {colour.get("type") for colour in metainfo.findall("branding/color")} == {"primary"}
    assert contrast(colours["light"], "#000000") > 7
    assert contrast(colours["dark"], "#ffffff") > 7
    # The launcher's tile, from its head to its foot.
    picture = (ROOT / "art/launcher.svg").read_text()
    gradient = re.search('<linearGradient id="sky"[^>]*>(.*?)</linearGradient>', picture, re.DOTALL)[1]
    stops = re.findall(r'stop-color="(#[0-9a-f]{6})"', gradient)
    assert len(stops) >= 2
    for colour in colours.values():
        assert all(distance(colour, stop) > 60 for stop in stops)


def distance(one: str, other: str) -> float:
    pairs = ((int(one[at : at + 2], 16), int(other[at : at + 2], 16)) for at in (1, 3, 5))
    return sum((a - b) ** 2 for a, b in pairs) ** 0.5


def test_the_first_screenshot_is_a_window(metainfo):
    screenshots = metainfo.findall("screenshots/screenshot")
    assert [shot.get("type") for shot in screenshots] == ["default"] + [None] * (len(screenshots) - 1)
    assert screenshots[0].findtext("image").rpartition("/")[2] in WINDOWS
    names = [shot.findtext("image").rpartition("/")[2] for shot in screenshots]
    assert len(set(names)) == len(names)
    assert set(WINDOWS) <= set(names)


def test_each_screenshot_is_wide_enough_and_says_what_it_shows(metainfo):
    for shot in metainfo.findall("screenshots/screenshot"):
        with Image.open(ROOT / "docs" / shot.findtext("image").rpartition("/")[2]) as picture:
            assert 620 <= picture.width <= 1600
        captions = {caption.get(LANGUAGE): caption.text for caption in shot.findall("caption")}
        assert set(captions) == {None, "de"}
        assert all(0 < len(caption) <= 100 and not caption.endswith(".") for caption in captions.values())


def test_the_description_begins_with_what_it_is_and_shouts_nothing(metainfo):
    assert 3 <= len(metainfo.findall("description/p")) // 2 <= 6
    assert not re.search(r"!|\bbest\b", "".join(metainfo.find("description").itertext()))


def test_it_says_which_ages_it_is_for_and_which_licence_it_has(metainfo):
    assert metainfo.find("content_rating").get("type") == "oars-1.1"
    assert (metainfo.findtext("metadata_license"), metainfo.findtext("project_license")) == ("MIT", "MIT")


def test_the_newest_release_says_what_is_new(metainfo):
    newest = metainfo.find("releases/release")
    assert re.fullmatch(r"\d{4}-\d\d-\d\d", newest.get("date"))
    assert newest.findall("description/ul/li")
