#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Walks through the installed Flatpak as an ordinary user in a session with a panel, a portal, a browser and a screen
reader's ears. Each step tells what was seen; the first that is not as it should be ends the walk.

    flatpak_walk.py x11|wayland FOLDER      a new folder, for the user's home and what this needs

Pictures of the windows are left in the folder's pictures/.
"""

import os
import re
import resource
import shutil
import signal
import subprocess
import sys
import time
from contextlib import ExitStack, closing
from pathlib import Path
from typing import Any

sys.dont_write_bytecode = True
sys.path.append(str(Path(__file__).resolve().parents[1]))

from live import command  # noqa: E402
from PIL import Image  # noqa: E402
from stage.accessibility import BUS_SERVICE, Desk, Node, until  # noqa: E402
from stage.bus import PROPERTIES, call, connect  # noqa: E402
from stage.compositor import TOOLTIP, Compositor  # noqa: E402
from stage.desktop import Display, SessionBus  # noqa: E402
from stage.panel import Item, Panel  # noqa: E402
from stage.probe import ABOUT, CHANGES, ENTRIES, SETTINGS, SYSTEM  # noqa: E402
from stage.processes import Program  # noqa: E402
from stage.project import ROOT  # noqa: E402
from stage.screen import screenshot  # noqa: E402
from stage.site import KernelSite  # noqa: E402
from stage.user import User, state_text  # noqa: E402
from stage.waiting import let_pass, wait_until  # noqa: E402

ID = "org.veldrin.Veldrin"
INSTALLATION = Path(os.environ["FLATPAK_USER_DIR"])
LAUNCHER = INSTALLATION / "exports/share/applications" / f"{ID}.desktop"
AUTHORITIES = INSTALLATION / "runtime/org.gnome.Platform"
GROUP = "Desktop Entry"
ACTION = "org.a11y.atspi.Action"
SELECTION = "org.a11y.atspi.Selection"
PORTAL_NAME = "org.freedesktop.portal.Desktop"
PORTAL_PLACE = "/org/freedesktop/portal/desktop"
BACKGROUND = "org.freedesktop.portal.Background"
PORTAL = "/usr/libexec/xdg-desktop-portal"
PERMISSIONS = "/usr/libexec/xdg-permission-store"
RED, GREEN, WHITE = (220, 60, 60), (60, 180, 60), (240, 240, 240)

FIRST, NEXT = "7.2.4", "7.2.5"
MAINLINE, LONGTERM = "7.3-rc2", "6.18.50"
VERSIONS = [MAINLINE, FIRST, LONGTERM]
MENU = [*ENTRIES.values()]
MENU.insert(3, "Acknowledge Update")
MENU.append("Quit")
VERSION = "v" + re.search(r"project\(.*?VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text(), re.DOTALL)[1]
KERNELS = ["none found", "/boot and /lib/modules are not readable."]
# The version that the manifest names, without settings of anybody's.
WGET = "Wget/1.25.0"
HOST_AGENT = "from-the-home"

# At each link: on X11, since the portal launches it and no application is known whose name and icon could be shown
# meanwhile; on Wayland, since the tests' compositor lacks what tells the portal which window asks.
GTK_SAYS = {
    "x11": r"\n?\(veldrin:2\): GLib-GIO-CRITICAL .*: g_app_info_get_\w+: assertion 'G_IS_APP_INFO .*' failed\n",
    "wayland": rf"\n?\(veldrin:2\): Gdk-WARNING .*: Server is missing xdg_foreign support\n|{TOOLTIP}",
}

BACKEND = """[portal]
DBusName=org.freedesktop.impl.portal.desktop.tests
Interfaces={interfaces}
"""
BACKEND_INTERFACES = ("Access", "AppChooser", "Background", "Settings")
BROWSER = """[Desktop Entry]
Type=Application
Name=Browser
Exec={script} %u
MimeType=x-scheme-handler/https;x-scheme-handler/mailto;
"""
DEFAULTS = """[Default Applications]
x-scheme-handler/https=browser.desktop
x-scheme-handler/mailto=browser.desktop
"""


def seen(what: str, value: Any, expected: Any = None) -> None:
    """Tells it, and holds it against what is expected; without that, anything will do that counts as true."""
    right = value == expected if expected is not None else bool(value)
    print(f"  {what}: {value!r}", flush=True)
    assert right, f"{what}: {value!r} was seen, and not {expected!r}"


class Session(User):
    def __init__(self, kind: str, folder: Path, stack: ExitStack) -> None:
        super().__init__(folder, "/usr/bin:/bin")
        self.stack = stack
        self.kind = kind
        self.pictures = folder / "pictures"
        self.pictures.mkdir()
        self.own = self.home / ".var/app" / ID
        self.state_file = self.own / ".config/VeldrinWatch/app_state.json"
        # Where sessions have it, and where a sandbox always has it.
        self.runtime = Path(os.environ["XDG_RUNTIME_DIR"])
        self.icons = self.runtime / "VeldrinWatch-icons"
        self.report = self.runtime / ".flatpak" / ID / "xdg-run/Veldrin_crash.txt"
        shutil.rmtree(self.report.parent, ignore_errors=True)
        shutil.rmtree(self.icons, ignore_errors=True)
        for name in ("XDG_CACHE_HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "NO_AT_BRIDGE", "GTK_USE_PORTAL"):
            del self.environment[name]
        self.environment |= {
            "FLATPAK_USER_DIR": str(INSTALLATION),
            "XDG_RUNTIME_DIR": str(self.runtime),
            "XDG_CURRENT_DESKTOP": "tests",
            "XDG_DATA_DIRS": f"{INSTALLATION}/exports/share:/usr/local/share:/usr/share",
        }
        self.display = stack.enter_context(closing(Display(folder)))
        # What the bus starts is this user's, too.
        bus = SessionBus(folder, [BUS_SERVICE], environment=self.environment)
        self.bus = stack.enter_context(closing(bus))
        self.panel = stack.enter_context(closing(Panel(bus.address)))
        self.joins(bus, self.display if kind == "x11" else None)
        if kind == "wayland":
            (folder / "weston").mkdir()
            compositor = stack.enter_context(closing(Compositor(folder / "weston", self.display, 1)))
            self.environment["WAYLAND_DISPLAY"] = str(compositor.socket)
        self.desk = stack.enter_context(closing(Desk(self, bus)))
        self.connection = connect(bus.address)
        self.site = stack.enter_context(KernelSite())
        self.joins_the_net()
        self.opened = folder / "opened"
        self.has_browser()
        self.agreed = folder / "agreed"
        self.monitor = self.has_portal()
        self.entry = self.config / "autostart" / f"{ID}.desktop"
        self.starts = 0

    def joins_the_net(self) -> None:
        """The user's proxy and the machine's authorities lead to the local copy of the kernel's site, and nothing
        that is for wget alone."""
        self.site.publish(mainline=MAINLINE, stable=FIRST, longterm=LONGTERM)
        self.environment["https_proxy"] = self.site.environment["https_proxy"]
        authority = self.site.folder / "ca.pem"
        named = ["openssl", "x509", "-noout", "-hash", "-in", str(authority)]
        name = subprocess.run(named, capture_output=True, text=True, check=True).stdout.strip()
        (trusted,) = AUTHORITIES.glob("*/*/active/files/etc/ssl/certs")
        shutil.copy(authority, trusted / f"{name}.0")
        self.stack.callback((trusted / f"{name}.0").unlink)
        (self.home / ".wgetrc").write_text(f"user_agent = {HOST_AGENT}\nca_certificate = {authority}\n")

    def has_browser(self) -> None:
        script = self.folder / "browser"
        script.write_text(f'#!/bin/sh\necho "$1" >>{self.opened}\n')
        script.chmod(0o755)
        places = self.home / ".local/share/applications"
        places.mkdir(parents=True)
        (places / "browser.desktop").write_text(BROWSER.format(script=script))
        (self.config / "mimeapps.list").write_text(DEFAULTS)

    def has_portal(self) -> Program:
        """Starts the real portal with the desktop's half of it. Returns what hears the questions to it."""
        backends = self.folder / "backends"
        backends.mkdir()
        interfaces = ";".join(f"org.freedesktop.impl.portal.{name}" for name in BACKEND_INTERFACES)
        (backends / "tests.portal").write_text(BACKEND.format(interfaces=interfaces))
        (backends / "tests-portals.conf").write_text("[preferred]\ndefault=tests\n")
        self.environment["XDG_DESKTOP_PORTAL_DIR"] = str(backends)
        heard = f"type='method_call',path='{PORTAL_PLACE}'"
        monitor = self.runs("monitor", "dbus-monitor", "--address", self.bus.address, heard)
        self.runs("permissions", PERMISSIONS)
        half = self.runs("half", sys.executable, str(Path(__file__).with_name("flatpak_portal.py")), str(self.agreed))
        wait_until(lambda: half.stdout, lambda: f"the desktop's half of the portal: {half.stderr}")
        portal = self.runs("portal", PORTAL)
        until(lambda: self.asks_portal(PROPERTIES, "Get", "(ss)", BACKGROUND, "version"), lambda: portal.stderr)
        return monitor

    def asks_portal(self, interface: str, method: str, signature: str, *values: object) -> Any:
        return call(self.connection, PORTAL_NAME, PORTAL_PLACE, interface, method, signature, *values)

    def runs(self, name: str, *words: str) -> Program:
        program = Program(words, self.environment, self.folder, name)
        self.stack.callback(program.kill)
        return program

    def questions(self, method: str) -> int:
        """How often the portal was asked this so far."""
        return len(re.findall(rf"member={method}$", self.monitor.stdout, re.MULTILINE))

    def answers(self) -> list[str]:
        """What the user has agreed to."""
        return self.agreed.read_text().splitlines() if self.agreed.exists() else []

    def is_asked_each_time(self) -> None:
        """From now on the portal asks the user, as it does where nothing is granted by itself."""
        store = "org.freedesktop.impl.portal.PermissionStore"
        permission = ("background", True, "background", ID, ["ask"])
        place = (self.connection, store, "/org/freedesktop/impl/portal/PermissionStore", store)
        call(*place, "SetPermission", "(sbssas)", *permission)

    def starts_by(self, entry: Path) -> tuple[Program, Item]:
        """Picks what a desktop has of it, and waits for the icon."""
        known = len(self.panel.items)
        self.starts += 1
        began = time.monotonic()
        program = self.runs(f"flatpak-{self.starts}", *command(entry, GROUP))

        def shown() -> bool:
            assert program.running, f"ended with {program.process.returncode}: {program.stderr}"
            return len(self.panel.items) > known

        wait_until(shown, lambda: f"the icon in the panel; {program.stderr}", 60)
        item = self.panel.items[known]
        wait_until(item.menu.is_there, "its menu")
        seen("started by", " ".join(command(entry, GROUP)))
        seen("seconds until the icon is in the panel", f"{item.registered - began:.1f}")
        return program, item

    def applet(self) -> int:
        """The one process of the applet, by its number outside."""
        found = []
        for process in Path("/proc").glob("[0-9]*"):
            try:
                if os.readlink(process / "exe") == "/app/bin/veldrin" and process.stat().st_uid == os.getuid():
                    found.append(int(process.name))
            except OSError:
                continue  # it has ended, or is another's
        (number,) = found
        return number

    def displays(self) -> list[str]:
        """The variables by which the applet finds its display."""
        environment = Path(f"/proc/{self.applet()}/environ").read_text(errors="replace")
        names = [variable.partition("=")[0] for variable in environment.split("\0")]
        return [name for name in ("DISPLAY", "WAYLAND_DISPLAY") if name in names]

    def colour(self, item: Item) -> tuple[int, ...]:
        """What the panel shows, which opens the file by its path, out here."""
        assert Path(item.icon_path).parent == self.icons, item.icon_path
        with Image.open(item.icon_path) as picture:
            assert (picture.format, picture.size) == ("PNG", (22, 22))
            return picture.convert("RGB").getpixel((0, 0))

    def opens(self, item: Item, title: str) -> Node:
        """Opens a window from the menu."""
        item.menu.click(ENTRIES[title])

        def window() -> Node | None:
            return next((window for window in self.desk.windows() if window.name == title), None)

        found = until(window, lambda: f"the window {title!r} among {[node.name for node in self.desk.windows()]}")
        until(lambda: len(found.texts()) > 1, "its contents")
        return found

    def takes_picture(self, title: str) -> None:
        """Once it is drawn."""
        let_pass(1)
        screenshot(self.display.name).save(self.pictures / f"{self.kind}-{title.split()[0].lower()}.png")

    def in_sandbox(self, *words: str) -> str:
        """What a command says in a sandbox of the applet's."""
        around = ["flatpak", "run", f"--command={words[0]}", ID, *words[1:]]
        result = subprocess.run(around, env=self.environment, capture_output=True, text=True, timeout=60, check=False)
        return result.stdout + result.stderr


def press(node: Node) -> None:
    """As a screen reader's user does."""
    call(node.connection, node.owner, node.path, ACTION, "DoAction", "(i)", 0)


def installed(session: Session) -> None:
    programs = session.in_sandbox("ls", "/app/bin").split()
    seen("programs in the Flatpak", programs, ["autostart-once", "veldrin", "wget"])
    asked = session.in_sandbox("sh", "-c", "command -v wget curl").split()
    seen("what it asks the net with", asked, ["/app/bin/wget"])
    entry = LAUNCHER.read_text()
    seen("groups of the launcher's entry", re.findall(r"^\[(.*)\]$", entry, re.MULTILINE), [GROUP])
    home = session.in_sandbox("ls", "-A", str(session.home)).split()
    seen("what it sees of the home", home, [".config", ".var"])
    agent = ["wget", "-qO/dev/null", "https://www.kernel.org/"]
    subprocess.run(agent, env=session.environment, timeout=60, check=True)
    seen("who asks the site outside, by the home's .wgetrc", session.site.requests()[-1].agent, HOST_AGENT)
    session.site.clear_requests()


def first_start(session: Session) -> None:
    program, item = session.starts_by(LAUNCHER)
    seen("display", session.displays(), ["DISPLAY" if session.kind == "x11" else "WAYLAND_DISPLAY"])
    seen("icon, opened outside", session.colour(item), RED)
    seen("label", item.label, "")
    seen("menu", [entry.label for entry in item.menu.entries() if entry.label], MENU)
    checks(session, item, FIRST)
    agents = {request.agent for request in session.site.requests()}
    seen("who has asked the site", agents, {WGET})
    seen("what the proxy was asked for", set(session.site.connections()), {"www.kernel.org:443"})
    item.menu.click("Acknowledge Update")
    wait_until(lambda: session.colour(item) == WHITE, "the white icon")
    seen("icon, acknowledged", session.colour(item), WHITE)
    saved = state_text(FIRST, FIRST, MAINLINE, FIRST, LONGTERM)
    wait_until(lambda: session.saved == saved, lambda: f"the saved state: {session.saved}")
    seen("saved in", str(session.state_file.relative_to(session.home)))
    seen("saved outside of it", (session.config / "VeldrinWatch").exists(), False)
    wait_until(session.entry.exists, "the portal's entry")
    seen("questions to start it with the session", session.questions("RequestBackground"), 1)
    seen("what the portal's entry starts", command(session.entry, GROUP), ["flatpak", "run", "--command=veldrin", ID])
    opens_windows(session, item)
    quits(session, program, item)


def checks(session: Session, item: Item, version: str) -> None:
    def news() -> bool:
        return (item.label, session.colour(item)) == (version, GREEN)

    wait_until(news, lambda: f"the check; label: {item.label!r}, requests: {session.site.requests()}", 60)
    seen("label after the check", item.label)
    seen("icon", session.colour(item))


def quits(session: Session, program: Program, item: Item) -> None:
    item.menu.click("Quit")
    seen("after Quit it ends with", program.exit_status(60), 0)
    seen("said on the terminal", program.stdout + unexpected(session, program), "")


def unexpected(session: Session, program: Program) -> str:
    """What it has said, but for what GTK says."""
    return re.sub(GTK_SAYS[session.kind], "", program.stderr)


def opens_windows(session: Session, item: Item) -> None:
    settings = session.opens(item, SETTINGS)
    seen("Settings says", [text for text in settings.texts() if text in VERSIONS], VERSIONS)
    session.takes_picture(SETTINGS)
    opens_link(session, settings, "www.kernel.org", "https://www.kernel.org/")

    changes = session.opens(item, CHANGES)
    until(lambda: f"Linux {FIRST}" in changes.texts(), lambda: f"the changes: {changes.texts()}")
    seen("Latest Changes says", [text for text in changes.texts() if FIRST in text])
    session.takes_picture(CHANGES)

    system = session.opens(item, SYSTEM)
    texts = system.texts()
    seen(
        "System & Modules says",
        [text for text in texts if "  ·  " in text],
        [f"{os.uname().release}  ·  {distribution()}"],
    )
    seen("of the installed kernels", texts[texts.index("INSTALLED KERNELS") + 1 :][:2], KERNELS)
    session.takes_picture(SYSTEM)
    modules(session, system)

    # Last: its dialog holds the end of the applet up.
    about = session.opens(item, ABOUT)
    seen("About says", [text for text in about.texts() if text in ("Veldrin", VERSION)], ["Veldrin", VERSION])
    session.takes_picture(ABOUT)
    opens_link(session, about, "support@veldrin.example", "mailto:support@veldrin.example")
    seen("links that the portal was asked to open", session.questions("OpenURI"), 2)
    press(about.find("push button", "Close"))
    until(lambda: ABOUT not in [window.name for window in session.desk.windows()], "the end of the dialog")


def modules(session: Session, system: Node) -> None:
    """What a sandbox knows of them is the kernel's list; a kernel without modules has none."""
    tabs = next(node for node in system.shown() if node.role == "page tab list")
    call(tabs.connection, tabs.owner, tabs.path, SELECTION, "SelectChild", "(i)", 1)
    listed = Path("/proc/modules").exists()
    if not listed:
        words = until(lambda: [text for text in system.texts() if "Module list not available" in text], system.texts)
        seen("of the modules, on a kernel without them", words)
    else:
        rows = Path("/proc/modules").read_text().splitlines()
        status = f"{len(rows)} of {len(rows)} modules"
        until(lambda: any(text.startswith(status) for text in system.texts()), lambda: f"{status}: {system.texts()}")
        seen("of the modules", status)
    of_one = session.in_sandbox("sh", "-c", "/usr/sbin/modinfo --field filename loop 2>/dev/null; echo $?")
    seen("what modinfo finds of one, and its status", of_one.split(), ["1"])
    folders = session.in_sandbox("ls", "-d", "/sys/module", "/lib/modules", "/boot")
    seen("folders of theirs that are missing", folders.count("No such file"), 3)
    session.takes_picture("Modules")


def opens_link(session: Session, window: Node, name: str, address: str) -> None:
    press(window.find("push button", name))

    def opened() -> bool:
        return session.opened.exists() and session.opened.read_text().splitlines()[-1] == address

    wait_until(opened, f"{address} in the browser")
    seen("opened by the portal, in the browser outside", address)


def distribution() -> str:
    """The machine's, not the sandbox's."""
    return re.search('^PRETTY_NAME="?(.*?)"?$', Path("/etc/os-release").read_text(), re.MULTILINE)[1]


def next_session(session: Session) -> None:
    session.site.publish(stable=NEXT)
    program, item = session.starts_by(session.entry)
    seen("label, as it was left", item.label, FIRST)
    seen("icon, as it was left", session.colour(item), WHITE)
    checks(session, item, NEXT)
    quits(session, program, item)


def crash(session: Session) -> None:
    program, item = session.starts_by(LAUNCHER)
    seen("questions to start it with the session, still", session.questions("RequestBackground"), 1)
    seen("label, as it was left", item.label, NEXT)
    os.kill(session.applet(), signal.SIGSEGV)
    seen("after SIGSEGV it ends with", program.exit_status(60), 128 + signal.SIGSEGV)
    report = session.report.read_text()
    seen("report, in the folder of the user's session", str(session.report.relative_to(session.runtime)))
    seen("its head", report.splitlines()[:3])
    assert "Signal: SIGSEGV (Segmentation fault) (11)" in report, report
    seen("its frames in the applet", len(re.findall(r"veldrin\(", report)))
    program, item = session.starts_by(LAUNCHER)
    seen("label after the crash", item.label, NEXT)
    quits(session, program, item)


def slow_answer(session: Session) -> None:
    """A portal asks its user, and what has put the question leaves before the answer comes."""
    session.is_asked_each_time()
    for number in range(1, 4):
        (session.own / "data/.autostart-offered").unlink()
        session.entry.unlink()
        program, item = session.starts_by(LAUNCHER)
        offered = session.own / "data/.autostart-offered"
        wait_until(offered.exists, "the end of the question")
        seen("the entry when the one who asked has gone", session.entry.exists(), False)
        wait_until(session.entry.exists, "the portal's entry")
        seen("the entry when the user has agreed", session.entry.exists(), True)
        seen("what the user agreed to so far", len(session.answers()), number)
        quits(session, program, item)
    seen("questions in all", session.questions("RequestBackground"), 4)


def walk(kind: str, folder: Path) -> None:
    folder.mkdir()
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    with ExitStack() as stack:
        session = Session(kind, folder, stack)
        for part in (installed, first_start, next_session, crash, slow_answer):
            print(f" {part.__name__.replace('_', ' ')}", flush=True)
            part(session)


if __name__ == "__main__":
    walk(sys.argv[1], Path(sys.argv[2]))
