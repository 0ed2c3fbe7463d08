# SPDX-License-Identifier: MIT
"""The local copy of the kernel's site, for programs that speak to the real addresses. See tests/site/README.md."""

from __future__ import annotations

import contextlib
import json
import os
import select
import shutil
import socket
import subprocess
import sys
import time
from dataclasses import dataclass
from pathlib import Path
from typing import Any

KEEPER = Path(__file__).resolve().parents[1] / "site" / "keeper.py"
START_DEADLINE = 30.0
END_DEADLINE = 10.0


@dataclass(frozen=True)
class Request:
    """One request that the site has seen. The status is None for as long as the answer is held back."""

    method: str
    host: str
    path: str
    status: int | None
    if_modified_since: str
    agent: str
    time: float


def order(control: str | Path, do: str, **details: Any) -> Any:
    """Gives one order to a running site and returns what it answers."""
    with socket.socket(socket.AF_UNIX) as line:
        line.settimeout(END_DEADLINE)
        line.connect(str(control))
        line.sendall(json.dumps({"do": do, **details}).encode() + b"\n")
        with line.makefile("rb") as answer:
            reply = json.loads(answer.readline())
    if "error" in reply:
        raise ValueError(reply["error"])
    return reply["result"]


class KernelSite:
    def __init__(self, http2: bool = False):
        self.http2 = http2
        self.environment: dict[str, str] = {}
        self.folder: Path | None = None
        self.process: subprocess.Popen | None = None

    def __enter__(self) -> KernelSite:
        # The keeper is spared what a test does to its own environment, such as preloads and stand-ins on PATH.
        kept = {name: os.environ[name] for name in ("PATH", "TMPDIR") if name in os.environ}
        command = [sys.executable, str(KEEPER), str(os.getpid()), *(["http2"] if self.http2 else [])]
        self.process = subprocess.Popen(
            command,
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            cwd="/",
            env={**kept, "PYTHONDONTWRITEBYTECODE": "1"},
            start_new_session=True,
        )
        try:
            ready, _, _ = select.select([self.process.stdout], [], [], START_DEADLINE)
            line = self.process.stdout.readline() if ready else b""
            said = json.loads(line or b'{"error": "its keeper said nothing"}')
            if "error" in said:
                raise RuntimeError(f"The site did not start. {said['error']}")
        except BaseException:
            self.__exit__()
            raise
        self.folder = Path(said["folder"])
        self.environment = said["environment"]
        return self

    def __exit__(self, *_: object) -> None:
        for stream in (self.process.stdin, self.process.stdout):
            with contextlib.suppress(BrokenPipeError):
                stream.close()
        try:
            self.process.wait(END_DEADLINE)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        if self.folder:
            shutil.rmtree(self.folder, ignore_errors=True)

    def order(self, do: str, **details: Any) -> Any:
        return order(self.environment["KERNEL_SITE"], do, **details)

    @property
    def last_modified(self) -> str:
        """What the front page's Last-Modified says."""
        return self.order("last-modified")

    def publish(self, **versions: str) -> None:
        """Publishes new releases, e.g. stable="7.2.5"; with none, only Last-Modified moves on."""
        self.order("publish", **versions)

    def misbehave(self, host: str, path_prefix: str, kind: str | int, **options: Any) -> None:
        """From now on, until behave(), answers requests below the prefix as tests/site/README.md says for that kind."""
        self.order("misbehave", host=host, prefix=path_prefix, kind=str(kind), options=options)

    def behave(self) -> None:
        self.order("behave")

    def requests(self, **wanted: Any) -> list[Request]:
        """All requests so far, or those whose fields have the wanted values, in the order of their ends."""
        found = [
            Request(**{name: record[name] for name in Request.__dataclass_fields__})
            for record in self.order("requests")
        ]
        return [request for request in found if all(getattr(request, name) == value for name, value in wanted.items())]

    def wait_for_requests(self, count: int = 1, deadline: float = 10.0, **wanted: Any) -> list[Request]:
        """The requests with the wanted values, once there are so many of them."""
        end = time.monotonic() + deadline
        while len(found := self.requests(**wanted)) < count:
            if time.monotonic() > end:
                raise TimeoutError(f"{len(found)} of {count} requests with {wanted} among {self.requests()}")
            time.sleep(0.02)
        return found

    def clear_requests(self) -> None:
        self.order("clear")

    def connections(self) -> list[str]:
        """What the proxy was asked to connect to, e.g. www.kernel.org:443, the refused ones included."""
        return self.order("connections")
