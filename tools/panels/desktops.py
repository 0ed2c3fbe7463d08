# SPDX-License-Identifier: MIT
"""How each desktop comes up, and how its panel alone goes and comes."""

from __future__ import annotations

import string
from pathlib import Path
from typing import TYPE_CHECKING

if TYPE_CHECKING:
    from session import Session
else:
    Session = object  # the list of packages can be read before the libraries are there that a session needs

INDICATORS = "/usr/libexec/ayatana-indicator-application/ayatana-indicator-application-service"
BUDGIE_PANEL = "6d4f2c1e-0b7a-4c5d-9e8f-1a2b3c4d5e6f"
BUDGIE_APPLET = "7e5f3d2f-1c8b-4d6e-8f90-2b3c4d5e6f70"
EXTENSION = "ubuntu-appindicators@ubuntu.com"
SETTINGS = Path(__file__).with_name("settings")


def settings(session: Session, source: str, target: str, **values: str) -> None:
    """Puts a file of settings into the home."""
    session.write(target, string.Template((SETTINGS / source).read_text()).substitute(values))


def gsettings(session: Session, schema: str, **values: str) -> None:
    for key, value in values.items():
        session.run("gsettings", "set", schema, key.replace("_", "-"), value)


def drop_panel(session: Session) -> None:
    session.drop("panel")


def start_indicators(session: Session) -> None:
    """The service that hands icons on to the indicator plugins of panels."""
    session.start(INDICATORS)
    session.wait_for_host()


# ---- Xfce ----


def start_xfce(session: Session, plugin: str) -> None:
    session.environment["XDG_CURRENT_DESKTOP"] = "XFCE"
    target = ".config/xfce4/xfconf/xfce-perchannel-xml/xfce4-panel.xml"
    settings(session, "xfce4-panel.xml", target, plugin=plugin)
    session.tell_bus()
    session.start("xfwm4", "--compositor=off")


def start_xfce_systray(session: Session) -> None:
    start_xfce(session, "systray")
    xfce_panel_comes(session)


def start_xfce_indicator(session: Session) -> None:
    start_xfce(session, "indicator")
    start_indicators(session)
    xfce_panel_comes(session)


def xfce_panel_comes(session: Session) -> None:
    session.keep("panel", "xfce4-panel", "--disable-wm-check")
    session.wait_for_host()


# ---- MATE ----


def start_mate(session: Session, applet: str) -> None:
    session.environment["XDG_CURRENT_DESKTOP"] = "MATE"
    session.tell_bus()
    panel = "org.mate.panel"
    gsettings(session, panel, toplevel_id_list="['top']", object_id_list="['tray']")
    gsettings(
        session,
        f"{panel}.toplevel:/org/mate/panel/toplevels/top/",
        orientation="top",
        size="28",
        expand="true",
        enable_animations="false",
    )
    gsettings(
        session,
        f"{panel}.object:/org/mate/panel/objects/tray/",
        object_type="applet",
        applet_iid=applet,
        toplevel_id="top",
        position="600",
    )
    session.start("/usr/libexec/mate-settings-daemon")
    session.start("marco", "--no-composite")


def start_mate_indicator(session: Session) -> None:
    start_mate(session, "IndicatorAppletCompleteFactory::IndicatorAppletComplete")
    start_indicators(session)
    mate_panel_comes(session)


def start_mate_tray(session: Session) -> None:
    start_mate(session, "NotificationAreaAppletFactory::NotificationArea")
    mate_panel_comes(session)


def mate_panel_comes(session: Session) -> None:
    session.keep("panel", "mate-panel")
    session.wait_for_host()


# ---- LXQt ----


def start_lxqt(session: Session) -> None:
    session.environment |= {"XDG_CURRENT_DESKTOP": "LXQt", "QT_QPA_PLATFORMTHEME": "lxqt"}
    settings(session, "lxqt-panel.conf", ".config/lxqt/panel.conf")
    session.write(".config/lxqt/lxqt.conf", "[General]\ntheme=light\n")
    session.tell_bus()
    session.start("openbox")
    lxqt_panel_comes(session)


def lxqt_panel_comes(session: Session) -> None:
    session.keep("panel", "lxqt-panel")
    session.wait_for_host()


# ---- Waybar ----


def start_waybar(session: Session) -> None:
    settings(session, "sway", ".config/sway/config")
    settings(session, "waybar.json", ".config/waybar/config")
    settings(session, "waybar.css", ".config/waybar/style.css")
    session.environment["XDG_CURRENT_DESKTOP"] = "sway"
    session.start("sway", WLR_BACKENDS="x11", WLR_RENDERER="pixman", WLR_LIBINPUT_NO_DEVICES="1")
    session.enter_compositor()
    waybar_comes(session)


def waybar_comes(session: Session) -> None:
    session.keep("panel", "waybar")
    session.wait_for_host()


# ---- GNOME ----


def start_gnome(session: Session) -> None:
    session.start_system_bus("logind")
    session.environment["XDG_CURRENT_DESKTOP"] = "GNOME"
    session.tell_bus()
    gsettings(
        session, "org.gnome.shell", enabled_extensions=f"['{EXTENSION}']", welcome_dialog_last_shown_version="999"
    )
    gsettings(session, "org.gnome.desktop.interface", enable_animations="false")
    gsettings(session, "org.gnome.desktop.notifications", show_banners="false")
    gsettings(session, "org.gnome.desktop.background", picture_options="none", primary_color="#5b7c99")
    session.start("gnome-shell", "--nested", "--wayland", MUTTER_DEBUG_DUMMY_MODE_SPECS="1280x800")
    session.enter_compositor("wayland-0")
    session.wait_for_host()
    # It begins with the overview.
    overview = ("org.gnome.Shell", "/org/gnome/Shell", "OverviewActive")
    session.wait(lambda: session.tells(*overview), "no overview")
    session.still()
    session.xdotool("key", "Escape")
    session.wait(lambda: not session.tells(*overview), "the overview stays")


def gnome_panel_goes(session: Session) -> None:
    session.run("gnome-extensions", "disable", EXTENSION)


def gnome_panel_comes(session: Session) -> None:
    session.run("gnome-extensions", "enable", EXTENSION)


# ---- Plasma ----


def start_plasma(session: Session) -> None:
    session.start_system_bus("logind")
    session.environment |= {
        "XDG_CURRENT_DESKTOP": "KDE",
        "KDE_FULL_SESSION": "true",
        "KDE_SESSION_VERSION": "6",
        "XDG_MENU_PREFIX": "plasma-",
        "XDG_CONFIG_DIRS": f"{session.config}/kdedefaults:/etc/xdg",
    }
    scheme = Path("/usr/share/color-schemes/BreezeLight.colors").read_text()
    session.write(".config/kdedefaults/kdeglobals", f"[General]\nColorScheme=BreezeLight\n\n{scheme}")
    session.tell_bus()
    session.run("kbuildsycoca6", QT_QPA_PLATFORM="offscreen")
    session.start(
        "kwin_wayland",
        "--x11-display",
        session.display,
        "--width",
        "1280",
        "--height",
        "800",
        "--no-lockscreen",
        "--no-global-shortcuts",
        "--no-kactivities",
        "--socket",
        "wayland-kde",
        KWIN_WAYLAND_NO_PERMISSION_CHECKS="1",
    )
    session.enter_compositor("wayland-kde")
    session.start("/usr/lib/x86_64-linux-gnu/libexec/kactivitymanagerd")
    session.start("kded6")
    plasma_panel_comes(session)
    # The panel lets the wallpaper through.
    session.wait(lambda: session.screenshot().getpixel((640, 300)) != (0, 0, 0), "no wallpaper")
    # Nor are all of its parts there with it.
    session.still(3)


def plasma_panel_comes(session: Session) -> None:
    session.keep("panel", "plasmashell", "--no-respawn")
    session.wait_for_host()


# ---- Cinnamon ----


def start_cinnamon(session: Session) -> None:
    session.start_system_bus("logind")
    session.environment["XDG_CURRENT_DESKTOP"] = "X-Cinnamon"
    session.tell_bus()
    gsettings(
        session,
        "org.cinnamon",
        desktop_effects="false",
        startup_animation="false",
        enabled_applets="['panel1:left:0:menu@cinnamon.org:0', 'panel1:right:0:xapp-status@cinnamon.org:3']",
    )
    gsettings(session, "org.cinnamon.desktop.background", picture_options="none", primary_color="#5b7c99")
    cinnamon_comes(session)


def cinnamon_goes(session: Session) -> None:
    session.drop("watcher")
    session.drop("panel")


def cinnamon_comes(session: Session) -> None:
    session.keep("panel", "cinnamon")
    session.wait_for_name("org.Cinnamon")
    session.keep("watcher", "/usr/lib/x86_64-linux-gnu/xapps/xapp-sn-watcher")
    session.wait_for_host()


# ---- Budgie ----


def start_budgie(session: Session, applet: str) -> None:
    session.start_system_bus("logind", "upower")
    session.environment["XDG_CURRENT_DESKTOP"] = "Budgie:GNOME"
    session.tell_bus()
    panel = "com.solus-project.budgie-panel"
    path = "/com/solus-project/budgie-panel"
    gsettings(session, panel, panels=f"['{BUDGIE_PANEL}']", migration_level="9")
    gsettings(
        session,
        f"{panel}.panel:{path}/panels/{{{BUDGIE_PANEL}}}/",
        location="top",
        size="36",
        applets=f"['{BUDGIE_APPLET}']",
    )
    gsettings(session, f"{panel}.applet:{path}/applets/{{{BUDGIE_APPLET}}}/", name=applet, alignment="center")
    session.start("xfwm4", "--compositor=off")


def start_budgie_tray(session: Session) -> None:
    start_budgie(session, "System Tray")
    session.start("budgie-daemon")
    budgie_panel_comes(session)


def start_budgie_indicator(session: Session) -> None:
    start_budgie(session, "AppIndicator Applet")
    # The daemon hosts icons itself where nobody does.
    start_indicators(session)
    session.start("budgie-daemon")
    budgie_panel_comes(session)


def budgie_panel_comes(session: Session) -> None:
    session.keep("panel", "budgie-panel")
    session.wait_for_name("org.budgie_desktop.Panel")
    session.wait_for_host()
