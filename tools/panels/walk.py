# SPDX-License-Identifier: MIT
"""The walk through one host: what a user sees and clicks in the first days with Veldrin, written down and photographed.

    python3 walk.py HOST PROGRAM QUICK_SLEEP FOLDER

Leaves HOST-NN-step.png for each step and record.json in the folder. Ends with 1 where the host does not stand."""

from __future__ import annotations

import contextlib
import json
import signal
import subprocess
import sys
import tempfile
import time
from dataclasses import asdict, dataclass, field
from pathlib import Path
from typing import NoReturn

from hosts import HOSTS, Box, Host
from PIL import Image
from program import FIRST, NEXT, Program
from session import NOWHERE, SCREEN, Failure, Session, fail
from sight import Icon, Line, changed, coloured, differing, find_icon, first_word, is_ruled, read, read_version
from stage.processes import adopt_orphans, end_children

ENTRIES = ("Settings", "Latest Changes", "System & Modules", "Acknowledge Update", "About", "Quit")
SQUARES = {"red": (220, 60, 60), "green": (60, 180, 60), "white": (240, 240, 240)}
BUTTONS = {"left": 1, "right": 3}
# For a panel that has been told already, and draws at its leisure.
PATIENCE = 30.0
LABEL_PATIENCE = 5.0
MENU_PATIENCE = 5.0
END_PATIENCE = 3.0
RETURNS = 3
ASIDE = 2
BESIDE = 24  # pixels in which a version begins, and nothing that moves
STOPPING = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)
GAP = 2
RULE = 20


@dataclass(frozen=True)
class Window:
    entry: str
    name: str
    words: str  # what can be read in it, and nowhere else


WINDOWS = (
    Window("Settings", "settings", "Channel"),
    Window("Latest Changes", "changes", f"Linux {NEXT}"),
    Window("System & Modules", "system", "INSTALLED KERNELS"),
    Window("About", "about", "Monitors Linux kernel releases"),
)


@dataclass
class Sight:
    """What the panel shows in one step."""

    step: str
    colour: str  # of the icon's square, as it should be
    version: str  # what the program tells the panel
    picture: str
    size: tuple[int, int] | None = None  # of the icon, or of what else has its colour
    box: Box | None = None  # where the icon is, if it is
    differing: int = 0  # its pixels that are not those of its file
    label: str = ""  # what can be read beside it
    label_box: Box | None = None


@dataclass
class Click:
    opens: str  # "menu", "its own menu" or "nothing"
    entries: list[str]
    groups: list[int]  # how many entries stand between two separators


@dataclass
class Record:
    host: str
    versions: dict[str, str]
    sights: list[Sight] = field(default_factory=list)
    clicks: dict[str, Click] = field(default_factory=dict)
    windows: dict[str, bool] = field(default_factory=dict)
    gone: bool = False  # the icon, while the panel is
    returns: int = 0  # of the panel, until the icon was back
    quits: bool = False
    leaves: bool = False  # the icon, after that
    terminal: list[tuple[str, str]] = field(default_factory=list)  # each line after the step in which it came
    problem: str = ""  # why the walk did not come to its end
    seconds: float = 0.0


class Walk:
    def __init__(self, host: Host, session: Session, program: Program, album: Path, record: Record) -> None:
        self.host = host
        self.session = session
        self.program = program
        self.record = record
        self._album = album
        self._pictures = 0
        self._begin = time.monotonic()
        self._icon: Icon | None = None
        # A host may take icons before it has drawn its panel, where there is one colour until then.
        session.hopes(lambda: len(session.screenshot().crop(host.panel).getcolors(1 << 16) or "many") > 1, PATIENCE)
        self._empty = session.still()
        self.keep(self._empty, "without")

    # ---- What is seen ----

    def keep(self, picture: Image.Image, step: str) -> str:
        """Writes down the step. Returns the name of its picture."""
        self._pictures += 1
        name = f"{self.host.name}-{self._pictures:02}-{step}.png"
        picture.save(self._album / name)
        said = self.program.said
        self.record.terminal += [(step, line) for line in said[len(self.record.terminal) :]]
        print(f"{time.monotonic() - self._begin:6.1f} s  {name}", flush=True)
        return name

    def penguin(self, colour: str) -> Image.Image:
        """The icon's file, once the program has written it."""
        path = self.session.runtime / "VeldrinWatch-icons" / f"tux-{colour}"

        def written() -> Image.Image | None:
            with contextlib.suppress(OSError):
                return Image.open(path, formats=["PNG"]).convert("RGB")
            return None

        penguin = self.session.wait(written, f"{path.name} is not written")
        if penguin.getpixel((0, 0)) != SQUARES[colour]:
            fail(f"the square of {path.name} is {penguin.getpixel((0, 0))}")
        return penguin

    def find(self, colour: str) -> Icon | None:
        return find_icon(self.session.screenshot(), self.host.panel, self.penguin(colour), self.host.icon)

    def sees(self, step: str, colour: str, version: str) -> None:
        """Looks for the icon in that colour, and for what stands beside it."""
        self.session.point_nowhere()
        self.session.hopes(lambda: self.find(colour), PATIENCE)
        if version and self.host.label:
            self.session.hopes(lambda: self._shows_a_version(colour), LABEL_PATIENCE)
        picture = self.session.still()
        sight = Sight(step, colour, version, self.keep(picture, step))
        icon = find_icon(picture, self.host.panel, self.penguin(colour), self.host.icon)
        if icon:
            self._icon = icon
            sight.size, sight.box, sight.differing = icon.size, icon.box, icon.differing
            if label_box := self._beside(picture, icon):
                sight.label, sight.label_box = read_version(picture, label_box), label_box
        elif square := coloured(picture, self.host.panel, SQUARES[colour]):
            # Something of that colour is there, but not the penguin as it should be.
            sight.size = (square[2] - square[0], square[3] - square[1])
        self.record.sights.append(sight)

    def _shows_a_version(self, colour: str) -> bool:
        picture = self.session.screenshot()
        icon = find_icon(picture, self.host.panel, self.penguin(colour), self.host.icon)
        return bool(icon and self._beside(picture, icon))

    def _beside(self, picture: Image.Image, icon: Icon) -> Box | None:
        """What stands beside the icon, where it is not as without the program."""
        _, top, right, bottom = icon.box
        left = right + GAP
        beside = picture.crop((left, top, left + BESIDE, bottom))
        # What else stands there may make a little room for the icon.
        for aside in range(-ASIDE, ASIDE + 1):
            if not differing(beside, self._empty.crop((left + aside, top, left + aside + BESIDE, bottom))):
                return None
        return first_word(picture, (left, top, SCREEN[0], bottom))

    # ---- What is done ----

    def open_by(self, button: str) -> tuple[Click, list[Line], Image.Image]:
        """Clicks on the icon, if there is one, and reads the menu that opens, if one does."""
        self.session.point_nowhere()
        before = self.session.still()
        if not self._icon:
            return Click("nothing", [], []), [], before
        left, _, right, bottom = self._icon.box
        # Some menus open where the pointer is, and are to stand clear of the panel.
        self.session.click((left + right) // 2, bottom - 2, BUTTONS[button])

        def opened() -> Box | None:
            return changed(before, self.session.screenshot(), self.host.panel)

        self.session.hopes(opened, MENU_PATIENCE)
        self.session.point_nowhere()
        picture = self.session.still()
        box = changed(before, picture, self.host.panel)
        if not box:
            return Click("nothing", [], []), [], picture
        lines = read(picture, box)
        texts = [line.text for line in lines]
        kind = "menu" if all(entry in texts for entry in ENTRIES) else "its own menu"
        return Click(kind, texts, groups(picture, lines)), lines, picture

    def close_menu(self) -> None:
        self.session.xdotool("key", "Escape")
        # Not every host gives its menu the keyboard.
        self.session.click(*NOWHERE)
        self.session.still()

    def tries(self, button: str) -> None:
        click, _, picture = self.open_by(button)
        self.record.clicks[button] = click
        self.keep(picture, f"{button}-click")
        self.close_menu()

    def chooses(self, entry: str) -> bool:
        """Opens the menu by the button that opens it here, and clicks on the entry where it is drawn."""
        button = next((name for name, click in self.record.clicks.items() if click.opens == "menu"), "left")
        _, lines, _ = self.open_by(button)
        for line in lines:
            if line.text == entry:
                self.session.click(*line.middle)
                self.session.point_nowhere()
                return True
        self.close_menu()
        return False

    def opens(self, window: Window) -> None:
        before = picture = self.session.still()
        shown: list[Line] = []

        def drawn() -> bool:
            nonlocal picture, shown
            picture = self.session.still()
            box = changed(before, picture, self.host.panel)
            shown = read(picture, box, times=2) if box else []
            return any(window.words in line.text for line in shown)

        self.record.windows[window.name] = self.chooses(window.entry) and self.session.hopes(drawn, PATIENCE)
        self.keep(picture, f"window-{window.name}")
        self._closes(shown)

    def _closes(self, shown: list[Line]) -> None:
        for line in shown:
            if line.text.endswith("Close"):
                left, top, right, bottom = line.box
                self.session.click(right - (bottom - top), line.middle[1])
        # A dialog without a button goes so.
        self.session.xdotool("key", "Escape")
        self.session.point_nowhere()
        self.session.still()


def groups(picture: Image.Image, lines: list[Line]) -> list[int]:
    """How many entries stand between two separators."""
    result = [1] if lines else []
    for upper, lower in zip(lines, lines[1:]):
        # Where all menus have their lines: below the first letters.
        left = max(upper.box[0], lower.box[0]) + 4
        if is_ruled(picture, (left, upper.box[3] + 1, left + RULE, lower.box[1] - 1)):
            result.append(1)
        else:
            result[-1] += 1
    return result


def panel_goes_and_comes(steps: Walk) -> None:
    """Waybar now and then draws no icon that registers while it starts, although its own watcher lists it; it gets
    another chance, which is written down."""
    record, session = steps.record, steps.session
    for record.returns in range(1, RETURNS + 1):
        steps.host.panel_goes(session)
        record.gone = session.hopes(lambda: not steps.find("green"), PATIENCE)
        if record.returns == 1:
            steps.keep(session.still(), "panel-gone")
        steps.host.panel_comes(session)
        if session.hopes(lambda: steps.find("green"), PATIENCE):
            return


def walk(host: Host, session: Session, program: Program, album: Path, record: Record) -> None:
    host.start(session)
    session.point_nowhere()
    steps = Walk(host, session, program, album, record)

    program.publish(FIRST)
    program.start()
    steps.sees("red", "red", "")
    program.check()
    steps.sees("green", "green", FIRST)

    for button in BUTTONS:
        steps.tries(button)

    steps.chooses("Acknowledge Update")
    steps.sees("white", "white", FIRST)
    program.publish(NEXT)
    program.check()
    steps.sees("newer", "green", NEXT)

    for window in WINDOWS:
        steps.opens(window)

    panel_goes_and_comes(steps)
    steps.sees("panel-back", "green", NEXT)

    record.quits = steps.chooses("Quit") and session.hopes(lambda: not program.running, PATIENCE)
    program.stop()
    record.leaves = session.hopes(lambda: not steps.find("green"), PATIENCE)
    steps.keep(session.still(), "quit")
    program.start()
    steps.sees("started-again", "green", NEXT)
    program.stop()


def versions(host: Host) -> dict[str, str]:
    said = subprocess.run(
        ["dpkg-query", "-W", "-f", "${Package} ${Version}\n", *host.version_of], capture_output=True, text=True
    ).stdout
    return dict(line.split() for line in said.splitlines())


def stopped(number: int, _: object) -> NoReturn:
    raise SystemExit(128 + number)


def main() -> None:
    name, binary, quick_sleep, album = sys.argv[1:]
    (host,) = [host for host in HOSTS if host.name == name]
    record = Record(name, versions(host))
    for number in STOPPING:
        signal.signal(number, stopped)
    adopt_orphans()
    begin = time.monotonic()
    with tempfile.TemporaryDirectory(prefix="veldrin-panel-", ignore_cleanup_errors=True) as folder:
        try:
            session = Session(Path(folder))
            program = Program(session, Path(binary), Path(quick_sleep))
            walk(host, session, program, Path(album), record)
        except (Failure, OSError, subprocess.SubprocessError) as problem:
            record.problem = str(problem)
            try:
                session.screenshot().save(Path(album, f"{name}-failed.png"))
            except (NameError, OSError):
                pass
        finally:
            for number in STOPPING:
                signal.signal(number, signal.SIG_IGN)
            end_children(END_PATIENCE)
            log = Path(folder, "log.txt")
            if log.exists():
                Path(album, f"{name}-log.txt").write_bytes(log.read_bytes())
    record.seconds = round(time.monotonic() - begin, 1)
    Path(album, f"{name}.json").write_text(json.dumps(asdict(record), indent=2))
    sys.exit(bool(record.problem))


if __name__ == "__main__":
    main()
