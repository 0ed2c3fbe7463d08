# SPDX-License-Identifier: MIT
"""A program in place of one that the applet starts, which writes down what it was started with."""

import re
from pathlib import Path

from stage.probe import ABOUT, SETTINGS
from stage.user import User
from stage.waiting import wait_until

# The variables that lead wget to its file of settings.
SETTING_NAMES = ("SYSTEM_WGETRC", "SYSTEM_WGET2RC")

# What a script may do that keeps a log: from then on, the number that is free first is its own.
LOGGING = "exec 3>'{seen}.log'; echo 'began = now' >&3"
FETCHING = "/usr/bin/wget -q -O '{seen}.page' https://www.kernel.org/; echo $? >'{seen}.status'"


class Witness:
    """A program that writes down its environment and its open files, and does then what its script says."""

    def __init__(self, path: Path, *script: str) -> None:
        self.path = path
        self._seen = path.with_name(f"{path.name}-saw")
        lines = [
            "/usr/bin/env -0 >'{seen}.new'",
            "/bin/ls -l /proc/self/fd >'{seen}.files'",
            "/bin/mv '{seen}.new' '{seen}.environment'",
            *script,
        ]
        path.unlink(missing_ok=True)
        path.write_text("\n".join(["#!/bin/sh", *lines]).replace("{seen}", str(self._seen)) + "\n")
        path.chmod(0o755)

    def file(self, name: str) -> Path:
        return Path(f"{self._seen}.{name}")

    @property
    def environment(self) -> dict[str, str]:
        """Waited for."""
        wait_until(lambda: self.file("environment").exists(), f"{self.path.name}'s call")
        return dict(line.partition("=")[::2] for line in self.file("environment").read_text().split("\0")[:-1])

    @property
    def files(self) -> dict[int, str]:
        """What it has inherited, by number."""
        _ = self.environment
        found = re.findall(r" (\d+) -> (.*)$", self.file("files").read_text(), re.MULTILINE)
        # One is the list itself.
        return {int(number): target for number, target in found if not re.search(r"/proc/\d+/fd$", target)}

    @property
    def settings(self) -> dict[str, str | None]:
        environment = self.environment
        return {name: environment.get(name) for name in SETTING_NAMES}

    def page(self) -> str:
        """What its wget has brought, waited for."""
        status = wait_until(lambda: self.file("status").exists() and self.file("status").read_text(), "its wget's end")
        assert status == "0\n"
        return self.file("page").read_text()


def browser(user: User) -> Witness:
    """The user's program for web pages and for mail."""
    witness = Witness(user.folder / "browser", LOGGING, FETCHING)
    applications = user.home / ".local" / "share" / "applications"
    applications.mkdir(parents=True)
    entry = f"[Desktop Entry]\nType=Application\nName=Browser\nExec={witness.path} %u\n"
    (applications / "browser.desktop").write_text(entry)
    schemes = "".join(f"x-scheme-handler/{scheme}=browser.desktop\n" for scheme in ("https", "mailto"))
    (user.home / ".config" / "mimeapps.list").write_text(f"[Default Applications]\n{schemes}")
    return witness


LINKS = {SETTINGS: "www.kernel.org", ABOUT: "support@veldrin.example"}
