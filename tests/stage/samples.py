# SPDX-License-Identifier: MIT
"""Real pages of the kernel's site, which are no part of the repository, where the machine has them."""

import os
from pathlib import Path

import pytest
from stage.project import ROOT


def find_samples() -> Path | None:
    if named := os.environ.get("VELDRIN_SAMPLES"):
        return Path(named)
    return next((index.parent for index in sorted(ROOT.parent.glob("*/data/releases_json"))), None)


SAMPLES = find_samples()


def samples(*patterns: str) -> list[pytest.param]:
    files = sorted(file for pattern in patterns for file in SAMPLES.glob(pattern)) if SAMPLES else []
    return [pytest.param(file, id=file.name) for file in files]
