# SPDX-License-Identifier: MIT
"""What the program puts right in the process that it is given."""

import os
import re
import signal
from pathlib import Path

import pytest
from stage.applet import with_gvfs
from stage.project import BUILD
from stage.tools import page
from stage.user import state_text
from stage.waiting import wait_until

DEPRECATED = "libayatana-appindicator is deprecated. Please use libayatana-appindicator-glib in newly written code."
DOMAIN = "libayatana-appindicator"


def first_call(machine, **options):
    """The first call of the first check."""
    machine.tools.publish(page(stable="7.2.4"))
    applet = machine.start_and_check(**options)
    assert applet.item.label == "7.2.4"
    return machine.tools.calls()[0]


# ---- Children ----


def test_checks_work_where_ended_children_are_ignored(machine):
    machine.tools.publish(page(stable="7.2.4"))
    applet = machine.start_and_check(around=["env", "--ignore-signal=CHLD"])
    assert applet.item.label == "7.2.4"
    assert applet.item.icon == "tux-green"
    # An answer is known to be good by its status alone.
    machine.tools.leave_unchanged()
    asked = len(machine.tools.commands())
    applet.check()
    assert len(machine.tools.commands()) == asked + 2


def test_no_child_is_left_behind(machine):
    machine.tools.publish(page(stable="7.2.4"))
    applet = machine.start_and_check()
    assert Path(f"/proc/{applet.pid}/task/{applet.pid}/children").read_text() == ""


@pytest.mark.parametrize("gvfs", [False, True], ids=["", "gvfs"])
def test_children_take_a_broken_pipe_as_every_program_does(machine, gvfs):
    # GLib and GVfs ignore it, and grep would complain on the terminal when the program quits before it.
    seen = machine.folder / "status"
    tell = f"while read -r line; do echo \"$line\"; done </proc/self/status >'{seen}'"
    machine.tools.put_script("wget", tell, "exit 4")
    machine.start_and_check(environment=with_gvfs(machine) if gvfs else {})
    ignored = int(re.search(r"^SigIgn:\s*(\w+)$", seen.read_text(), re.MULTILINE)[1], 16)
    assert not ignored & 1 << (signal.SIGPIPE - 1)


@pytest.mark.parametrize(
    ("before", "after"),
    [
        ("{tools}", "{tools}:/usr/sbin:/sbin"),
        ("{tools}:/usr/sbin", "{tools}:/usr/sbin:/sbin"),
        ("{tools}:/sbin", "{tools}:/sbin:/usr/sbin"),
        ("{tools}:/usr/sbin:/sbin", "{tools}:/usr/sbin:/sbin"),
        ("/sbin:{tools}:/usr/sbin", "/sbin:{tools}:/usr/sbin"),
        ("{tools}:/usr/sbin/more", "{tools}:/usr/sbin/more:/usr/sbin:/sbin"),
        ("{tools}:/usr/local/sbin", "{tools}:/usr/local/sbin:/usr/sbin:/sbin"),
    ],
)
def test_search_path_ends_in_the_system_tools_folders_once(machine, before, after):
    folder = str(machine.tools.folder)
    call = first_call(machine, environment={"PATH": before.replace("{tools}", folder)})
    assert call.environment["PATH"] == after.replace("{tools}", folder)


# ---- Two tries for each download ----


def machines_own_settings() -> str:
    path = Path("/etc/wgetrc")
    return path.read_text() if path.exists() else ""


def test_wget_gets_the_machines_settings_and_two_tries(machine):
    call = first_call(machine)
    assert call.wget_settings == machines_own_settings() + "tries = 2\n"
    assert [other.wget_settings for other in machine.tools.calls()] == [call.wget_settings] * 2


@pytest.mark.parametrize("settings", ["timeout = 7\nuser_agent = Mozilla\n", "timeout = 7", ""])
def test_settings_named_before_are_honoured(machine, settings):
    chosen = machine.folder / "wgetrc"
    chosen.write_text(settings)
    call = first_call(machine, environment={"SYSTEM_WGETRC": str(chosen)})
    line_end = "\n" if settings and not settings.endswith("\n") else ""
    assert call.wget_settings == settings + line_end + "tries = 2\n"
    assert chosen.read_text() == settings


def test_named_settings_that_do_not_exist_give_way_to_the_machines(machine):
    call = first_call(machine, environment={"SYSTEM_WGETRC": str(machine.folder / "missing")})
    assert call.wget_settings == machines_own_settings() + "tries = 2\n"


def test_settings_leave_no_file_behind(machine):
    machine.tools.publish(page(stable="7.2.4"))
    before = set(machine.folder.rglob("*"))
    applet = machine.start_and_check()
    made = {path for path in set(machine.folder.rglob("*")) - before if path.is_file()}
    assert applet.quit() == 0
    icons = {machine.icons / stem for stem in ("tux-red", "tux-green", "tux-white")}
    own = {path for path in made if path.name.startswith(("clock-", "applet-"))}
    answers_and_calls = {path for path in made if machine.tools.folder in path.parents}
    assert made - own - answers_and_calls == icons | {machine.state_file}


# ---- Standard streams ----


@pytest.mark.parametrize("closed", ["0", "1", "2", "0 1 2"])
def test_closed_standard_streams_go_nowhere(machine, closed):
    machine.tools.publish(page(stable="7.2.4"))
    machine.saves(kernel="7.2.3", stable="7.2.3")
    redirections = " ".join(f"{stream}>&-" for stream in closed.split())
    # A warning of the library's, so that something is written to the stream of errors.
    warning = {"NOTICE_DOMAIN": DOMAIN, "NOTICE_TEXT": "something else"}
    applet = machine.start_and_check(
        around=["sh", "-c", f'exec "$@" {redirections}', "sh"], preload=[BUILD.library("notice")], environment=warning
    )
    for stream in closed.split():
        assert os.readlink(f"/proc/{applet.pid}/fd/{stream}") == "/dev/null"
    if "2" not in closed.split():
        applet.expected_stderr = ".*something else.*"
    assert machine.saved == state_text(kernel="7.2.3", latest_kernel="7.2.4", stable="7.2.4")
    assert (applet.item.icon, applet.item.label) == ("tux-green", "7.2.4")
    assert applet.quit() == 0


# ---- The indicator library's notice ----


def started_with_notice(machine, domain: str, text: str):
    applet = machine.start(
        preload=[BUILD.library("notice")], environment={"NOTICE_DOMAIN": domain, "NOTICE_TEXT": text}
    )
    assert applet.item.icon == "tux-red"
    return applet


def test_deprecation_notice_is_dropped(machine):
    applet = started_with_notice(machine, DOMAIN, DEPRECATED)
    assert applet.quit() == 0
    assert applet.stderr == ""


@pytest.mark.parametrize("domain", [DOMAIN, "Gtk", "veldrin"])
def test_other_warnings_arrive(machine, domain):
    text = "unable to get the bus" if domain == DOMAIN else DEPRECATED
    applet = started_with_notice(machine, domain, text)
    warning = rf"\s*\(\w+:\d+\): {re.escape(domain)}-WARNING \*\*: [\d:.]+: {re.escape(text)}\n"
    applet.expected_stderr = warning
    wait_until(lambda: applet.stderr, "the warning")
