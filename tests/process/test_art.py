# SPDX-License-Identifier: MIT
"""The compiled-in pictures: what the committed pixel headers hold, and that they are what art/ gives."""

import re
import shutil
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
HEADERS = ("src/tux_rgba.h", "src/logo_rgba.h")

Pixel = tuple[int, int, int, int]
Picture = list[list[Pixel]]


def constant(header: str, name: str) -> int:
    found = re.search(rf"^inline constexpr int {name} = (\d+);$", (ROOT / header).read_text(), re.MULTILINE)
    assert found, f"{header} has no {name}"
    return int(found[1])


def picture(header: str, name: str, width: int, height: int) -> Picture:
    found = re.search(
        rf"^inline constexpr unsigned char {name}\[(\d+)\] = \{{([^}}]*)\}};$",
        (ROOT / header).read_text(),
        re.MULTILINE,
    )
    assert found, f"{header} has no {name}"
    values = [int(value) for value in found[2].replace(",", " ").split()]
    assert int(found[1]) == len(values) == width * height * 4
    assert all(0 <= value <= 255 for value in values)
    pixels: list[Pixel] = [tuple(values[i : i + 4]) for i in range(0, len(values), 4)]
    return [pixels[y * width : (y + 1) * width] for y in range(height)]


@pytest.fixture(name="tray")
def tray_picture() -> Picture:
    return picture("src/tux_rgba.h", "tux_tray_rgba", 22, 22)


@pytest.fixture(name="info")
def info_picture() -> Picture:
    return picture("src/tux_rgba.h", "tux_info_rgba", 48, 56)


@pytest.fixture(name="logo")
def logo_picture() -> Picture:
    return picture("src/logo_rgba.h", "logo_rgba", 64, 64)


def flat(rows: Picture) -> list[Pixel]:
    return [pixel for row in rows for pixel in row]


def region(rows: Picture, x0: int, y0: int, x1: int, y1: int) -> list[Pixel]:
    return [pixel for row in rows[y0:y1] for pixel in row[x0:x1]]


def corners(rows: Picture) -> list[Pixel]:
    return [rows[y][x] for y in (0, -1) for x in (0, -1)]


def is_dark(p: Pixel) -> bool:
    return p[3] > 200 and max(p[:3]) < 80


def is_black(p: Pixel) -> bool:
    return p[3] > 200 and max(p[:3]) < 40


def is_white(p: Pixel) -> bool:
    return p[3] == 255 and min(p[:3]) > 235


def is_yellow(p: Pixel) -> bool:
    return p[3] > 200 and p[0] > 200 and 150 < p[1] < 225 and p[2] < 60


def is_orange(p: Pixel) -> bool:
    return p[3] > 200 and p[0] > 200 and 110 < p[1] < 200 and p[2] < 80


def count(pixels: list[Pixel], matches) -> int:
    return sum(1 for pixel in pixels if matches(pixel))


def test_size_constants_agree_with_the_arrays():
    assert constant("src/tux_rgba.h", "TUX_TRAY_SIZE") == 22
    assert constant("src/tux_rgba.h", "TUX_INFO_W") == 48
    assert constant("src/tux_rgba.h", "TUX_INFO_H") == 56
    assert constant("src/logo_rgba.h", "LOGO_SIZE") == 64


@pytest.mark.parametrize("header", HEADERS)
def test_header_compiles_included_twice(header: str, tmp_path: Path):
    source = tmp_path / "twice.cpp"
    source.write_text(f'#include "{ROOT / header}"\n' * 2)
    subprocess.run(
        ["c++", "-std=c++20", "-Wall", "-Wextra", "-Wpedantic", "-Werror", "-fsyntax-only", str(source)], check=True
    )


@pytest.mark.parametrize("name", ["tray", "info", "logo"])
def test_invisible_pixels_carry_no_colour_and_edges_are_soft(name: str, request: pytest.FixtureRequest):
    pixels = flat(request.getfixturevalue(name))
    assert all(p == (0, 0, 0, 0) for p in pixels if p[3] == 0)
    assert count(pixels, lambda p: 0 < p[3] < 255) >= 40


@pytest.mark.parametrize("name", ["tray", "info", "logo"])
def test_corners_are_fully_transparent(name: str, request: pytest.FixtureRequest):
    assert corners(request.getfixturevalue(name)) == [(0, 0, 0, 0)] * 4


def test_tray_has_138_fully_transparent_pixels(tray: Picture):
    assert count(flat(tray), lambda p: p[3] == 0) == 138


def test_tray_silhouette_touches_all_four_sides(tray: Picture):
    for side in (tray[0], tray[-1], [row[0] for row in tray], [row[-1] for row in tray]):
        assert any(p[3] > 0 for p in side)


def test_tray_outline_leans_on_no_barely_covered_pixel(tray: Picture):
    # Another release of the renderer may round a coverage of one or two steps down to nothing.
    assert min(p[3] for p in flat(tray) if p[3] > 0) >= 12


def test_tray_is_black_white_and_yellow(tray: Picture):
    assert count(flat(tray), is_black) >= 100
    assert count(flat(tray), is_white) >= 60
    assert count(flat(tray), is_yellow) >= 50


def test_tray_head_and_back_are_black(tray: Picture):
    assert count(region(tray, 7, 1, 15, 3), is_black) == 16
    assert all(is_black(tray[y][x]) for y in range(11, 16) for x in (4, 17))


def test_tray_belly_is_white_and_closed_round_by_black(tray: Picture):
    assert count(region(tray, 7, 12, 15, 17), is_white) >= 36
    for y in range(11, 19):
        whites = [x for x in range(22) if is_white(tray[y][x])]
        if whites:
            assert any(is_black(p) for p in tray[y][: whites[0]])
            assert any(is_black(p) for p in tray[y][whites[-1] :])


def test_tray_has_two_eyes_and_a_yellow_beak_below(tray: Picture):
    for x in (8, 12):
        assert count(region(tray, x, 5, x + 2, 7), is_black) == 4
        assert count(region(tray, x - 1, 3, x + 3, 7), is_white) >= 4
    assert count(region(tray, 7, 7, 15, 10), is_yellow) >= 8


def test_tray_feet_are_yellow_at_the_bottom_left_and_right(tray: Picture):
    left, right = region(tray, 1, 18, 9, 22), region(tray, 13, 18, 21, 22)
    assert count(left, is_yellow) >= 16
    assert count(right, is_yellow) >= 16
    assert any(is_yellow(p) for p in tray[-1][:6])
    assert any(is_yellow(p) for p in tray[-1][-6:])
    assert tray[-1][10][3] == tray[-1][11][3] == 0, "the feet stand apart"


def test_header_penguin_is_dark_with_a_white_belly_and_an_orange_beak_and_feet(info: Picture):
    assert count(region(info, 13, 2, 35, 10), is_dark) >= 80
    assert count(region(info, 16, 26, 32, 42), is_white) >= 200
    assert count(region(info, 16, 15, 32, 24), is_orange) >= 30
    assert count(region(info, 0, 40, 20, 56), is_orange) >= 80
    assert count(region(info, 28, 40, 48, 56), is_orange) >= 80


def test_logo_fills_its_tile(logo: Picture):
    assert all(p[3] == 255 for p in region(logo, 12, 4, 52, 60))
    # Dark and light both, so that it shows on either ground.
    assert count(flat(logo), is_dark) >= 300
    assert count(flat(logo), is_white) >= 200


@pytest.fixture(name="copy")
def copied_tree(tmp_path: Path) -> Path:
    for folder in ("art", "src", "tools"):
        (tmp_path / folder).mkdir()
    shutil.copy2(ROOT / "tools/render-art", tmp_path / "tools")
    for svg in (ROOT / "art").glob("*.svg"):
        shutil.copy2(svg, tmp_path / "art")
    for header in HEADERS:
        shutil.copy2(ROOT / header, tmp_path / "src")
    return tmp_path


def render_art(root: Path, *options: str) -> subprocess.CompletedProcess[str]:
    return subprocess.run(
        [str(root / "tools/render-art"), *options], capture_output=True, text=True, timeout=60, check=False
    )


def test_committed_headers_are_what_the_pictures_give():
    result = render_art(ROOT, "--check")
    assert (result.returncode, result.stdout, result.stderr) == (0, "", "")


@pytest.mark.parametrize("header", HEADERS)
def test_check_names_the_one_changed_header_and_leaves_it_alone(header: str, copy: Path):
    changed = (copy / header).read_text().replace(" 255,", " 250,", 1)
    assert changed != (ROOT / header).read_text()
    (copy / header).write_text(changed)
    result = render_art(copy, "--check")
    assert result.returncode == 1
    assert [name for name in HEADERS if name in result.stderr] == [header]
    assert (copy / header).read_text() == changed


def test_check_notices_a_missing_header(copy: Path):
    (copy / HEADERS[1]).unlink()
    result = render_art(copy, "--check")
    assert result.returncode == 1
    assert HEADERS[1] in result.stderr and HEADERS[0] not in result.stderr


def test_check_notices_a_changed_picture(copy: Path):
    svg = copy / "art/tray.svg"
    svg.write_text(svg.read_text().replace("#fbbc05", "#fbbc0f"))
    result = render_art(copy, "--check")
    assert result.returncode == 1
    assert HEADERS[0] in result.stderr and HEADERS[1] not in result.stderr


def test_check_passes_over_another_renderers_rounding(copy: Path):
    path = copy / HEADERS[0]
    path.write_text(path.read_text().replace(" 255,", " 254,", 3))
    assert render_art(copy, "--check").returncode == 0


def test_rendering_is_reproducible_and_gives_the_committed_pictures(copy: Path):
    results = []
    for _ in range(2):
        for header in HEADERS:
            (copy / header).write_text("// stale\n")
        assert render_art(copy).returncode == 0
        results.append([(copy / header).read_bytes() for header in HEADERS])
    assert results[0] == results[1]
    for header in HEADERS:
        shutil.copy(ROOT / header, copy / header)
    assert render_art(copy, "--check").returncode == 0


def test_a_picture_of_another_size_is_refused(copy: Path):
    svg = copy / "art/logo.svg"
    svg.write_text(svg.read_text().replace('width="64"', 'width="63"', 1))
    result = render_art(copy)
    assert result.returncode == 1
    assert "art/logo.svg" in result.stderr
