#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Lays out the tree of the Snap as snapcraft does from its recipe, as far as that takes nothing from Ubuntu: it builds
the program with the recipe's own parameters and script, and writes what snapd reads. What snapcraft would unpack beside
it, the packages of stage-packages and the extension's libraries, must be on the system.

    snap_tree.py SCRATCH PRIME      a folder to build in, and the tree's own
"""

import os
import re
import shutil
import subprocess
import sys
from pathlib import Path
from typing import Any

import yaml

ROOT = Path(__file__).resolve().parents[2]
RECIPE = ROOT / "packaging/snap/snapcraft.yaml"

# What snapcraft writes into meta/snap.yaml as it stands in the recipe.
KEPT = ("name", "title", "version", "summary", "description", "license", "base", "grade", "confinement")
KEPT_OF_APP = ("command", "command-chain", "common-id", "autostart", "plugs")

# What the extension `gnome` adds: for the app, and for the Snap.
GNOME_START = "snap/command-chain/desktop-launch"
GNOME_APP_PLUGS = (
    "desktop", "desktop-legacy", "gsettings", "opengl", "wayland", "x11", "mount-observe", "calendar-service",
)  # fmt: skip
GNOME = {
    "assumes": ["command-chain", "snapd2.43"],
    "environment": {
        "GTK_USE_PORTAL": "1",
        "SNAP_DESKTOP_RUNTIME": "$SNAP/gnome-platform",
    },
    "layout": {
        "/usr/share/libdrm": {"bind": "$SNAP/gnome-platform/libdrm"},
        "/usr/share/xml/iso-codes": {"bind": "$SNAP/gnome-platform/usr/share/xml/iso-codes"},
    },
    "plugs": {
        "desktop": {"mount-host-font-cache": False},
        "gnome-46-2404": {
            "interface": "content",
            "default-provider": "gnome-46-2404",
            "target": "$SNAP/gnome-platform",
        },
        "gtk-3-themes": {
            "interface": "content",
            "default-provider": "gtk-common-themes",
            "target": "$SNAP/data-dir/themes",
        },
        "icon-themes": {
            "interface": "content",
            "default-provider": "gtk-common-themes",
            "target": "$SNAP/data-dir/icons",
        },
    },
}
# The extension's own script leads the program to its libraries, and its settings to the Snap's data.
DESKTOP_LAUNCH = """#!/bin/sh
export XDG_CONFIG_HOME="$SNAP_USER_DATA/.config"
exec "$@"
"""


def build(part: dict[str, Any], scratch: Path) -> Path:
    """What the program's part installs, mended by the recipe's script."""
    assert part["plugin"] == "cmake", part
    folder, installed = scratch / "build", scratch / "install"
    folder.mkdir()
    configure = ["cmake", str(ROOT / part["source"]), "-G", part["cmake-generator"], *part["cmake-parameters"]]
    subprocess.run(configure, cwd=folder, check=True)
    subprocess.run(["cmake", "--build", "."], cwd=folder, check=True)
    # `craftctl default` is the plugin's own work.
    environment = os.environ | {"CRAFT_PART_INSTALL": str(installed)}
    default = 'craftctl() { [ "$*" = default ] && DESTDIR=$CRAFT_PART_INSTALL cmake --build . --target install; }'
    script = part["override-build"]
    subprocess.run(["bash", "-euc", f"{default}\n{script}"], cwd=folder, env=environment, check=True)
    return installed


def dump(part: dict[str, Any], prime: Path) -> None:
    """What a part brings that is copied alone, each file under the name that it is organised to."""
    assert part["plugin"] == "dump", part
    for file in (ROOT / part["source"]).iterdir():
        place = prime / part["organize"].get(file.name, file.name)
        place.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(file, place)


def metadata(recipe: dict[str, Any], architecture: str) -> dict[str, Any]:
    """What snapd reads."""
    links = ("contact", "issues", "source-code", "website")
    apps = {}
    for name, app in recipe["apps"].items():
        assert app["extensions"] == ["gnome"], app
        apps[name] = {key: app[key] for key in KEPT_OF_APP}
        apps[name]["command-chain"] = [GNOME_START, *app["command-chain"]]
        apps[name]["plugs"] = [*app["plugs"], *GNOME_APP_PLUGS]
    assert architecture in recipe["platforms"], f"the recipe is for {', '.join(recipe['platforms'])}"
    return {
        **{key: recipe[key] for key in KEPT},
        "architectures": [architecture],
        "links": {key: [recipe[key]] for key in links},
        "apps": apps,
        **GNOME,
    }


def desktop_entry(name: str, text: str, prime: Path) -> str:
    """The app's entry as snapd takes it: it starts the app by its name, and its icon lies in the Snap."""
    (icon,) = re.findall(r"^Icon=\$\{SNAP\}/(.*)$", text, re.MULTILINE)
    assert (prime / icon).is_file(), f"no such icon: {icon}"
    return re.sub(r"^Exec=\S+", f"Exec={name}", text, flags=re.MULTILINE)


def lay_out(scratch: Path, prime: Path) -> None:
    recipe = yaml.safe_load(RECIPE.read_text())
    parts = recipe["parts"]
    # The one that is left brings nothing: it takes away what the extension brings, too.
    assert parts.keys() == {"veldrin", "autostart", "brought"}, parts.keys()
    shutil.copytree(build(parts["veldrin"], scratch), prime)
    dump(parts["autostart"], prime)

    start = prime / GNOME_START
    start.parent.mkdir(parents=True)
    start.write_text(DESKTOP_LAUNCH)
    start.chmod(0o755)

    architecture = subprocess.run(
        ["dpkg", "--print-architecture"], check=True, capture_output=True, text=True
    ).stdout.strip()
    gui = prime / "meta/gui"
    gui.mkdir(parents=True)
    (prime / "meta/snap.yaml").write_text(yaml.safe_dump(metadata(recipe, architecture), sort_keys=False))
    shutil.copy(ROOT / recipe["icon"], gui / "icon.svg")
    for name, app in recipe["apps"].items():
        (gui / f"{name}.desktop").write_text(desktop_entry(name, (prime / app["desktop"]).read_text(), prime))


if __name__ == "__main__":
    lay_out(Path(sys.argv[1]), Path(sys.argv[2]))
