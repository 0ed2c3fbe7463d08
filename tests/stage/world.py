# SPDX-License-Identifier: MIT
"""Other machines: what the program finds at `/` while it looks around, a tree of files or the real one with changes."""

import functools
import json
import os
import shutil
import subprocess
from collections.abc import Iterator, Mapping, Sequence
from contextlib import contextmanager
from dataclasses import dataclass, field
from pathlib import Path

from stage.applet import Machine
from stage.project import BUILD, ROOT, instruments

MODINFO = """#!/bin/sh
printf '%s:%s\\n' "$#" "$*" >>'{folder}/calls'
exec cat "{folder}/answers/$1"
"""


def bubblewrap(*options: str | Path) -> list[str | Path]:
    return ["bwrap", "--die-with-parent", *options, "--"]


def other_world(root: Path, *own: Path) -> list[str | Path]:
    """Starts a program on a machine with this tree as `/`: the real one's folders are there, but read-only; its root
    and /tmp are the tree's. `own` are folders that show and can be written."""
    (root / "tmp").mkdir(parents=True)
    options: list[str | Path] = ["--bind", root, "/"]
    for entry in sorted(Path("/").iterdir()):
        if entry.name in ("dev", "proc", "tmp"):
            continue
        if entry.is_symlink():
            options += ["--symlink", os.readlink(entry), entry]
        elif entry.is_dir():
            options += ["--ro-bind", entry, entry]
    options += ["--dev", "/dev", "--proc", "/proc", "--bind", root / "tmp", "/tmp"]
    options += ["--ro-bind-try", "/tmp/.X11-unix", "/tmp/.X11-unix"]
    # Where the checkout lies is hidden by now if it lies below /tmp; the sanitizers read files of it.
    options += ["--ro-bind", ROOT, ROOT]
    for folder in (BUILD.folder, *own):
        options += ["--bind", folder, folder]
    return bubblewrap(*options)


@dataclass
class Module:
    line: bytes  # as /proc/modules has it, without the line feed
    files: Mapping[bytes, bytes] = field(default_factory=dict)  # below the module's folder in /sys/module

    @property
    def name(self) -> bytes:
        return self.line.split()[0]


def machine_with_modules(
    machine: Machine, modules: Sequence[Module], files: Mapping[str, bytes] | None = None, *options: str | Path
) -> list[str | Path]:
    """Starts a program on a machine with these modules, and with these contents in `files` below / (those in /proc
    need not exist; the folders of all others must). Takes further options of bubblewrap."""
    folder = machine.folder / "modules"
    (folder / "proc").mkdir(parents=True)
    listed = folder / "list"
    listed.write_bytes(b"".join(module.line + b"\n" for module in modules))
    sys_module = os.fsencode(folder / "sys")
    os.mkdir(sys_module)
    for module in modules:
        for name, contents in module.files.items():
            path = os.path.join(sys_module, module.name, name)
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "wb") as file:
                file.write(contents)

    # The kernel lets nobody add files to its own /proc.
    real = folder / "proc"
    world: list[str | Path] = ["--dev-bind", "/", "/", "--bind", "/proc", real, "--tmpfs", "/proc"]
    given = dict(files or {})
    for name in ("self", "thread-self", "version", "cmdline", "uptime", "mounts", "meminfo", "stat", "sys"):
        if f"/proc/{name}" not in given:
            world += ["--symlink", real / name, f"/proc/{name}"]
    world += ["--ro-bind", listed, "/proc/modules", "--ro-bind", folder / "sys", "/sys/module"]
    for number, (path, contents) in enumerate(given.items()):
        made = folder / f"file-{number}"
        made.write_bytes(contents)
        # Debian's /etc/os-release is a link, and not every bubblewrap mounts on what that leads to.
        world += ["--ro-bind", made, os.path.realpath(path)]
    # Nor does this one have the folders of processes, which the search for leaks needs.
    world += ["--setenv", "ASAN_OPTIONS", machine.without_leak_search["ASAN_OPTIONS"]]
    return bubblewrap(*world, *options)


# ---- A tree of files ----


def text(value: str | bytes) -> bytes:
    return value if isinstance(value, bytes) else value.encode()


def decoded(value: object) -> object:
    """What the dump printed, whose characters are bytes, as text."""
    if isinstance(value, str):
        return value.encode("latin-1").decode(errors="surrogateescape")
    if isinstance(value, list):
        return [decoded(item) for item in value]
    if isinstance(value, dict):
        return {key: decoded(item) for key, item in value.items()}
    return value


@functools.cache
def own_folders() -> dict[Path, Path]:
    """What the system's programs need besides /usr, and where it truly lies. Of /lib that is all but the modules."""
    libraries = (path for path in Path("/lib").iterdir() if path.name != "modules")
    return {path: path.resolve() for path in (Path("/bin"), *Path("/").glob("lib?*"), *libraries)}


class World:
    """Paths are relative to the machine's root. The system's own programs are there to be run, and a real /proc stands
    at /realproc; everything else is what the test puts there."""

    def __init__(self, folder: Path) -> None:
        self.root = folder / "root"
        self.environment: dict[str, str] = {}
        self.kernel: str | None = None  # release, machine, host name; None for the real ones
        self.tools = folder / "tools"
        self._locked: list[Path] = []
        for made in (self.root / "proc", self.root / "lib", self.tools / "answers"):
            made.mkdir(parents=True)
        # The sanitizers look at their process, which is the second of its world.
        for name in ("self", "thread-self", "2"):
            (self.root / "proc" / name).symlink_to(f"/realproc/{name}")
        for path, target in own_folders().items():
            if target != path:
                (self.root / path.relative_to("/")).symlink_to(target)
        modinfo = self.tools / "modinfo"
        modinfo.write_text(MODINFO.replace("{folder}", str(self.tools)))
        modinfo.chmod(0o755)

    def put(self, files: Mapping[str, str | bytes]) -> None:
        for path, content in files.items():
            file = self.root / path
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_bytes(text(content))

    def make_folder(self, path: str) -> None:
        (self.root / path).mkdir(parents=True, exist_ok=True)

    def lock(self, path: str) -> None:
        """Takes all permissions from a file or a folder, which count for root as well."""
        assert (self.root / path).exists()
        self._locked.append(self.root / path)

    def answer_modinfo(self, module: str, printed: str | bytes) -> None:
        (self.tools / "answers" / module).write_bytes(text(printed))

    def modinfo_calls(self) -> list[str]:
        """Each as the number of its arguments, a colon, and these."""
        calls = self.tools / "calls"
        return calls.read_text().splitlines() if calls.exists() else []

    def run(self, *arguments: str | bytes) -> subprocess.CompletedProcess:
        variables = instruments() | {"PATH": f"{self.tools}:/usr/bin:/bin"} | self.environment
        if self.kernel is not None:
            variables["KERNEL_NAMES"] = self.kernel
        with self._without_permissions():
            return subprocess.run(
                [*self._command(), BUILD.driver("system_dump"), *arguments],
                env=variables,
                stdin=subprocess.DEVNULL,
                capture_output=True,
                timeout=60,
            )

    def dump(self, *arguments: str | bytes) -> list[dict]:
        result = self.run(*arguments)
        assert (result.returncode, result.stderr) == (0, b"")
        return [decoded(json.loads(line)) for line in result.stdout.splitlines()]

    def system(self) -> dict:
        (record,) = self.dump("system")
        return record

    def modules(self) -> dict:
        (record,) = self.dump("modules")
        return record

    @contextmanager
    def _without_permissions(self) -> Iterator[None]:
        # Given back at once: who clears the folder away must be able to look into it.
        modes = [(path, path.stat().st_mode) for path in self._locked]
        try:
            for path, _ in modes:
                path.chmod(0)
            yield
        finally:
            for path, mode in reversed(modes):
                path.chmod(mode)

    def _command(self) -> list[str | Path]:
        shown = [Path("/usr"), ROOT, *(path for path, target in own_folders().items() if target == path)]
        options: list[str | Path] = ["--cap-drop", "ALL", "--bind", self.root, "/"]
        for path in shown:
            options += ["--ro-bind", path, path]
        options += ["--ro-bind-try", "/etc/ld.so.cache", "/etc/ld.so.cache"]
        options += ["--dev", "/dev", "--unshare-pid", "--proc", "/realproc"]
        for path in (BUILD.folder, self.tools):
            options += ["--bind", path, path]
        bwrap, *options = bubblewrap(*options)
        return [shutil.which(bwrap), *options]
