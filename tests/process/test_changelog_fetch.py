# SPDX-License-Identifier: MIT
"""What a release contains, asked of the local copy of the site by the real wget and curl."""

import json
import subprocess
from collections.abc import Iterator
from dataclasses import dataclass
from pathlib import Path

import pytest
from stage.project import BUILD
from stage.site import KernelSite
from stage.tools import RealTools

DUMP = BUILD.driver("parse_dump")
WWW = "www.kernel.org"
CDN = "cdn.kernel.org"
GIT = "git.kernel.org"
TREES = f"https://{GIT}/pub/scm/linux/kernel/git"
MAX_ENTRIES = 400

STABLE_LOG = f"https://{CDN}/pub/linux/kernel/v7.x/ChangeLog-7.2.4"
STABLE_FEED = f"{TREES}/stable/linux.git/atom/?h=linux-7.2.y"
STABLE_PAGE = f"{TREES}/stable/linux.git/log/?h=linux-7.2.y"


@dataclass(frozen=True)
class Log:
    channel: str
    version: str
    released: str
    source_url: str
    web_url: str
    total_found: int
    truncated: bool
    success: bool
    error: str
    entries: list[list[str]]


class Reader:
    """The program's own function, in a process with the real tools and the site around it."""

    def __init__(self, folder: Path, site: KernelSite) -> None:
        self.site = site
        self.tools = RealTools(folder / "tools")
        # As the applet bounds its tools.
        settings = folder / "one-try"
        settings.write_text("tries = 1\n")
        self._environment = {
            **site.environment,
            "PATH": str(self.tools.folder),
            "HOME": str(folder),
            "SYSTEM_WGETRC": str(settings),
            "SYSTEM_WGET2RC": str(settings),
        }

    def fetch(self, channel: str, known_version: str = "") -> Log:
        done = subprocess.run(
            [DUMP, "fetch", channel, known_version], env=self._environment, capture_output=True, check=True, timeout=60
        )
        assert done.stderr == b""
        fields, *entries = (
            [value.encode("latin-1").decode() for value in json.loads(line)] for line in done.stdout.splitlines()
        )
        channel, version, released, source_url, web_url, total, truncated, success, error = fields
        return Log(
            channel,
            version,
            released,
            source_url,
            web_url,
            int(total),
            truncated == "1",
            success == "1",
            error,
            entries,
        )

    def requests(self) -> list[tuple[str, str, str, int | None]]:
        """Tool, host, path and status of all requests so far."""
        return [
            (request.agent.split("/")[0], request.host, request.path, request.status)
            for request in self.site.requests()
        ]


@pytest.fixture
def site() -> Iterator[KernelSite]:
    with KernelSite() as site:
        yield site


@pytest.fixture
def reader(tmp_path: Path, site: KernelSite) -> Reader:
    return Reader(tmp_path, site)


def released(site: KernelSite, version: str) -> str:
    index = json.loads((site.folder / "www" / WWW / "releases.json").read_text())
    return next(release["released"]["isodate"] for release in index["releases"] if release["version"] == version)


def path_of(url: str) -> str:
    return "/" + url.split("/", 3)[3]


INDEX = ("Wget", WWW, "/releases.json", 200)


def check_entries(log: Log, count: int | None = None) -> None:
    assert log.success and log.error == ""
    assert log.total_found == (len(log.entries) if count is None else count)
    for entry in log.entries:
        id_, author, date, subject, _ = entry
        assert len(id_) == 12 and int(id_, 16) >= 0
        assert " <" in author and author.endswith(">")
        assert date and subject


def test_stable_release_comes_from_its_changelog(reader, site):
    log = reader.fetch("stable", "7.2.3")
    assert (log.channel, log.version, log.released) == ("stable", "7.2.4", released(site, "7.2.4"))
    assert log.source_url == log.web_url == STABLE_LOG
    check_entries(log)
    assert not log.truncated
    assert log.entries[0][3] == "Linux 7.2.4"
    assert reader.requests() == [INDEX, ("Wget", CDN, path_of(STABLE_LOG), 200)]


def test_longterm_release_comes_from_its_changelog(reader, site):
    log = reader.fetch("longterm")
    assert (log.version, log.released) == ("6.18.50", released(site, "6.18.50"))
    assert log.source_url == log.web_url == f"https://{CDN}/pub/linux/kernel/v6.x/ChangeLog-6.18.50"
    check_entries(log, log.total_found)
    assert log.entries[0][3] == "Linux 6.18.50"


def test_mainline_candidate_comes_from_the_feed(reader, site):
    log = reader.fetch("mainline")
    assert (log.version, log.released) == ("7.3-rc2", released(site, "7.3-rc2"))
    assert log.source_url == f"{TREES}/mainkeeper/linux.git/atom/?h=master"
    assert log.web_url == f"{TREES}/mainkeeper/linux.git/log/?h=master"
    check_entries(log)
    assert reader.requests() == [INDEX, ("Wget", GIT, path_of(log.source_url), 200)]


def test_feed_and_changelog_tell_of_the_same_commits(reader, site):
    text = reader.fetch("stable")
    site.misbehave(CDN, "/", 404)
    feed = reader.fetch("stable")
    assert text.source_url == STABLE_LOG and feed.source_url == STABLE_FEED
    assert feed.entries
    known = {entry[0]: entry for entry in text.entries}
    shared = [entry for entry in feed.entries if entry[0] in known]
    assert shared
    for entry in shared:
        assert entry[1] == known[entry[0]][1]
        assert entry[3] == known[entry[0]][3]


def test_missing_changelog_gives_way_to_the_feed(reader, site):
    site.misbehave(CDN, "/", 404)
    log = reader.fetch("stable")
    assert (log.source_url, log.web_url) == (STABLE_FEED, STABLE_PAGE)
    assert log.released == released(site, "7.2.4")
    check_entries(log)
    # wget takes the error for a failure; curl brings its page, which holds no commit.
    assert reader.requests() == [
        INDEX,
        ("Wget", CDN, path_of(STABLE_LOG), 404),
        ("curl", CDN, path_of(STABLE_LOG), 404),
        ("Wget", GIT, path_of(STABLE_FEED), 200),
    ]


def test_without_changelog_and_feed_the_failure_names_the_release(reader, site):
    site.misbehave(CDN, "/", 404)
    site.misbehave(GIT, "/", 503)
    log = reader.fetch("stable")
    assert not log.success
    assert log.error == (
        "No changes could be loaded for stable 7.2.4.\nKernhaven may be unreachable, or this release has no published\n"
        "changelog yet."
    )
    # curl's error page was a text, though not a changelog.
    assert log.source_url == log.web_url == STABLE_LOG
    assert (log.total_found, log.entries) == (0, [])


def test_unknown_branch_is_an_error_page_with_a_title_and_no_entry(reader, site):
    site.misbehave(WWW, "/releases.json", 404)
    log = reader.fetch("stable", "9.9.9")
    assert not log.success
    assert log.version == "9.9.9"
    assert log.error.startswith("No changes could be loaded for stable 9.9.9.\n")
    assert ("curl", GIT, "/pub/scm/linux/kernel/git/stable/linux.git/atom/?h=linux-9.9.y", 404) in reader.requests()


@pytest.mark.parametrize("kind", ["404", "unreachable"])
def test_without_the_index_the_known_version_leads_to_its_changelog(reader, site, kind):
    site.misbehave(WWW, "/", kind)
    log = reader.fetch("stable", "7.2.4")
    assert (log.version, log.released) == ("7.2.4", "")
    assert log.source_url == log.web_url == STABLE_LOG
    check_entries(log)


def test_without_the_index_and_a_known_version_nothing_more_is_asked(reader, site):
    site.misbehave(WWW, "/", "unreachable")
    log = reader.fetch("stable")
    assert not log.success
    assert log.error == (
        "Could not reach Kernhaven and no version is known yet.\nCheck your network connection and try Refresh."
    )
    assert log.version == ""
    # One of wget and one of curl, both for the index.
    assert len(site.connections()) == 2


def test_redirects_are_followed(reader, site):
    site.misbehave(WWW, "/releases.json", "redirect", to=f"https://{WWW}/moved.json", exact=True, times=1)
    site.misbehave(CDN, path_of(STABLE_LOG), "redirect", to=STABLE_LOG + "?here", exact=True, times=1)
    (site.folder / "www" / WWW / "moved.json").write_text((site.folder / "www" / WWW / "releases.json").read_text())
    log = reader.fetch("stable")
    check_entries(log)
    assert log.source_url == STABLE_LOG
    assert [status for _, _, _, status in reader.requests()] == [301, 200, 301, 200]


def test_silent_site_costs_one_try_of_each_tool_for_each_source(reader, site):
    reader.tools.make_impatient()
    for host in (WWW, CDN, GIT):
        site.misbehave(host, "/", "silence")
    log = reader.fetch("stable", "7.2.4")
    assert not log.success
    assert log.error.startswith("No changes could be loaded for stable 7.2.4.\n")
    assert (log.source_url, log.web_url) == ("", "")
    assert len(site.connections()) == 6


def test_hostile_address_in_the_index_is_shown_and_not_asked(reader, site):
    address = "https://cdn.kernel.org.evil.example/x"
    index = {"releases": [{"moniker": "stable", "version": "7.2.4", "changelog": address}]}
    site.misbehave(WWW, "/releases.json", "body", body=json.dumps(index), content_type="application/json")
    log = reader.fetch("stable")
    assert log.error == f"Kernhaven returned an unexpected changelog address:\n{address}"
    assert len(site.connections()) == 1


def test_large_changelog_is_capped_and_counted(reader, site):
    site.misbehave(CDN, path_of(STABLE_LOG), "big")
    log = reader.fetch("stable")
    assert len(log.entries) == MAX_ENTRIES
    assert log.truncated
    text = subprocess.run(
        ["curl", "-s", "--retry", "0", STABLE_LOG],
        env={**site.environment, "PATH": "/usr/bin:/bin"},
        capture_output=True,
        check=True,
    ).stdout
    assert len(text) >= 20_000_000
    assert log.total_found == text.count(b"\ncommit ") + text.startswith(b"commit ")


def test_without_wget_curl_brings_everything(reader, site):
    reader.tools.remove("wget")
    log = reader.fetch("stable")
    check_entries(log)
    assert reader.requests() == [("curl", WWW, "/releases.json", 200), ("curl", CDN, path_of(STABLE_LOG), 200)]


@pytest.mark.parametrize("channel", ["mainline", "stable", "longterm"])
def test_wget2_in_wgets_place_brings_the_same(reader, site, channel):
    expected = reader.fetch(channel)
    reader.tools.put("wget", "wget2")
    assert reader.fetch(channel) == expected
    assert expected.success


def test_new_release_is_read_as_soon_as_it_is_out(reader, site):
    site.publish(stable="7.2.5")
    log = reader.fetch("stable", "7.2.4")
    assert log.version == "7.2.5"
    assert log.entries[0][3] == "Linux 7.2.5"


def test_final_mainline_release_comes_from_its_changelog(reader, site):
    site.publish(mainline="7.3")
    log = reader.fetch("mainline", "7.3-rc2")
    assert log.version == "7.3"
    # The index names no address for mainline, so it is worked out.
    assert log.source_url == f"https://{CDN}/pub/linux/kernel/v7.x/ChangeLog-7.3"
    check_entries(log, log.total_found)
