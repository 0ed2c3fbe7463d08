# SPDX-License-Identifier: MIT
"""What the program reads from real pages, held against other readers of the same files: parsers of HTML, JSON and XML.

The data are no part of the repository: VELDRIN_SAMPLES names their folder, which may also lie as `data` in a folder
beside the checkout. Where the program's bounded search is known to differ from a full parser, a model of that search
stands beside the parser, and the test says where the two part.
"""

import json
import lzma
import re
import subprocess
from collections.abc import Iterator
from html.parser import HTMLParser
from pathlib import Path
from xml.etree import ElementTree

import pytest
from stage.project import BUILD
from stage.samples import SAMPLES, samples

DUMP = BUILD.driver("parse_dump")
CHANNELS = ["mainline", "stable", "longterm"]
MAX_ENTRIES = 400
BLANKS = b" \t\r\n"


pytestmark = pytest.mark.skipif(SAMPLES is None, reason="no sample data: VELDRIN_SAMPLES names their folder")


def dump(kind: str, file: Path, *names: str) -> list[list[bytes]]:
    printed = subprocess.run([DUMP, kind, file, *names], stdout=subprocess.PIPE, check=True, timeout=60).stdout
    return [[value.encode("latin-1") for value in json.loads(line)] for line in printed.splitlines()]


def dump_log(kind: str, file: Path) -> tuple[int, list[list[bytes]]]:
    """The number of commits in the file, and the fields of those kept."""
    ((total,), *entries) = dump(kind, file)
    return int(total), entries


@pytest.mark.parametrize(
    "patterns",
    [
        ["frontpage/*.html"],
        ["releases_json/*.json"],
        ["changelog/*"],
        ["big/*.xz"],
        ["atom/*.xml"],
        ["atom/*.html"],
    ],
    ids=lambda patterns: patterns[0],
)
def test_each_kind_has_samples(patterns):
    assert samples(*patterns)


# ---- The front page ----


class Cells(HTMLParser):
    """Every table cell in its order: the number of its row, its text, and the tags within."""

    def __init__(self, page: str) -> None:
        super().__init__()
        self.cells: list[tuple[int, str, list[str]]] = []
        self._row = 0
        self._open = False
        self.feed(page)
        self.close()

    def handle_starttag(self, tag: str, attrs: list) -> None:
        if tag == "tr":
            self._row += 1
        elif tag == "td":
            self._open = True
            self.cells.append((self._row, "", []))
        elif self._open:
            self.cells[-1][2].append(tag)

    def handle_endtag(self, tag: str) -> None:
        if tag == "td":
            self._open = False

    def handle_data(self, data: str) -> None:
        if self._open:
            row, text, tags = self.cells[-1]
            self.cells[-1] = (row, text + data, tags)


def label_position(cells: list[tuple[int, str, list[str]]], channel: str) -> int | None:
    labels = [i for i, (_, text, _) in enumerate(cells) if text.strip().lower() in (channel, f"{channel}:")]
    return labels[0] if labels else None


def version_in_row(page: str, channel: str) -> str:
    """The first word of the cell beside the channel's first label, which may be marked as having reached its end."""
    cells = Cells(page).cells
    label = label_position(cells, channel)
    if label is None or label + 1 == len(cells) or cells[label + 1][0] != cells[label][0]:
        return ""
    return cells[label + 1][1].split()[0]


def first_version_behind(page: str, channel: str) -> str:
    """The first cell behind the label with a version and nothing else, in whatever row."""
    cells = Cells(page).cells
    label = label_position(cells, channel)
    versions = [
        text.strip()
        for _, text, tags in cells[len(cells) if label is None else label + 1 :]
        if tags in ([], ["strong"]) and re.fullmatch(r"[0-9][0-9A-Za-z._-]*", text.strip())
    ]
    return versions[0] if versions else ""


@pytest.mark.parametrize("file", samples("frontpage/*.html"))
def test_front_page(file):
    page = file.read_text("utf-8")
    scraped = [version.decode() for (version,) in dump("page", file, *CHANNELS)]
    assert scraped == [first_version_behind(page, channel) for channel in CHANNELS]
    assert scraped == [version_in_row(page, channel) for channel in CHANNELS]
    assert all(scraped)


@pytest.mark.parametrize("file", samples("frontpage/*.html"))
def test_row_without_a_plain_version_gives_what_follows(file):
    """The row of linux-next, which the program never asks for, has a name in place of a version: its date is read."""
    page = file.read_text("utf-8")
    ((scraped,),) = dump("page", file, "linux-next")
    assert scraped.decode() == first_version_behind(page, "linux-next")
    assert version_in_row(page, "linux-next").startswith("next-")
    assert re.fullmatch(rb"\d{4}-\d\d-\d\d", scraped)


# ---- The release index ----


def members(value: object) -> Iterator[tuple[str, object]]:
    """Every key of a document and its value, in the order in which the keys are written."""
    if isinstance(value, dict):
        for key, member in value.items():
            yield key, member
            yield from members(member)
    elif isinstance(value, list):
        for item in value:
            yield from members(item)


def text_or_empty(value: object) -> str:
    return value if isinstance(value, str) else ""


def record_of(index: dict, channel: str) -> list[str]:
    """What the channel's first record holds."""
    record = next(release for release in index["releases"] if release["moniker"] == channel)
    return [text_or_empty(v) for v in (record["version"], record["changelog"], record["released"]["isodate"])]


def stretch_of(index: dict, channel: str) -> list[str]:
    """What stands between the channel's first moniker and the next moniker, whichever record it belongs to."""
    keys = list(members(index))
    start = keys.index(("moniker", channel))
    behind = keys[start + 1 :]
    end = next((i for i, (key, _) in enumerate(behind) if key == "moniker"), len(behind))
    found: dict[str, object] = {}
    for key, value in behind[:end]:
        found.setdefault(key, value)
    return [text_or_empty(found.get(key)) for key in ("version", "changelog", "isodate")]


@pytest.mark.parametrize("file", samples("releases_json/*.json"))
def test_release_index(file):
    index = json.loads(file.read_bytes())
    monikers = list(dict.fromkeys(release["moniker"] for release in index["releases"]))
    assert set(monikers) >= set(CHANNELS)
    read = [[value.decode() for value in values] for values in dump("index", file, *monikers)]
    assert read == [stretch_of(index, channel) for channel in monikers]

    # An index that names the version before the moniker, as all did until 2024, gives the next record's version.
    moniker_first = all(next(iter(release)) == "moniker" for release in index["releases"])
    for channel, values in zip(monikers, read, strict=True):
        assert (values == record_of(index, channel)) == moniker_first, channel
        assert values[1:] == record_of(index, channel)[1:], channel


@pytest.mark.parametrize("file", samples("releases_json/*.json"))
def test_channel_that_the_index_has_not(file):
    assert dump("index", file, "no-such-channel") == [[b"untouched"] * 3]


# ---- ChangeLog texts ----


def commits_of(text: bytes) -> list[list[bytes]]:
    """The fields of the commits kept, and for those beyond no more than their place."""
    commits = []
    for number, commit in enumerate(re.split(rb"^commit ", text, flags=re.MULTILINE)[1:]):
        if number >= MAX_ENTRIES:
            commits.append([])
            continue
        header, _, rest = commit.partition(b"\n\n")
        fields = dict(re.findall(rb"^(\w+):(.*)$", header, re.MULTILINE))
        lines = [line[4:].rstrip(BLANKS) for line in rest.split(b"\n") if not line or line.startswith(b"    ")]
        subject, _, body = b"\n".join(lines).strip(b"\n").partition(b"\n")
        commits.append([header[:12], fields[b"Author"].strip(), fields[b"Date"].strip(), subject, body.strip(b"\n")])
    return commits


def check_changelog(file: Path, text: bytes) -> None:
    expected = commits_of(text)
    total, entries = dump_log("changelog", file)
    assert total == len(expected) > 0
    assert len(entries) == min(total, MAX_ENTRIES)
    for entry, fields in zip(entries, expected, strict=False):
        assert entry == fields


@pytest.mark.parametrize("file", samples("changelog/*"))
def test_changelog(file):
    check_changelog(file, file.read_bytes())


@pytest.mark.parametrize("file", samples("big/*.xz"))
def test_big_changelog(file, tmp_path):
    text = lzma.decompress(file.read_bytes())
    unpacked = tmp_path / file.stem
    unpacked.write_bytes(text)
    check_changelog(unpacked, text)


# ---- Atom feeds ----

ATOM = "{http://www.w3.org/2005/Atom}"

# Each byte is taken for one character; those that XML does not allow, or makes a line feed of, stand in for themselves.
STAND_INS = {byte: 0xE000 + byte for byte in range(0x20) if byte not in (0x09, 0x0A)}
BYTES = {stand_in: byte for byte, stand_in in STAND_INS.items()}


def entries_of(feed: bytes) -> list[list[bytes]]:
    def text(entry: ElementTree.Element, path: str) -> bytes:
        found = entry.findtext("/".join(ATOM + name for name in path.split("/")), "")
        return found.translate(BYTES).encode("latin-1")

    entries = []
    for entry in ElementTree.fromstring(feed.decode("latin-1").translate(STAND_INS)).findall(ATOM + "entry"):
        title = text(entry, "title")
        mail = text(entry, "author/email")
        body = text(entry, "content").rstrip(BLANKS)
        first, _, rest = body.partition(b"\n")
        entries.append(
            [
                text(entry, "id").split(b":")[-1][:12],
                text(entry, "author/name") + (b" <" + mail + b">" if mail else b""),
                text(entry, "updated"),
                title,
                (rest if first == title else body).lstrip(b"\n"),
            ]
        )
    return entries


@pytest.mark.parametrize("file", samples("atom/*.xml"))
def test_feed(file):
    expected = entries_of(file.read_bytes())
    total, entries = dump_log("feed", file)
    assert total == len(expected) > 0
    assert len(entries) == min(total, MAX_ENTRIES)
    for entry, fields in zip(entries, expected, strict=False):
        assert entry == fields


@pytest.mark.parametrize("file", samples("atom/*.html"))
def test_error_page_is_no_feed_and_no_changelog(file):
    assert b"<title>" in file.read_bytes()
    assert dump_log("feed", file) == (0, [])
    assert dump_log("changelog", file) == (0, [])
