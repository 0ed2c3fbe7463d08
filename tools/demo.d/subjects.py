# SPDX-License-Identifier: MIT
"""What is shown: releases, windows, channels, machines, and how each of them looks on the screen."""

import signal
from dataclasses import dataclass, field

FIRST_RELEASE = "7.2.4"  # what the copy of the site starts with
NEXT_RELEASE = "7.2.5"
MENU = ("Settings", "Latest Changes", "System & Modules", "Acknowledge Update", "About", "Quit")
STATES = (
    ("1-red", "First start", "nothing acknowledged yet"),
    ("2-green", "First check", f"{FIRST_RELEASE} is the newest"),
    ("3-white", "Acknowledged", "nothing new"),
    ("4-green", "Newer release", f"{NEXT_RELEASE} is out"),
)
SQUARES = {"red": (220, 60, 60), "green": (60, 180, 60), "white": (240, 240, 240)}
FATAL = (signal.SIGSEGV, signal.SIGABRT, signal.SIGFPE, signal.SIGBUS, signal.SIGILL)
THEMES = ("light", "dark")
SCREEN = (1280, 960)
BACKGROUND = "#5b7c99"
HOSTS = ("www.kernel.org", "kernel.org", "cdn.kernel.org", "git.kernel.org")


@dataclass(frozen=True)
class Window:
    opened_by: str | int  # a menu entry, or a signal to the program
    name: str
    title: str
    summary: str


# The windows in the order in which they are opened, so one that a crash opens comes last.
WINDOWS = [
    Window("Settings", "settings", "Settings", "the overview: which channel the panel shows, and what is known"),
    Window("Latest Changes", "changes", "Latest Kernel Changes", "what the newest stable release contains"),
    Window("System & Modules", "system", "System & Kernel Modules", "what the machine runs"),
    Window("About", "about", "About Veldrin", "the program's name, version and where it comes from"),
    Window(
        signal.SIGSEGV,
        "crash",
        "Veldrin - Können Sie beschreiben, wann der Fehler aufgetreten ist?",
        "after a crash, which is told of in German alone",
    ),
]
SETTINGS, CHANGES, SYSTEM, ABOUT, CRASH = WINDOWS
SIGNALS = {
    SETTINGS.name: signal.SIGUSR1,
    CHANGES.name: signal.SIGRTMIN + 1,
    SYSTEM.name: signal.SIGRTMIN + 2,
    ABOUT.name: signal.SIGUSR2,
}
# Not LANG, whose locale the machine may lack: nothing but ASCII could be handed to a dialog then.
GERMAN = {"LANGUAGE": "de"}


@dataclass(frozen=True)
class Channel:
    name: str
    version: str  # what the copy of the site has of it
    accent: tuple[int, int, int]
    source: str  # the path below which its changes come
    kind: str
    summary: str


# In the order of the selector.
CHANNELS = (
    Channel(
        "mainline",
        "7.3-rc2",
        (217, 119, 6),
        "/pub/scm/linux/kernel/git/torvalds/linux.git/atom/",
        "feed",
        "the commits of a candidate, from the feed",
    ),
    Channel(
        "stable",
        FIRST_RELEASE,
        (21, 128, 61),
        "/pub/linux/kernel/v7.x/ChangeLog-",
        "text",
        "the commits of a release, from its ChangeLog",
    ),
    Channel(
        "longterm",
        "6.18.50",
        (29, 78, 216),
        "/pub/linux/kernel/v6.x/ChangeLog-",
        "capped",
        "a ChangeLog with more commits than the list takes",
    ),
)
SYSTEM_ACCENT = (79, 70, 229)


@dataclass(frozen=True)
class Machine:
    """What the program finds on the machine."""

    name: str
    summary: str
    error: str = ""  # the title in the place of the module list
    modules: str | None = "modules"  # the file that is the list, unless there is none
    boot_readable: bool = True
    distribution: str = "os-release"
    environment: dict[str, str] = field(default_factory=dict)


RELEASE = "7.2.3-amd64"
IMAGES = (RELEASE, "7.1.12-amd64", "6.18.48-amd64", "7.3-rc1-custom")
MODULE_TREES = (RELEASE, "7.1.12-amd64", "6.18.48-amd64", "7.2.1-amd64", "7.1.9-amd64", "6.18.45-amd64")
LEFTOVERS = "3 module trees without a kernel image"

WORKSTATION = Machine("workstation", "a workstation with all that its kernel tells")
MACHINES = (
    Machine("builtin", "a kernel without modules", "No modules loaded", modules="no-modules"),
    Machine(
        "locked",
        "a machine that shows neither modules nor /boot",
        "No modules could be read",
        modules=None,
        boot_readable=False,
    ),
    Machine(
        "flatpak",
        "a Flatpak",
        "Module list not available",
        modules=None,
        boot_readable=False,
        distribution="os-release-flatpak",
        environment={"FLATPAK_ID": "org.veldrin.Veldrin"},
    ),
    Machine(
        "snap",
        "a Snap that lacks a permission",
        "Module list locked by the sandbox",
        modules=None,
        boot_readable=False,
        distribution="os-release-snap",
        environment={"SNAP": "/snap/veldrin/7", "SNAP_NAME": "veldrin"},
    ),
)

# Modules with many words and a few parameters, with more, and with the most.
DETAILED = ("v4l2loopback", "iwlwifi", "i915")
FILTER, FILTERED = "snd_hda", "snd_hda_intel"
LARGEST = ("i915", "btrfs")
