# SPDX-License-Identifier: MIT
"""One walk after another, each by an ordinary user, and what they leave in build/demo/panels."""

from __future__ import annotations

import contextlib
import json
import os
import pwd
import shutil
import subprocess
import sys
import tempfile
from collections.abc import Iterator, Sequence
from pathlib import Path
from typing import Any

from hosts import Host
from sheet import montage, table

ROOT = Path(__file__).resolve().parents[2]
RESULT = ROOT / "build" / "demo" / "panels"
DOCS = ROOT / "docs"
PROGRAM = ROOT / "build" / "release" / "veldrin"
QUICK_SLEEP = ROOT / "build" / "panels" / "quick_sleep.so"
# What a walk reads, which may lie where only root can.
NEEDED = ("tools/panels", "tests/stage", "tests/site", "src")
USER = "veldrin-demo"
# A walk takes one minute, on a busy machine two.
PATIENCE = 600


def ordinary_user() -> str:
    """Whose sessions they are: root's, if it is root who asks, are a user's of its own."""
    if os.getuid() != 0:
        return pwd.getpwuid(os.getuid()).pw_name
    try:
        pwd.getpwnam(USER)
    except KeyError:
        subprocess.run(["useradd", "--create-home", USER], check=True)
    return USER


@contextlib.contextmanager
def stage() -> Iterator[Path]:
    """A folder that belongs to the user of the sessions, with all that a walk needs."""
    user = ordinary_user()
    with tempfile.TemporaryDirectory(prefix="veldrin-panels-", ignore_cleanup_errors=True) as name:
        folder = Path(name)
        for needed in NEEDED:
            shutil.copytree(ROOT / needed, folder / needed)
        for file in (PROGRAM, QUICK_SLEEP):
            shutil.copy(file, folder)
        (folder / "pictures").mkdir()
        if os.getuid() == 0:
            for path in (folder, *folder.rglob("*")):
                shutil.chown(path, user, user)
        yield folder


def walk(host: Host, folder: Path) -> dict[str, Any]:
    """Takes the walk through one host, in a process of its own, and returns its record."""
    print(f"\033[1m{host.title}\033[0m", flush=True)
    user = ordinary_user()
    as_user = ["--reuid", user, "--regid", user, "--init-groups"] if os.getuid() == 0 else []
    album = folder / "pictures"
    steps = [sys.executable, folder / "tools" / "panels" / "walk.py", host.name]
    files = [folder / PROGRAM.name, folder / QUICK_SLEEP.name, album]
    # Where this process dies, the walk still ends its session.
    command = ["setpriv", "--pdeathsig", "TERM", *as_user, "--", *steps, *files]
    environment = {"PATH": os.environ["PATH"], "HOME": str(folder), "USER": user, "PYTHONDONTWRITEBYTECODE": "1"}
    with subprocess.Popen(command, env=environment, cwd=folder, stdin=subprocess.DEVNULL) as process:
        try:
            process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            print(f"panels: {host.name}: no end after {PATIENCE} s", file=sys.stderr)
        finally:
            # It ends its session first, if it has not.
            process.terminate()
    hand_over(album, host)
    record = album / f"{host.name}.json"
    if not record.exists():
        return {"host": host.name, "problem": f"the walk ended with {process.returncode}"}
    return json.loads(record.read_text())


def hand_over(album: Path, host: Host) -> None:
    """Replaces what an earlier walk through that host left."""
    RESULT.mkdir(parents=True, exist_ok=True)
    for mark in ("-[0-9]*.png", "-failed.png", "-log.txt", ".json"):
        for old in RESULT.glob(host.name + mark):
            old.unlink()
        for made in album.glob(host.name + mark):
            shutil.copyfile(made, RESULT / made.name)


def finish(hosts: Sequence[Host], records: Sequence[dict[str, Any]]) -> None:
    """The table and the montage."""
    (RESULT / "table.md").write_text(table(hosts, records))
    montage(hosts, records, RESULT).save(RESULT / "panels.png", optimize=True)


def lacks(record: dict[str, Any]) -> list[str]:
    """What a user of that host would miss, whatever the host is known to do."""
    if record["problem"]:
        return [record["problem"]]
    told = [f"no icon at {sight['step']}" for sight in record["sights"] if not sight["box"]]
    told += [f"no window {name}" for name, opened in record["windows"].items() if not opened]
    if not record["quits"]:
        told.append("Quit does not end the program")
    return told


def tour(hosts: Sequence[Host], renew_docs: bool) -> int:
    """Walks through these hosts. Returns 1 where one of them lacks something."""
    with stage() as folder:
        records = [walk(host, folder) for host in hosts]
    finish(hosts, records)
    print((RESULT / "table.md").read_text())
    lacking = [(record["host"], lack) for record in records for lack in lacks(record)]
    for host, lack in lacking:
        print(f"panels: {host}: {lack} (its pictures and log are in build/demo/panels)", file=sys.stderr)
    if renew_docs and not lacking:
        shutil.copyfile(RESULT / "panels.png", DOCS / "panels.png")
    return bool(lacking)
