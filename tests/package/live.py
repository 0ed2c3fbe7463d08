#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Uses the installed package as an ordinary user does: the session's start brings the icon into a panel, the launcher
and its actions open their windows in that one applet, and start one where none runs.

    live.py FOLDER      a folder of the user's, for what this needs
"""

import os
import signal
import subprocess
import sys
from collections.abc import Iterator
from contextlib import ExitStack, closing, contextmanager
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.append(str(Path(__file__).resolve().parents[1]))

import gi  # noqa: E402

gi.require_version("GdkPixbuf", "2.0")
from gi.repository import GdkPixbuf, GLib  # noqa: E402

from stage.desktop import Display, SessionBus  # noqa: E402
from stage.panel import Panel  # noqa: E402
from stage.processes import Program  # noqa: E402
from stage.tools import Tools, page  # noqa: E402
from stage.user import User  # noqa: E402
from stage.waiting import wait_until  # noqa: E402

ENTRY = Path("/usr/share/applications/org.veldrin.Veldrin.desktop")
AUTOSTART = Path("/etc/xdg/autostart/org.veldrin.Veldrin.desktop")
PROGRAM = "/usr/bin/veldrin"
SYSTEM_PATH = "/usr/local/bin:/usr/bin:/bin"

# By what is picked at the launcher. About comes last: its dialog holds the end of the others up.
WINDOWS = {
    "Desktop Entry": "Settings",
    "Desktop Action changes": "Latest Kernel Changes",
    "Desktop Action system": "System & Kernel Modules",
    "Desktop Action about": "About Veldrin",
}


def command(file: Path, group: str) -> list[str]:
    """The words of an Exec line, as a launcher reads it."""
    entry = GLib.KeyFile()
    entry.load_from_file(str(file), GLib.KeyFileFlags.NONE)
    _, words = GLib.shell_parse_argv(entry.get_string(group, "Exec"))
    return [word.replace("%%", "%") for word in words]


class Session(User):
    def __init__(self, folder: Path, stack: ExitStack, program: str = PROGRAM) -> None:
        self.program = program
        # The search path is a user's, but for the tools that would ask the net.
        tools = Tools(folder / "tools")
        tools.publish(page(stable="7.2.4"))
        super().__init__(folder, f"{tools.folder}:{SYSTEM_PATH}")
        display = stack.enter_context(closing(Display(folder)))
        bus = stack.enter_context(closing(SessionBus(folder)))
        self.panel = stack.enter_context(closing(Panel(bus.address)))
        self.joins(bus, display)
        # No session sets these by itself.
        for name in ("XDG_CACHE_HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME"):
            del self.environment[name]

    def pick(self, group: str) -> None:
        """Does as the launcher does when this is picked; it must have no words for that."""
        words = command(ENTRY, group)
        result = subprocess.run(words, env=self.environment, capture_output=True, text=True, timeout=20, check=False)
        assert (result.returncode, result.stdout, result.stderr) == (0, "", ""), result

    def windows(self, title: str = ".*") -> list[str]:
        """The processes of the visible windows with this title."""
        search = ["xdotool", "search", "--onlyvisible", "--name", f"^{title}$"]
        found = subprocess.run(search, env=self.environment, capture_output=True, text=True, check=False).stdout.split()
        owner = ["xdotool", "getwindowpid"]
        return [
            subprocess.run([*owner, window], env=self.environment, capture_output=True, text=True, check=False).stdout
            for window in found
        ]

    def told(self, applet: Program) -> str:
        """What there is to say of an applet that does not do as it should."""
        files = sorted(path.name for path in self.runtime.iterdir())
        return f"running: {applet.running}, said: {applet.stdout + applet.stderr!r}, runtime folder: {files}"

    def applets(self) -> list[int]:
        """The user's processes that run the installed program."""
        found = {}
        for process in Path("/proc").glob("[0-9]*"):
            try:
                if process.stat().st_uid == os.getuid() and os.readlink(process / "exe") == self.program:
                    found[int(process.name)] = int((process / "stat").read_text().rpartition(")")[2].split()[1])
            except OSError:
                continue  # it has ended
        # An applet's child is the applet's command in a moment.
        return [number for number, parent in found.items() if parent not in found]


@contextmanager
def step(what: str) -> Iterator[None]:
    print(f"  {what} ...", end=" ", flush=True)
    yield
    print("yes", flush=True)


def check(folder: Path) -> None:
    with ExitStack() as stack:
        session = Session(folder, stack)
        assert session.applets() == [], "an applet of this user runs already"

        with step("the start of the session brings the icon into the panel"):
            applet = Program(command(AUTOSTART, "Desktop Entry"), session.environment, folder, "applet")
            stack.callback(applet.kill)

            def shown() -> bool:
                assert applet.running, f"ended with {applet.process.returncode}: {applet.stderr}"
                return bool(session.panel.items)

            wait_until(shown, "the icon in the panel")
            (item,) = session.panel.items
            assert session.applets() == [item.pid]

        with step("its icon is a picture"):
            path = item.icon_path
            assert Path(path).parent == session.icons
            assert GdkPixbuf.Pixbuf.new_from_file(path).get_width() == 22

        with step("the first check shows the newest version"):
            wait_until(lambda: item.label == "7.2.4", "the label")
            assert item.icon == "tux-green"

        for group, title in WINDOWS.items():
            with step(f"{group} opens {title}"):
                assert session.windows(title) == []
                session.pick(group)
                wait_until(
                    lambda title=title: session.windows(title),
                    lambda title=title: f"the window {title}; windows: {session.windows()}, {session.told(applet)}",
                    deadline=60,
                )
                assert [int(process) for process in session.windows(title)] == [item.pid]
                assert session.applets() == [item.pid], "another applet was started"

        with step("the end of the session ends it, and it has said nothing"):
            applet.process.terminate()
            assert applet.exit_status() == -signal.SIGTERM
            assert (applet.stdout, applet.stderr) == ("", "")

        with step("where none runs, Desktop Action settings starts one, in which it opens Settings"):
            session.pick("Desktop Action settings")
            (started,) = session.applets()
            stack.callback(os.kill, started, signal.SIGKILL)
            wait_until(lambda: session.windows("Settings"), "the window Settings")
            assert [int(process) for process in session.windows("Settings")] == [started]


if __name__ == "__main__":
    check(Path(sys.argv[1]))
