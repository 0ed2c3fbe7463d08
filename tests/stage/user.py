# SPDX-License-Identifier: MIT
"""A user: home, saved state, and the environment that leads programs there and to the user's session."""

import os
from pathlib import Path

from stage.desktop import Display, SessionBus


def state_text(
    kernel: str = "",
    latest_kernel: str = "",
    mainline: str = "",
    stable: str = "",
    longterm: str = "",
    channel: str = "stable",
) -> str:
    """The state file's exact text."""
    return (
        "{\n"
        f'  "kernel": "{kernel}",\n'
        f'  "latest_kernel": "{latest_kernel}",\n'
        f'  "mainline": "{mainline}",\n'
        f'  "stable": "{stable}",\n'
        f'  "longterm": "{longterm}",\n'
        f'  "channel": "{channel}"\n'
        "}\n"
    )


class User:
    def __init__(self, folder: Path, search_path: str) -> None:
        self.folder = folder
        self.home = folder / "home"
        self.config = self.home / ".config"
        self.runtime = folder / "run"
        self.cache = folder / "cache"
        for made in (self.config, self.runtime, self.cache):
            made.mkdir(parents=True)
        self.runtime.chmod(0o700)
        self.state_file = self.config / "VeldrinWatch" / "app_state.json"
        self.icons = self.runtime / "VeldrinWatch-icons"
        self.environment = {
            "HOME": str(self.home),
            "PATH": search_path,
            "LANG": "C.UTF-8",
            "XDG_RUNTIME_DIR": str(self.runtime),
            "XDG_CACHE_HOME": str(self.cache),
            "XDG_CONFIG_HOME": str(self.config),
            "XDG_DATA_HOME": str(self.home / ".local" / "share"),
            # No accessibility bus and no settings service run here.
            "NO_AT_BRIDGE": "1",
            "GSETTINGS_BACKEND": "memory",
            "GTK_USE_PORTAL": "0",
        }

    def joins(self, bus: SessionBus, display: Display | None) -> None:
        """The user's programs speak on this bus, and show on this display."""
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = bus.address
        if display:
            self.environment["DISPLAY"] = display.name

    def animates(self, on: bool) -> None:
        """Switches GTK's fades and spinners on, as they are by default, or off."""
        settings = self.config / "gtk-3.0" / "settings.ini"
        settings.parent.mkdir()
        settings.write_text(f"[Settings]\ngtk-enable-animations={int(on)}\n")

    def saves(self, **fields: str) -> None:
        """As if an earlier run had saved these fields."""
        self.saves_text(state_text(**fields))

    def saves_text(self, text: str) -> None:
        self.state_file.parent.mkdir(exist_ok=True)
        self.state_file.write_text(text)
        # Long ago, so that each later write shows.
        os.utime(self.state_file, (1_000_000_000, 1_000_000_000))

    @property
    def saved(self) -> str | None:
        return self.state_file.read_text() if self.state_file.exists() else None

    @property
    def time_of_save(self) -> int:
        return self.state_file.stat().st_mtime_ns
