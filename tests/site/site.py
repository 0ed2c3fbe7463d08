#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The site as a command. Python scripts take it from tests/stage/site.py."""

from __future__ import annotations

import argparse
import ctypes
import json
import os
import signal
import subprocess
import sys
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.append(str(Path(__file__).resolve().parents[1]))
from stage.site import KernelSite, order  # noqa: E402


def end_with_parent() -> None:
    PR_SET_PDEATHSIG = 1
    ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGTERM)


def run(command: list[str], http2: bool) -> int:
    def forward(number: int, _: object) -> None:
        if process is None:
            raise SystemExit(128 + number)
        process.send_signal(number)

    process = None
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, forward)
    with KernelSite(http2) as site:
        # Ctrl-C reaches the command by itself; the site ends after it, not before.
        signal.signal(signal.SIGINT, lambda *_: None)
        try:
            process = subprocess.Popen(command, env={**os.environ, **site.environment}, preexec_fn=end_with_parent)
        except OSError as problem:
            print(f"site.py: {problem}", file=sys.stderr)
            return 127
        status = process.wait()
    return status if status >= 0 else 128 - status


def value(text: str) -> object:
    """An option's value: JSON where it is JSON, else the text as it stands."""
    try:
        return json.loads(text)
    except ValueError:
        return text


def control(arguments: argparse.Namespace) -> object:
    socket = arguments.control or os.environ.get("KERNEL_SITE")
    if not socket:
        raise ValueError("no site is running here: KERNEL_SITE is not set")
    if arguments.order == "publish":
        wanted = {name: getattr(arguments, name) for name in ("stable", "mainline", "longterm")}
        return order(socket, "publish", **{name: version for name, version in wanted.items() if version})
    if arguments.order == "misbehave":
        options = dict(option.split("=", 1) for option in arguments.options if "=" in option)
        if len(options) != len(arguments.options):
            raise ValueError("an option reads name=value")
        return order(
            socket,
            "misbehave",
            host=arguments.host,
            prefix=arguments.prefix,
            kind=arguments.kind,
            options={name: value(text) for name, text in options.items()},
        )
    return order(socket, arguments.order)


def main() -> int:
    parser = argparse.ArgumentParser(description="A local copy of the kernel's site.")
    commands = parser.add_subparsers(dest="command", required=True)
    runner = commands.add_parser("run", help="start the site, run a command with it, end the site")
    runner.add_argument("--http2", action="store_true", help="speak HTTP/2 to who asks for it")
    runner.add_argument("words", nargs=argparse.REMAINDER, metavar="-- COMMAND")
    teller = commands.add_parser("ctl", help="give an order to the site that runs around this command")
    teller.add_argument("--control", help="the site's control socket (default: KERNEL_SITE)")
    orders = teller.add_subparsers(dest="order", required=True)
    publish = orders.add_parser("publish", help="publish new releases")
    for channel in ("stable", "mainline", "longterm"):
        publish.add_argument(f"--{channel}", metavar="VERSION")
    misbehave = orders.add_parser("misbehave", help="answer some requests otherwise")
    for name in ("host", "prefix", "kind"):
        misbehave.add_argument(name)
    misbehave.add_argument("options", nargs="*", metavar="name=value")
    for name, text in (
        ("behave", "end all misbehaviour"),
        ("requests", "list all requests, one a line"),
        ("clear", "forget the requests"),
        ("connections", "list what the proxy was asked for"),
        ("last-modified", "show the front page's Last-Modified"),
    ):
        orders.add_parser(name, help=text)
    arguments = parser.parse_args()

    try:
        if arguments.command == "run":
            command = arguments.words[1:] if arguments.words[:1] == ["--"] else arguments.words
            if not command:
                parser.error("run needs a command")
            return run(command, arguments.http2)
        said = control(arguments)
    except (OSError, ValueError, RuntimeError) as problem:
        print(f"site.py: {problem}", file=sys.stderr)
        return 2
    for line in said if isinstance(said, list) else [said] if said is not None else []:
        print(line if isinstance(line, str) else json.dumps(line, ensure_ascii=False))
    return 0


if __name__ == "__main__":
    sys.exit(main())
