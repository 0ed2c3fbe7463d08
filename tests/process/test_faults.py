# SPDX-License-Identifier: MIT
"""What becomes of the applet when something around it breaks."""

import contextlib
import os
import resource
import shlex
import shutil
import signal
import struct
import subprocess
import time
from pathlib import Path

import pytest
from gi.repository import GLib
from stage.applet import AT_ONCE, Machine
from stage.clock import STEPS_OF_A_PAUSE
from stage.desktop import Display
from stage.panel import Panel
from stage.probe import SETTINGS, SYSTEM, Probe
from stage.project import BUILD
from stage.tools import LATER, PAGE, SYSTEM as SYSTEM_PATH, page
from stage.user import state_text
from stage.waiting import wait_until
from stage.world import Module, bubblewrap, machine_with_modules


MISHAPS = BUILD.library("mishaps")

KNOWN = {"kernel": "7.2.3", "latest_kernel": "7.2.4", "mainline": "7.3-rc2", "stable": "7.2.4", "longterm": "6.18.31"}
NEXT = {"mainline": "7.3-rc3", "stable": "7.2.5", "longterm": "6.18.32"}
NEXT_SAVED = state_text(**{**KNOWN, **NEXT, "latest_kernel": "7.2.5"})


@pytest.fixture
def menu_answers(record_property):
    """Asks for the menu. It comes within 200 ms on a machine that has nothing else to do; this one may have."""

    def ask(applet) -> None:
        menu = applet.item.menu
        start = time.monotonic()
        entries = menu.entries()
        took = time.monotonic() - start
        record_property("menu_ms", round(took * 1000, 1))
        assert len(entries) == 8
        assert took < AT_ONCE

    return ask


def put_file(machine: Machine, name: str, contents: bytes) -> str:
    """Returns the path, as a word of the shell."""
    path = machine.folder / name
    path.write_bytes(contents)
    return shlex.quote(str(path))


def lacks_news(machine: Machine, applet) -> bool:
    return (applet.item.icon, applet.item.label, machine.saved) == ("tux-green", "7.2.4", state_text(**KNOWN))


def has_news(machine: Machine, applet) -> bool:
    return (applet.item.icon, applet.item.label, machine.saved) == ("tux-green", "7.2.5", NEXT_SAVED)


# ---- The tools of a check ----

GARBAGE = bytes(range(256)) * 64 + b"\x1b[31m\x1b]0;title\x07\x1b[2J" + b"\xc3\x28\xf0\x28\x8c\xbc" * 100 + bytes(9000)
DOWNLOADERS = ["wget", "curl"]


def only_by(machine: Machine, tool: str, script: str) -> None:
    """The page comes by this tool alone, and by this script."""
    machine.tools.put_script("wget", "exit 4")
    machine.tools.put_script(tool, script)


@pytest.mark.parametrize("tool", DOWNLOADERS)
@pytest.mark.parametrize(
    "printed",
    [
        pytest.param(GARBAGE, id="binary"),
        pytest.param(b"\xff\xfe" + page(**NEXT).encode("utf-16-le"), id="two-bytes-a-letter"),
        pytest.param(page(**NEXT).replace("stable", "\x1b[1mstable\x1b[0m").encode(), id="escapes"),
        pytest.param(page(**NEXT).replace("stable", "st\0able").encode(), id="a-nul-in-the-label"),
    ],
)
def test_garbage_for_a_page_changes_nothing(machine, menu_answers, tool, printed):
    machine.saves(**KNOWN)
    before = machine.time_of_save
    only_by(machine, tool, f"exec /bin/cat {put_file(machine, 'printed', printed)}")
    applet = machine.start_and_check()
    assert lacks_news(machine, applet)
    assert machine.time_of_save == before
    menu_answers(applet)
    # The tool is mended.
    only_by(machine, tool, f"exec /bin/cat {put_file(machine, 'printed', page(**NEXT).encode())}")
    applet.check()
    assert has_news(machine, applet)


@pytest.mark.parametrize("tool", DOWNLOADERS)
def test_garbage_around_the_table_does_not_hide_it(machine, tool):
    machine.saves(**KNOWN)
    table = page(**NEXT).encode()
    printed = put_file(machine, "printed", GARBAGE + b"\n" + table + GARBAGE)
    only_by(machine, tool, f"exec /bin/cat {printed}")
    assert has_news(machine, machine.start_and_check())


@pytest.mark.parametrize("tool", DOWNLOADERS)
def test_trickling_page_is_read_to_its_end(machine, menu_answers, tool):
    machine.saves(**KNOWN)
    html = put_file(machine, "page", b"".join(line.strip() for line in page(**NEXT).encode().splitlines(True)))
    go = machine.folder / "go"
    # One byte each time; with its first byte, and with its last one, it waits for the test.
    trickle = f"""
exec <{html}
i=0
while part=$(/bin/dd bs=1 count=1 2>/dev/null; echo x); [ "$part" != x ]; do
    printf %s "${{part%x}}"
    i=$((i + 1))
    [ $i -lt 100 ] || break
done
until [ -e {go} ]; do /bin/sleep 0.02; done
exec /bin/cat
"""
    only_by(machine, tool, trickle)
    applet = machine.start()
    applet.begin_check()
    for _ in range(5):
        menu_answers(applet)
    assert lacks_news(machine, applet)
    assert applet.clock.steps_begun == 0
    go.touch()
    applet.finish_check()
    assert has_news(machine, applet)


def test_silent_curl_holds_up_the_check_alone(machine, menu_answers):
    machine.saves(**KNOWN)
    machine.tools.put_script("wget", "exit 4")
    machine.tools.put_script("curl", "exec /bin/sleep 60")
    applet = machine.start()
    applet.begin_check()
    menu_answers(applet)
    assert lacks_news(machine, applet)
    assert applet.clock.steps_begun == 0
    assert applet.quit() == 0
    assert machine.saved == state_text(**KNOWN)


MEGABYTE = 1 << 20
# A whole gigabyte takes half a minute of a busy machine, and is as bounded.
FLOOD_MB = int(os.environ.get("VELDRIN_FLOOD_MB", "64"))


def memory(applet, what: str) -> int:
    """VmRSS or VmHWM, in bytes."""
    (line,) = [line for line in Path(f"/proc/{applet.pid}/status").read_text().splitlines() if line.startswith(what)]
    return int(line.split()[1]) * 1024


def test_flood_in_place_of_the_page_is_read_and_forgotten(machine, menu_answers, record_property):
    # The page is kept as one text until it is read. A text that grows is moved to a place of twice its size.
    machine.saves(**KNOWN)
    line = "x" * 4000
    only_by(machine, "wget", f"/usr/bin/yes {line} | /usr/bin/head -c {FLOOD_MB}M")
    applet = machine.start()
    before = memory(applet, "VmRSS")
    start = time.monotonic()
    applet.begin_check()
    menu_answers(applet)
    wait_until(lambda: applet.clock.steps_begun, "the end of the check", 120)
    applet.settle()
    record_property("seconds", round(time.monotonic() - start, 1))
    record_property("peak_mb", memory(applet, "VmHWM") // MEGABYTE)
    record_property("after_mb", memory(applet, "VmRSS") // MEGABYTE)
    assert lacks_news(machine, applet)
    menu_answers(applet)
    if not BUILD.sanitized:
        assert memory(applet, "VmHWM") < before + (3 * FLOOD_MB + 32) * MEGABYTE
        assert memory(applet, "VmRSS") < before + 32 * MEGABYTE


@pytest.mark.skipif(BUILD.sanitized, reason="the sanitizers reserve more addresses than any limit that could be set")
def test_too_little_memory_for_the_page_is_a_crash_with_a_report(machine):
    machine.saves(**KNOWN)
    only_by(machine, "wget", f"/usr/bin/yes {'x' * 4000} | /usr/bin/head -c 1G")
    applet = machine.start()
    size = int(Path(f"/proc/{applet.pid}/statm").read_text().split()[0]) * resource.getpagesize()
    limit = size + 256 * MEGABYTE
    resource.prlimit(applet.pid, resource.RLIMIT_AS, (limit, limit))
    applet.expected_stderr = ".*"
    applet.begin_check()
    assert applet.exit_status() == -signal.SIGABRT
    report = (machine.runtime / "Veldrin_crash.txt").read_text()
    assert "Signal: SIGABRT (Abort) (6)\n" in report and report.endswith("\n=== End Report ===\n")
    assert machine.saved == state_text(**KNOWN)


# ---- The filters that read the header ----


@pytest.mark.parametrize("tool", ["grep", "sed"])
@pytest.mark.parametrize("fault", ["missing", "failing", "garbage"])
def test_broken_filter_does_not_keep_a_release_back(machine, menu_answers, tool, fault):
    machine.saves(kernel="7.2.3", stable="7.2.3")
    machine.tools.publish(page(stable="7.2.4"))
    machine.tools.remove(tool)
    if fault == "failing":
        machine.tools.put_script(tool, "/bin/cat >/dev/null; exit 2")
    elif fault == "garbage":
        printed = put_file(machine, "printed", b"\x1b[0m'\xff`touch marker`\0\r\n'" + GARBAGE)
        machine.tools.put_script(tool, f"exec /bin/cat {printed}")
    applet = machine.start_and_check()
    # What the shell and the other filter have to say about it goes where the session keeps such words.
    applet.expected_stderr = rf"((sh: (1|line 1): {tool}: (command )?not found|grep: write error: Broken pipe)\n)*"
    assert (applet.item.icon, applet.item.label) == ("tux-green", "7.2.4")
    machine.tools.publish(page(stable="7.2.5"), LATER)
    applet.check()
    if (tool, fault) == ("grep", "garbage"):
        # Anything but a number 0 reads as an answer "not modified".
        assert (applet.item.label, applet.item.icon) == ("7.2.4", "tux-green")
    else:
        assert applet.item.label == "7.2.5"
        assert machine.saved == state_text(kernel="7.2.3", latest_kernel="7.2.5", stable="7.2.5")
    menu_answers(applet)
    assert not (machine.folder / "marker").exists()


@pytest.mark.parametrize("tool", ["grep", "sed"])
def test_silent_filter_holds_up_the_check_alone(machine, menu_answers, tool):
    machine.saves(**KNOWN)
    machine.tools.publish(page(**NEXT))
    machine.tools.put_script(tool, "exec /bin/sleep 60")
    applet = machine.start()
    applet.begin_check()
    wait_until(lambda: len(machine.tools.commands()) == 2, "the request for the header")
    menu_answers(applet)
    assert lacks_news(machine, applet)
    assert applet.clock.steps_begun == 0
    assert applet.quit() == 0


# ---- modinfo ----

PLAIN = Module(b"seaweed 20480 2 kelp, Live 0x0000000000000000", {b"version": b"1.5\n", b"parameters/depth": b"12\n"})


def select_module(machine, applet, probe: Probe) -> list[str]:
    """Returns what the window says of the first module."""
    probe.open(applet, SYSTEM)
    assert probe.do("page 1")
    assert probe.do("select 0")
    applet.settle()
    return probe.windows()[SYSTEM].texts


ALWAYS_KNOWN = {"seaweed", "Live", "20 KB", "used by 2", "kelp", "1.5", "depth = 12"}


@pytest.mark.parametrize(
    ("script", "also"),
    [
        pytest.param("exit 1", set(), id="failing"),
        pytest.param("echo 'author: A. Weed'; exit 1", {"A. Weed"}, id="failing-at-its-end"),
        pytest.param("exec /bin/cat {garbage}", set(), id="garbage"),
        pytest.param(
            "echo license: GPL; /bin/cat {garbage}; echo; echo author: A. Weed",
            {"GPL", "A. Weed"},
            id="garbage-between",
        ),
        pytest.param("printf 'author: \\033[1mA\\377\\n'", {"\x1b[1mA\N{REPLACEMENT CHARACTER}"}, id="escapes"),
        pytest.param("for p in lic ense: ' G' PL; do printf %s \"$p\"; /bin/sleep 0.05; done", {"GPL"}, id="trickling"),
        pytest.param("/usr/bin/yes {line} | /usr/bin/head -c 200M; echo; echo license: GPL", {"GPL"}, id="flood"),
    ],
)
def test_odd_modinfo_leaves_what_the_kernel_tells(machine, menu_answers, script, also):
    garbage = put_file(machine, "garbage", GARBAGE.replace(b":", b""))
    machine.tools.put_script("modinfo", script.replace("{garbage}", garbage).replace("{line}", "x" * 4000))
    probe = Probe(machine.folder)
    applet = machine.start(around=machine_with_modules(machine, [PLAIN]), **probe.options)
    before = memory(applet, "VmHWM")
    texts = select_module(machine, applet, probe)
    assert ALWAYS_KNOWN | also <= set(texts)
    if not BUILD.sanitized:
        assert memory(applet, "VmHWM") < before + 150 * MEGABYTE
    menu_answers(applet)


def test_missing_modinfo_leaves_what_the_kernel_tells(machine, menu_answers):
    probe = Probe(machine.folder)
    folders = [folder for folder in ("/usr/sbin", "/sbin") if not Path(folder).is_symlink()]
    nowhere = [word for folder in folders for word in ("--tmpfs", folder)]
    applet = machine.start(around=machine_with_modules(machine, [PLAIN], None, *nowhere), **probe.options)
    assert ALWAYS_KNOWN <= set(select_module(machine, applet, probe))
    menu_answers(applet)


def test_silent_modinfo_blocks_everything_until_it_ends(machine, menu_answers):
    # It runs on the main thread: one module is asked at a time, and an answer takes no longer than a click.
    called, go = machine.folder / "called", machine.folder / "go"
    script = f": >{called}; until [ -e {go} ]; do /bin/sleep 0.02; done; echo license: GPL"
    machine.tools.put_script("modinfo", script)
    probe = Probe(machine.folder)
    applet = machine.start(around=machine_with_modules(machine, [PLAIN]), **probe.options)
    probe.open(applet, SYSTEM)
    menu = applet.item.menu
    line = probe.ask_later("select 0")
    wait_until(called.exists, "the call of modinfo")
    with pytest.raises(GLib.Error, match="imeout"):
        menu.entries(timeout=0.3)
    go.touch()
    assert probe.answer(line) == [["done"]]
    assert "GPL" in probe.windows()[SYSTEM].texts
    menu_answers(applet)


# ---- Disk ----

FILL = """
mkdir -p "$HOME/.config/VeldrinWatch" "$XDG_RUNTIME_DIR"
[ ! -e "$SAVED" ] || cat "$SAVED" >"$HOME/.config/VeldrinWatch/app_state.json"
dd if=/dev/zero of="$HOME/filling" bs=4096 2>/dev/null
exec "$@"
"""


def full_disk(machine: Machine) -> tuple[list, dict[str, str], Path]:
    """A disk of 64 KB that holds the user's home and runtime folder, and no room."""
    disk = machine.folder / "disk"
    disk.mkdir()
    saved = machine.folder / "saved"
    around = [*bubblewrap("--dev-bind", "/", "/", "--size", "65536", "--tmpfs", disk)]
    around += ["/usr/bin/env", f"PATH={SYSTEM_PATH}", f"SAVED={saved}", "/bin/sh", "-c", FILL, "sh"]
    around += ["/usr/bin/env", f"PATH={machine.tools.folder}"]
    return around, {"HOME": str(disk / "home"), "XDG_RUNTIME_DIR": str(disk / "run")}, disk


def on_disk(applet, path: Path) -> bytes:
    return Path(f"/proc/{applet.pid}/root{path}").read_bytes()


def test_full_disk_costs_icons_and_saving(machine, menu_answers):
    around, environment, disk = full_disk(machine)
    machine.tools.publish(page(**NEXT))
    applet = machine.start_and_check(around=around, environment=environment)
    assert (applet.item.icon, applet.item.label) == ("tux-green", "7.2.5")
    menu_answers(applet)
    assert on_disk(applet, disk / "home/.config/VeldrinWatch/app_state.json") == b""
    assert applet.quit() == 0


def test_saved_state_is_replaced_in_its_own_room_on_a_full_disk(machine):
    (machine.folder / "saved").write_text(state_text(**KNOWN))
    around, environment, disk = full_disk(machine)
    machine.tools.publish(page(**NEXT))
    applet = machine.start(around=around, environment=environment)
    assert (applet.item.icon, applet.item.label) == ("tux-green", "7.2.4")
    applet.check()
    assert applet.item.label == "7.2.5"
    assert on_disk(applet, disk / "home/.config/VeldrinWatch/app_state.json") == NEXT_SAVED.encode()


def test_file_size_limit_ends_it_by_its_signal_and_spares_the_state(machine):
    # As the system has it for each program that does not ask for another treatment.
    machine.saves(**KNOWN)
    applet = machine.launch(around=["prlimit", "--fsize=0", "--core=0", "--"])
    assert applet.exit_status() == -signal.SIGXFSZ
    assert machine.saved == state_text(**KNOWN)
    assert not (machine.runtime / "Veldrin_crash.txt").exists()


def test_folders_removed_while_it_runs_cost_icons_and_saving(machine, menu_answers):
    machine.saves(**KNOWN)
    applet = machine.start()
    shutil.rmtree(machine.runtime)
    shutil.rmtree(machine.home / ".config")
    machine.tools.publish(page(**NEXT))
    applet.check()
    assert (applet.item.icon_path, applet.item.label) == (str(machine.icons / "tux-green"), "7.2.5")
    menu_answers(applet)
    assert machine.saved is None
    # Only its own folder does it make again.
    (machine.home / ".config").mkdir()
    applet.item.menu.click("Acknowledge Update")
    wait_until(lambda: applet.item.icon == "tux-white", "the white icon")
    assert machine.saved == state_text(**{**KNOWN, **NEXT, "kernel": "7.2.5", "latest_kernel": "7.2.5"})
    assert applet.quit() == 0


def test_home_that_does_not_exist_costs_saving_alone(machine, menu_answers):
    machine.tools.publish(page(**NEXT))
    environment = {"HOME": "/nonexistent/home"}
    applet = machine.start_and_check(environment=environment)
    assert (applet.item.icon, applet.item.label) == ("tux-green", "7.2.5")
    menu_answers(applet)
    assert applet.quit() == 0
    assert not Path("/nonexistent").exists()


# ---- Session bus and panel ----


def test_without_a_session_bus_it_watches_on_unseen(machine):
    machine.saves(**KNOWN)
    machine.tools.publish(page(**NEXT))
    probe = Probe(machine.folder)
    nowhere = f"unix:path={machine.folder}/no-bus"
    environment = {**probe.options["environment"], "DBUS_SESSION_BUS_ADDRESS": nowhere}
    applet = machine.launch(preload=probe.options["preload"], environment=environment)
    # The libraries say so.
    warning = r"\n\(veldrin:\d+\): [\w-]+-WARNING \*\*: [\d:.]+: Unable to get (the )?session bus: [^\n]*\n"
    applet.expected_stderr = f"({warning})*"
    wait_until(lambda: applet.clock.delays_begun, "the program's start")
    applet.clock.pass_delay()
    wait_until(lambda: applet.clock.steps_begun, "the end of the check")
    wait_until(lambda: machine.saved == NEXT_SAVED, "the save")
    applet.process.send_signal(signal.SIGUSR1)
    wait_until(lambda: SETTINGS in probe.windows(), "the window")
    assert "7.2.5" in probe.windows()[SETTINGS].texts
    applet.process.send_signal(signal.SIGTERM)
    assert applet.exit_status() == -signal.SIGTERM


def vanish(panel: Panel) -> None:
    panel.close()
    # Nothing is left to close at the test's end.
    panel.close = lambda: None


def test_end_of_the_session_bus_ends_it(machine, bus):
    # The bus is the session: GLib sends SIGTERM to whoever has not asked it not to.
    machine.saves(**KNOWN)
    applet = machine.start()
    vanish(machine.panel)
    bus.close()
    assert applet.exit_status() == -signal.SIGTERM
    assert machine.saved == state_text(**KNOWN)
    assert not (machine.runtime / "Veldrin_crash.txt").exists()


def test_restarted_panel_gets_the_item_again(machine, menu_answers):
    machine.saves(**KNOWN)
    machine.tools.publish(page(**NEXT))
    applet = machine.start()
    known = len(machine.panel.items)
    machine.panel.leave()
    applet.check()
    assert len(machine.panel.items) == known
    machine.panel.come()
    wait_until(lambda: len(machine.panel.items) > known, "the item in the new panel")
    item = machine.panel.items[-1]
    assert item.owner == applet.item.owner
    assert (item.icon, item.label) == ("tux-green", "7.2.5")
    menu_answers(applet)


def test_panel_that_dies_and_another_that_comes_later(machine, bus, menu_answers):
    applet = machine.start()
    vanish(machine.panel)
    second = Panel(bus.address)
    try:
        (item,) = wait_until(lambda: second.items, "the item in the second panel")
        assert item.pid == applet.process.pid
        assert len(item.menu.entries()) == 8
        item.menu.click("Quit")
        assert applet.exit_status() == 0
    finally:
        second.close()


# ---- Display ----


@pytest.fixture
def own_display(machine, tmp_path):
    with contextlib.closing(Display(tmp_path)) as display:
        machine.environment["DISPLAY"] = display.name
        yield display


@pytest.mark.parametrize("during", ["the pause", "a check", "open windows"])
def test_lost_display_ends_it_as_gtk_does(machine, own_display, during):
    machine.saves(**KNOWN)
    held = machine.tools.answer(PAGE, hold=True) if during == "a check" else None
    probe = Probe(machine.folder)
    applet = machine.start(**probe.options)
    applet.begin_check()
    if held:
        wait_until(machine.tools.commands, "the held wget")
    else:
        applet.finish_check()
    if during == "open windows":
        for title in (SETTINGS, SYSTEM):
            probe.open(applet, title)
    own_display.close()
    assert applet.exit_status(AT_ONCE) == 1
    if held:
        held.release()
    assert machine.saved == state_text(**KNOWN)
    assert not (machine.runtime / "Veldrin_crash.txt").exists()


# ---- Clocks and pauses ----


class Mishaps:
    """The two numbers of mishaps.c."""

    def __init__(self, folder: Path) -> None:
        self._path = folder / "mishaps"
        self._set(0, 0)
        self.options = {"preload": [MISHAPS], "environment": {"MISHAPS": str(self._path)}}

    def _set(self, *numbers: int) -> None:
        with self._path.open("r+b" if self._path.exists() else "wb") as file:
            file.write(struct.pack("qq", *numbers))

    def jump(self, seconds: int) -> None:
        self._set(seconds, 0)

    def crowd(self, crowded: bool) -> None:
        self._set(0, int(crowded))


YEARS = 10 * 365 * 24 * 3600


@pytest.mark.parametrize("seconds", [YEARS, -YEARS, 3600, -3600], ids=["years-on", "years-back", "dst-on", "dst-back"])
def test_jump_of_the_wall_clock_moves_no_check(machine, menu_answers, seconds):
    mishaps = Mishaps(machine.folder)
    machine.tools.publish(page(stable="7.2.4"))
    applet = machine.start_and_check(**mishaps.options)
    asked = len(machine.tools.commands())
    mishaps.jump(seconds)
    menu_answers(applet)
    applet.clock.pass_steps(STEPS_OF_A_PAUSE - 1)
    wait_until(lambda: applet.clock.steps_begun == STEPS_OF_A_PAUSE, "the last step of the pause")
    applet.settle()
    assert len(machine.tools.commands()) == asked
    machine.tools.publish(page(stable="7.2.5"), LATER)
    applet.clock.pass_steps(1)
    wait_until(lambda: applet.clock.steps_begun == STEPS_OF_A_PAUSE + 1, "the next check")
    applet.settle()
    assert applet.item.label == "7.2.5"


def process_state(pid: int) -> str:
    return Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[0]


def test_stopped_in_the_middle_of_a_check_it_goes_on_where_it_was(machine, menu_answers):
    machine.saves(**KNOWN)
    machine.tools.publish(page(**NEXT))
    held = machine.tools.answer(PAGE, stdout=page(**NEXT), hold=True)
    applet = machine.start()
    applet.begin_check()
    wait_until(machine.tools.commands, "the held wget")
    for _ in range(3):
        applet.send(signal.SIGSTOP)
        wait_until(lambda: process_state(applet.pid) == "T", "the stop")
        applet.send(signal.SIGCONT)
    applet.send(signal.SIGSTOP)
    wait_until(lambda: process_state(applet.pid) == "T", "the stop")
    # The answer comes while nobody reads it.
    held.release()
    applet.send(signal.SIGCONT)
    applet.finish_check()
    assert has_news(machine, applet)
    menu_answers(applet)


def test_after_a_long_stop_in_the_pause_there_is_one_check_and_not_many(machine, menu_answers):
    machine.tools.publish(page(stable="7.2.4"))
    applet = machine.start_and_check()
    asked = len(machine.tools.commands())
    machine.tools.leave_unchanged()
    applet.send(signal.SIGSTOP)
    wait_until(lambda: process_state(applet.pid) == "T", "the stop")
    applet.clock.pass_steps(STEPS_OF_A_PAUSE)
    assert applet.clock.steps_begun == 1
    applet.send(signal.SIGCONT)
    wait_until(lambda: applet.clock.steps_begun == STEPS_OF_A_PAUSE + 1, "the next pause")
    applet.settle()
    assert len(machine.tools.commands()) == asked + 2
    menu_answers(applet)


# ---- Limits ----


# To write down what was covered takes a descriptor, and without one there are words about it.
opens_no_files_of_its_own = pytest.mark.skipif(BUILD.name == "coverage", reason="this build opens files of its own")


@opens_no_files_of_its_own
def test_without_a_free_descriptor_checks_fail_until_there_is_one(machine, menu_answers):
    machine.saves(**KNOWN)
    machine.tools.publish(page(**NEXT))
    applet = machine.start()
    usual = resource.prlimit(applet.pid, resource.RLIMIT_NOFILE)
    # The lowest free number is the first beyond the limit.
    lowest = next(number for number in range(3, 4096) if not Path(f"/proc/{applet.pid}/fd/{number}").exists())
    resource.prlimit(applet.pid, resource.RLIMIT_NOFILE, (lowest, usual[1]))
    applet.check()
    assert machine.tools.commands() == []
    assert lacks_news(machine, applet)
    menu_answers(applet)
    resource.prlimit(applet.pid, resource.RLIMIT_NOFILE, usual)
    applet.check()
    assert has_news(machine, applet)


@opens_no_files_of_its_own
def test_acknowledging_without_a_free_descriptor_is_not_saved_and_breaks_nothing(machine):
    machine.saves(**KNOWN)
    applet = machine.start()
    usual = resource.prlimit(applet.pid, resource.RLIMIT_NOFILE)
    lowest = next(number for number in range(3, 4096) if not Path(f"/proc/{applet.pid}/fd/{number}").exists())
    resource.prlimit(applet.pid, resource.RLIMIT_NOFILE, (lowest, usual[1]))
    applet.item.menu.click("Acknowledge Update")
    wait_until(lambda: applet.item.icon == "tux-white", "the white icon")
    assert machine.saved == state_text(**KNOWN)
    # The search for leaks at its end needs some.
    resource.prlimit(applet.pid, resource.RLIMIT_NOFILE, usual)
    assert applet.quit() == 0


def test_without_room_for_another_process_checks_fail_until_there_is(machine, menu_answers):
    machine.saves(**KNOWN)
    machine.tools.publish(page(**NEXT))
    mishaps = Mishaps(machine.folder)
    applet = machine.start(**mishaps.options)
    mishaps.crowd(True)
    applet.check()
    assert machine.tools.commands() == []
    assert lacks_news(machine, applet)
    menu_answers(applet)
    mishaps.crowd(False)
    applet.check()
    assert has_news(machine, applet)


def test_without_room_for_another_thread_a_load_is_a_crash_with_a_report(machine):
    machine.saves(**KNOWN)
    mishaps, probe = Mishaps(machine.folder), Probe(machine.folder)
    applet = machine.start(
        preload=[*mishaps.options["preload"], *probe.options["preload"]],
        environment={**mishaps.options["environment"], **probe.options["environment"]},
    )
    # The first window has the libraries start threads of their own, which they can't do without.
    probe.open(applet, SETTINGS)
    mishaps.crowd(True)
    applet.item.menu.click("Latest Changes")
    assert applet.exit_status() == -signal.SIGABRT
    report = (machine.runtime / "Veldrin_crash.txt").read_text()
    assert "Signal: SIGABRT (Abort) (6)\n" in report and report.endswith("\n=== End Report ===\n")
    assert machine.saved == state_text(**KNOWN)


# ---- Locales ----

SHOUTED = Module(b"IRON_FIX 1572864 0 - Live 0x0000000000000000")
COMMITS = """commit 0123456789abcdef0123456789abcdef01234567
Author: Iris <iris@reef.invalid>
Date:   Sat Sep 5 08:15:42 2026 +0000

    reef: FIX THE TIDE

commit 1123456789abcdef0123456789abcdef01234567
Author: Iris <iris@reef.invalid>
Date:   Sat Sep 5 08:15:42 2026 +0000

    reef: more sand
"""


def make_locale(folder: Path, name: str) -> None:
    language, charset = name.split(".")
    command = ["localedef", "--no-archive", "-i", language, "-f", charset, str(folder / name)]
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)


@pytest.mark.parametrize("locale", ["C", "C.UTF-8", "de_DE.UTF-8", "tr_TR.UTF-8"])
def test_locale_changes_neither_numbers_nor_the_reading_of_names(machine, menu_answers, locale):
    locales = machine.folder / "locales"
    locales.mkdir()
    if not locale.startswith("C"):
        make_locale(locales, locale)
    html = page(**NEXT).replace("mainline:", "MAINLINE:").replace("longterm:", "LongTerm:")
    machine.tools.publish(html)
    machine.tools.answer("wget -qO- *ChangeLog-7.2.5", stdout=COMMITS)
    machine.tools.answer("wget -qO- *releases.json", status=4)
    machine.tools.put_script("modinfo", "exit 1")
    probe = Probe(machine.folder)
    environment = {**probe.options["environment"], "LANG": locale, "LOCPATH": str(locales)}
    applet = machine.start_and_check(
        around=machine_with_modules(machine, [SHOUTED]), preload=probe.options["preload"], environment=environment
    )
    assert applet.item.label == "7.2.5"
    assert machine.saved == state_text(**NEXT, latest_kernel="7.2.5")

    window = probe.open(applet, SYSTEM)
    assert window.rows[0][:2] == ["IRON_FIX", "1.5 MB"]
    for text in ("iron_fix", "ıron", "IRON"):
        assert probe.do(f"filter {text}")
        rows = probe.windows()[SYSTEM].rows
        assert [row[0] for row in rows] == ([] if text == "ıron" else ["IRON_FIX"])

    window = probe.changes(applet)
    cards = [classes - {"commit-card", "vertical"} for classes in window.boxes if "commit-card" in classes]
    assert cards == [{"is-fix"}, set()]
    menu_answers(applet)
