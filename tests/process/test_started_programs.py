# SPDX-License-Identifier: MIT
"""What the programs see that the applet starts: its commands, what a link opens, the dialog after a crash. To bound the
tries of wget it gives its commands a file of settings; nobody else may get to see that."""

import os
import shutil
import signal
from collections.abc import Callable
from pathlib import Path

import pytest
from stage.applet import Applet, Machine
from stage.crash import GERMAN, dies
from stage.probe import Probe
from stage.project import BUILD
from stage.site import KernelSite
from stage.tools import SYSTEM, RealTools
from stage.witness import FETCHING, LINKS, LOGGING, SETTING_NAMES, Witness, browser
from stage.world import machine_with_modules

pytestmark = pytest.mark.usefixtures("no_core_dump")


def follow(machine: Machine, window: str, **environment: str) -> Applet:
    """An applet with one of its windows open, whose link was clicked."""
    probe = Probe(machine.folder)
    environment = {**probe.options["environment"], **environment}
    applet = machine.start(preload=probe.options["preload"], environment=environment)
    probe.open(applet, window)
    assert probe.do(f"click {LINKS[window]}")
    return applet


@pytest.fixture(params=[False, True], ids=["none-of-the-users", "the-users"])
def users(request, machine) -> dict[str, str]:
    """What the user's own environment says."""
    if not request.param:
        return {}
    for name in SETTING_NAMES:
        (machine.home / name).write_text("timeout = 20\n")
    return {name: str(machine.home / name) for name in SETTING_NAMES}


def of(users: dict[str, str]) -> dict[str, str | None]:
    return {name: users.get(name) for name in SETTING_NAMES}


# ---- What is started besides its commands ----


@pytest.mark.parametrize("window", LINKS)
def test_what_a_link_starts_finds_the_users_own_environment(machine, site, users, window):
    witness = browser(machine)
    follow(machine, window, **site.environment, **users)
    assert witness.settings == of(users)
    assert set(witness.files) == {0, 1, 2}
    assert "7.8.4" in witness.page()


def test_dialog_after_a_crash_finds_the_users_own_environment(machine, site, users, orphans):
    witness = Witness(machine.tools.folder / "zenity", LOGGING, FETCHING, "exit 1")
    applet = machine.start(environment={**GERMAN, **site.environment, **users})
    dies(applet, signal.SIGSEGV)
    assert orphans.status(applet) == 0
    assert witness.settings == of(users)
    assert set(witness.files) == {0, 1, 2}
    assert "7.8.4" in witness.page()


# ---- Its commands ----


class Commands:
    """The real tools, with a witness in wget's place that then becomes wget."""

    def __init__(self, machine: Machine, site: KernelSite, users: dict[str, str]) -> None:
        self.tools = RealTools(machine.folder / "real-tools")
        reading = "; ".join(f"/bin/cat \"${name}\" >'{{seen}}.{name}' 2>&1" for name in SETTING_NAMES)
        self.wget = Witness(self.tools.folder / "wget", reading, LOGGING, 'exec /usr/bin/wget "$@"')
        self.site = site
        self.environment = {**site.environment, **users, "PATH": str(self.tools.folder)}
        self._users = users

    def check(self, applet: Applet) -> None:
        """Lets it check, by wget alone."""
        self.site.clear_requests()
        applet.check()
        assert applet.item.label == "7.8.4"
        asked = [(request.method, request.status, request.agent.split("/")[0]) for request in self.site.requests()]
        assert asked == [("GET", 200, "Wget"), ("HEAD", 200, "Wget")]

    def check_settings(self) -> None:
        for name, machines_own in zip(SETTING_NAMES, ("/etc/wgetrc", "/etc/wget2rc"), strict=True):
            given = Path(self._users.get(name, machines_own))
            before = given.read_text() if given.exists() else ""
            assert self.wget.file(name).read_text() == f"{before}tries = 2\n"


def test_a_command_reads_the_settings_and_inherits_no_file(machine, site, users):
    commands = Commands(machine, site, users)
    commands.check(machine.start(environment=commands.environment))
    commands.check_settings()
    assert set(commands.wget.files) == {0, 1, 2}


# A command may be kept from looking into another process: in a Snap it is, and nobody may look into a process that is
# not dumpable. There it inherits the file, by a number that scripts leave alone.


def snap(machine: Machine) -> dict:
    return {"environment": {"SNAP": "/snap/veldrin/x1", "SNAP_NAME": "veldrin", "SNAP_REVISION": "x1"}}


def without_processes(machine: Machine) -> dict:
    """A world whose /proc shows each process itself alone."""
    return {"around": machine_with_modules(machine, [])}


def not_dumpable(machine: Machine) -> dict:
    """A process is none where its program may be run but not be read. Root may read all but for its capabilities."""
    program = machine.folder / BUILD.program.name
    shutil.copy(BUILD.program, program)
    program.chmod(0o111)
    powerless = [shutil.which("setpriv", path=SYSTEM), "--bounding-set", "-all", "--inh-caps", "-all", "--"]
    run = ["/bin/sh", "-c", f"exec '{program}'"]
    return {"around": [*powerless, *run] if os.geteuid() == 0 else run}


def with_a_strangers_processes(machine: Machine) -> dict:
    """A world whose /proc shows the processes of another one: by the applet's number it has a stranger's, whose files
    have the same numbers as the applet's."""
    files = {f"/proc/2/fd/{number}": b"no = setting\n" for number in range(3, 10)}
    return {"around": machine_with_modules(machine, [], files, "--unshare-pid")}


def start_in(world: Callable[[Machine], dict], machine: Machine, environment: dict[str, str]) -> Applet:
    options = world(machine)
    # The search for leaks is a look into the process, too.
    environment = {**environment, **machine.without_leak_search, **options.pop("environment", {})}
    applet = machine.start(environment=environment, **options)
    if "SNAP" in environment:
        # The indicator library takes no path below /tmp for the panel's in one.
        applet.expected_stderr = r"(\n\(veldrin:\d+\): [^\n]* Using '/tmp' paths in SNAP environment [^\n]*\n)*"
    return applet


@pytest.mark.parametrize("world", [snap, without_processes, with_a_strangers_processes, not_dumpable])
def test_a_command_that_may_not_look_into_the_applet_inherits_the_files(machine, site, users, world):
    commands = Commands(machine, site, users)
    applet = start_in(world, machine, commands.environment)
    commands.check(applet)
    commands.check_settings()
    inherited = {number: target for number, target in commands.wget.files.items() if number > 2}
    assert len(inherited) == 2
    # The shell's own files begin at 10, and few programs have a hundred.
    assert all(number > 100 and "veldrin" in target for number, target in inherited.items())


def test_where_so_high_a_number_is_not_to_be_had_the_variables_stay_the_users(machine, site, users):
    commands = Commands(machine, site, users)

    def few_files(machine: Machine) -> dict:
        return {**snap(machine), "around": [shutil.which("prlimit", path=SYSTEM), "--nofile=100", "--"]}

    applet = start_in(few_files, machine, commands.environment)
    commands.check(applet)
    assert commands.wget.settings == of(users)
    assert set(commands.wget.files) == {0, 1, 2}


# The end of a world with processes of its own is the end of them all.
@pytest.mark.parametrize("world", [snap, without_processes, not_dumpable])
def test_nothing_else_inherits_them(machine, site, users, world, orphans):
    dialog = Witness(machine.tools.folder / "zenity", "exit 1")
    applet = start_in(world, machine, {**GERMAN, **site.environment, **users})
    applet.send(signal.SIGSEGV)
    assert dialog.settings == of(users)
    assert set(dialog.files) == {0, 1, 2}
