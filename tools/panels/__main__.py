# SPDX-License-Identifier: MIT
"""Which packages the hosts take, and the walks through them. Called by `run`.

    python3 tools/panels packages [HOST…]
    python3 tools/panels walk [HOST…]
    python3 tools/panels renew            walk through all, and renew the picture in docs/
"""

import signal
import sys
from typing import NoReturn

from hosts import TOOLS, chosen


def stopped(number: int, _: object) -> NoReturn:
    raise SystemExit(128 + number)


def main() -> None:
    command, *names = sys.argv[1:]
    try:
        hosts = chosen(names)
    except ValueError as problem:
        sys.exit(f"panels: {problem}")
    if command == "packages":
        print(*sorted({*TOOLS, *(package for host in hosts for package in host.packages)}))
        return
    # Before these packages are installed it cannot be found.
    from tour import tour

    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, stopped)
    sys.exit(tour(hosts, renew_docs=command == "renew"))


if __name__ == "__main__":
    main()
