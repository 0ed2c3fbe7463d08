# SPDX-License-Identifier: MIT
"""The hosts of tray icons: which packages bring each, how its session starts, what it is known to do with an icon."""

from __future__ import annotations

from collections.abc import Callable
from dataclasses import dataclass

import desktops
from desktops import Session

Box = tuple[int, int, int, int]  # left, top, right, bottom

MATE = ("mate-panel", "marco", "mate-themes", "mate-settings-daemon-common")

# What the walk itself needs.
TOOLS = (
    "adwaita-icon-theme",
    "at-spi2-core",
    "dbus-daemon",
    "dbus-bin",
    "fonts-dejavu-core",
    "fonts-droid-fallback",
    "libglib2.0-bin",
    "python3-gi",
    "python3-pil",
    "tesseract-ocr",
    "tesseract-ocr-eng",
    "x11-utils",
    "x11-xserver-utils",
    "xdotool",
    "xvfb",
)


@dataclass(frozen=True)
class Host:
    """`start` brings the whole session up to the panel, `panel_comes` and `panel_goes` move the panel alone. Both are
    given the session."""

    name: str
    title: str
    packages: tuple[str, ...]
    version_of: tuple[str, ...]  # the packages whose versions tell which host this is
    start: Callable[[Session], None]
    panel_goes: Callable[[Session], None]
    panel_comes: Callable[[Session], None]
    panel: Box  # where on the screen it stands, and no menu does
    # What it is known to do.
    icon: tuple[int, int] = (22, 22)
    differing: int = 0  # pixels of the icon, at most
    label: bool = False
    left: str = "menu"  # or "nothing", or "its own menu"
    right: str = "menu"


HOSTS = (
    Host(
        "xfce-systray",
        "Xfce, status tray plugin",
        ("xfce4-panel", "xfconf", "xfwm4"),
        ("xfce4-panel",),
        desktops.start_xfce_systray,
        desktops.drop_panel,
        desktops.xfce_panel_comes,
        (0, 0, 1280, 32),
    ),
    Host(
        "xfce-indicator",
        "Xfce, indicator plugin",
        ("xfce4-panel", "xfconf", "xfwm4", "xfce4-indicator-plugin", "ayatana-indicator-application"),
        ("xfce4-indicator-plugin", "ayatana-indicator-application"),
        desktops.start_xfce_indicator,
        desktops.drop_panel,
        desktops.xfce_panel_comes,
        (0, 0, 1280, 32),
        label=True,
        right="its own menu",
    ),
    Host(
        "mate-indicator",
        "MATE, indicator applet",
        (*MATE, "mate-indicator-applet", "ayatana-indicator-application"),
        ("mate-indicator-applet", "ayatana-indicator-application"),
        desktops.start_mate_indicator,
        desktops.drop_panel,
        desktops.mate_panel_comes,
        (0, 0, 1280, 28),
        icon=(22, 20),
        label=True,
        right="its own menu",
    ),
    Host(
        "mate-tray",
        "MATE, notification area",
        MATE,
        ("mate-panel",),
        desktops.start_mate_tray,
        desktops.drop_panel,
        desktops.mate_panel_comes,
        (0, 0, 1280, 28),
        icon=(26, 26),
        label=True,
        left="nothing",
    ),
    Host(
        "lxqt",
        "LXQt",
        ("lxqt-panel", "openbox", "lxqt-themes"),
        ("lxqt-panel",),
        desktops.start_lxqt,
        desktops.drop_panel,
        desktops.lxqt_panel_comes,
        (0, 0, 1280, 32),
        left="nothing",
    ),
    Host(
        "waybar",
        "Waybar on sway",
        ("sway", "waybar"),
        ("waybar", "sway"),
        desktops.start_waybar,
        desktops.drop_panel,
        desktops.waybar_comes,
        (0, 0, 1280, 32),
    ),
    Host(
        "gnome",
        "GNOME, AppIndicator extension",
        ("gnome-shell", "gnome-shell-extension-appindicator", "libgl1-mesa-dri", "python3-dbusmock"),
        ("gnome-shell", "gnome-shell-extension-appindicator"),
        desktops.start_gnome,
        desktops.gnome_panel_goes,
        desktops.gnome_panel_comes,
        (0, 0, 1280, 32),
        icon=(16, 16),
        label=True,
    ),
    Host(
        "plasma",
        "KDE Plasma",
        (
            "kwin-wayland",
            "plasma-workspace",
            "plasma-desktop",
            "breeze",
            "breeze-gtk-theme",
            "kde-config-gtk-style",
            "libgl1-mesa-dri",
            "python3-dbusmock",
        ),
        ("plasma-workspace",),
        desktops.start_plasma,
        desktops.drop_panel,
        desktops.plasma_panel_comes,
        (0, 755, 1280, 800),
    ),
    Host(
        "cinnamon",
        "Cinnamon",
        ("cinnamon", "xapp-sn-watcher", "libgl1-mesa-dri", "python3-dbusmock"),
        ("cinnamon", "xapp-sn-watcher"),
        desktops.start_cinnamon,
        desktops.cinnamon_goes,
        desktops.cinnamon_comes,
        (0, 760, 1280, 800),
        icon=(24, 24),
    ),
    Host(
        "budgie-tray",
        "Budgie, system tray",
        ("budgie-core", "xfwm4", "python3-dbusmock"),
        ("budgie-core",),
        desktops.start_budgie_tray,
        desktops.drop_panel,
        desktops.budgie_panel_comes,
        (0, 0, 1280, 36),
        icon=(24, 24),
        left="nothing",
    ),
    Host(
        "budgie-indicator",
        "Budgie, AppIndicator applet",
        ("budgie-core", "budgie-indicator-applet", "ayatana-indicator-application", "xfwm4", "python3-dbusmock"),
        ("budgie-indicator-applet", "ayatana-indicator-application"),
        desktops.start_budgie_indicator,
        desktops.drop_panel,
        desktops.budgie_panel_comes,
        (0, 0, 1280, 36),
        icon=(19, 19),
        differing=1,
        label=True,
        right="nothing",
    ),
)


def chosen(names: list[str]) -> list[Host]:
    """The hosts whose names begin with one of these; all of them where there are none."""
    for name in names:
        if not any(host.name.startswith(name) for host in HOSTS):
            raise ValueError(f"no host's name begins with {name!r}: {', '.join(host.name for host in HOSTS)}")
    return [host for host in HOSTS if not names or host.name.startswith(tuple(names))]
