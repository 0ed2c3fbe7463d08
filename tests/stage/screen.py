# SPDX-License-Identifier: MIT
"""Pictures of a display."""

import time
from collections.abc import Callable

from PIL import Image, ImageGrab


def screenshot(display: str) -> Image.Image:
    return ImageGrab.grab(xdisplay=display).convert("RGB")


def still(
    take: Callable[[], Image.Image], wait: Callable[[Callable[[], bool], str], object], seconds: float
) -> Image.Image:
    """A picture once nothing has changed for so long. `take` takes one, `wait` waits for a condition."""
    last = take()
    since = time.monotonic()

    def settled() -> bool:
        nonlocal last, since
        picture = take()
        if picture.tobytes() != last.tobytes():
            last, since = picture, time.monotonic()
        return time.monotonic() - since > seconds

    wait(settled, "the screen does not come to rest")
    return last
