# SPDX-License-Identifier: MIT
"""A Wayland compositor for tests, and what the program has told it."""

import re
from collections.abc import Callable
from dataclasses import dataclass, field
from pathlib import Path

from stage.desktop import Display
from stage.processes import Program
from stage.waiting import wait_until

# In a window on the X display: without any it has no seat, and GTK is lost without one.
SIZE = [f"--width={Display.WIDTH}", f"--height={Display.HEIGHT}"]
WESTON = ["weston", "--backend=x11-backend.so", "--use-pixman", *SIZE]
CONFIGURATION = """[core]
idle-time=0
[shell]
panel-position=none
locking=false
animation=none
startup-animation=none
close-animation=none
"""

# The pointer rests where the compositor puts windows, and GDK says this when one goes below its tooltip.
TOOLTIP = r"(\n?\(veldrin:\d+\): Gdk-WARNING \*\*: [\d:.]+: Tried to unmap the parent of a popup\n)*"


class Compositor:
    """A Wayland compositor. `socket` is where programs find it."""

    def __init__(self, folder: Path, display: Display, scale: int) -> None:
        folder.chmod(0o700)
        configuration = folder / "weston.ini"
        configuration.write_text(CONFIGURATION)
        self.socket = folder / "display"
        environment = {"XDG_RUNTIME_DIR": str(folder), "HOME": str(folder), "DISPLAY": display.name}
        options = [f"--config={configuration}", f"--socket={self.socket.name}", f"--scale={scale}"]
        self._program = Program([*WESTON, *options], environment, folder, "weston")
        wait_until(lambda: self.socket.exists() or not self._program.running, "the compositor")
        assert self._program.running, self._program.stdout + self._program.stderr

    @property
    def environment(self) -> dict[str, str | None]:
        """What a program needs to come here."""
        return {"GDK_BACKEND": "wayland", "DISPLAY": None, "WAYLAND_DISPLAY": str(self.socket)}

    def close(self) -> None:
        self._program.kill()


def surroundings(compositors: Callable[[int], Compositor], backend: str, scale: int = 1) -> dict[str, str | None]:
    """What leads a program to a display of this kind, which is "x11" or "wayland"."""
    if backend == "x11":
        return {"GDK_BACKEND": "x11", "GDK_SCALE": str(scale)}
    return compositors(scale).environment


@dataclass
class Toplevel:
    """A window as the compositor has been told of it."""

    title: str = ""
    ids_before_contents: list[str] = field(default_factory=list)
    ids_afterwards: list[str] = field(default_factory=list)
    has_contents: bool = False


def toplevels(log: str) -> list[Toplevel]:
    """Every window so far, by what a program writes with WAYLAND_DEBUG=client. Numbers of objects are used again."""
    shells: dict[str, str] = {}  # of a surface, by its shell's number
    windows: dict[str, Toplevel] = {}  # by the number of the surface
    names: dict[str, Toplevel] = {}  # by the number of the window
    found: list[Toplevel] = []
    for kind, number, request, arguments in re.findall(r"-> (\w+)[@#](\d+)\.(\w+)\((.*)\)$", log, re.MULTILINE):
        numbers = re.findall(r"[@#](\d+)", arguments)
        if request == "get_xdg_surface":
            shells[numbers[0]] = numbers[1]
        elif request == "get_toplevel":
            found.append(Toplevel())
            windows[shells[number]] = names[numbers[0]] = found[-1]
        elif request == "attach" and numbers and number in windows:
            windows[number].has_contents = True
        elif kind == "xdg_toplevel" and request == "set_title":
            names[number].title = arguments.strip('"')
        elif kind == "xdg_toplevel" and request == "set_app_id":
            window = names[number]
            (window.ids_afterwards if window.has_contents else window.ids_before_contents).append(arguments.strip('"'))
    return found
