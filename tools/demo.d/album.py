# SPDX-License-Identifier: MIT
"""The album: takes the pictures of a desktop, and remembers what each of them shows."""

from pathlib import Path

from desktop import Desktop
from failure import fail
from PIL import Image, ImageDraw, ImageFont
from pictures import Box, Where, enlarged, is_dark
from subjects import SCREEN, STATES, THEMES, Window

PANEL_WIDTH = 300  # of its end, in a picture
MARGIN = 16
OVERVIEW_CUT = (150, 33)
FONT = "DejaVuSans.ttf"
FONT_BOLD = "DejaVuSans-Bold.ttf"
NAME_WIDTH = 46


class Album:
    def __init__(self, folder: Path) -> None:
        self.folder = folder
        folder.mkdir()
        self.summaries: dict[str, str] = {}

    def panel(self, desktop: Desktop, name: str, summary: str) -> None:
        """The end of the panel that has the icon, as it is and enlarged."""
        name = f"panel-{desktop.theme}-{name}"
        box = (SCREEN[0] - PANEL_WIDTH, 0, SCREEN[0], desktop.panel_height)
        picture = self._take(desktop, lambda _: box, (0, 0, 0, MARGIN))
        self.keep(picture, f"{name}.png", summary)
        self.keep(enlarged(picture, 3), f"{name}-3x.png", "the same, three times as large")

    def menu(self, desktop: Desktop, box: Box) -> None:
        picture = self._take(desktop, lambda _: box, (2 * MARGIN, desktop.panel_height, SCREEN[0] - box[2], MARGIN))
        self.keep(picture, f"menu-{desktop.theme}.png", "the menu, opened by a click on the icon")

    def window(self, desktop: Desktop, window: Window, where: Where) -> None:
        picture = self._take(desktop, where, (MARGIN, MARGIN, MARGIN, MARGIN))
        self.keep(picture, f"window-{desktop.theme}-{window.name}.png", window.summary)

    def state(self, desktop: Desktop, where: Where, name: str, summary: str) -> None:
        picture = self._take(desktop, where, (MARGIN, MARGIN, MARGIN, MARGIN))
        self.keep(picture, f"{desktop.kind}-{desktop.theme}-{name}.png", f"{summary}{desktop.remark}")

    def _take(self, desktop: Desktop, where: Where, around: Box) -> Image.Image:
        """What is there, with so much around it."""
        screen = desktop.still()
        # Only now it has its last size.
        box = where(screen)
        if not box:
            fail("a window closes by itself")
        left, top, right, bottom = box
        if left < 0 or top < 0 or right > SCREEN[0] or bottom > SCREEN[1]:
            fail(f"what is at {box} does not fit on the screen")
        if is_dark(screen.crop(box)) != (desktop.theme == "dark"):
            fail(f"what is at {box} is not in the {desktop.theme} theme")
        return screen.crop(
            (
                max(left - around[0], 0),
                max(top - around[1], 0),
                min(right + around[2], SCREEN[0]),
                min(bottom + around[3], SCREEN[1]),
            )
        )

    def keep(self, picture: Image.Image, name: str, summary: str) -> None:
        picture.save(self.folder / name, optimize=True)
        self.summaries[name] = summary
        print(f"{name:<{NAME_WIDTH}}  {summary}", flush=True)

    def index(self) -> str:
        """A line for each picture."""
        return "".join(f"{name:<{NAME_WIDTH}}  {summary}\n" for name, summary in self.summaries.items())

    def overview(self) -> None:
        """All states side by side: a column for each state, a row for each theme, words below."""
        zoom, gap, text = 2, 24, 52
        size = (zoom * OVERVIEW_CUT[0], zoom * OVERVIEW_CUT[1])
        width = len(STATES) * (size[0] + gap) + gap
        height = len(THEMES) * (size[1] + gap) + gap + text
        sheet = Image.new("RGB", (width, height), "white")
        draw = ImageDraw.Draw(sheet)
        for column, (name, heading, words) in enumerate(STATES):
            x = gap + column * (size[0] + gap)
            for row, theme in enumerate(THEMES):
                panel = Image.open(self.folder / f"panel-{theme}-{name}.png")
                cut = panel.crop((panel.width - OVERVIEW_CUT[0], 0, panel.width, OVERVIEW_CUT[1]))
                sheet.paste(enlarged(cut, zoom), (x, gap + row * (size[1] + gap)))
            y = height - gap - text
            middle = x + size[0] / 2
            for line, (caption, font) in enumerate(((heading, FONT_BOLD), (words, FONT))):
                draw.text((middle, y + 26 * line + 18), caption, "#222222", ImageFont.truetype(font, 17), "mm")
        self.keep(sheet, "overview.png", "the states side by side, in both themes")
