# SPDX-License-Identifier: MIT
"""The release table and what the site makes of it: the front page and releases.json."""

from __future__ import annotations

import json
import time
from dataclasses import dataclass
from html import escape

CDN = "https://cdn.kernel.org/pub/linux/kernel/"
GIT = "https://git.kernel.org/"


@dataclass(frozen=True)
class Release:
    channel: str
    version: str
    timestamp: int
    eol: bool = False

    @property
    def day(self) -> str:
        return time.strftime("%Y-%m-%d", time.gmtime(self.timestamp))

    @property
    def is_candidate(self) -> bool:
        return "-rc" in self.version

    @property
    def is_next(self) -> bool:
        return self.channel == "linux-next"


# 2026-09-13 is a Sunday, the day on which candidates come out.
DEFAULT_RELEASES = (
    Release("mainline", "7.3-rc2", 1789336800),
    Release("stable", "7.2.4", 1789131840),
    Release("stable", "7.1.14", 1789131760, eol=True),
    Release("longterm", "6.18.50", 1789131680),
    Release("longterm", "6.12.109", 1789131600),
    Release("longterm", "6.6.157", 1789131520),
    Release("longterm", "6.1.188", 1789131440),
    Release("longterm", "5.15.221", 1789131360),
    Release("longterm", "5.10.270", 1789131280, eol=True),
    Release("linux-next", "next-20260911", 1789121280),
)


def final_before(version: str) -> str:
    """The X.Y release that an X.Y or X.Y-rcN follows."""
    major, minor = (int(part) for part in version.split("-")[0].split(".")[:2])
    return f"{major}.{minor - 1}" if minor else f"{major - 1}.19"


def release_before(version: str) -> str:
    """The release of the same line that went before: 7.2.4 gives 7.2.3, 7.3-rc1 and 7.3 give 7.2."""
    if "-rc" in version:
        series, candidate = version.split("-rc")
        return f"{series}-rc{int(candidate) - 1}" if int(candidate) > 1 else final_before(version)
    series, _, last = version.rpartition(".")
    if "." not in series:
        return final_before(version)
    return f"{series}.{int(last) - 1}" if int(last) > 1 else series


def addresses(release: Release) -> dict[str, str | None]:
    """Where the site says that a release's files are; None where it has no such file."""
    version = release.version
    nothing = dict.fromkeys(("source", "pgp", "patch", "incremental", "changelog", "diffview"))
    if release.is_next:
        return nothing | {"gitweb": f"{GIT}next/linux-next/h/{version}"}

    before = release_before(version)
    tree = "torvalds" if release.channel == "mainline" else "stable"
    found = nothing | {
        "gitweb": f"{GIT}{tree}/h/v{version}",
        "diffview": f"{GIT}{tree}/ds/v{version}/v{before}",
    }
    if release.is_candidate:
        found["source"] = f"{GIT}torvalds/t/linux-{version}.tar.gz"
        found["patch"] = f"{GIT}torvalds/p/v{version}/v{final_before(version)}"
        if "-rc" in before:
            found["incremental"] = f"{GIT}torvalds/p/v{version}/v{before}"
        return found

    folder = f"{CDN}v{version.split('.')[0]}.x/"
    found["source"] = f"{folder}linux-{version}.tar.xz"
    found["pgp"] = f"{folder}linux-{version}.tar.sign"
    found["patch"] = f"{folder}patch-{version}.xz"
    if before.count(".") == 2:
        found["incremental"] = f"{folder}incr/patch-{before}-{version.rpartition('.')[2]}.xz"
    # The site names no ChangeLog in a mainline row, though the file of a final release exists.
    if release.channel != "mainline":
        found["changelog"] = f"{folder}ChangeLog-{version}"
    return found


def latest_stable(releases: list[Release]) -> str:
    return next((r.version for r in releases if r.channel == "stable" and not r.eol), "")


def index(releases: list[Release]) -> str:
    records = []
    for release in releases:
        where = addresses(release)
        records.append(
            {
                "moniker": release.channel,
                "version": release.version,
                "iseol": release.eol,
                "released": {"timestamp": release.timestamp, "isodate": release.day},
                "source": where["source"],
                "pgp": where["pgp"],
                "patch": {"full": where["patch"], "incremental": where["incremental"]},
                "changelog": where["changelog"],
                "gitweb": where["gitweb"],
                "diffview": where["diffview"],
            }
        )
    return json.dumps({"releases": records, "latest_stable": {"version": latest_stable(releases)}}, indent=4)


CELLS = (
    ("source", "tarball", "Download complete tarball", " "),
    ("pgp", "pgp", "Download PGP verification signature", "  "),
    ("patch", "patch", "Download patch to previous mainline", " "),
    ("incremental", "inc.&nbsp;patch", "Download incremental patch", " "),
    ("diffview", "view&nbsp;diff", "View diff in cgit", " "),
    ("gitweb", "browse", "Browse the git tree using cgit", "  "),
    ("changelog", "changelog", "View detailed change logs", " "),
)


def row(release: Release) -> str:
    where = addresses(release)
    eol = ' <span class="eolkernel" title="This release is End-of-Life">[EOL]</span>' if release.eol else ""
    cells = [f"{release.channel}:", f"<strong>{escape(release.version)}{eol}</strong>", release.day]
    for key, word, title, tail in CELLS:
        address = where[key]
        cells.append(f'[<a href="{escape(address)}" title="{title}">{word}</a>]{tail}' if address else " ")
    lines = "\n".join(f"            <td>{cell}</td>" for cell in cells)
    return f'                <tr align="left">\n{lines}\n        </tr>\n'


def front_page(releases: list[Release]) -> str:
    latest = latest_stable(releases)
    tarball = addresses(Release("stable", latest, 0))["source"] if latest else "./"
    return PAGE.format(latest=escape(latest), tarball=tarball, rows="".join(map(row, releases)))


PAGE = """\
<!DOCTYPE html>
<html lang="en">
<head>
        <title>The Linux Kernel Archives</title>
        <meta charset="utf-8" />
\t<link rel="icon" type="image/png" href="./theme/favicon.png" />
        <link rel="stylesheet" href="./theme/main.css" type="text/css" />
</head>

<body id="index" class="home">
        <header id="banner" class="body">
                <h1><a href="./">The Linux Kernel Archives </a></h1>
                <nav><ul>
                                    <li ><a href="./category/about.html">About</a></li>
                                    <li ><a href="./category/releases.html">Releases</a></li>
                </ul></nav>
        </header><!-- /#banner -->

    <aside id="featured" class="body">
    <article>
        <table id="protocols">
        <tr>
          <th>Protocol</th>
          <th>Location</th>
        </tr>
        <tr>
          <td><a href="https://git-scm.com/">GIT</a></td>
          <td><a href="https://git.kernel.org/">https://git.kernel.org/</a></td>
        </tr>
        </table>

        <table id="latest">
        <tr>
            <td colspan="2" id="latest_label">
                <strong>Latest Stable Kernel:</strong>
            </td>
        </tr>
        <tr>
            <td id="latest_button">
                <a href="{tarball}"><img src="./theme/download.png" width="48" height="48" border="0" \
alt="Download"/></a>
            </td>
            <td id="latest_link">
                <a href="{tarball}">{latest}</a>
            </td>
        </tr>
        </table>

        <table id="releases">
{rows}                </table>
    </article>
</aside>
        <section id="extras" class="body">
                <div class="blogroll">
                        <h2>Other resources</h2>
                        <ul>
                                <li><a href="https://git.kernel.org/">Cgit</a></li>
                                <li><a href="https://bugzilla.kernel.org/">Bugzilla</a></li>
                        </ul>
                </div><!-- /.blogroll -->
        </section><!-- /#extras -->

        <footer id="contentinfo" class="body">
                <address id="about" class="vcard body">
                    A copy of the site for tests. Its releases are invented.
                </address><!-- /#about -->
        </footer><!-- /#contentinfo -->

</body>
</html>"""
