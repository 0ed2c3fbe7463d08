# SPDX-License-Identifier: MIT
"""A virtual X display, and message buses."""

from collections.abc import Mapping, Sequence
from pathlib import Path

from stage.processes import Service

CONFIGURATION = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>{kind}</type>
  <listen>{address}</listen>
  <auth>EXTERNAL</auth>
  {services}
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
"""


class Display(Service):
    WIDTH, HEIGHT = 1280, 800

    def __init__(self, folder: Path, width: int = WIDTH, height: int = HEIGHT, log: Path | None = None) -> None:
        options = ["-screen", "0", f"{width}x{height}x24", "-nolisten", "tcp", "-noreset", "-displayfd", "{fd}"]
        super().__init__(["Xvfb", *options], log or folder / "xvfb.log")
        self.name = f":{self.address}"


class Bus(Service):
    """A message bus on which everybody may say and hear everything. `environment` is what the services get that it
    starts; by default it is this process's."""

    def __init__(
        self,
        folder: Path,
        kind: str,
        address: str,
        services: str = "",
        log: Path | None = None,
        environment: Mapping[str, str] | None = None,
    ) -> None:
        configuration = folder / f"{kind}-bus.conf"
        configuration.write_text(CONFIGURATION.format(kind=kind, address=address, services=services))
        options = [f"--config-file={configuration}", "--nofork", "--nopidfile", "--nosyslog", "--print-address={fd}"]
        super().__init__(["dbus-daemon", *options], log or folder / "bus.log", environment)


class SessionBus(Bus):
    """It starts these services when somebody asks for them, and no other one of the system's."""

    def __init__(self, folder: Path, services: Sequence[Path] = (), **options) -> None:
        started = folder / "services"
        if services:
            started.mkdir()
        for service in services:
            (started / service.name).symlink_to(service)
        line = f"<servicedir>{started}</servicedir>" if services else ""
        super().__init__(folder, "session", f"unix:dir={folder}", line, **options)
