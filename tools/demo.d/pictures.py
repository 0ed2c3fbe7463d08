# SPDX-License-Identifier: MIT
"""Pictures of the screen, and what can be seen on them."""

from collections.abc import Callable

from PIL import Image, ImageChops
from subjects import BACKGROUND

Box = tuple[int, int, int, int]  # left, top, right, bottom
Where = Callable[[Image.Image], Box | None]  # finds a window on the screen

# The edge of a release's card. No list of commits is without one, no failure has one.
RELEASE_EDGE = (21, 128, 61)
HEADER_HEIGHT = 84
FRAME_HEIGHT = 70  # above the header, at most, with a shadow


def find(pattern: Image.Image, picture: Image.Image) -> list[tuple[int, int]]:
    """Where in the picture the pattern stands, exactly."""
    lines = [picture.crop((0, y, picture.width, y + 1)).tobytes() for y in range(picture.height)]
    wanted = [pattern.crop((0, y, pattern.width, y + 1)).tobytes() for y in range(pattern.height)]
    places = []
    for y in range(len(lines) - len(wanted) + 1):
        at = -1
        while (at := lines[y].find(wanted[0], at + 1)) >= 0:
            if at % 3 == 0 and all(lines[y + n].startswith(row, at) for n, row in enumerate(wanted)):
                places.append((at // 3, y))
    return places


def difference(picture: Image.Image) -> Box | None:
    """Where something differs from the background."""
    return ImageChops.difference(picture, Image.new("RGB", picture.size, BACKGROUND)).getbbox()


def is_plain(picture: Image.Image) -> bool:
    return len(set(picture.getdata())) == 1


def is_dark(picture: Image.Image) -> bool:
    """Whether most of it is."""
    _, colour = max(colours(picture))
    return sum(colour) < 3 * 128


def has_header(picture: Image.Image, accent: tuple[int, int, int]) -> bool:
    """Whether the window's upper part is filled with that colour, or with its darker end."""
    upper = colours(picture.crop((0, 0, picture.width, FRAME_HEIGHT + HEADER_HEIGHT)))
    near = sum(count for count, colour in upper if all(abs(part - wanted) < 10 for part, wanted in zip(colour, accent)))
    return near > 1000


def release_edge(picture: Image.Image) -> bool:
    """Whether a release's card shows below the header."""
    lower = colours(picture.crop((0, FRAME_HEIGHT + HEADER_HEIGHT, picture.width, picture.height)))
    return sum(count for count, colour in lower if colour == RELEASE_EDGE) > 20


def colours(picture: Image.Image) -> list[tuple[int, tuple[int, int, int]]]:
    """Each colour in the picture, and how often it is there."""
    return picture.getcolors(max(picture.width * picture.height, 1)) or []


def enlarged(picture: Image.Image, times: int) -> Image.Image:
    return picture.resize((picture.width * times, picture.height * times), Image.Resampling.NEAREST)
