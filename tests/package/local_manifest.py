#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Writes the Flatpak's manifest such that it is built without the net, as JSON: the modules that applications share
come from archives of Debian's, and so does what has an address. All else stays as the manifest says.

    local_manifest.py MANIFEST FOLDER      of the archives
"""

import copy
import hashlib
import json
import sys
from pathlib import Path
from typing import Any

import yaml

SHARED = "shared-modules/libayatana-appindicator/libayatana-appindicator-gtk3.json"
# What that file builds, in its order, by the names of Debian's sources.
LIBRARIES: dict[str, dict[str, Any]] = {
    "libdbusmenu": {
        "config-opts": [
            "--with-gtk=3",
            "--disable-dumper",
            "--disable-gtk-doc",
            "--disable-introspection",
            "--disable-static",
            "--disable-tests",
            "--disable-vala",
        ],
        "build-options": {
            "cflags": "-Wno-error",
            # Its configure asks for valgrind with the tests alone, and wants the answer all the same.
            "env": {"HAVE_VALGRIND_TRUE": "#", "HAVE_VALGRIND_FALSE": ""},
        },
    },
    "ayatana-ido": {"buildsystem": "cmake-ninja"},
    "libayatana-indicator": {"buildsystem": "cmake-ninja"},
    "libayatana-appindicator": {
        "buildsystem": "cmake-ninja",
        "config-opts": ["-DENABLE_BINDINGS_MONO=OFF", "-DENABLE_BINDINGS_VALA=OFF", "-DENABLE_GTKDOC=OFF"],
    },
}


def archive(folder: Path, name: str) -> Path:
    (found,) = folder.glob(f"{name}_*.orig.tar.?z")
    return found


def local_source(path: Path) -> dict[str, str]:
    return {"type": "archive", "path": str(path), "sha256": hashlib.sha256(path.read_bytes()).hexdigest()}


def replace(source: dict[str, Any], path: Path) -> None:
    """Takes the archive in place of the address. One of the same version must be the very same."""
    local = local_source(path)
    version = path.name.split("_")[1].split(".orig")[0]
    assert f"-{version}." not in source["url"] or source["sha256"] == local["sha256"], path.name
    source.clear()
    source.update(local)


def localized(manifest: dict[str, Any], folder: Path) -> dict[str, Any]:
    result = copy.deepcopy(manifest)
    modules = result["modules"]
    at = modules.index(SHARED)
    modules[at : at + 1] = [
        {"name": name, "sources": [local_source(archive(folder, name))], **options}
        for name, options in LIBRARIES.items()
    ]
    for module in modules[at + len(LIBRARIES) :]:
        for source in module["sources"]:
            if "url" in source:
                replace(source, archive(folder, module["name"]))
    return result


if __name__ == "__main__":
    print(json.dumps(localized(yaml.safe_load(Path(sys.argv[1]).read_text()), Path(sys.argv[2])), indent=4))
