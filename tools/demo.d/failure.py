# SPDX-License-Identifier: MIT
"""How a demo fails: with a word about what is not as it should be."""

from typing import NoReturn


class Failure(Exception):
    pass


def fail(problem: str) -> NoReturn:
    raise Failure(problem)
