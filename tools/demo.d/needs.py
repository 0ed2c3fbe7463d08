# SPDX-License-Identifier: MIT
"""What the demo needs of the machine, by Debian package."""

import importlib.util
import shutil
from pathlib import Path

INDICATORS = Path("/usr/libexec/ayatana-indicator-application/ayatana-indicator-application-service")
ACCESSIBILITY = Path("/usr/libexec/at-spi-bus-launcher")
XFCONF = Path("/usr/share/dbus-1/services/org.xfce.Xfconf.service")
PLUGINS = Path("/usr/share/xfce4/panel/plugins")


# What must be there, as a program on the search path or a file, and the Debian package that brings it.
NEEDS = {
    "cmake": "cmake",
    "ninja": "ninja-build",
    "c++": "g++",
    "cc": "gcc",
    "pkg-config": "pkgconf",
    "/usr/include/gtk-3.0/gtk/gtk.h": "libgtk-3-dev",
    "/usr/include/libayatana-appindicator3-0.1/libayatana-appindicator/app-indicator.h": "libayatana-appindicator3-dev",
    "wget": "wget",
    "curl": "curl",
    "git": "git",
    "openssl": "openssl",
    "/usr/sbin/nginx": "nginx-light",
    "/usr/sbin/fcgiwrap": "fcgiwrap",
    "/usr/lib/cgit/cgit.cgi": "cgit",
    "Xvfb": "xvfb",
    "dbus-daemon": "dbus-daemon",
    "xfwm4": "xfwm4",
    "xfce4-panel": "xfce4-panel",
    str(PLUGINS / "indicator.desktop"): "xfce4-indicator-plugin",
    str(XFCONF): "xfconf",
    str(INDICATORS): "ayatana-indicator-application",
    str(ACCESSIBILITY): "at-spi2-core",
    "bwrap": "bubblewrap",
    "rsvg-convert": "librsvg2-bin",
    "zenity": "zenity",
    "xdotool": "xdotool",
    "xprop": "x11-utils",
    "xwininfo": "x11-utils",
    "xsetroot": "x11-xserver-utils",
    "weston": "weston",
    "weston-screenshooter": "weston",
    "/usr/share/icons/Adwaita/index.theme": "adwaita-icon-theme",
    "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf": "fonts-dejavu-core",
    "/usr/share/fonts-droid-fallback/truetype/DroidSansFallback.ttf": "fonts-droid-fallback",
}

MODULES = {"gi": "python3-gi", "PIL": "python3-pil"}


def missing() -> list[str]:
    """The packages that bring what is not there."""
    packages = {package for need, package in NEEDS.items() if not shutil.which(need) and not Path(need).exists()}
    packages |= {package for module, package in MODULES.items() if not importlib.util.find_spec(module)}
    return sorted(packages)
