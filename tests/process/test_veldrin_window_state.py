# SPDX-License-Identifier: MIT
"""What veldrin-window says of the saved state: as the icon and the label would, whatever the file holds."""

import json
import os
import random
import shutil
import subprocess
from pathlib import Path

import pytest
from stage.kills import FIELDS, NEW, OLD, State, read_texts, text_of, truncations
from stage.project import ROOT
from stage.user import state_text
from stage.world import other_world

SCRIPT = ROOT / "data" / "veldrin-window"
SYSTEM_PATH = "/usr/bin:/bin"
CLASSES = {"tux-red": "nothing-acknowledged", "tux-green": "new-version", "tux-white": "nothing-new"}
MOST = 16384


def say(*words: str, home: Path | None = None, around=(), script: Path = SCRIPT, **environment: str) -> str:
    """The one line that it prints."""
    variables = {"PATH": SYSTEM_PATH, "LANG": "C.UTF-8", **environment}
    if home is not None:
        variables["HOME"] = str(home)
    command = [*around, script, "state", *words]
    result = subprocess.run(command, env=variables, capture_output=True, timeout=20, check=False)
    assert (result.returncode, result.stderr) == (0, b"")
    line = result.stdout.decode("ascii")
    assert line.endswith("\n")
    assert line[:-1].isprintable()
    return line[:-1]


def say_json(**options) -> dict[str, str]:
    answer = json.loads(say("--json", **options))
    assert list(answer) == ["text", "tooltip", "class", "alt"]
    assert answer["class"] == answer["alt"]
    assert answer["tooltip"] == say(**options)
    return answer


def harmless(text: str) -> str:
    return "".join(character if " " <= character <= "~" else "?" for character in text)


def expected(state: State) -> dict[str, str]:
    kernel, _, mainline, stable, longterm, channel = state
    version = {"mainline": mainline, "stable": stable, "longterm": longterm}[channel]
    if kernel and stable and kernel != stable:
        name = "new-version"
        news = f"new stable version {harmless(stable)}, acknowledged: {harmless(kernel)}"
    elif kernel:
        name, news = "nothing-new", "nothing new"
    else:
        name, news = "nothing-acknowledged", "nothing acknowledged yet"
    if version:
        words = f"{channel} {harmless(version)}: {news}"
    elif kernel or stable:
        words = f"{channel}, no version known yet: {news}"
    else:
        words = "nothing is known yet"
    return {"text": harmless(version) or "?", "tooltip": words, "class": name, "alt": name}


# ---- A sound file ----


@pytest.mark.parametrize(
    ("fields", "text", "words", "name"),
    [
        ({"kernel": "7.2.3", "stable": "7.2.4"}, "7.2.4",
         "stable 7.2.4: new stable version 7.2.4, acknowledged: 7.2.3", "new-version"),
        ({"kernel": "7.2.4", "stable": "7.2.4"}, "7.2.4", "stable 7.2.4: nothing new", "nothing-new"),
        ({"kernel": "", "stable": "7.2.4"}, "7.2.4", "stable 7.2.4: nothing acknowledged yet", "nothing-acknowledged"),
        ({"kernel": "7.2.3", "stable": "7.2.4", "mainline": "7.3-rc2", "channel": "mainline"}, "7.3-rc2",
         "mainline 7.3-rc2: new stable version 7.2.4, acknowledged: 7.2.3", "new-version"),
        ({"kernel": "7.2.4", "stable": "7.2.4", "longterm": "6.18.31", "channel": "longterm"}, "6.18.31",
         "longterm 6.18.31: nothing new", "nothing-new"),
        ({"kernel": "7.2.4", "stable": "7.2.4", "channel": "mainline"}, "?",
         "mainline, no version known yet: nothing new", "nothing-new"),
        ({"kernel": "7.2.4"}, "?", "stable, no version known yet: nothing new", "nothing-new"),
        ({"latest_kernel": "7.2.4"}, "?", "nothing is known yet", "nothing-acknowledged"),
        ({}, "?", "nothing is known yet", "nothing-acknowledged"),
        ({"kernel": "7.2.4", "stable": "7.2.4", "channel": "Mainline"}, "7.2.4", "stable 7.2.4: nothing new",
         "nothing-new"),
    ],
)  # fmt: skip
def test_says_version_and_news(machine, fields, text, words, name):
    machine.saves(**fields)
    answer = {"text": text, "tooltip": words, "class": name, "alt": name}
    assert say_json(home=machine.home) == answer


@pytest.mark.parametrize(
    ("fields", "icon"),
    [
        ({"stable": "7.2.4", "mainline": "7.3-rc2"}, "tux-red"),
        ({"kernel": "7.2.3", "stable": "7.2.4", "mainline": "7.3-rc2", "channel": "mainline"}, "tux-green"),
        ({"kernel": "7.2.4", "stable": "7.2.4", "longterm": "6.18.31", "channel": "longterm"}, "tux-white"),
    ],
)
def test_says_what_the_applet_shows_at_its_start(machine, fields, icon):
    machine.saves(**fields)
    applet = machine.start()
    assert applet.item.icon == icon
    answer = say_json(home=machine.home)
    assert (answer["text"], answer["class"]) == (applet.item.label, CLASSES[icon])


# ---- Where the file lies ----


def test_without_a_file_nothing_is_known_and_nothing_is_made(machine):
    assert say_json(home=machine.home)["tooltip"] == "nothing is known yet"
    assert not machine.state_file.parent.exists()


def test_a_snaps_file_lies_in_its_own_folder(machine, tmp_path):
    machine.saves(kernel="7.1", stable="7.1")
    folder = tmp_path / "snap"
    folder.mkdir()
    assert say(home=machine.home, SNAP_USER_DATA=str(folder)) == "nothing is known yet"
    (folder / "app_state.json").write_text(state_text(kernel="7.2.4", stable="7.2.4"))
    assert say(home=machine.home, SNAP_USER_DATA=str(folder)) == "stable 7.2.4: nothing new"


@pytest.mark.parametrize(
    ("variables", "place"),
    [
        ({}, "tmp"),
        ({"HOME": ""}, ".config/VeldrinWatch"),
        ({"SNAP_USER_DATA": ""}, ""),
        ({"SNAP_USER_DATA": "", "HOME": "/tmp"}, ""),
    ],
)
def test_an_empty_variable_counts_as_set(tmp_path, variables, place):
    root = tmp_path / "root"
    world = other_world(root, SCRIPT.parent)
    (root / place).mkdir(parents=True, exist_ok=True)
    (root / place / "app_state.json").write_text(state_text(kernel="7.2.4", stable="7.2.4"))
    assert say(around=world, **variables) == "stable 7.2.4: nothing new"


@pytest.mark.parametrize("put", [os.mkfifo, Path.mkdir, lambda path: path.symlink_to("/dev/zero"),
                                 lambda path: path.symlink_to(path)],
                         ids=["pipe", "folder", "device", "loop"])  # fmt: skip
def test_what_is_no_file_is_not_read(machine, put):
    machine.state_file.parent.mkdir()
    put(machine.state_file)
    assert say_json(home=machine.home)["tooltip"] == "nothing is known yet"


@pytest.mark.skipif(os.geteuid() != 0, reason="takes root to become a user who may not read it")
def test_what_may_not_be_read_is_not_known(machine):
    machine.saves(kernel="7.2.4", stable="7.2.4")
    machine.state_file.chmod(0o600)
    for folder in (machine.state_file.parent, *machine.state_file.parents):
        if folder == Path("/tmp"):
            break
        folder.chmod(0o755)
    # The checkout may be for its owner alone.
    script = Path(shutil.copy(SCRIPT, machine.folder))
    as_nobody = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", "--"]
    assert say(home=machine.home, script=script) == "stable 7.2.4: nothing new"
    assert say(home=machine.home, script=script, around=as_nobody) == "nothing is known yet"


# ---- A damaged file ----

# What could end a text of JSON, start a command, or steer a terminal; and what is no UTF-8.
EVIL = [b"\\", b'\\"', b"\\\\", b"\\u0000", b"\x1b]0;title\x07\x1b[31m", b"\x9b31m", b"\xc2\x9b31m", b"\0", b"\r\n",
        b"\t", b"\x7f", b"\xff\xfe", b"\xc3", b"7.2\xc3\xa4", b"$(id)", b"`id`", b"${HOME}", b"%s%n", b"*", b"?",
        b"[a-z]", b"{}", b"<b>", b"&amp;", b"'", b"-n", b" ", b"a" * 2000]  # fmt: skip


@pytest.mark.parametrize("value", EVIL)
def test_no_value_breaks_out_of_its_text(machine, value):
    machine.state_file.parent.mkdir()
    for key in ("kernel", "stable"):
        text = b'{"%s": "%s", "channel": "stable"}' % (key.encode(), value)
        machine.state_file.write_bytes(text)
        (state,) = read_texts(machine.folder, [text])
        assert say_json(home=machine.home) == expected(state)


def check_reading(machine, texts: list[bytes]) -> None:
    """The script reads each of these as the program's own function does."""
    machine.state_file.parent.mkdir()
    for text, state in zip(texts, read_texts(machine.folder, texts), strict=True):
        machine.state_file.write_bytes(text)
        assert json.loads(say("--json", home=machine.home)) == expected(state), text


def test_a_file_cut_anywhere_is_read_as_far_as_it_goes(machine):
    check_reading(machine, list(truncations(text_of(OLD))))


TRICKY = [
    b"",
    b"{}",
    b'{"channel":"mainline"}',
    b'{"kernel": 5, "x": "y"}',
    b'{"kernel": null, "stable": "7.2.4"}',
    b'"channel": "stable", "stable": "6.1"',
    b'"x": "kernel", "kernel" \t\r\n: \t\r\n"7.2.4"',
    b'"kernel"kernel":"7"',
    b'"kernel"',
    b'"kernel" ',
    b'"kernel":',
    b'"kernel": "',
    b'"kernel": "7',
    b'"kernel"\v:"7"',
    b'"kernel"\0:"7", "stable": "8"',
    b'"ker\0nel":"7"',
    b'"kernel": {"kernel": "7.1"}, "stable": "7.2"',
    b'"latest_kernel": "7.1", "kernel": "7.2", "kernel": "7.3"',
    b'{"kernel":"7.2","stable":"7.3","channel":"longterm","longterm":"6.1"}\r\n',
    b"\n\n" + text_of(NEW).replace(b"\n", b"\r\n") + b"\n\n\n",
    b'"stable": "7\n\n\n"',
    b'"stable": "\n7"',
]


def test_odd_forms_are_read_as_the_program_reads_them(machine):
    check_reading(machine, TRICKY)


@pytest.mark.parametrize("seed", range(4))
def test_random_damage_is_read_as_the_program_reads_it(machine, seed):
    chance = random.Random(seed)
    pieces = [b'"%s"' % name.encode() for name in FIELDS] + [b":", b'"', b" ", b"\n", b"\\", b"7.2", b"stable", b"\0",
                                                             b"\xff", b",", b'"mainline"', b"\x1b"]  # fmt: skip
    texts = [b"".join(chance.choices(pieces, k=chance.randrange(40))) for _ in range(60)]
    for _ in range(60):
        damaged = bytearray(text_of(chance.choice([OLD, NEW])))
        for _ in range(chance.randrange(1, 6)):
            damaged[chance.randrange(len(damaged))] = chance.randrange(256)
        texts.append(bytes(damaged))
    check_reading(machine, texts)


@pytest.mark.parametrize(
    "text", [b'"kernel"' * 20_000, b'"kernel": "' + b"\xff" * 5_000_000, b'"' * 100_000, b"\0" * 5_000_000],
    ids=["keys", "value", "quotes", "zeros"],
)  # fmt: skip
def test_a_huge_file_is_read_in_its_beginning_alone(machine, text):
    machine.state_file.parent.mkdir()
    machine.state_file.write_bytes(text)
    (state,) = read_texts(machine.folder, [text[:MOST]])
    assert say_json(home=machine.home) == expected(state)


# ---- Whoever calls ----


@pytest.mark.parametrize("locale", ["C", "C.UTF-8", "de_DE.UTF-8", "POSIX"])
def test_says_the_same_in_every_locale(machine, locale):
    machine.state_file.parent.mkdir()
    machine.state_file.write_bytes(b'"kernel": "7.2\xc3\xa4", "stable": "7.\xc3\xa4\xe4\xff"')
    answer = say_json(home=machine.home, LANG=locale)
    assert answer["tooltip"] == "stable 7.????: new stable version 7.????, acknowledged: 7.2??"
