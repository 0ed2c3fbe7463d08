# SPDX-License-Identifier: MIT
"""One demo from its beginning to its end: the scenes in both themes, and what they leave in build/demo and docs/."""

import os
import shutil
import signal
import subprocess
import sys
import tempfile
from pathlib import Path
from typing import NoReturn

from album import Album
from failure import Failure
from gi.repository import GLib
from scenes import SCENES
from stage.processes import adopt_orphans, end_children
from stage.project import ROOT
from subjects import THEMES
from workshop import RESULT, Workshop

DOCS = ROOT / "docs"
STOPPING = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)
PATIENCE = 5.0  # until what is left is ended impolitely

# The pictures that the texts of the project show, and what each of them is here.
SHOWN = {
    "overview.png": "overview.png",
    "menu.png": "menu-light.png",
    "changes.png": "window-light-changes.png",
    "system.png": "window-light-system.png",
    "modules.png": "window-light-modules-iwlwifi.png",
}


def hand_over(workshop: Workshop, album: Album, failed: bool) -> None:
    """Replaces what an earlier demo left by what this one made, each file in one step."""
    made = [workshop.log_file, *workshop.folder.glob("failed.png")]
    if not failed:
        made += album.folder.iterdir()
        for old in RESULT.glob("*.png"):
            if not (album.folder / old.name).exists():
                old.unlink(missing_ok=True)
    for source in made:
        draft = RESULT / f".{os.getpid()}"
        shutil.copyfile(source, draft)
        draft.replace(RESULT / source.name)


def stop(number: int, _: object) -> NoReturn:
    for other in STOPPING:
        signal.signal(other, signal.SIG_IGN)
    raise SystemExit(128 + number)


def play(renew_docs: bool) -> None:
    for number in STOPPING:
        signal.signal(number, stop)
    adopt_orphans()
    RESULT.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(prefix="veldrin-demo-", ignore_cleanup_errors=True) as folder:
        workshop, album = Workshop(Path(folder)), Album(Path(folder, "pictures"))
        failed = True
        try:
            workshop.build()
            for theme in THEMES:
                for scene in SCENES:
                    scene(theme, workshop, album)
            album.overview()
            (album.folder / "README.txt").write_text(album.index())
            failed = False
        except (Failure, RuntimeError, OSError, GLib.Error, subprocess.SubprocessError) as problem:
            sys.exit(f"demo: {problem} (build/demo/log.txt may say why)")
        finally:
            for number in STOPPING:
                signal.signal(number, signal.SIG_IGN)
            end_children(PATIENCE)
            hand_over(workshop, album, failed)
    if renew_docs:
        for name, source in SHOWN.items():
            shutil.copyfile(RESULT / source, DOCS / name)
