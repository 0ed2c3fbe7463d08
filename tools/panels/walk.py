"""The walk through one host: what a user sees and clicks in the first days with Veldrin, written down and photographed.

    python3 walk.py HOST PROGRAM QUICK_SLEEP FOLDER

Leaves HOST-NN-step.png for each step and record.json in the folder. Ends with 1 where the host does not stand."""

from __future__ import annotations

import contextlib
import json
import subprocess
import sys
import tempfile
import time
from dataclasses import asdict, dataclass, field
from pathlib import Path

from hosts import HOSTS, Box, Host
from PIL import Image
from program import FIRST, NEXT, Program
from session import SCREEN, Failure, Session, adopt_orphans, end_children
from sight import Icon, Line, changed, coloured, differing, find_icon, first_word, is_ruled, read, read_version

ENTRIES = ("Settings", "Latest Changes", "System & Modules", "Acknowledge Update", "About", "Quit")
SQUARES = {"red": (220, 60, 60), "green": (60, 180, 60), "white": (240, 240, 240)}
BUTTONS = {"left": 1, "right": 3}
# For a panel that has been told already, and draws at its leisure.
PATIENCE = 30.0
MENU_PATIENCE = 5.0
BESIDE = 24  # pixels in which a version begins, and nothing that moves
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
    colour: str  # what the icon should have
    size: tuple[int, int] | None  # of the icon, or None where it is not there
    differing: int
    label: str  # the text beside the icon, or nothing
    label_reads: str  # what it should be, where the host shows it
    box: Box | None


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
    quits: bool = False
    terminal: list[str] = field(default_factory=list)
    problem: str = ""
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
        self._beside: Image.Image | None = None

    # ---- What is seen ----

    def keep(self, picture: Image.Image, step: str) -> None:
        self._pictures += 1
        name = f"{self.host.name}-{self._pictures:02}-{step}.png"
        picture.save(self._album / name)
        print(f"{time.monotonic() - self._begin:6.1f} s  {name}", flush=True)

    def penguin(self, colour: str) -> Image.Image:
        """The icon's file, once the program has written it."""
        path = self.session.runtime / "VeldrinWatch-icons" / f"tux-{colour}"

        def written() -> Image.Image | None:
            with contextlib.suppress(OSError):
                return Image.open(path, formats=["PNG"]).convert("RGB")
            return None

        return self.session.wait(written, f"{path.name} is not written")

    def find(self, colour: str) -> Icon | None:
        return find_icon(self.session.screenshot(), self.host.panel, self.penguin(colour), self.host.icon)

    def sees(self, step: str, colour: str, version: str) -> None:
        """Looks for the icon in that colour, and for what stands beside it."""
        self.session.point_nowhere()
        self.session.hopes(lambda: self.find(colour), PATIENCE)
        # The version may follow the icon.
        picture = self.session.still()
        icon = find_icon(picture, self.host.panel, self.penguin(colour), self.host.icon)
        size, number, label = None, 0, ""
        if icon:
            size, number = icon.size, icon.differing
            label = self._label(picture, icon)
            self._icon = icon
        elif square := coloured(picture, self.host.panel, SQUARES[colour]):
            # Something of that colour is there, but not the penguin as it should be.
            size, number = (square[2] - square[0], square[3] - square[1]), -1
        self.record.sights.append(Sight(step, colour, size, number, label, version, icon.box if icon else None))
        self.keep(picture, step)

    def _label(self, picture: Image.Image, icon: Icon) -> str:
        """What can be read beside the icon, where it is not as it was before the program knew of any version."""
        left, top, right, bottom = icon.box
        beside = picture.crop((right + GAP, top, right + GAP + BESIDE, bottom))
        if self._beside is None:
            self._beside = beside
        if not differing(beside, self._beside):
            return ""
        return read_version(picture, first_word(picture, (right + GAP, top, SCREEN[0], bottom)))

    # ---- What is done ----

    def open_by(self, button: str) -> tuple[Click, list[Line]]:
        """Clicks on the icon and reads the menu that opens, if one does."""
        if not self._icon:
            return Click("nothing", [], []), []
        self.session.point_nowhere()
        before = self.session.still()
        left, top, right, bottom = self._icon.box
        # Some menus open where the pointer is, and are to stand clear of the panel.
        self.session.click((left + right) // 2, bottom - 2, BUTTONS[button])

        def opened() -> Box | None:
            return changed(before, self.session.screenshot(), self.host.panel)

        self.session.hopes(opened, MENU_PATIENCE)
        self.session.point_nowhere()
        picture = self.session.still()
        box = changed(before, picture, self.host.panel)
        if not box:
            return Click("nothing", [], []), []
        lines = read(picture, box)
        texts = [line.text for line in lines]
        kind = "menu" if all(entry in texts for entry in ENTRIES) else "its own menu"
        return Click(kind, texts, groups(picture, lines)), lines

    def close_menu(self) -> None:
        self.session.xdotool("key", "Escape")
        # Not every host gives its menu the keyboard.
        self.session.click(SCREEN[0] // 2, SCREEN[1] - 150)
        self.session.still()

    def tries(self, button: str) -> None:
        click, _ = self.open_by(button)
        self.record.clicks[button] = click
        self.keep(self.session.still(), f"{button}-click")
        self.close_menu()

    def chooses(self, entry: str) -> bool:
        """Opens the menu by the button that opens it here, and clicks on the entry where it is drawn."""
        button = next((name for name, click in self.record.clicks.items() if click.opens == "menu"), "left")
        _, lines = self.open_by(button)
        for line in lines:
            if line.text == entry:
                self.session.click(*line.middle)
                self.session.point_nowhere()
                return True
        self.close_menu()
        return False

    def opens(self, window: Window) -> None:
        before = self.session.still()
        shown: list[Line] = []

        def drawn() -> bool:
            nonlocal shown
            picture = self.session.still()
            box = changed(before, picture, self.host.panel)
            shown = read(picture, box, 2) if box else []
            return any(window.words in line.text for line in shown)

        self.record.windows[window.name] = self.chooses(window.entry) and self.session.hopes(drawn, PATIENCE)
        self.keep(self.session.still(), f"window-{window.name}")
        self._closes(window, shown)

    def _closes(self, window: Window, shown: list[Line]) -> None:
        for line in shown:
            if line.text.split()[-1:] == ["Close"]:
                self.session.click(line.box[2] - 15, line.middle[1])
        if window.name == "about":
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


def walk(host: Host, session: Session, program: Program, album: Path, record: Record) -> None:
    host.start(session)
    session.point_nowhere()
    session.still()
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

    host.panel_goes(session)
    record.gone = session.hopes(lambda: not steps.find("green"), PATIENCE)
    steps.keep(session.still(), "panel-gone")
    host.panel_comes(session)
    steps.sees("panel-back", "green", NEXT)

    record.quits = steps.chooses("Quit") and session.hopes(lambda: not program.running, PATIENCE)
    program.stop()
    session.hopes(lambda: not steps.find("green"), PATIENCE)
    steps.keep(session.still(), "quit")
    program.start()
    steps.sees("started-again", "green", NEXT)
    program.stop()
    record.terminal = program.said


def versions(host: Host) -> dict[str, str]:
    said = subprocess.run(["dpkg-query", "-W", "-f", "${Package} ${Version}\n", *host.version_of],
                          capture_output=True, text=True).stdout
    return dict(line.split() for line in said.splitlines())


def main() -> None:
    name, binary, quick_sleep, album = sys.argv[1:]
    (host,) = [host for host in HOSTS if host.name == name]
    record = Record(name, versions(host))
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
            end_children()
            log = Path(folder, "log.txt")
            if log.exists():
                Path(album, f"{name}-log.txt").write_bytes(log.read_bytes())
    record.seconds = round(time.monotonic() - begin, 1)
    Path(album, f"{name}.json").write_text(json.dumps(asdict(record), indent=2))
    sys.exit(bool(record.problem))


if __name__ == "__main__":
    main()
