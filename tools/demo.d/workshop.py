# SPDX-License-Identifier: MIT
"""What is made before the scenes begin: the program, its preloads, icons, and the machines that it finds."""

import configparser
import fcntl
import os
import shutil
import subprocess
from pathlib import Path

from failure import fail
from stage.project import ROOT
from subjects import IMAGES, MODULE_TREES, RELEASE, Machine

HERE = Path(__file__).resolve().parent
PROGRAM = ROOT / "build" / "release" / "veldrin"
RESULT = ROOT / "build" / "demo"
MACHINE = HERE / "machine"
MODULES = MACHINE / "modules"
LOGO = ROOT / "art" / "logo.svg"
LAUNCHER_SIZES = (16, 24, 32, 48, 64, 128)


class Workshop:
    """The temporary folder, and what is made in it before the story begins."""

    def __init__(self, folder: Path) -> None:
        self.folder = folder
        self.log_file = folder / "log.txt"
        self.log = self.log_file.open("ab")
        self.quick_sleep = folder / "quick_sleep.so"
        self.uname = folder / "uname.so"
        self.share = folder / "share"
        self._machine = folder / "machine"

    def build(self) -> None:
        # Of two demos at a time, one waits here.
        result = os.open(RESULT, os.O_RDONLY)
        fcntl.flock(result, fcntl.LOCK_EX)
        self._run("cmake", "--preset", "release")
        self._run("cmake", "--build", "--preset", "release")
        os.close(result)
        source = ROOT / "tests" / "preload" / "quick_sleep.c"
        self._run("cc", "-shared", "-fPIC", "-o", self.quick_sleep, source, "-ldl")
        self._run("cc", "-shared", "-fPIC", f'-DRELEASE="{RELEASE}"', "-o", self.uname, MACHINE / "uname.c")
        self._draw_launcher_icons()
        self._furnish_machine()

    def _draw_launcher_icons(self) -> None:
        for size in LAUNCHER_SIZES:
            folder = self.share / "icons" / "hicolor" / f"{size}x{size}" / "apps"
            folder.mkdir(parents=True)
            self._run(
                "rsvg-convert",
                f"--width={size}",
                f"--height={size}",
                f"--output={folder / 'org.veldrin.Veldrin.png'}",
                LOGO,
            )

    def _furnish_machine(self) -> None:
        for version in IMAGES:
            self._write(f"boot/vmlinuz-{version}")
        for version in MODULE_TREES:
            (self._machine / "lib" / "modules" / version).mkdir(parents=True)
        tools = self._machine / "bin"
        tools.mkdir()
        shutil.copy(MACHINE / "modinfo", tools)

        details = configparser.ConfigParser(interpolation=None, delimiters=["="])
        details.optionxform = str  # parameters may have capitals
        details.read(MACHINE / "details.ini", encoding="utf-8")
        for line in MODULES.read_text().splitlines():
            module = line.split()[0]
            told = dict(details[module]) if module in details else {}
            path = told.pop("path", "kernel")
            answer = {"filename": f"/lib/modules/{RELEASE}/{path}/{module}.ko.xz", "license": "GPL"} | told
            self._write(f"bin/modinfo.d/{module}", "".join(f"{key + ':':<16}{text}\n" for key, text in answer.items()))
            for name in ("version", "srcversion", "taint"):
                if name in told:
                    self._write(f"sys/module/{module}/{name}", told[name] + "\n")
            if f"{module} parameters" in details:
                for name, value in details[f"{module} parameters"].items():
                    self._write(f"sys/module/{module}/parameters/{name}", value + "\n")

    def _write(self, path: str, text: str = "") -> None:
        file = self._machine / path
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text)

    def way_into(self, machine: Machine) -> list[str | Path]:
        """The command in front of a program that runs it on this machine. The real one has all else but /sys."""
        options: list[str | Path] = ["bwrap", "--die-with-parent", "--cap-drop", "ALL"]
        for entry in sorted(Path("/").iterdir()):
            if entry.name in ("boot", "lib", "proc", "sys"):
                continue
            if entry.is_symlink():
                options += ["--symlink", os.readlink(entry), entry]
            else:
                options += ["--dev-bind", entry, entry]
        # In the real one there may be no folder to put these into.
        for entry in sorted(Path("/lib").resolve().iterdir()):
            if entry.name != "modules":
                options += ["--symlink", entry, Path("/lib", entry.name)]
        options += ["--ro-bind", self._machine / "lib" / "modules", "/lib/modules"]
        options += ["--ro-bind", self._machine / "sys" / "module", "/sys/module"]
        options += ["--dev-bind", "/proc", "/real-proc", "--symlink", "/real-proc/self", "/proc/self"]
        for name in ("version", "uptime", "cmdline"):
            options += ["--ro-bind", MACHINE / name, f"/proc/{name}"]
        if machine.modules:
            options += ["--ro-bind", MACHINE / machine.modules, "/proc/modules"]
        if machine.boot_readable:
            options += ["--ro-bind", self._machine / "boot", "/boot"]
        else:
            options += ["--perms", "0000", "--tmpfs", "/boot"]
        options += ["--ro-bind", MACHINE / machine.distribution, Path("/etc/os-release").resolve()]
        return [*options, "--setenv", "PATH", f"{self._machine / 'bin'}:{os.environ['PATH']}"]

    def _run(self, *command: str | Path) -> None:
        done = subprocess.run(command, cwd=ROOT, stdin=subprocess.DEVNULL, stdout=self.log, stderr=self.log)
        if done.returncode != 0:
            fail(f"'{' '.join(map(str, command))}' failed")
