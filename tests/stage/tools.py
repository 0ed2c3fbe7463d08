# SPDX-License-Identifier: MIT
"""The network as a folder of recording stand-ins for wget and curl, and pages for them to give."""

import shutil
from dataclasses import dataclass
from pathlib import Path

from stage.project import site

STAND_IN = Path(__file__).resolve().with_name("stand_in.sh")
RELEASE_SITE = site("VELDRIN_RELEASE_SITE")

SYSTEM = "/usr/bin:/bin"

# As long as the real patience is, it would be a test's: a tool's own limit is cut to half a second.
IMPATIENT = """for word; do
    shift
    case $word in
        --timeout=10 | --timeout=15) word=--timeout=0.5 ;;
        15) word=0.5 ;;
    esac
    set -- "$@" "$word"
done
exec {program} "$@"
"""

LAST_MODIFIED = "Sat, 05 Sep 2026 08:15:42 GMT"
LATER = "Mon, 14 Sep 2026 17:01:09 GMT"

# How the commands of a check look to a stand-in.
PAGE = "wget -qO- *"
CURL = "curl *"
ASK_QUIETLY = "wget -q --spider --header=*"
ASK = "wget -S --spider --header=*"
HEADER = "wget -S --spider --timeout=*"


def page_command(url: str = RELEASE_SITE) -> list[str]:
    return ["wget", "-qO-", "--timeout=15", url]


def curl_command(url: str = RELEASE_SITE) -> list[str]:
    return ["curl", "-sL", "--max-time", "15", url]


def header_command() -> list[str]:
    return ["wget", "-S", "--spider", "--timeout=10", RELEASE_SITE]


def ask_commands(last_modified: str) -> list[list[str]]:
    request = ["--spider", f"--header=If-Modified-Since: {last_modified}", "--timeout=10", RELEASE_SITE]
    return [["wget", "-q", *request], ["wget", "-S", *request]]


def row(label: str, version: str, day: str = "2026-09-05") -> str:
    """A row of the releases table; only its first two cells matter, and the other eight must not."""
    return f"""
    <tr align="left">
        <td>{label}:</td>
        <td><strong>{version}</strong></td>
        <td>{day}</td>
        <td>[<a href="https://cdn.invalid/linux-{version}.tar.xz" title="Download complete tarball">tarball</a>] </td>
        <td>[<a href="https://cdn.invalid/linux-{version}.tar.sign" title="Download PGP signature">pgp</a>]  </td>
        <td>[<a href="https://cdn.invalid/patch-{version}.xz" title="Download patch">patch</a>] </td>
        <td> </td>
        <td>[<a href="https://git.invalid/ds/v{version}" title="View diff in cgit">view&nbsp;diff</a>] </td>
        <td>[<a href="https://git.invalid/h/v{version}" title="Browse the git tree">browse</a>]  </td>
        <td>[<a href="https://cdn.invalid/ChangeLog-{version}" title="View change logs">changelog</a>] </td>
    </tr>"""


def page(*, mainline: str = "", stable: str = "", longterm: str = "") -> str:
    """The release site's front page with a row for each version that is given."""
    rows = "".join(
        row(label, version)
        for label, version in (("mainline", mainline), ("stable", stable), ("longterm", longterm))
        if version
    )
    return f"""<!DOCTYPE html>
<html lang="en">
<head><title>Kernhaven</title></head>
<body>
<table id="protocols"><tr><th>Protocol</th><th>Location</th></tr></table>
<table id="latest"><tr><td id="latest_link"><a href="#">{stable}</a></td></tr></table>
<table id="releases">{rows}
    <tr align="left"><td>linux-next:</td><td><strong>next-20260904</strong></td><td>2026-09-04</td></tr>
</table>
</body>
</html>
"""


def headers(status: str, *lines: str) -> str:
    """What `wget -S --spider` prints on standard error."""
    answer = "".join(f"  {line}\n" for line in (f"HTTP/1.1 {status}", "Server: nginx", *lines))
    return (
        "Spider mode enabled. Check if remote file exists.\n"
        f"--2026-09-06 10:11:12--  {RELEASE_SITE}\n"
        "Resolving the host... 192.0.2.7\n"
        f"HTTP request sent, awaiting response... \n{answer}"
    )


@dataclass(frozen=True)
class Call:
    argv: list[str]
    environment: dict[str, str]
    wget_settings: str  # what the file named by SYSTEM_WGETRC held for the call


class Answer:
    def __init__(self, folder: Path) -> None:
        self._hold = folder / "hold"

    def release(self) -> None:
        self._hold.unlink()


class SearchPath:
    """A folder of programs, which can be others than those that the system has by these names."""

    def __init__(self, folder: Path) -> None:
        self.folder = folder
        folder.mkdir(parents=True)

    def remove(self, name: str) -> None:
        (self.folder / name).unlink(missing_ok=True)

    def put(self, name: str, program: str = "") -> None:
        """Gives the name to a program of the system, by default to the one that has it."""
        self.remove(name)
        (self.folder / name).symlink_to(shutil.which(program or name, path=SYSTEM))

    def put_script(self, name: str, *lines: str, shell: str = "/bin/sh") -> None:
        """Gives the name to a script of the shell's."""
        self.remove(name)
        script = self.folder / name
        script.write_text("\n".join([f"#!{shell}", *lines]) + "\n")
        script.chmod(0o755)


class Tools(SearchPath):
    """Stand-ins for wget and curl, and the real filters that commands pipe them into."""

    def __init__(self, folder: Path) -> None:
        super().__init__(folder)
        self._answers = folder / "answers"
        self._answers.mkdir()
        self._calls = folder / "calls"
        self._number = 0
        for name in ("wget", "curl"):
            self.put_stand_in(name)
        for name in ("grep", "sed"):
            self.put(name)

    def put_stand_in(self, name: str) -> None:
        """Gives the name to a program that records its calls and answers as it is told to."""
        (self.folder / name).symlink_to(STAND_IN)

    def answer(self, pattern: str, stdout: str = "", stderr: str = "", status: int = 0, hold: bool = False) -> Answer:
        """Answers command lines that fit the shell pattern. An answer given later goes first. A held one does not come
        before it is released."""
        self._number += 1
        made = self.folder / "made"
        made.mkdir()
        (made / "pattern").write_text(pattern + "\n")
        (made / "stdout").write_text(stdout)
        (made / "stderr").write_text(stderr)
        (made / "status").write_text(f"{status}\n")
        if hold:
            (made / "hold").touch()
        return Answer(made.rename(self._answers / f"{self._number:04}"))

    def publish(self, html: str, last_modified: str = LAST_MODIFIED) -> None:
        """From now on the site gives this page, as a changed one."""
        fresh = headers("200 OK", "Content-Type: text/html", "Content-Length: 17112", f"Last-Modified: {last_modified}")
        self.answer(PAGE, stdout=html)
        self.answer(HEADER, stderr=fresh)
        self.answer(ASK_QUIETLY)
        self.answer(ASK, stderr=fresh)

    def leave_unchanged(self, last_modified: str = LAST_MODIFIED) -> None:
        """From now on the site answers conditional requests with 304, which wget takes for a failure."""
        self.answer(ASK_QUIETLY, status=8)
        self.answer(ASK, stderr=headers("304 Not Modified", f"Last-Modified: {last_modified}"), status=8)

    def disconnect(self) -> None:
        """From now on every command fails."""
        self.answer("*", status=4)

    def calls(self) -> list[Call]:
        """All calls so far, in their order."""
        if not self._calls.exists():
            return []
        fields = self._calls.read_bytes().decode(errors="surrogateescape").split("\0")[:-1]
        result = []
        try:
            at = 0
            while at < len(fields):
                end = at + 2 + int(fields[at + 1])
                argv = [fields[at], *fields[at + 2 : end]]
                at = end + 1 + int(fields[end])
                environment = dict(line.partition("=")[::2] for line in fields[end + 1 : at])
                result.append(Call(argv, environment, fields[at]))
                at += 1
        except IndexError:
            pass  # the last record is still being written
        return result

    def commands(self) -> list[list[str]]:
        return [call.argv for call in self.calls()]


class RealTools(SearchPath):
    """The system's own tools."""

    def __init__(self, folder: Path) -> None:
        super().__init__(folder)
        for name in ("wget", "curl", "grep", "sed"):
            self.put(name)

    def make_impatient(self, wget: str = "wget") -> None:
        for name, program in (("wget", wget), ("curl", "curl")):
            self.put_script(name, IMPATIENT.replace("{program}", shutil.which(program, path=SYSTEM)))
