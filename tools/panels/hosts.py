"""The hosts of tray icons: which packages bring each, how its session starts, what it is known to do with an icon."""

from __future__ import annotations

from collections.abc import Callable
from dataclasses import dataclass
from typing import TYPE_CHECKING

if TYPE_CHECKING:
    from session import Session

Box = tuple[int, int, int, int]

INDICATORS = "/usr/libexec/ayatana-indicator-application/ayatana-indicator-application-service"
WATCHER = "org.kde.StatusNotifierWatcher"
TOP = (0, 0, 1280, 40)
BOTTOM = (0, 752, 1280, 800)

# What the walk itself needs.
TOOLS = (
    "adwaita-icon-theme", "at-spi2-core", "dbus-daemon", "dbus-bin", "fonts-dejavu-core", "fonts-droid-fallback",
    "libglib2.0-bin", "python3-pil", "tesseract-ocr", "tesseract-ocr-eng", "x11-utils", "x11-xserver-utils", "xdotool",
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
    panel: Box  # where on the screen it stands
    # What it is known to do.
    icon: tuple[int, int] = (22, 22)
    differing: int = 0  # pixels of the icon, at most
    label: bool = False
    left: str = "menu"  # or "nothing", or "its own menu"
    right: str = "menu"
    terminal: str = ""  # a pattern for what the program prints during the walk


# ---- Xfce ----


def start_xfce(session: Session, plugin: str) -> None:
    session.environment["XDG_CURRENT_DESKTOP"] = "XFCE"
    channel = "xfce4/xfconf/xfce-perchannel-xml/xfce4-panel.xml"
    session.write(f".config/{channel}", XFCE_PANEL.replace("{plugin}", plugin))
    session.tell_bus()
    session.start("xfwm4", "--compositor=off")
    if plugin == "indicator":
        session.start(INDICATORS)
        session.wait_for_name(WATCHER)
    xfce_panel_comes(session)


def xfce_panel_comes(session: Session) -> None:
    session.keep("panel", "xfce4-panel", "--disable-wm-check")
    session.wait_for_name("org.xfce.Panel")


XFCE_PANEL = """<?xml version="1.0" encoding="UTF-8"?>
<channel name="xfce4-panel" version="1.0">
  <property name="configver" type="int" value="2"/>
  <property name="panels" type="array">
    <value type="int" value="1"/>
    <property name="panel-1" type="empty">
      <property name="position" type="string" value="p=6;x=0;y=0"/>
      <property name="position-locked" type="bool" value="true"/>
      <property name="length" type="uint" value="100"/>
      <property name="size" type="uint" value="32"/>
      <property name="icon-size" type="uint" value="22"/>
      <property name="plugin-ids" type="array">
        <value type="int" value="1"/>
        <value type="int" value="2"/>
        <value type="int" value="3"/>
        <value type="int" value="4"/>
      </property>
    </property>
  </property>
  <property name="plugins" type="empty">
    <property name="plugin-1" type="string" value="applicationsmenu"/>
    <property name="plugin-2" type="string" value="separator">
      <property name="expand" type="bool" value="true"/>
      <property name="style" type="uint" value="0"/>
    </property>
    <property name="plugin-3" type="string" value="{plugin}">
      <property name="square-icons" type="bool" value="false"/>
    </property>
    <property name="plugin-4" type="string" value="separator">
      <property name="expand" type="bool" value="true"/>
      <property name="style" type="uint" value="0"/>
    </property>
  </property>
</channel>
"""


# ---- The table ----

HOSTS = (
    Host(
        "xfce-systray",
        "Xfce, status tray plugin",
        ("xfce4-panel", "xfconf", "xfwm4"),
        ("xfce4-panel",),
        lambda session: start_xfce(session, "systray"),
        lambda session: session.drop("panel"),
        xfce_panel_comes,
        TOP,
    ),
    Host(
        "xfce-indicator",
        "Xfce, indicator plugin",
        ("xfce4-panel", "xfconf", "xfwm4", "xfce4-indicator-plugin", "ayatana-indicator-application"),
        ("xfce4-indicator-plugin", "ayatana-indicator-application"),
        lambda session: start_xfce(session, "indicator"),
        lambda session: session.drop("panel"),
        xfce_panel_comes,
        TOP,
        label=True,
        right="its own menu",
    ),
)
