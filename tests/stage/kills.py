# SPDX-License-Identifier: MIT
"""Kills in the middle of saves, and what is read of the files that they leave."""

import random
import re
import subprocess
import time
from collections import Counter
from collections.abc import Iterable, Iterator, Sequence
from pathlib import Path

from stage.applet import Applet, Machine
from stage.processes import tied
from stage.project import BUILD
from stage.user import state_text
from stage.waiting import serve_panel

DRIVER = BUILD.driver("state_driver")
KILL_IN_SAVE = BUILD.library("kill_in_save")
FIELDS = ("kernel", "latest_kernel", "mainline", "stable", "longterm", "channel")
CHANNELS = ("mainline", "stable", "longterm")

State = tuple[str, ...]

# Of different lengths, and without a value in common.
OLD: State = ("7.1.9", "7.2.3", "7.3-rc1", "7.2.3", "6.18.30", "mainline")
NEW: State = ("7.2.4", "7.2.14", "7.3-rc2-next", "7.2.14", "6.18.131", "longterm")
DEFAULTS: State = ("", "", "", "", "", "stable")


def text_of(state: State) -> bytes:
    return state_text(*state).encode()


def expected_state(text: bytes) -> State:
    """What a file with this text says: a key's value is what stands between the next quotes behind its colon."""
    values = []
    for field in FIELDS:
        found = re.search(rb'"%s"[ \t\r\n]*:[^"]*"([^"]*)"' % field.encode(), text)
        values.append(found[1].decode("latin-1") if found else "")
    if values[-1] not in CHANNELS:
        values[-1] = "stable"
    return tuple(values)


def _states(output: bytes) -> list[State]:
    values = []
    at = 0
    while at < len(output):
        length, _, _ = output[at : at + 20].partition(b"\n")
        at += len(length) + 1
        values.append(output[at : at + int(length)].decode("latin-1"))
        at += int(length)
    assert len(values) % len(FIELDS) == 0
    return [tuple(values[at : at + len(FIELDS)]) for at in range(0, len(values), len(FIELDS))]


def read_texts(folder: Path, texts: Sequence[bytes]) -> list[State]:
    """What the program's own function reads where the state file holds each of these in turn."""
    given = b"".join(b"%d\n%s" % (len(text), text) for text in texts)
    done = subprocess.run(
        [DRIVER, "judge"], input=given, env={"SNAP_USER_DATA": str(folder)}, capture_output=True, timeout=600
    )
    assert (done.returncode, done.stderr) == (0, b"")
    return _states(done.stdout)


def truncations(text: bytes) -> Iterator[bytes]:
    return (text[:length] for length in range(len(text) + 1))


def replacements(text: bytes) -> Iterator[bytes]:
    """Each byte replaced by each of the 255 others, flips of single bits among them."""
    for at, byte in enumerate(text):
        for other in range(256):
            if other != byte:
                yield text[:at] + bytes([other]) + text[at + 1 :]


def check_read(texts: Sequence[bytes], states: Sequence[State]) -> None:
    assert len(texts) == len(states)
    for text, state in zip(texts, states, strict=True):
        assert state == expected_state(text), text
        # A channel that no byte of the file says is the default alone.
        assert state[-1] == "stable" or b'"%s"' % state[-1].encode() in text


def check_every_truncation(folder: Path, state: State) -> int:
    """Beyond what the file says, a field whose line is whole must have come back, and no other."""
    text = text_of(state)
    texts = list(truncations(text))
    states = read_texts(folder, texts)
    check_read(texts, states)
    for cut, found in zip(texts, states, strict=True):
        for field, default, value, read in zip(FIELDS, DEFAULTS, state, found, strict=True):
            whole = b'"%s": "%s"' % (field.encode(), value.encode()) in cut
            assert read == (value if whole else default), cut
    return len(texts)


def check_every_replacement(folder: Path, state: State) -> int:
    texts = list(replacements(text_of(state)))
    check_read(texts, read_texts(folder, texts))
    return len(texts)


def kind_of(text: bytes | None, known: Iterable[bytes]) -> str:
    """What a kill has left: one of the whole texts, by its number, or a torn one, by where it ends."""
    if text is None:
        return "no file"
    if not text:
        return "empty"
    for number, whole in enumerate(known):
        if text == whole:
            return ("old", "new")[number]
        if whole.startswith(text):
            return f"torn after byte {len(text)}"
    raise AssertionError(f"no save wrote this: {text!r}")


# ---- A driver that does nothing but save ----


def kill_driver(folder: Path, kills: int, found: Counter[str]) -> None:
    """Kills at random moments of a loop that saves OLD and NEW in turn, and has the driver read what is left."""
    file = folder / "app_state.json"
    environment = {"SNAP_USER_DATA": str(folder)}
    known = [text_of(OLD), text_of(NEW)]
    for _ in range(kills):
        driver = subprocess.Popen(tied([DRIVER, "save", *OLD, *NEW], "KILL"), env=environment, stdout=subprocess.PIPE)
        assert driver.stdout.readline() == b"saving\n"
        time.sleep(random.uniform(0, 0.002))
        driver.kill()
        assert driver.wait() == -9
        driver.stdout.close()
        text = file.read_bytes()
        found[kind_of(text, known)] += 1
        read = subprocess.run([DRIVER, "load"], env=environment, capture_output=True, timeout=60)
        assert read.returncode == 0
        check_read([text], _states(read.stdout))


# ---- The program ----


def check_start(machine: Machine, text: bytes | None) -> Applet:
    """Starts the program on what a kill has left: it must show what the file says and leave it as it is."""
    state = expected_state(text) if text is not None else DEFAULTS
    fields = dict(zip(FIELDS, state, strict=True))
    applet = machine.start()
    kernel, stable = fields["kernel"], fields["stable"]
    news = stable and stable != kernel
    assert applet.item.icon == ("tux-red" if not kernel else "tux-green" if news else "tux-white")
    assert applet.item.label == fields[fields["channel"]]
    assert machine.state_file.read_bytes() == text if text is not None else not machine.state_file.exists()
    return applet


def kill_program(machine: Machine, kills: int, found: Counter[str], before: State = OLD) -> None:
    """Kills at random moments while the user acknowledges again and again."""
    for _ in range(kills):
        machine.saves_text(text_of(before).decode())
        applet = machine.start()
        menu = applet.item.menu
        entry = menu.entry("Acknowledge Update")
        for _ in range(20):
            menu.click_entry(entry)
        serve_panel()
        time.sleep(random.uniform(0, 0.01))
        applet.send(9)
        assert applet.exit_status() == -9
        text = machine.state_file.read_bytes()
        found[kind_of(text, [text_of(before), text_of((before[1], *before[1:]))])] += 1
        check_start(machine, text).kill()


def kill_program_within_save(machine: Machine, place: str, before: State = OLD) -> bytes:
    """Kills at this very place of the save, and returns what is left."""
    machine.saves_text(text_of(before).decode())
    applet = machine.start(preload=[KILL_IN_SAVE], environment={"KILL_IN_SAVE": place})
    applet.item.menu.click("Acknowledge Update")
    assert applet.exit_status() == -9
    text = machine.state_file.read_bytes()
    check_start(machine, text).kill()
    return text
