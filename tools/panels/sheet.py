# SPDX-License-Identifier: MIT
"""The walks side by side: a table of what was seen, and the icons of all hosts on one sheet."""

from __future__ import annotations

import re
from collections import Counter
from collections.abc import Sequence
from pathlib import Path
from typing import Any

from hosts import Host
from PIL import Image, ImageDraw, ImageFont

COLUMNS = (
    "Host",
    "Version",
    "Icon",
    "Version beside it",
    "Left click",
    "Right click",
    "White, newer",
    "Panel gone and back",
    "Started again",
    "On the terminal",
)
STATES = {"red": "First start", "green": "First check", "white": "Acknowledged", "newer": "Newer release"}
FONT = "DejaVuSans.ttf"
FONT_BOLD = "DejaVuSans-Bold.ttf"
ZOOM = 2
AROUND = 8  # pixels of the panel beside icon and version
HEIGHT = 32  # of the panel, at most
GAP = 16
ORDINALS = {2: "second", 3: "third"}
NAMES = 240
CELL = 200
HEAD = 30

Record = dict[str, Any]


def sight_of(record: Record, step: str) -> Record:
    return next((sight for sight in record.get("sights", ()) if sight["step"] == step), {})


def is_there(sight: Record) -> bool:
    return bool(sight.get("box"))


def icon(record: Record) -> str:
    sights = [sight for sight in record["sights"] if is_there(sight)]
    sizes = {f"{sight['size'][0]}×{sight['size'][1]}" for sight in sights}
    number = max((sight["differing"] for sight in sights), default=0)
    missing = [sight["step"] for sight in record["sights"] if not is_there(sight)]
    pixels = "pixel differs" if number < 2 else "pixels differ"
    told = f"{', '.join(sorted(sizes)) or 'none'}, {number or 'no'} {pixels}"
    return told + (f"; not there: {', '.join(missing)}" if missing else "")


def label(record: Record) -> str:
    expected = [sight for sight in record["sights"] if sight["version"]]
    without = [sight["step"] for sight in expected if sight["label"] != sight["version"]]
    if len(without) == len(expected):
        return "no"
    return "yes" + (f", but not at: {', '.join(without)}" if without else "")


def yes(condition: object) -> str:
    return "yes" if condition else "no"


def terminal(record: Record) -> str:
    lines = Counter(
        (re.sub(r"^\(\w+:\d+\): ", "", re.sub(r" [\d:.]{8,}:", "", line)), step)
        for step, line in record["terminal"]
        if line.strip()
    )
    return "; ".join(f"{number} × `{line}` ({step})" for (line, step), number in lines.items()) or "nothing"


def row(host: Host, record: Record) -> list[str]:
    if not record.get("sights"):
        return [host.title, *[""] * (len(COLUMNS) - 2), f"not walked: {record['problem']}"]
    clicks = {button: click["opens"] for button, click in record["clicks"].items()}
    back = "back" if is_there(sight_of(record, "panel-back")) else "not back"
    if record["returns"] > 1:
        back += f" when the panel came for the {ORDINALS[record['returns']]} time"
    return [
        host.title,
        ", ".join(f"{package} {version}" for package, version in record["versions"].items()),
        icon(record),
        label(record),
        clicks.get("left", ""),
        clicks.get("right", ""),
        ", ".join(yes(is_there(sight_of(record, step))) for step in ("white", "newer")),
        f"{'gone' if record['gone'] else 'stays'}, {back}",
        yes(is_there(sight_of(record, "started-again"))),
        terminal(record),
    ]


def table(hosts: Sequence[Host], records: Sequence[Record]) -> str:
    rows = [COLUMNS, ["---"] * len(COLUMNS), *(row(host, record) for host, record in zip(hosts, records))]
    return "".join(f"| {' | '.join(cells)} |\n" for cells in rows)


def cut(host: Host, sight: Record, folder: Path) -> Image.Image:
    """The icon and what is read beside it, with a little of the panel around."""
    left, top, right, bottom = sight["box"]
    if sight["label_box"]:
        right = sight["label_box"][2]
    middle = (top + bottom) // 2
    with Image.open(folder / sight["picture"]) as picture:
        box = (
            max(left - AROUND, 0),
            max(middle - HEIGHT // 2, host.panel[1]),
            min(right + AROUND, picture.width),
            min(middle + HEIGHT // 2, host.panel[3]),
        )
        part = picture.crop(box)
    return part.resize((ZOOM * part.width, ZOOM * part.height), Image.Resampling.NEAREST)


def montage(hosts: Sequence[Host], records: Sequence[Record], folder: Path) -> Image.Image:
    """A row for each host that was walked, a column for each state."""
    walked = [(host, record) for host, record in zip(hosts, records) if record.get("sights")]
    step = ZOOM * HEIGHT + GAP
    sheet = Image.new("RGB", (NAMES + len(STATES) * CELL, HEAD + step * len(walked) + GAP), "white")
    draw = ImageDraw.Draw(sheet)
    bold, plain = (ImageFont.truetype(font, 17) for font in (FONT_BOLD, FONT))
    for column, heading in enumerate(STATES.values()):
        draw.text((NAMES + column * CELL, (HEAD + GAP) / 2), heading, "#222222", bold, "lm")
    for line, (host, record) in enumerate(walked):
        middle = HEAD + GAP + line * step + ZOOM * HEIGHT // 2
        name, _, kind = host.title.partition(", ")
        draw.text((GAP, middle - (11 if kind else 0)), name, "#222222", bold, "lm")
        draw.text((GAP, middle + 11), kind, "#222222", plain, "lm")
        for column, state in enumerate(STATES):
            if is_there(sight := sight_of(record, state)):
                part = cut(host, sight, folder)
                sheet.paste(part, (NAMES + column * CELL, middle - part.height // 2))
    return sheet
