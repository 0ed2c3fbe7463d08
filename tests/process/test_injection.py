# SPDX-License-Identifier: MIT
"""Nothing that comes from outside is ever a command, a markup or a format: a corpus of hostile texts goes through every
string that the applet takes from the net, the machine, its environment and its own file."""

import os
import re
import signal
from xml.sax.saxutils import escape

import pytest
from stage.probe import CHANGES, SETTINGS, SYSTEM, Probe, excerpt
from stage.tools import HEADER, PAGE, header_command, headers, page, page_command
from stage.user import state_text
from stage.waiting import wait_until
from stage.world import Module, machine_with_modules

CORPUS: dict[str, bytes] = {
    "quotes": b"'; touch marker; '",
    "quotes-without-blanks": b"';touch${IFS}marker;'",
    "substitution": b"$(touch marker)",
    "quoted-substitution": b"'$(touch${IFS}marker)'",
    "back-quotes": b"'`touch marker`'",
    "double-quotes": b'"; touch marker; "',
    "escaped-quote": b"\\'; touch marker; \\'",
    "quoted-quotes": b"'\\''; touch marker; '\\''",
    "odd-quotes": b"'''; >marker; #",
    "semicolon": b"; touch marker;",
    "ampersand": b"' & touch marker & '",
    "pipe": b"' | touch marker | '",
    "redirection": b"' >marker '",
    "line-feed": b"'\ntouch marker\n'",
    "carriage-return": b"'\rtouch marker\r'",
    "options": b"-O marker --output-document=marker -o marker",
    "quoted-options": b"' -O marker -o marker '",
    "one-option": b"--output=marker",
    "pango": b"<b>bold</b> <span size='999999'>huge</span> & <i>",
    "entities": b"&lt;b&gt; &#39;; touch marker; &#39; &amp;amp; &#0;",
    "formats": b"%s %n %d %1$s %999999d",
    "not-ascii": "Gr\u00fc\u00dfe \u202e\u6f22\u5b57 \U0001f427 \u200b\ufeff".encode(),
    "not-utf-8": b"\xff\xfe \xc3( \xed\xa0\x80 \xf8\x88\x80\x80\x80 '\xc0\xaf",
    "escapes": b"\x1b[31m\x1b]0;title\x07\x08\x7f",
    "path": b"../../../../../../etc/passwd",
    "64-kb": b"A" * 65536,
    "64-kb-of-quotes": b"'" * 65536,
}
ONE_LINE = {name: text for name, text in CORPUS.items() if not re.search(rb"[\r\n]", text)}

ADDRESS = re.compile(r"https://(www\.|cdn\.|git\.)?kernel\.org/[A-Za-z0-9._~:/?#\[\]@!$&()*+,;=%-]*")
LOADS = [["wget", "-qO-", "--timeout=15"], ["curl", "-sL", "--max-time", "15"]]


def shown(text: bytes) -> str:
    """As GTK shows bytes: what is not UTF-8 as marks, by GLib's own rules."""
    return re.sub("[\udc80-\udcff]", "\N{REPLACEMENT CHARACTER}", text.decode(errors="surrogateescape"))


@pytest.fixture
def hostile(machine):
    """A machine where a command that slips through does run."""
    machine.tools.put("touch")
    return machine


def answer(machine, pattern: str, printed: bytes, errors: bytes = b"") -> None:
    made = machine.tools.answer(pattern, hold=True)
    # The stand-in waits for the release, so it never reads half of it.
    folder = made._hold.parent
    (folder / "stdout").write_bytes(printed)
    (folder / "stderr").write_bytes(errors)
    made.release()


def check_commands(machine) -> None:
    for command in machine.tools.commands():
        *words, last = command
        if words in LOADS:
            assert ADDRESS.fullmatch(last) and len(last) <= 512, command
        elif command != header_command():
            rest = [word for word in command if not word.startswith("--header=If-Modified-Since: ")]
            assert len(rest) == len(command) - 1, command
            assert rest == ["wget", "-q", *header_command()[2:]] or rest == header_command(), command


def check_unharmed(machine, applet) -> None:
    assert [path for path in machine.folder.rglob("marker*")] == []
    assert len(applet.item.menu.entries()) == 8
    assert re.fullmatch(applet.expected_stderr, applet.stderr)
    assert applet.stdout == ""
    check_commands(machine)


LOG = "https://cdn.kernel.org/pub/linux/kernel/v7.x/ChangeLog-7.2.4"
COMMIT = b"""commit 0123456789abcdef0123456789abcdef01234567
Author: Nautilus <nautilus@reef.invalid>
Date:   Sat Sep 5 08:15:42 2026 +0000

    reef: sand
"""


def index(**fields: bytes) -> bytes:
    """A release index with these values as they are."""
    values = {"moniker": b"stable", "version": b"7.2.4", **fields}
    record = b", ".join(b'"%s": "%s"' % (key.encode(), text) for key, text in values.items())
    return b'{"releases": [{' + record + b"}]}"


# ---- From the net ----


@pytest.mark.parametrize("prefix", [b"", b"https://cdn.kernel.org/"], ids=["whole", "behind-the-host"])
@pytest.mark.parametrize("field", ["version", "changelog"])
def test_release_index(hostile, field, prefix):
    answer(hostile, "wget -qO- *ChangeLog*", COMMIT)
    answer(hostile, "wget -qO- */atom/*", b"")
    probe = Probe(hostile.folder)
    applet = hostile.start(**probe.options)
    if field == "version" and prefix:
        prefix = b"7.2."
    for text in CORPUS.values():
        answer(hostile, "wget -qO- *releases.json", index(**{field: prefix + text}))
        window = probe.changes(applet)
        asked = hostile.tools.commands()
        assert ["wget", "-qO-", "--timeout=15", "https://www.kernel.org/releases.json"] in asked
        said = shown((prefix + text).partition(b'"')[0])
        if field == "changelog" and not ADDRESS.fullmatch(said) and said:
            assert f"Kernhaven returned an unexpected changelog address:\n{said}" in window.texts
    check_unharmed(hostile, applet)


def changelog() -> bytes:
    """One commit for each hostile text, in all its parts."""
    parts = b"commit %s\nAuthor: %s <%s>\nDate:   %s\n\n    %s\n\n    %s\n\n"
    return b"".join(parts % ((text,) * 6) for text in ONE_LINE.values())


def feed() -> bytes:
    """The same as a feed, with the texts escaped as XML asks for, and once more without that."""
    entry = (
        b"<entry><title>%s</title><updated>%s</updated><author><name>%s</name><email>%s</email></author>"
        b"<id>%s</id><content type='text'>%s</content></entry>\n"
    )
    escaped = [escape(text.decode("latin-1")).encode("latin-1") for text in CORPUS.values()]
    # The long ones come once; each takes GTK a while to lay out.
    raw = [text for text in CORPUS.values() if len(text) < 1000]
    return b"<feed>" + b"".join(entry % ((text,) * 6) for text in [*escaped, *raw]) + b"</feed>"


@pytest.mark.parametrize("source", ["changelog", "feed"])
def test_commits(hostile, source):
    if source == "changelog":
        answer(hostile, "wget -qO- *ChangeLog*", changelog())
    else:
        answer(hostile, "wget -qO- */atom/*", feed())
    probe = Probe(hostile.folder)
    applet = hostile.start(**probe.options)
    # The release's date stands in the header.
    for name in ("quotes", "pango", "not-utf-8", "64-kb"):
        answer(hostile, "wget -qO- *releases.json", index(isodate=CORPUS[name]))
        texts = set(probe.changes(applet).texts)
        assert excerpt(f"stable  ·  7.2.4  ·  released {shown(CORPUS[name])}") in texts
    for name, text in ONE_LINE.items():
        # A subject is cut where it looks as if it named a subsystem; the body stands as it came.
        assert shown(text.rstrip(b" \t")) in texts, name
    check_unharmed(hostile, applet)


def test_last_modified(hostile):
    hostile.tools.publish(page(stable="7.2.4"))
    applet = hostile.start()
    applet.expected_stderr = r"(grep: \(standard input\): binary file matches\n)*"
    for name, text in ONE_LINE.items():
        answer(hostile, HEADER, b"", headers("200 OK").encode() + b"  Last-Modified: " + text + b"\n")
        applet.check()
        before = len(hostile.tools.commands())
        # The next answer is another page once more, so the next round begins with this text.
        applet.check()
        asked = hostile.tools.commands()[before:]
        sent = "--header=If-Modified-Since: " + text.lstrip(b" ").decode(errors="surrogateescape")
        if name in ("not-utf-8", "64-kb-of-quotes"):
            # To grep the first are no lines of text; the other is, quoted, longer than a command can be.
            assert asked[0] == page_command()
            continue
        assert [command[3] for command in asked[:2]] == [sent] * 2, name
    check_unharmed(hostile, applet)


def cells(label: bytes, version: bytes) -> bytes:
    return b"<table><tr><td>%s:</td>\n<td><strong>%s</strong></td></tr></table>" % (label, version)


@pytest.mark.parametrize("cell", ["label", "version", "version-behind-a-number"])
def test_front_page(hostile, cell):
    hostile.tools.publish("")
    probe = Probe(hostile.folder)
    applet = hostile.start(**probe.options)
    probe.open(applet, SETTINGS)
    for name, text in CORPUS.items():
        if (cell, name) == ("version-behind-a-number", "64-kb"):
            continue  # that is a version, though a long one
        answer(
            hostile,
            PAGE,
            {
                "label": cells(b"stable" + text, b"7.2.4"),
                "version": cells(b"stable", text),
                "version-behind-a-number": cells(b"stable", b"7.2.4" + text),
            }[cell],
        )
        applet.check()
        # None of them is a version, not even in part.
        assert (applet.item.label, applet.item.icon, hostile.saved) == ("", "tux-red", None)
    probe.changes(applet)
    check_unharmed(hostile, applet)


def test_endless_version(hostile):
    version = "7.2." + "4" * 65536
    hostile.tools.publish(page(mainline=version, stable=version, longterm=version))
    answer(hostile, "wget -qO- *releases.json", index(version=version.encode(), changelog=LOG.encode()))
    answer(hostile, f"wget -qO- *{LOG}", COMMIT)
    probe = Probe(hostile.folder)
    applet = hostile.start_and_check(**probe.options)
    assert applet.item.label == excerpt(version)
    assert hostile.saved == state_text(mainline=version, stable=version, longterm=version, latest_kernel=version)
    assert excerpt(version) in probe.open(applet, SETTINGS).texts
    assert excerpt(f"stable  ·  {version}") in probe.changes(applet).texts
    check_unharmed(hostile, applet)


# ---- From the machine ----


def as_word(text: bytes) -> bytes:
    """The kernel's list has no blanks within a column."""
    return re.sub(rb"[\s\x00]+", b"${IFS}", text)


def as_file_name(text: bytes) -> bytes:
    return text.replace(b"/", b"_")[:200]


def modules() -> list[Module]:
    made = []
    for text in CORPUS.values():
        word = as_word(text)
        line = b"%s 16384 1 %s, %s 0x0000000000000000" % (word, word, word)
        if len(word) > 255 or b"/" in word:
            made.append(Module(line))
            continue
        files = {name: text + b"\n" for name in (b"version", b"srcversion", b"taint", b"parameters/plain")}
        made.append(Module(line, {**files, b"parameters/" + as_file_name(text): text}))
    return [*made, Module(b"seaweed 20480 2 kelp, Live 0x0000000000000000")]


# What modinfo says of a module.
TOLD = {"pango": b"description", "quotes": b"author", "formats": b"license", "not-utf-8": b"filename"}


def test_modules(hostile):
    told, asked = hostile.folder / "told", hostile.folder / "asked"
    told.write_bytes(b"".join(b"%s: %s\n" % (key, CORPUS[name]) for name, key in TOLD.items()))
    hostile.tools.put_script("modinfo", f'printf \'%s\\n\' "$#" "$@" >>{asked}', f"exec /bin/cat {told}")
    listed = modules()
    probe = Probe(hostile.folder)
    applet = hostile.start(around=machine_with_modules(hostile, listed), **probe.options)
    window = probe.open(applet, SYSTEM)
    assert sorted(row[0] for row in window.rows) == sorted(shown(module.name) for module in listed)
    assert probe.do("page 1")
    texts: dict[str, set[str]] = {}
    for number, row in enumerate(window.rows):
        assert probe.do(f"select {number}")
        texts[row[0]] = set(probe.windows()[SYSTEM].texts)
        assert row[0] in texts[row[0]]
    assert {shown(CORPUS[name]).strip() for name in TOLD} <= texts["seaweed"]
    for text in (b"<b>", b"%s", b"'", b"$(x)", "\u6f22".encode()):
        assert probe.do(b"filter " + text)
    # Only a name that is no more than a word is asked for.
    assert asked.read_text() == "1\nseaweed\n"
    check_unharmed(hostile, applet)


def test_parameters_are_shown_as_they_are(hostile):
    values = {b"parameters/%02d" % number: text for number, text in enumerate(CORPUS.values())}
    names = {b"parameters/" + as_file_name(text): b"1" for text in CORPUS.values()}
    probe = Probe(hostile.folder)
    module = Module(b"seaweed 20480 2 kelp, Live 0x0000000000000000", {**values, **names})
    applet = hostile.start(around=machine_with_modules(hostile, [module]), **probe.options)
    probe.open(applet, SYSTEM)
    assert probe.do("page 1") and probe.do("select 0")
    applet.settle()
    texts = set(probe.windows()[SYSTEM].texts)
    assert {
        f"{number:02} = {shown(text.strip(b' ' + bytes([9, 10, 13])))}" for number, text in enumerate(CORPUS.values())
    } <= texts
    assert {f"{shown(as_file_name(text))} = 1" for text in CORPUS.values()} <= texts
    check_unharmed(hostile, applet)


def test_words_about_the_machine(hostile):
    probe = Probe(hostile.folder)
    paths = ["/etc/os-release", "/proc/version", "/proc/cmdline", "/proc/uptime"]
    around = machine_with_modules(hostile, [], dict.fromkeys(paths, b""))
    applet = hostile.start(around=around, **probe.options)
    files = [hostile.folder / "modules" / f"file-{number}" for number in range(len(paths))]
    for text in ONE_LINE.values():
        contents = [b'PRETTY_NAME="%s"\n', b"Linux version 6.1 (%s) (gcc) %s Sat Sep 5", b"%s\n", b"%s"]
        for file, content in zip(files, contents, strict=True):
            file.write_bytes(content.replace(b"%s", text))
        window = probe.open(applet, SYSTEM)
        assert shown(text) in window.texts
        assert shown(text.strip()) in window.texts
        probe.close(SYSTEM)
    check_unharmed(hostile, applet)


# ---- From the environment and the saved state ----

# What an environment can carry, in fewer starts.
VALUES = ["quotes", "quoted-substitution", "back-quotes", "line-feed", "pango", "formats", "not-utf-8", "64-kb"]


@pytest.mark.parametrize("name", VALUES)
def test_environment(hostile, name):
    text = os.fsdecode(CORPUS[name])
    probe = Probe(hostile.folder)
    variables = ["SNAP", "SNAP_INSTANCE_NAME", "SNAP_NAME", "SNAP_VERSION", "XDG_CURRENT_DESKTOP", "XDG_SESSION_TYPE"]
    # The library that draws icons of its own ends a program whose languages are not UTF-8.
    language = "de" if name == "not-utf-8" else "de" + text
    applet = hostile.start(
        around=machine_with_modules(hostile, []),
        preload=probe.options["preload"],
        environment={**probe.options["environment"], **dict.fromkeys(variables, text), "LANGUAGE": language},
    )
    # The indicator library knows where a snap's icons should not lie.
    applet.expected_stderr = (
        r"(\n\(veldrin:\d+\): libayatana-appindicator-WARNING \*\*: [\d:.]+: Using '/tmp' paths in SNAP [^\n]*\n)*"
    )
    for window in (SETTINGS, CHANGES, SYSTEM):
        probe.open(applet, window)
    check_unharmed(hostile, applet)

    # The report, and the German dialog about it, by stand-ins: the user types a hostile text, too.
    description = hostile.folder / "description"
    description.write_bytes(b"\n".join(text for name, text in CORPUS.items() if not name.startswith("64")))
    for tool, script in {
        "zenity": f'exec /bin/cat "{description}"',
        "xdg-open": f'printf "%s\\n" "$#" "$1" >"{hostile.folder}/mail"',
        "python3": 'exec /usr/bin/python3 "$@"',
    }.items():
        hostile.tools.put_script(tool, script)
    applet.send(signal.SIGSEGV)
    # As bubblewrap passes it on.
    assert applet.exit_status() == 128 + signal.SIGSEGV
    report = (hostile.runtime / "Veldrin_crash.txt").read_bytes()
    assert b"\nDesktop: %s (%s)\nSnap: yes (v%s)\n" % ((CORPUS[name],) * 3) in report
    mail = hostile.folder / "mail"
    wait_until(lambda: mail.exists() and mail.read_text().count("\n") == 2, "the mail")
    number, address = mail.read_text().splitlines()
    assert number == "1"
    assert re.fullmatch(r"mailto:[\w.@]+\?subject=[\w.%/-]*&body=[\w.%/~-]*", address)
    assert list(hostile.folder.rglob("marker*")) == []


@pytest.mark.parametrize(
    "name", ["quotes-without-blanks", "quoted-substitution", "pango", "formats", "not-ascii", "not-utf-8"]
)
def test_folders(hostile, name):
    folder = os.path.join(os.fsencode(hostile.folder), as_file_name(CORPUS[name]))
    environment = {}
    for variable in ("HOME", "XDG_RUNTIME_DIR", "XDG_CACHE_HOME", "XDG_CONFIG_HOME", "SNAP_USER_DATA"):
        path = os.path.join(folder, variable.encode())
        os.makedirs(path, 0o700)
        environment[variable] = os.fsdecode(path)
    if name == "not-utf-8":
        environment["XDG_RUNTIME_DIR"] = str(hostile.runtime)  # see below
    hostile.tools.publish(page(stable="7.2.4"))
    probe = Probe(hostile.folder)
    applet = hostile.start_and_check(
        preload=probe.options["preload"], environment={**probe.options["environment"], **environment}
    )
    assert applet.item.label == "7.2.4"
    with open(os.path.join(folder, b"SNAP_USER_DATA", b"app_state.json")) as saved:
        assert saved.read() == state_text(latest_kernel="7.2.4", stable="7.2.4")
    assert sorted(os.listdir(os.fsencode(environment["XDG_RUNTIME_DIR"]) + b"/VeldrinWatch-icons")) == [
        b"tux-green",
        b"tux-red",
        b"tux-white",
    ]
    for window in (SETTINGS, CHANGES, SYSTEM):
        probe.open(applet, window)
    check_unharmed(hostile, applet)


def test_runtime_folder_that_is_not_utf_8_costs_the_icon(hostile):
    # The bus carries no such path, as GLib says each time.
    folder = os.path.join(os.fsencode(hostile.folder), b"run\xff")
    os.mkdir(folder, 0o700)
    hostile.tools.publish(page(stable="7.2.4"))
    applet = hostile.launch(environment={"XDG_RUNTIME_DIR": os.fsdecode(folder)})
    applet.expected_stderr = r"(\n\(veldrin:\d+\): [\w-]+-(CRITICAL|WARNING) \*\*: [^\n]*\n)*"
    wait_until(lambda: applet.clock.delays_begun, "the program's start")
    applet.clock.pass_delay()
    wait_until(lambda: hostile.saved == state_text(latest_kernel="7.2.4", stable="7.2.4"), "the check's save")
    assert applet.running


# A value ends at a double quote.
STATES = [name for name, text in CORPUS.items() if b'"' not in text]


@pytest.mark.parametrize("first", range(0, len(STATES), 5))
def test_saved_state(hostile, first):
    hostile.tools.disconnect()
    names = (STATES[first:] + STATES)[:5]
    texts = [CORPUS[name] for name in names]
    keys = ("kernel", "latest_kernel", "mainline", "stable", "longterm")
    contents = state_text().encode()
    for key, text in zip(keys, texts, strict=True):
        contents = contents.replace(b'"%s": ""' % key.encode(), b'"%s": "%s"' % (key.encode(), text))
    hostile.state_file.parent.mkdir()
    hostile.state_file.write_bytes(contents)
    probe = Probe(hostile.folder)
    applet = hostile.start_and_check(**probe.options)
    assert applet.item.label == excerpt(shown(texts[3]))
    window = probe.open(applet, SETTINGS)
    assert {excerpt(shown(text)) for text in texts[2:]} <= set(window.texts)
    probe.close(SETTINGS)
    for channel in ("mainline", "longterm", "stable"):
        said = probe.changes(applet, channel=channel).texts
        assert any(text.startswith(f"No changes could be loaded for {channel} ") for text in said)
    assert hostile.state_file.read_bytes() == contents
    applet.item.menu.click("Acknowledge Update")
    wait_until(lambda: applet.item.icon == "tux-white", "the white icon")
    check_unharmed(hostile, applet)
