# SPDX-License-Identifier: MIT
"""veldrin-window as installed, beside the real program: it starts one applet where none runs, and reaches that one."""

import fcntl
import os
import re
import shutil
import signal
import subprocess
import time
from collections.abc import Iterator
from pathlib import Path

import pytest
from stage.applet import Machine
from stage.processes import Program
from stage.project import BUILD, ROOT
from stage.user import state_text
from stage.waiting import wait_until

# By the title of the window that each word opens.
WINDOWS = {
    "settings": "Settings",
    "changes": "Latest Kernel Changes",
    "system": "System & Kernel Modules",
    "about": "About Veldrin",
}
WORDS = ("open", *WINDOWS)
PATIENCE = 10.0
NOT_READY = "veldrin-window: the applet is not ready after 10 seconds\n"
NOT_STARTED = "veldrin-window: the applet did not start\n"
SYSTEM_PATH = "/usr/bin:/bin"
NOBODY = 65534


class Installed:
    """Program and script in one folder of the test's own, so that no other test's applet is the user's."""

    def __init__(self, machine: Machine) -> None:
        self.machine = machine
        folder = machine.folder / "bin"
        folder.mkdir()
        self.program = Path(shutil.copy(BUILD.program, folder / "veldrin"))
        self.script = Path(shutil.copy(ROOT / "data" / "veldrin-window", folder))
        self.environment = {**machine.environment, "PATH": f"{machine.tools.folder}:{SYSTEM_PATH}"}

    def begin(self, *words: str, **changes: str | None) -> subprocess.Popen[str]:
        """`changes` sets variables, and None takes one out."""
        environment = {**self.environment, **changes}
        return subprocess.Popen(
            [self.script, *words],
            env={name: value for name, value in environment.items() if value is not None},
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            text=True,
            start_new_session=True,
        )

    @staticmethod
    def end(process: subprocess.Popen[str]) -> tuple[int, str]:
        """Its status and what it said on standard error; on standard output it says nothing. An applet that held on to
        either would keep this from ever coming back."""
        stdout, stderr = process.communicate(timeout=3 * PATIENCE)
        assert stdout == ""
        return process.returncode, stderr

    def do(self, *words: str, **changes: str | None) -> tuple[int, str]:
        return self.end(self.begin(*words, **changes))

    def start_directly(self, user: int | None = None) -> Program:
        """As the start of a session does."""
        around = [] if user is None else ["setpriv", f"--reuid={user}", f"--regid={user}", "--clear-groups", "--"]
        return Program([*around, self.program], self.environment, self.machine.folder, "session")

    def applets(self) -> list[int]:
        """All processes that run the program."""
        found = []
        for process in Path("/proc").glob("[0-9]*"):
            try:
                if os.readlink(process / "exe") == str(self.program):
                    found.append(int(process.name))
            except OSError:
                continue  # it has ended
        return found

    def the_applet(self) -> int:
        # A command that it starts is a second one for a moment.
        (pid,) = wait_until(lambda: len(found := self.applets()) == 1 and found, "one applet")
        return pid

    def windows(self, title: str = ".+") -> list[int]:
        """The processes of the visible windows with this title."""
        search = ["xdotool", "search", "--onlyvisible", "--name", f"^{title}$"]
        found = subprocess.run(search, env=self.environment, capture_output=True, text=True, check=False).stdout.split()
        owners = []
        for window in found:
            asked = ["xdotool", "getwindowpid", window]
            answer = subprocess.run(asked, env=self.environment, capture_output=True, text=True, check=False)
            owners += [int(pid) for pid in answer.stdout.split()]
        return owners

    def wait_for_window(self, title: str) -> int:
        (owner,) = wait_until(lambda: self.windows(title), lambda: f"the window {title}; there are {self.windows()}")
        return owner

    def close(self) -> None:
        for pid in self.applets():
            os.kill(pid, signal.SIGKILL)
        wait_until(lambda: not self.applets(), "the applets' end")


@pytest.fixture(name="installed")
def installed_program(machine) -> Iterator[Installed]:
    installed = Installed(machine)
    yield installed
    installed.close()


def field(pid: int, name: str) -> str:
    return re.search(rf"^{name}:\s*(.*)$", Path(f"/proc/{pid}/status").read_text(), re.MULTILINE)[1]


def takes_window_signals(pid: int) -> bool:
    return int(field(pid, "SigCgt"), 16) >> (signal.SIGUSR1 - 1) & 1 == 1


# ---- Where none runs ----


def test_open_starts_one_and_opens_nothing(installed, panel):
    assert installed.do("open") == (0, "")
    pid = installed.the_applet()
    wait_until(lambda: panel.items, "the icon in the panel")
    assert [item.pid for item in panel.items] == [pid]
    # Had it been sent anything for Settings, that would come first.
    assert installed.do("system") == (0, "")
    installed.wait_for_window(WINDOWS["system"])
    assert installed.windows(WINDOWS["settings"]) == []


@pytest.mark.parametrize("word", WINDOWS)
def test_each_other_word_starts_one_and_opens_its_window(installed, word):
    assert installed.do(word) == (0, "")
    assert installed.wait_for_window(WINDOWS[word]) == installed.the_applet()


def test_when_it_is_over_the_applet_takes_the_windows_signals(installed):
    assert installed.do("open") == (0, "")
    assert takes_window_signals(installed.the_applet())


def test_a_start_without_a_display_is_told_at_once(installed):
    begun = time.monotonic()
    assert installed.do("open", DISPLAY=":4711") == (1, NOT_STARTED)
    assert time.monotonic() - begun < PATIENCE
    assert installed.applets() == []


def test_a_program_that_is_gone_is_told(installed):
    installed.program.unlink()
    assert installed.do("changes") == (1, NOT_STARTED)


# ---- The applet that it starts ----


def test_the_applet_is_cut_off_from_whoever_started_it(installed):
    process = installed.begin("open")
    assert installed.end(process) == (0, "")
    pid = installed.the_applet()
    assert os.getsid(pid) == pid
    streams = [os.readlink(f"/proc/{pid}/fd/{stream}") for stream in range(3)]
    assert streams == ["/dev/null"] * 3
    # What ends the caller and all that it started.
    with pytest.raises(ProcessLookupError):
        os.killpg(process.pid, signal.SIGHUP)
    assert installed.applets() == [pid]


def test_the_applet_holds_no_lock(installed):
    assert installed.do("open") == (0, "")
    pid = installed.the_applet()
    files = [os.readlink(file) for file in Path(f"/proc/{pid}/fd").iterdir()]
    assert str(installed.machine.runtime) not in files
    subprocess.run(["flock", "--nonblock", installed.machine.runtime, "true"], check=True)


def test_the_applet_keeps_the_callers_environment(installed):
    given = {"VELDRIN_TEST": "kept\nwhole", "LC_ALL": "C.UTF-8", "http_proxy": "http://proxy.invalid:3128/"}
    assert installed.do("open", **given) == (0, "")
    environment = Path(f"/proc/{installed.the_applet()}/environ").read_bytes().split(b"\0")
    # bash brings three of its own, which a shell's users have anyway.
    own = {b"PWD", b"SHLVL", b"_", b"OLDPWD"}
    kept = {line for line in environment if line and line.partition(b"=")[0] not in own}
    assert kept == {f"{name}={value}".encode() for name, value in {**installed.environment, **given}.items()}


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGQUIT, signal.SIGHUP, signal.SIGTERM])
def test_the_applet_ends_by_the_signals_that_end_a_program(installed, number):
    assert installed.do("open") == (0, "")
    pid = installed.the_applet()
    assert int(field(pid, "SigIgn"), 16) >> (number - 1) & 1 == 0
    os.kill(pid, number)
    wait_until(lambda: installed.applets() == [], "its end")


# ---- Where one runs ----


def test_open_opens_settings_in_the_one_that_runs(installed):
    assert installed.do("open") == (0, "")
    pid = installed.the_applet()
    assert installed.do("open") == (0, "")
    assert installed.wait_for_window("Settings") == pid
    assert installed.applets() == [pid]


def test_one_whose_file_an_upgrade_has_replaced_is_reached(installed, panel):
    session = installed.start_directly()
    wait_until(lambda: panel.items, "the icon in the panel")
    new = Path(shutil.copy(BUILD.program, installed.program.with_name("new")))
    new.replace(installed.program)
    assert installed.do("open") == (0, "")
    assert installed.wait_for_window("Settings") == session.process.pid
    # No other was started.
    assert installed.applets() == []
    session.kill()
    assert (session.stdout, session.stderr) == ("", "")


def test_each_word_reaches_the_one_that_the_session_started(installed, panel):
    session = installed.start_directly()
    wait_until(lambda: panel.items, "the icon in the panel")
    # About comes last: its dialog holds the others up.
    for word, title in WINDOWS.items():
        assert installed.do(word) == (0, "")
        assert installed.wait_for_window(title) == session.process.pid
    assert installed.applets() == [session.process.pid]
    session.kill()
    assert (session.stdout, session.stderr) == ("", "")


@pytest.mark.parametrize("number", [2, 5])
def test_quick_clicks_start_one(installed, panel, number):
    clicks = [installed.begin("open") for _ in range(number)]
    assert [installed.end(click) for click in clicks] == [(0, "")] * number
    pid = installed.the_applet()
    # All but the first found it running.
    assert installed.wait_for_window("Settings") == pid
    assert [item.pid for item in panel.items] == [pid]


def test_quick_clicks_on_several_actions_start_one(installed):
    clicks = [installed.begin(word) for word in ("settings", "changes", "system")]
    assert [installed.end(click) for click in clicks] == [(0, "")] * 3
    pid = installed.the_applet()
    for word in ("settings", "changes", "system"):
        assert installed.wait_for_window(WINDOWS[word]) == pid


@pytest.mark.parametrize("without_runtime", [False, True])
def test_a_start_waits_for_the_end_of_another(installed, without_runtime):
    folder = installed.machine.home if without_runtime else installed.machine.runtime
    lock = os.open(folder, os.O_RDONLY)
    fcntl.flock(lock, fcntl.LOCK_EX)
    click = installed.begin("open", **{"XDG_RUNTIME_DIR": None} if without_runtime else {})
    with pytest.raises(subprocess.TimeoutExpired):
        click.wait(1.0)
    assert installed.applets() == []
    os.close(lock)
    assert installed.end(click) == (0, "")
    assert len(installed.applets()) == 1


def test_an_applet_that_runs_is_reached_during_a_start(installed):
    assert installed.do("open") == (0, "")
    lock = os.open(installed.machine.runtime, os.O_RDONLY)
    fcntl.flock(lock, fcntl.LOCK_EX)
    begun = time.monotonic()
    assert installed.do("system") == (0, "")
    assert time.monotonic() - begun < PATIENCE
    assert installed.wait_for_window(WINDOWS["system"]) == installed.the_applet()
    os.close(lock)


@pytest.mark.parametrize("folder", ["none", None])
def test_without_a_folder_for_a_lock_it_starts_one(installed, tmp_path, folder):
    runtime = None if folder is None else str(tmp_path / folder)
    assert installed.do("open", XDG_RUNTIME_DIR=runtime, HOME=None) == (0, "")
    assert len(installed.applets()) == 1


def test_a_lock_that_is_not_had_keeps_nobody_from_a_start(installed):
    installed.machine.tools.put_script("flock", "echo no lock >&2", "exit 1")
    assert installed.do("open") == (0, "")
    assert len(installed.applets()) == 1


class HeldStart:
    """A session's applet that waits in the reading of the saved state, which is a pipe, and has no handlers yet."""

    def __init__(self, installed: Installed, user: int | None = None) -> None:
        self._path = installed.machine.state_file
        self._path.parent.mkdir()
        os.mkfifo(self._path)
        self.applet = installed.start_directly(user)
        self._pipe = wait_until(self._open, "the reading of the saved state")

    def _open(self) -> int | None:
        try:
            return os.open(self._path, os.O_WRONLY | os.O_NONBLOCK)
        except OSError:  # nobody reads it yet
            return None

    def go_on(self) -> None:
        os.write(self._pipe, state_text(stable="7.2.4").encode())
        os.close(self._pipe)


@pytest.mark.parametrize("word", ["open", "system"])
def test_one_that_still_starts_is_waited_for(installed, word):
    start = HeldStart(installed)
    click = installed.begin(word)
    with pytest.raises(subprocess.TimeoutExpired):
        click.wait(1.0)
    assert installed.applets() == [start.applet.process.pid]
    start.go_on()
    assert installed.end(click) == (0, "")
    assert installed.wait_for_window(WINDOWS.get(word, "Settings")) == start.applet.process.pid
    assert installed.applets() == [start.applet.process.pid]


def test_one_that_never_gets_ready_is_left_alone_and_told(installed):
    start = HeldStart(installed)
    begun = time.monotonic()
    assert installed.do("open") == (1, NOT_READY)
    assert PATIENCE - 1 < time.monotonic() - begun < 2 * PATIENCE
    assert installed.applets() == [start.applet.process.pid]
    # It is as it was: it can still become what it was to be.
    start.go_on()
    assert installed.do("open") == (0, "")
    assert installed.wait_for_window("Settings") == start.applet.process.pid


def test_one_that_is_the_last_of_all_processes_is_waited_for(installed):
    # In a world of its own it has the number 2, and nothing comes behind that.
    shutil.copy(shutil.which("sleep", path=SYSTEM_PATH), installed.program)
    world = ["unshare", "--user", "--map-root-user", "--pid", "--fork", "--mount-proc", "--"]
    run = [*world, "sh", "-c", f"'{installed.program}' 60 & exec '{installed.script}' open"]
    environment = installed.environment
    result = subprocess.run(run, env=environment, capture_output=True, text=True, timeout=3 * PATIENCE, check=False)
    assert (result.returncode, result.stderr) == (1, NOT_READY)


def test_one_that_ends_while_it_is_waited_for_is_replaced(installed):
    start = HeldStart(installed)
    click = installed.begin("changes")
    with pytest.raises(subprocess.TimeoutExpired):
        click.wait(0.5)
    installed.machine.state_file.unlink()
    start.applet.kill()
    assert installed.end(click) == (0, "")
    assert installed.wait_for_window("Latest Kernel Changes") == installed.the_applet() != start.applet.process.pid


@pytest.mark.skipif(os.geteuid() != 0, reason="takes root to run something as another user")
def test_another_users_applet_is_not_the_callers(installed):
    for folder in (installed.machine.folder, *installed.machine.folder.parents):
        if folder == Path("/tmp"):
            break
        folder.chmod(0o755)
    others = HeldStart(installed, NOBODY).applet
    wait_until(lambda: installed.applets() == [others.process.pid], "the other user's applet")
    home = installed.machine.folder / "own"
    (home / ".config").mkdir(parents=True)

    assert installed.do("open", HOME=str(home)) == (0, "")
    own = set(installed.applets()) - {others.process.pid}
    assert len(own) == 1
    assert installed.do("open", HOME=str(home)) == (0, "")
    assert {installed.wait_for_window("Settings")} == own
    assert others.running
    others.kill()
