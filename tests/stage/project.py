# SPDX-License-Identifier: MIT
"""Where the project and its build lie, and what both tell the tests."""

import os
import re
from dataclasses import dataclass
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]

# What sanitizers and coverage take from whoever runs the tests.
INSTRUMENTS = re.compile(r"(ASAN|UBSAN|LSAN|TSAN)_OPTIONS|G_SLICE|GCOV_\w+|LLVM_PROFILE_FILE")


@dataclass(frozen=True)
class Build:
    folder: Path

    @property
    def name(self) -> str:
        return self.folder.name

    @property
    def program(self) -> Path:
        return self.folder / "veldrin"

    @property
    def sanitized(self) -> bool:
        """Whether a sanitizer takes memory of its own, and keeps what was given back."""
        return self.name in ("asan", "tsan")

    def library(self, name: str) -> Path:
        """What tests/preload has under that name."""
        return self.folder / "tests" / f"lib{name}.so"

    def driver(self, name: str) -> Path:
        """A program of the tests' own."""
        return self.folder / "tests" / name


BUILD = Build((ROOT / os.environ.get("VELDRIN_BUILD", "build/debug")).resolve())


def instruments() -> dict[str, str]:
    """The environment of sanitizers and coverage."""
    return {name: value for name, value in os.environ.items() if INSTRUMENTS.fullmatch(name)}


def site(name: str) -> str:
    """An address as src/sites.h has it."""
    return re.search(rf'#define {name} "([^"]+)"', (ROOT / "src" / "sites.h").read_text())[1]


def version() -> str:
    """The version that is built."""
    return re.search(r"^project\(veldrin VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text(), re.MULTILINE)[1]
