# SPDX-License-Identifier: MIT
"""What a picture of the screen shows: the icon pixel by pixel, and text as who sits before the screen would read it."""

from __future__ import annotations

import io
import re
import subprocess
from collections.abc import Iterable
from dataclasses import dataclass

from PIL import Image, ImageChops, ImageOps

Box = tuple[int, int, int, int]  # left, top, right, bottom
Colour = tuple[int, ...]

FILTERS = (Image.Resampling.NEAREST, Image.Resampling.BILINEAR, Image.Resampling.BICUBIC, Image.Resampling.LANCZOS)
# A pixel differs from another where one of its colours is farther away than this: scaling rounds, and text does not.
NEAR = 24
NEAR_IN_SCALING = 60
# The line between entries is a faint one in some themes.
FAINT = 4
# Of an icon's pixels, at most: beyond this it is another picture.
SHARE_OF_ANOTHER = 0.2
# Letters must be some thirty pixels high to be read well.
SIZES_TO_READ = (3, 4, 5, 6, 8)
MARGIN = 4
# Pixels of a pointer where it is and where it was.
POINTERS = 2 * 24 * 24
GAP = 2
WORD_GAP = 9
VERSION = re.compile(r"\d+\.\d+(\.\d+|-rc\d+)?")
CONFIDENCE = 20


@dataclass(frozen=True)
class Icon:
    box: Box
    differing: int  # pixels of it that are not those of its file, scaled as the host does

    @property
    def size(self) -> tuple[int, int]:
        return (self.box[2] - self.box[0], self.box[3] - self.box[1])


@dataclass(frozen=True)
class Line:
    text: str
    box: Box

    @property
    def middle(self) -> tuple[int, int]:
        left, top, right, bottom = self.box
        return ((left + right) // 2, (top + bottom) // 2)


def near(one: Colour, other: Colour, distance: int = NEAR) -> bool:
    return all(abs(a - b) <= distance for a, b in zip(one, other))


def differing(one: Image.Image, other: Image.Image) -> int:
    """How many pixels are not the same."""
    return sum(max(pixel) > NEAR for pixel in ImageChops.difference(one, other).getdata())


def drawings(penguin: Image.Image, size: tuple[int, int]) -> list[Image.Image]:
    """The icon as a host of that icon size may draw it: scaled by one filter or another, or with rows cut off."""
    if size == penguin.size:
        return [penguin]
    if size[0] == penguin.width:
        cut = (penguin.height - size[1]) // 2
        return [penguin.crop((0, cut, penguin.width, cut + size[1]))]
    return [penguin.resize(size, method) for method in FILTERS]


def find_icon(picture: Image.Image, area: Box, penguin: Image.Image, size: tuple[int, int]) -> Icon | None:
    """Where in that area the icon is drawn at that size, if it is."""
    scene = picture.crop(area)
    pixels = scene.load()
    right, bottom = size[0] - 1, size[1] - 1
    places = ((0, 0), (right, 0), (0, bottom), (right, bottom), (size[0] // 2, size[1] // 2))
    best: Icon | None = None
    for drawing in drawings(penguin, size):
        wanted = [(x, y, drawing.getpixel((x, y))) for x, y in places]
        for y in range(scene.height - size[1] + 1):
            for x in range(scene.width - size[0] + 1):
                if not all(near(pixels[x + dx, y + dy], colour, NEAR_IN_SCALING) for dx, dy, colour in wanted):
                    continue
                number = differing(scene.crop((x, y, x + size[0], y + size[1])), drawing)
                if best is None or number < best.differing:
                    left, top = area[0] + x, area[1] + y
                    best = Icon((left, top, left + size[0], top + size[1]), number)
    if best and best.differing > SHARE_OF_ANOTHER * size[0] * size[1]:
        return None
    return best


def coloured(picture: Image.Image, area: Box, colour: Colour) -> Box | None:
    """What surrounds all pixels of about that colour in the area."""
    scene = picture.crop(area)
    alike = Image.new("1", scene.size)
    alike.putdata([near(pixel, colour) for pixel in scene.getdata()])
    box = alike.getbbox()
    return box and (box[0] + area[0], box[1] + area[1], box[2] + area[0], box[3] + area[1])


def first_word(picture: Image.Image, box: Box) -> Box:
    """The part of a line up to the first wide gap, on a background that may fade from top to bottom."""
    scene = picture.crop(box)
    edge = [scene.getpixel((0, y)) for y in range(scene.height)]
    drawn = [
        x for x in range(scene.width) if any(not near(scene.getpixel((x, y)), edge[y]) for y in range(scene.height))
    ]
    end = next((x for x, following in zip(drawn, drawn[1:]) if following - x > WORD_GAP), drawn[-1] if drawn else 0)
    return (box[0], box[1], box[0] + end + GAP, box[3])


def changed(before: Image.Image, after: Image.Image, without: Box) -> Box | None:
    """What surrounds all that is not as before, outside of one area, where it is more than a pointer that has moved."""
    difference = ImageChops.difference(before, after).convert("L").point(lambda value: 255 * (value > NEAR))
    difference.paste(0, without)
    return difference.getbbox() if difference.histogram()[255] > POINTERS else None


def prepared(picture: Image.Image, times: int) -> bytes:
    """A part of the picture as a reader of printed pages likes it: large, dark on white, with a margin."""
    scene = ImageOps.grayscale(picture)
    if sum(scene.histogram()[:128]) > scene.width * scene.height / 2:
        scene = ImageOps.invert(scene)
    scene = scene.resize((times * scene.width, times * scene.height), Image.Resampling.LANCZOS)
    scene = ImageOps.expand(ImageOps.autocontrast(scene), times * MARGIN, fill=255)
    page = io.BytesIO()
    scene.save(page, "png")
    return page.getvalue()


def recognise(page: bytes, *options: str) -> str:
    command = ["tesseract", "stdin", "stdout", "--dpi", "300", *options]
    environment = {"PATH": "/usr/bin", "OMP_THREAD_LIMIT": "1"}
    return subprocess.run(command, input=page, capture_output=True, check=True, env=environment).stdout.decode()


def read(picture: Image.Image, box: Box, times: int = 4) -> list[Line]:
    """The lines of text in that part of the picture, from top to bottom, read when enlarged so many times."""
    page = prepared(picture.crop(box), times)
    return list(lines_of(recognise(page, "--psm", "6", "tsv"), box, times))


def read_version(picture: Image.Image, box: Box) -> str:
    """The version that stands there, as soon as the reader knows one at some size: so few letters are hard to read."""
    texts = []
    for times in SIZES_TO_READ:
        text = recognise(prepared(picture.crop(box), times), "--psm", "7").strip()
        if VERSION.fullmatch(text):
            return text
        texts.append(text)
    return f"? {texts}"


def is_ruled(picture: Image.Image, box: Box) -> bool:
    """Whether a line goes through that part of the picture, from its left to its right, and else nothing is there."""
    scene = picture.crop(box)
    rows = [[scene.getpixel((x, y)) for x in range(scene.width)] for y in range(scene.height)]
    lines = [row[0] for row in rows if all(near(pixel, row[0], FAINT) for pixel in row)]
    return len(lines) > 1 and any(not near(one, other, FAINT) for one, other in zip(lines, lines[1:]))


def lines_of(table: str, box: Box, times: int) -> Iterable[Line]:
    """The lines in the reader's table of words."""
    lines: dict[tuple[str, ...], list[tuple[str, Box]]] = {}
    for record in table.splitlines()[1:]:
        fields = record.split("\t")
        # A border reads like a stroke.
        if fields[0] != "5" or float(fields[10]) < CONFIDENCE or not re.search(r"[\w&]", fields[11]):
            continue
        left, top, width, height = (int(number) for number in fields[6:10])
        place = tuple(
            offset + number // times - MARGIN
            for offset, number in zip((box[0], box[1]) * 2, (left, top, left + width, top + height))
        )
        lines.setdefault(tuple(fields[2:5]), []).append((fields[11], place))
    for words in lines.values():
        boxes = [place for _, place in words]
        yield Line(
            " ".join(word for word, _ in words),
            (min(b[0] for b in boxes), min(b[1] for b in boxes), max(b[2] for b in boxes), max(b[3] for b in boxes)),
        )
