#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Starts the Snap's program as `snap run` does, with the Snap's own folders and chain of commands, but without its
confinement, which takes a running snapd. It stands where snapd puts the command for users."""

import os
import sys
from pathlib import Path

import yaml

NAME = Path(sys.argv[0]).name
SNAP = Path("/snap") / NAME / "current"


def main() -> None:
    about = yaml.safe_load((SNAP / "meta/snap.yaml").read_text())
    app = about["apps"][NAME]
    revision = SNAP.readlink().name
    data = Path(os.environ["HOME"]) / "snap" / NAME / revision
    data.mkdir(parents=True, exist_ok=True)
    current = data.with_name("current")
    if not current.is_symlink():
        current.symlink_to(revision)
    environment = os.environ | {
        "SNAP": str(SNAP),
        "SNAP_NAME": NAME,
        "SNAP_VERSION": about["version"],
        "SNAP_REVISION": revision,
        "SNAP_USER_DATA": str(data),
    }
    words = [*(str(SNAP / link) for link in app["command-chain"]), str(SNAP / app["command"]), *sys.argv[1:]]
    os.execve(words[0], words, environment)


if __name__ == "__main__":
    main()
