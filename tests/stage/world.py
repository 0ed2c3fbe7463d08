"""A machine as a tree of files: what the program finds at `/` while it looks around."""

import functools
import json
import os
import shutil
import subprocess
from collections.abc import Iterator, Mapping
from contextlib import contextmanager
from pathlib import Path

from applet import BUILD, PASSED_ON, REPOSITORY, bubblewrap

DUMP = BUILD / "tests" / "system_dump"

MODINFO = """#!/bin/sh
printf '%s:%s\\n' "$#" "$*" >>'{folder}/calls'
exec cat "{folder}/answers/$1"
"""


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
        variables = {name: value for name, value in os.environ.items() if PASSED_ON.fullmatch(name)}
        variables |= {"PATH": f"{self.tools}:/usr/bin:/bin"} | self.environment
        if self.kernel is not None:
            variables["KERNEL_NAMES"] = self.kernel
        with self._without_permissions():
            return subprocess.run(
                [*self._command(), DUMP, *arguments],
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
        shown = [Path("/usr"), REPOSITORY, *(path for path, target in own_folders().items() if target == path)]
        options: list[str | Path] = ["--cap-drop", "ALL", "--bind", self.root, "/"]
        for path in shown:
            options += ["--ro-bind", path, path]
        options += ["--ro-bind-try", "/etc/ld.so.cache", "/etc/ld.so.cache"]
        options += ["--dev", "/dev", "--unshare-pid", "--proc", "/realproc"]
        for path in (BUILD, self.tools):
            options += ["--bind", path, path]
        bwrap, *options = bubblewrap(*options)
        return [shutil.which(bwrap), *options]
