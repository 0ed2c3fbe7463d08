# SPDX-License-Identifier: MIT
"""Shows Veldrin at work and takes its pictures: the real program with the real wget and curl, in a real panel on a
display of its own, against a local copy of the kernel's site. Needs no network.

    tools/demo           write build/demo: the pictures, README.txt with a line for each, log.txt with the tools' words
    tools/demo --docs    the same, and renew the pictures in docs/ that are such pictures

What the windows tell of the machine is invented, too, in tools/demo.d/machine: the pictures are the same everywhere.
"""

import argparse
import sys
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.append(str(Path(__file__).resolve().parents[2] / "tests"))
from needs import missing  # noqa: E402


def main() -> None:
    parser = argparse.ArgumentParser(
        prog="demo", description="Shows Veldrin at work and takes its pictures, in build/demo."
    )
    parser.add_argument("--docs", action="store_true", help="renew the pictures in docs/, too")
    arguments = parser.parse_args()
    if packages := missing():
        sys.exit(f"demo: these Debian packages are missing: {' '.join(packages)}")
    # Before these packages are installed it cannot be imported.
    from play import play

    play(renew_docs=arguments.docs)


if __name__ == "__main__":
    main()
