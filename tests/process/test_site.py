# SPDX-License-Identifier: MIT
"""The local copy of the kernel's site, asked by the real wget and curl with the commands that the applet uses."""

from __future__ import annotations

import hashlib
import json
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
from pathlib import Path
from typing import Callable, Iterator
from xml.etree import ElementTree

import pytest
from stage.project import ROOT
from stage.site import KernelSite

TESTS = ROOT / "tests"
SITE_COMMAND = [sys.executable, str(TESTS / "site" / "site.py")]
PAGE = "https://www.kernel.org/"
INDEX = "https://www.kernel.org/releases.json"
CHANGELOG = "https://cdn.kernel.org/pub/linux/kernel/v7.x/ChangeLog-7.2.4"
STABLE_TREE = "https://git.kernel.org/pub/scm/linux/kernel/git/stable/linux.git"
MAINLINE_TREES = [
    f"https://git.kernel.org/pub/scm/linux/kernel/git/{owner}/linux.git" for owner in ("torvalds", "mainkeeper")
]
ATOM = "{http://www.w3.org/2005/Atom}"


class Visitor:
    """Runs shell commands with a site's environment and a home of its own."""

    def __init__(self, site: KernelSite, home: Path):
        self.site = site
        self.home = home

    def run(self, command: str) -> subprocess.CompletedProcess[str]:
        environment = {**os.environ, **self.site.environment, "HOME": str(self.home), "LC_ALL": "C.UTF-8"}
        return subprocess.run(["sh", "-c", command], env=environment, capture_output=True, text=True, timeout=60)

    def wget(self, address: str, options: str = "--timeout=15") -> subprocess.CompletedProcess[str]:
        return self.run(f"wget -qO- {options} '{address}' 2>/dev/null")

    def curl(self, address: str, options: str = "--max-time 15") -> subprocess.CompletedProcess[str]:
        return self.run(f"curl -sL {options} '{address}' 2>/dev/null")

    def ask_if_modified(self, since: str) -> str:
        done = self.run(f"wget -S --spider --header='If-Modified-Since: {since}' --timeout=10 '{PAGE}' 2>&1")
        return done.stdout + f"exit {done.returncode}"

    def count_304(self, since: str) -> str:
        return self.run(
            f"wget -S --spider --header='If-Modified-Since: {since}' --timeout=10 '{PAGE}' 2>&1" " | grep -c '304'"
        ).stdout.strip()

    def learn_last_modified(self) -> str:
        return self.run(
            f"wget -S --spider --timeout=10 '{PAGE}' 2>&1" " | grep -i 'Last-Modified:' | sed 's/.*Last-Modified: *//'"
        ).stdout.rstrip("\r\n")


@pytest.fixture
def site() -> Iterator[KernelSite]:
    with KernelSite() as running:
        yield running


@pytest.fixture
def visitor(site: KernelSite, tmp_path: Path) -> Visitor:
    return Visitor(site, tmp_path)


def eventually(condition: Callable[[], object], deadline: float = 10.0) -> bool:
    end = time.monotonic() + deadline
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(0.02)
    return True


def alive(process: int) -> bool:
    try:
        return Path(f"/proc/{process}/stat").read_text().rpartition(")")[2].split()[0] != "Z"
    except OSError:
        return False


def processes_about(word: str) -> list[int]:
    found = []
    for entry in Path("/proc").iterdir():
        if entry.name.isdigit() and int(entry.name) != os.getpid():
            try:
                if word.encode() in (entry / "cmdline").read_bytes():
                    found.append(int(entry.name))
            except OSError:
                pass
    return found


def answers(proxy: str) -> bool:
    host, port = re.fullmatch(r"http://([\d.]+):(\d+)/", proxy).groups()
    with socket.socket() as line:
        return line.connect_ex((host, int(port))) == 0


def rows(page: str) -> list[list[str]]:
    table = page[page.index('<table id="releases">') :]
    table = table[: table.index("</table>")]
    return [re.findall(r"<td>(.*?)</td>", row) for row in re.findall(r"<tr.*?</tr>", table, re.S)]


# Content


def test_wget_and_curl_read_the_same_page(site: KernelSite, visitor: Visitor) -> None:
    by_wget, by_curl = visitor.wget(PAGE), visitor.curl(PAGE)
    assert by_wget.returncode == 0 and by_curl.returncode == 0
    assert by_wget.stdout == by_curl.stdout
    assert "<td>stable:</td>\n            <td><strong>7.2.4</strong></td>" in by_wget.stdout
    seen = site.requests()
    assert [(r.method, r.host, r.path, r.status) for r in seen] == [("GET", "www.kernel.org", "/", 200)] * 2
    assert [r.agent.split("/")[0] for r in seen] == ["Wget", "curl"]
    assert site.connections() == ["www.kernel.org:443"] * 2


def test_page_and_index_tell_of_the_same_releases(visitor: Visitor) -> None:
    index = json.loads(visitor.curl(INDEX).stdout)
    page = rows(visitor.curl(PAGE).stdout)
    assert [(row[0], re.sub(r" <span.*</span>|<.*?>", "", row[1])) for row in page] == [
        (record["moniker"] + ":", record["version"]) for record in index["releases"]
    ]
    assert all(len(row) == 10 for row in page)
    assert [row[1].endswith("[EOL]</span></strong>") for row in page] == [
        record["iseol"] for record in index["releases"]
    ]
    assert any(record["iseol"] for record in index["releases"])
    assert index["latest_stable"] == {"version": "7.2.4"}
    first = {record["moniker"]: record for record in reversed(index["releases"])}
    assert first["mainline"]["version"] == "7.3-rc2" and first["mainline"]["changelog"] is None
    assert first["stable"]["changelog"] == CHANGELOG
    assert first["longterm"]["version"] == "6.18.50"
    assert list(first["stable"])[:3] == ["moniker", "version", "iseol"]
    assert list(first) == ["linux-next", "longterm", "stable", "mainline"]


def test_each_changelog_of_the_index_is_there_and_begins_with_its_release(visitor: Visitor) -> None:
    named = {record["version"]: record["changelog"] for record in json.loads(visitor.curl(INDEX).stdout)["releases"]}
    counts = {}
    for version, address in named.items():
        if address:
            text = visitor.wget(address).stdout
            assert re.match(
                r"commit [0-9a-f]{40}\nAuthor: .* <.*>\nDate:   .*\n\n" rf"    Linux {re.escape(version)}\n", text
            )
            counts[version] = len(re.findall(r"^commit ", text, re.M))
    assert len(counts) == 8
    assert counts["6.18.50"] > 400 and all(5 < count < 400 for version, count in counts.items() if version != "6.18.50")


def test_content_is_the_same_on_each_machine(visitor: Visitor) -> None:
    text = visitor.wget(CHANGELOG).stdout
    assert text.startswith("commit f633c6a0f4efbf18dcf5c66edaa0d6e942957af1\n")
    assert (
        hashlib.sha256(text.encode()).hexdigest() == "379bf8c8659c9f8855e970121bba6de361ff965210ea2bfb92960b4f801386be"
    )


def test_headers_are_those_of_the_real_site(visitor: Visitor) -> None:
    head = visitor.run(f"curl -sI {PAGE} | sed 1,/^.$/d").stdout
    assert [line.split(":")[0] for line in head.split("\n")[1:]] == [
        "Server",
        "Date",
        "Content-Type",
        "Content-Length",
        "Last-Modified",
        "Connection",
        "X-Frame-Options",
        "X-Content-Type-Options",
        "Strict-Transport-Security",
        "Accept-Ranges",
        "",
        "",
    ]
    assert visitor.run(f"curl -sI {CHANGELOG} | grep -i ^content-type").stdout == "Content-Type: text/plain\n"


# Conditional requests


def test_unchanged_page_gives_a_304(site: KernelSite, visitor: Visitor) -> None:
    known = visitor.learn_last_modified()
    assert known == site.last_modified
    said = visitor.ask_if_modified(known)
    assert "  HTTP/1.1 304 Not Modified\n" in said and "broken link" in said and said.endswith("exit 8")
    assert visitor.count_304(known) == "1"
    assert (
        visitor.run(f"wget -q --spider --header='If-Modified-Since: {known}' --timeout=10 '{PAGE}' 2>&1").returncode
        == 8
    )
    assert [(r.method, r.status, r.if_modified_since) for r in site.requests()] == [("HEAD", 200, "")] + [
        ("HEAD", 304, known)
    ] * 3


def test_only_the_exact_date_gives_a_304(visitor: Visitor) -> None:
    for other in ("Sat, 12 Sep 2026 22:02:17 GMT", "Mon, 14 Sep 2026 22:02:17 GMT"):
        said = visitor.ask_if_modified(other)
        assert "HTTP/1.1 200 OK" in said and said.endswith("exit 0")


def test_nothing_that_wget_prints_of_a_changed_page_holds_304_by_chance(site: KernelSite, visitor: Visitor) -> None:
    for _ in range(3):
        assert visitor.count_304("Sat, 12 Sep 2026 22:02:17 GMT") == "0"
        site.publish()
    assert "304" not in site.environment["https_proxy"] + site.folder.name


# Publishing


def test_publish_changes_page_index_changelog_feed_and_last_modified(site: KernelSite, visitor: Visitor) -> None:
    before = visitor.learn_last_modified()
    address = CHANGELOG.replace("7.2.4", "7.2.5")
    assert visitor.wget(address).returncode == 8

    site.publish(stable="7.2.5", mainline="7.3-rc3", longterm="6.12.110")

    assert "HTTP/1.1 200 OK" in visitor.ask_if_modified(before)
    after = visitor.learn_last_modified()
    assert after == site.last_modified != before
    assert visitor.count_304(after) == "1"
    versions = [re.sub(r"<.*?>", "", row[1]) for row in rows(visitor.curl(PAGE).stdout)]
    assert versions[:5] == ["7.3-rc3", "7.2.5", "7.1.14 [EOL]", "6.18.50", "6.12.110"]
    index = json.loads(visitor.curl(INDEX).stdout)
    assert [record["version"] for record in index["releases"]][:3] == ["7.3-rc3", "7.2.5", "7.1.14"]
    assert index["releases"][1]["changelog"] == address
    assert "\n    Linux 7.2.5\n" in visitor.wget(address).stdout
    assert "\n    Linux 7.2.4\n" not in visitor.wget(address).stdout
    assert "<title>Linux 7.2.5</title>" in visitor.wget(f"{STABLE_TREE}/atom/?h=linux-7.2.y").stdout
    assert "<title>Linux 7.3-rc3</title>" in visitor.wget(f"{MAINLINE_TREES[0]}/atom/?h=master").stdout


def test_final_release_becomes_a_row_a_branch_and_a_changelog(site: KernelSite, visitor: Visitor) -> None:
    site.publish(mainline="7.3", stable="7.3.1")
    page = rows(visitor.curl(PAGE).stdout)
    assert [row[:2] for row in page][:3] == [
        ["mainline:", "<strong>7.3</strong>"],
        ["stable:", "<strong>7.3.1</strong>"],
        ["stable:", "<strong>7.2.4</strong>"],
    ]
    assert json.loads(visitor.curl(INDEX).stdout)["releases"][0]["changelog"] is None
    text = visitor.wget(CHANGELOG.replace("7.2.4", "7.3")).stdout
    assert "\n    Linux 7.3\n" in text and "\n    Linux 7.3-rc1\n" in text and "\n    Linux 7.2\n" not in text
    assert re.search(r"^commit [0-9a-f]{40}\nMerge: [0-9a-f]+ [0-9a-f]+\nAuthor: ", text, re.M)
    assert "<title>Linux 7.3.1</title>" in visitor.wget(f"{STABLE_TREE}/atom/?h=linux-7.3.y").stdout


def test_publish_refuses_what_is_no_release(site: KernelSite) -> None:
    for wrong in ({"stable": "7.2.5'"}, {"stable": "7.4-rc1"}, {"mainline": "next"}, {"linux-next": "7.2.5"}):
        with pytest.raises(ValueError):
            site.publish(**wrong)


# The git browser


def test_feed_is_that_of_cgit(visitor: Visitor) -> None:
    feed = ElementTree.fromstring(visitor.wget(f"{STABLE_TREE}/atom/?h=linux-7.2.y").stdout)
    assert feed.findtext(f"{ATOM}title") == "kernel/git/stable/linux.git, branch linux-7.2.y"
    entries = feed.findall(f"{ATOM}entry")
    assert len(entries) == 10 and entries[0].findtext(f"{ATOM}title") == "Linux 7.2.4"
    assert all(len(entry.findall(f"{ATOM}content")) == 1 for entry in entries)
    ids = [entry.findtext(f"{ATOM}id") for entry in entries]
    commits = re.findall(r"^commit (\w+)$", visitor.wget(CHANGELOG).stdout, re.M)
    assert ids == [f"urn:sha1:{commit}" for commit in commits[:10]]


def test_mainline_tree_has_both_its_addresses(visitor: Visitor) -> None:
    entries = []
    for tree in MAINLINE_TREES:
        text = visitor.wget(f"{tree}/atom/?h=master").stdout
        entries.append(re.findall(r"<id>urn:sha1:(\w{40})</id>", text))
        assert "<title>Linux 7.3-rc2</title>" in text
    assert len(entries[0]) == 10 and entries[0] == entries[1]


def test_log_page_lists_the_commits(visitor: Visitor) -> None:
    page = visitor.curl(f"{STABLE_TREE}/log/?h=linux-7.2.y").stdout
    assert "generated by <a href='https://git.zx2c4.com/cgit/about/'>cgit" in page
    assert ">Linux 7.2.4</a>" in page and page.count("/commit/?h=linux-7.2.y&amp;id=") > 10


def test_unknown_branch_is_a_404_with_a_page(site: KernelSite, visitor: Visitor) -> None:
    address = f"{STABLE_TREE}/atom/?h=linux-9.9.y"
    assert visitor.wget(address).returncode == 8
    page = visitor.curl(address)
    assert page.returncode == 0 and "<title>" in page.stdout and "Invalid branch: linux-9.9.y" in page.stdout
    assert [r.status for r in site.requests(path="/pub/scm/linux/kernel/git/stable/linux.git/atom/?h=linux-9.9.y")] == [
        404,
        404,
    ]


# Misbehaviour


def test_missing_file_is_a_404(visitor: Visitor) -> None:
    address = "https://cdn.kernel.org/pub/linux/kernel/v7.x/ChangeLog-7.2.99"
    assert visitor.wget(address).returncode == 8
    assert "<title>404 Not Found</title>" in visitor.curl(address).stdout


@pytest.mark.parametrize("status", [404, 503])
def test_error_on_demand_ends_with_behave(site: KernelSite, visitor: Visitor, status: int) -> None:
    site.misbehave("www.kernel.org", "/", status)
    assert visitor.wget(PAGE).returncode == 8
    assert f"<title>{status} " in visitor.curl(PAGE).stdout
    assert f"HTTP/1.1 {status} " in visitor.ask_if_modified(site.last_modified)
    assert visitor.wget(CHANGELOG).returncode == 0
    site.behave()
    assert visitor.wget(PAGE).returncode == 0


def test_apex_leads_to_the_site(site: KernelSite, visitor: Visitor) -> None:
    for get in (visitor.wget, visitor.curl):
        assert json.loads(get("https://kernel.org/releases.json").stdout)["latest_stable"] == {"version": "7.2.4"}
    assert [(r.host, r.status) for r in site.requests()] == [("kernel.org", 301), ("www.kernel.org", 200)] * 2


def test_redirect_on_demand(site: KernelSite, visitor: Visitor) -> None:
    site.misbehave("cdn.kernel.org", "/pub/", "redirect", to=INDEX)
    assert visitor.wget(CHANGELOG).stdout == visitor.curl(INDEX).stdout
    assert [r.status for r in site.requests()] == [301, 200, 200]


def test_wget_shows_each_answer_of_a_redirect(site: KernelSite, visitor: Visitor) -> None:
    site.misbehave("www.kernel.org", "/", "redirect", to=INDEX, exact=True)
    said = visitor.run(f"wget -S --spider --timeout=10 '{PAGE}' 2>&1").stdout
    assert re.findall(r"^  HTTP/1.1 (\d+)", said, re.M) == ["301", "200"]


def test_silence_lasts_until_the_visitor_gives_up(site: KernelSite, visitor: Visitor) -> None:
    site.misbehave("www.kernel.org", "/", "silence")
    assert visitor.wget(PAGE, "--timeout=1 --tries=2 --waitretry=0").returncode == 4
    assert visitor.curl(PAGE, "--max-time 1").returncode == 28
    assert eventually(lambda: [r.status for r in site.requests()] == [499] * 3)


def test_request_held_back_can_be_waited_for(site: KernelSite, visitor: Visitor) -> None:
    site.misbehave("git.kernel.org", "/", "silence")
    address = f"{STABLE_TREE}/atom/?h=linux-7.2.y"
    with subprocess.Popen(["curl", "-s", address], env={**os.environ, **site.environment}) as curl:
        try:
            (held,) = site.wait_for_requests(host="git.kernel.org", status=None)
            assert held.path.endswith("/atom/?h=linux-7.2.y") and held.method == "GET"
        finally:
            curl.kill()
    assert site.wait_for_requests(host="git.kernel.org", status=499)[0].path == held.path
    assert len(site.requests()) == 1


def test_trickle_outlasts_wget_and_not_curl(site: KernelSite, visitor: Visitor) -> None:
    site.misbehave("www.kernel.org", "/", "trickle", interval=0.3)
    curl = visitor.curl(PAGE, "--max-time 1")
    assert curl.returncode == 28 and "<!DOCTYPE html>\n".startswith(curl.stdout) and len(curl.stdout) >= 2
    begun = time.monotonic()
    visitor.run(f"timeout 2 wget -qO- --timeout=1 --tries=1 '{PAGE}'")
    assert time.monotonic() - begun > 1.9


def test_last_modified_can_be_any_text(site: KernelSite, visitor: Visitor) -> None:
    site.misbehave("www.kernel.org", "/", "last-modified", text="Sunday '13")
    assert visitor.learn_last_modified() == site.last_modified == "Sunday '13"
    asked = visitor.run(
        f"wget -S --spider --header=\"If-Modified-Since: Sunday '13\" --timeout=10 '{PAGE}' 2>&1"
    ).stdout
    assert "  HTTP/1.1 304 Not Modified\n" in asked
    assert visitor.wget(PAGE).stdout.startswith("<!DOCTYPE html>")


def test_last_modified_in_lower_case(site: KernelSite, visitor: Visitor) -> None:
    usual = site.last_modified
    site.misbehave("www.kernel.org", "/", "last-modified", name="last-modified")
    assert visitor.learn_last_modified() == f"  last-modified: {usual}"
    assert visitor.count_304(usual) == "1"


def test_headers_can_be_added(site: KernelSite, visitor: Visitor) -> None:
    site.misbehave("www.kernel.org", "/", "headers", headers={"X-Cache-Node": "fra-1304"})
    assert visitor.count_304("Sat, 12 Sep 2026 22:02:17 GMT") == "1"
    assert "  X-Cache-Node: fra-1304\n" in visitor.ask_if_modified("Sat, 12 Sep 2026 22:02:17 GMT")
    site.behave()
    assert visitor.count_304("Sat, 12 Sep 2026 22:02:17 GMT") == "0"


def test_body_can_be_replaced(site: KernelSite, visitor: Visitor) -> None:
    site.misbehave(
        "www.kernel.org", "/releases.json", "body", body='{"moniker": "żółw"}', content_type="application/json"
    )
    assert visitor.wget(INDEX).stdout == visitor.curl(INDEX).stdout == '{"moniker": "żółw"}'
    site.misbehave("www.kernel.org", "/", "body", body="", exact=True)
    assert (visitor.wget(PAGE).returncode, visitor.wget(PAGE).stdout) == (0, "")


def test_big_changelog(site: KernelSite, visitor: Visitor) -> None:
    site.misbehave("cdn.kernel.org", "/pub/linux/kernel/v7.x/ChangeLog-", "big", size=20_000_000)
    for get in (visitor.wget, visitor.curl):
        text = get(CHANGELOG).stdout
        assert 20_000_000 <= len(text.encode()) < 20_010_000
        assert "\n    Linux 7.2.4\n" in text[:500]
        assert len(re.findall(r"^commit [0-9a-f]{40}\nAuthor: .* <.*>\nDate:   \w{3} \w{3} \d", text, re.M)) > 20_000


def test_network_can_go_and_come_back(site: KernelSite, visitor: Visitor) -> None:
    site.misbehave("www.kernel.org", "/", "unreachable")
    assert visitor.wget(PAGE).returncode == 4 and visitor.curl(PAGE).returncode == 56
    assert site.requests() == [] and site.connections() == ["www.kernel.org:443"] * 2
    site.behave()
    assert visitor.wget(PAGE).returncode == 0


def test_misbehaviour_can_be_limited(site: KernelSite, visitor: Visitor) -> None:
    site.misbehave("www.kernel.org", "/", 503, exact=True)
    assert visitor.wget(PAGE).returncode == 8 and visitor.wget(INDEX).returncode == 0
    site.behave()
    site.misbehave("www.kernel.org", "/", 503, agent="wget")
    assert visitor.wget(PAGE).returncode == 8 and visitor.curl(PAGE).stdout.startswith("<!DOCTYPE html>\n<html lang")
    site.behave()
    site.misbehave("www.kernel.org", "/", 503, method="GET")
    assert visitor.wget(PAGE).returncode == 8 and visitor.learn_last_modified() == site.last_modified
    site.behave()
    site.misbehave("www.kernel.org", "/", 503, times=2)
    assert [visitor.wget(PAGE).returncode for _ in range(4)] == [8, 8, 0, 0]


def test_mistakes_are_refused(site: KernelSite) -> None:
    for host, kind, options in (
        ("example.org", 404, {}),
        ("www.kernel.org", "mumble", {}),
        ("www.kernel.org", "big", {"to": ""}),
    ):
        with pytest.raises(ValueError):
            site.misbehave(host, "/", kind, **options)


def test_other_hosts_and_plain_http_are_kept_from_the_net(site: KernelSite, visitor: Visitor) -> None:
    assert visitor.run("curl -s https://elsewhere.example/").returncode == 60
    assert visitor.run("curl -s -o /dev/null -w '%{http_code}' http://www.kernel.org/").stdout == "403"
    assert visitor.run("curl -s https://www.kernel.org:8443/").returncode == 56
    assert site.connections() == ["elsewhere.example:443", "http://www.kernel.org/", "www.kernel.org:8443"]
    assert site.requests() == []


def test_requests_can_be_forgotten(site: KernelSite, visitor: Visitor) -> None:
    visitor.wget(PAGE)
    site.clear_requests()
    assert site.requests() == [] and site.connections() == []
    visitor.wget(INDEX)
    assert [r.path for r in site.requests()] == ["/releases.json"]


# wget2, which some distributions install as wget


def test_wget2_reads_the_page_and_leaves_the_home_alone(site: KernelSite, visitor: Visitor) -> None:
    assert visitor.run(f"wget2 -qO- --timeout=15 '{PAGE}' 2>/dev/null").stdout == visitor.curl(PAGE).stdout
    # Version 2.2 makes folders for what it is told not to keep.
    assert [path for path in visitor.home.rglob("*") if not path.is_dir()] == []
    assert re.match(r"wget2/1|Wget/2", site.requests()[0].agent)


def test_wget2_spider_prints_a_status_line(site: KernelSite, visitor: Visitor) -> None:
    fresh = visitor.run(f"wget2 -S --spider --timeout=10 '{PAGE}' 2>&1")
    assert fresh.returncode == 0 and f"HTTP response 200 OK [{PAGE}]" in fresh.stdout
    header = f"--header='If-Modified-Since: {site.last_modified}'"
    known = visitor.run(f"wget2 -S --spider {header} --timeout=10 '{PAGE}' 2>&1")
    assert known.returncode == 0 and f"HTTP response 304 Not Modified [{PAGE}]" in known.stdout
    # It shows no header lines with --spider, so that Last-Modified cannot be learned from them.
    assert "modified:" not in (fresh.stdout + known.stdout).lower()


def test_http2_for_who_asks_for_it(tmp_path: Path) -> None:
    with KernelSite(http2=True) as site:
        visitor = Visitor(site, tmp_path)
        assert visitor.run(f"curl -s -o /dev/null -w '%{{http_version}}' {PAGE}").stdout == "2"
        assert visitor.learn_last_modified() == site.last_modified
        assert "\nlast-modified: " in visitor.run(f"curl -sI {PAGE}").stdout


# Start and end


def test_two_sites_side_by_side(site: KernelSite, visitor: Visitor, tmp_path: Path) -> None:
    with KernelSite() as other:
        other.publish(stable="7.2.5")
        other.misbehave("cdn.kernel.org", "/", 503)
        assert "<strong>7.2.4</strong>" in visitor.wget(PAGE).stdout
        assert "<strong>7.2.5</strong>" in Visitor(other, tmp_path).wget(PAGE).stdout
        assert visitor.wget(CHANGELOG).returncode == 0
        assert Visitor(other, tmp_path).wget(CHANGELOG).returncode == 8
        assert len(site.requests()) == len(other.requests()) == 2
    assert visitor.wget(PAGE).returncode == 0


def test_nothing_is_left_at_the_end(capfd: pytest.CaptureFixture[str]) -> None:
    with KernelSite() as site:
        assert len(processes_about(site.folder.name)) >= 2
        site.misbehave("www.kernel.org", "/", "silence")
        waiting = subprocess.Popen(["curl", "-s", PAGE], env={**os.environ, **site.environment})
        site.wait_for_requests(status=None)
    assert waiting.wait(10) != 0
    assert not site.folder.exists()
    assert not answers(site.environment["https_proxy"])
    assert processes_about(site.folder.name) == [] and not alive(site.process.pid)
    assert capfd.readouterr().err == ""


OWNER = """
import json, signal, sys
sys.path.append(sys.argv[1])
from stage.site import KernelSite
with KernelSite() as site:
    print(json.dumps([str(site.folder), site.environment["https_proxy"], site.process.pid]), flush=True)
    signal.pause()
"""


@pytest.mark.parametrize("victim", ["owner", "keeper", "nginx"])
def test_nothing_is_left_after_a_violent_end(victim: str) -> None:
    with subprocess.Popen([sys.executable, "-c", OWNER, str(TESTS)], stdout=subprocess.PIPE) as owner:
        try:
            folder, proxy, keeper = json.loads(owner.stdout.readline())
            servers = processes_about(Path(folder).name)
            assert Path(folder).exists() and answers(proxy) and alive(keeper) and len(servers) == 2
            (nginx,) = (p for p in servers if b"nginx.conf" in Path(f"/proc/{p}/cmdline").read_bytes())
            os.kill({"owner": owner.pid, "keeper": keeper, "nginx": nginx}[victim], signal.SIGKILL)
            assert eventually(lambda: not answers(proxy) and not alive(keeper) and not any(map(alive, servers)))
        finally:
            if owner.poll() is None and victim != "owner":
                # The folder of a killed keeper is for its owner to remove, which this interrupt lets it do.
                owner.send_signal(signal.SIGINT)
            else:
                owner.kill()
    assert eventually(lambda: not Path(folder).exists())


def test_site_starts_quickly() -> None:
    times = []
    for _ in range(3):
        begun = time.monotonic()
        with KernelSite():
            times.append(time.monotonic() - begun)
    assert min(times) < 2.0


def test_site_starts_with_a_deep_temporary_folder(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    deep = tmp_path / ("deep" * 30)
    deep.mkdir()
    monkeypatch.setenv("TMPDIR", str(deep))
    with KernelSite() as site:
        assert Visitor(site, tmp_path).wget(PAGE).returncode == 0


@pytest.mark.skipif(os.geteuid() != 0, reason="an ordinary user already runs all the other tests")
def test_ordinary_user_can_run_a_site() -> None:
    with tempfile.TemporaryDirectory() as folder:
        os.chmod(folder, 0o755)
        for part in ("site", "stage"):
            shutil.copytree(TESTS / part, Path(folder) / part, ignore=shutil.ignore_patterns("__pycache__"))
        done = subprocess.run(
            [
                "setpriv",
                "--reuid=65534",
                "--regid=65534",
                "--clear-groups",
                "env",
                "-u",
                "TMPDIR",
                "HOME=/nonexistent",
                sys.executable,
                "-B",
                str(Path(folder) / "site" / "site.py"),
                "run",
                "--",
                "sh",
                "-c",
                f"id -u; wget -qO- {PAGE} | head -n 1; wget -qO- '{STABLE_TREE}/atom/?h=linux-7.2.y' | head -n 2",
            ],
            capture_output=True,
            text=True,
            timeout=60,
            cwd="/",
        )
    assert done.stderr == ""
    assert done.stdout.splitlines() == [
        "65534",
        "<!DOCTYPE html>",
        "<feed xmlns='http://www.w3.org/2005/Atom'>",
        "<title>kernel/git/stable/linux.git, branch linux-7.2.y</title>",
    ]


# The command


def run_command(*words: str) -> subprocess.CompletedProcess[str]:
    return subprocess.run([*SITE_COMMAND, *words], capture_output=True, text=True, timeout=60)


def test_run_gives_the_exit_status_of_its_command() -> None:
    assert run_command("run", "--", "sh", "-c", "exit 7").returncode == 7
    assert run_command("run", "--", "sh", "-c", "kill -9 $$").returncode == 137
    assert run_command("run", "--", "/nonexistent/command").returncode == 127
    assert run_command("run").returncode == 2


def test_shell_can_publish_misbehave_and_read() -> None:
    ctl = " ".join(SITE_COMMAND) + " ctl"
    done = run_command(
        "run",
        "--",
        "sh",
        "-ec",
        f"""
        {ctl} publish --stable 7.2.5 --mainline 7.3-rc3 --longterm 6.18.51
        curl -s {PAGE} | grep -o '<strong>[67]\\.[0-9.]*' | head -n 2
        {ctl} last-modified
        {ctl} misbehave www.kernel.org / headers 'headers={{"X-Word": "two words"}}'
        curl -sI {PAGE} | grep X-Word
        {ctl} misbehave www.kernel.org / 503
        curl -s -o /dev/null -w '%{{http_code}}\\n' {PAGE}
        {ctl} behave
        curl -s -o /dev/null -w '%{{http_code}}\\n' {PAGE}
        {ctl} connections
        {ctl} requests
        {ctl} misbehave www.kernel.org / mumble || echo refused
        env -u KERNEL_SITE {ctl} behave || echo nowhere
        """,
    )
    lines = done.stdout.splitlines()
    assert lines[:2] == ["<strong>7.3", "<strong>7.2.5"]
    assert re.fullmatch(r"\w{3}, \d\d Sep 2026 [\d:]{8} GMT", lines[2])
    assert lines[3:10] == ["X-Word: two words", "503", "200"] + ["www.kernel.org:443"] * 4
    assert [json.loads(line)["status"] for line in lines[10:14]] == [200, 200, 503, 200]
    assert lines[14:] == ["refused", "nowhere"]
    assert done.returncode == 0


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGKILL])
def test_run_ends_with_its_command_when_it_is_told_to(number: signal.Signals) -> None:
    script = 'echo "$KERNEL_SITE $$"; exec sleep 100'
    with subprocess.Popen(
        [*SITE_COMMAND, "run", "--", "sh", "-c", script], stdout=subprocess.PIPE, text=True
    ) as runner:
        control, command = runner.stdout.readline().split()
        assert Path(control).exists() and alive(int(command))
        runner.send_signal(number)
        assert runner.wait(20) == (128 + number if number == signal.SIGTERM else -number)
    assert eventually(lambda: not Path(control).parent.exists() and not alive(int(command)))
    assert eventually(lambda: processes_about(Path(control).parent.name) == [])
