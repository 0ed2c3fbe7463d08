# SPDX-License-Identifier: MIT
"""An invented history of the kernel: git repositories and ChangeLog texts with the same content on every machine."""

from __future__ import annotations

import subprocess
import time
import zlib
from dataclasses import dataclass
from hashlib import sha1
from pathlib import Path
from typing import Iterator, Sequence

from release_pages import final_before, release_before

HOUR = 3600
DAY = 24 * HOUR

PEOPLE = (
    ("Ada Lindqvist", "ada@drivers.example", "+0200"),
    ("Bartosz Żuraw", "zuraw@fs.example", "+0200"),
    ("Chidi Okonkwo", "chidi@net.example", "+0100"),
    ("Dolores O'Hara", "dolores@o-hara.example", "-0700"),
    ("Emre Yıldız", "emre@mm.example", "+0300"),
    ("Fumiko 田中", "fumiko@gpu.example", "+0900"),
    ("Göran Ålund", "goran@sound.example", "+0000"),
    ('Henrik "Hex" Dahl', "hex@crypto.example", "-0400"),
    ("Indira Rao", "indira.rao@cloud.example", "+0530"),
    ("Jonas Weiß", "jw@block.example", "+0200"),
)
STABLE_KEEPER = ("Greta Steadfast", "greta@stable.example", "+0200")
MAINLINE_KEEPER = ("Linnea Trunk", "linnea@mainline.example", "-0700")

AREAS = (
    ("net: mlx9", "drivers/net/mlx9/core.c"),
    ("drm/amdgfx", "drivers/gpu/drm/amdgfx/ring.c"),
    ("drm/i975", "drivers/gpu/drm/i975/display.c"),
    ("btrfs", "fs/btrfs/extent.c"),
    ("ext4", "fs/ext4/journal.c"),
    ("xfs", "fs/xfs/log.c"),
    ("smb: client", "fs/smb/client/session.c"),
    ("mm/vmscan", "mm/vmscan.c"),
    ("sched/fair", "kernel/sched/fair.c"),
    ("bpf", "kernel/bpf/verifier.c"),
    ("KVM: x86", "arch/x86/kvm/mmu.c"),
    ("arm64: dts: acorn", "arch/arm64/boot/dts/acorn/board.dts"),
    ("ALSA: hda/realtone", "sound/pci/hda/realtone.c"),
    ("ASoC: wm9000", "sound/soc/wm9000.c"),
    ("usb: gadget", "drivers/usb/gadget/composite.c"),
    ("Bluetooth: hci_sync", "net/bluetooth/hci_sync.c"),
    ("wifi: ath13k", "drivers/net/wireless/ath13k/rx.c"),
    ("nvme-tcp", "drivers/nvme/host/tcp.c"),
    ("crypto: quicksilver", "drivers/crypto/quicksilver.c"),
    ("Documentation", "Documentation/admin-guide/index.rst"),
    ("selftests/net", "tools/testing/selftests/net/route.sh"),
)
DEEDS = (
    "fix use-after-free in the {} path",
    "fix NULL pointer dereference on {}",
    "prevent out-of-bounds access during {}",
    "avoid deadlock between {} and suspend",
    "add support for {} on newer boards",
    "don't leak memory when {} fails",
    "drop the unused helper for {}",
    "check <count> & flags before {}",
    "speed up {} on large machines",
    "rework locking around {}",
)
THINGS = (
    "probe",
    "queue teardown",
    "resume",
    "the error",
    "reset",
    "page writeback",
    "ring refill",
    "device removal",
    "link training",
    "mount",
    "checksum offload",
    "namespace exit",
    "hotplug",
    "key setup",
)
REASONS = (
    "The count is read before the lock is taken, so that two callers can both\n"
    "see the last reference and free it twice.",
    "A device that answers late leaves the structure half set up. The next\n"
    'caller takes the "ready" path and runs into it.',
    "With a length of 0 the loop below never ends:\n\n  while (len >= 0)\n          len -= step;\n\nTest for it first.",
    "Since the rework of the error handling nothing calls this any more.",
    "On machines with more than 256 CPUs the walk takes some 40 ms, with\n"
    "interrupts off. Walk only what changed; it's below 1 ms then.",
    "BUG: KASAN: slab-use-after-free in worker_thread+0x1f4/0x6a0\n"
    "Read of size 8 at addr ffff888012345678 by task kworker/3:1/88\n\n"
    "Take the reference before the work is queued.",
)

# One ChangeLog is longer than what a window would list at once.
LONG_RELEASE, LONG_COUNT = "6.18.50", 437


@dataclass
class Commit:
    author: tuple[str, str, str]
    committer: tuple[str, str, str]
    written: int
    committed: int
    message: str
    path: str
    content: str


def number(*key: object) -> int:
    """A number that looks random, and is the same for the same key with every Python there is."""
    return zlib.crc32(repr(key).encode())


def pick(choices: Sequence, *key: object):
    return choices[number(*key) % len(choices)]


def invented_hash(*key: object) -> str:
    return sha1(repr(key).encode()).hexdigest()


def signed_off(person: tuple[str, str, str]) -> str:
    return f"Signed-off-by: {person[0]} <{person[1]}>"


def size(version: str) -> int:
    """How many commits a release has, its own included."""
    return LONG_COUNT if version == LONG_RELEASE else 14 + number(version, "size") % 25


def change(version: str, n: int, when: int) -> Commit:
    area, path = pick(AREAS, version, n, "area")
    author = pick(PEOPLE, version, n, "author")
    subject = f"{area}: " + pick(DEEDS, version, n, "deed").format(pick(THINGS, version, n, "thing"))
    upstream = invented_hash(version, n, "upstream")
    lines = [pick(REASONS, version, n, "reason"), ""]
    if number(version, n, "revert") % 17 == 0:
        subject = f'Revert "{subject}"'
        lines = [f"This reverts commit {upstream}.", "", "It breaks booting on at least one board.", ""]
    stable = version.count(".") == 2
    if stable:
        form = pick(("commit {} upstream.", "[ Upstream commit {} ]"), version, n, "form")
        lines[:0] = [form.format(upstream), ""]
    if " fix " in subject:
        lines.append(f'Fixes: {invented_hash(version, n, "fixes")[:12]} ("{area}: add the driver")')
        lines.append(f"Reported-by: {pick(PEOPLE, version, n, 'reporter')[0]} <reports@users.example>")
    lines.append(signed_off(author))
    committer = STABLE_KEEPER if stable else MAINLINE_KEEPER
    lines.append(signed_off(committer))
    written = when - (3 + number(version, n, "age") % 20) * DAY - number(version, n, "second") % HOUR
    return Commit(
        author, committer, written, when, subject + "\n\n" + "\n".join(lines) + "\n", path, f"/* {version} {n} */\n"
    )


def release_commit(version: str, when: int) -> Commit:
    keeper = STABLE_KEEPER if version.count(".") == 2 else MAINLINE_KEEPER
    tester = pick(PEOPLE, version, "tester")
    body = f"\nTested-by: {tester[0]} <{tester[1]}>\n{signed_off(keeper)}\n" if keeper is STABLE_KEEPER else ""
    return Commit(keeper, keeper, when, when, f"Linux {version}\n{body}", "Makefile", f"# Linux {version}\n")


def merge(version: str, n: int, when: int) -> Commit:
    area = pick(AREAS, version, n, "merge")[0].replace("/", " ").replace(":", " ").split()[0].lower()
    puller = pick(PEOPLE, version, n, "puller")[0]
    message = (
        f"Merge tag '{area}-{version}' of git://git.example/{area}\n\nPull {area} fixes from {puller}:\n\n"
        f" - Nothing that stands out, small fixes all over\n\n* tag '{area}-{version}':\n"
        f"  {area}: the fixes\n"
    )
    keeper = MAINLINE_KEEPER
    return Commit(keeper, keeper, when, when, message, "MAINTAINERS", f"# {version} {n}\n")


class Repository:
    """A bare repository that grows by whole releases."""

    def __init__(self, folder: Path, environment: dict[str, str]):
        self.folder = folder
        self.environment = environment
        self.tags: set[str] = set()
        self.branches: set[str] = set()
        self.stream: list[bytes] = []
        self.streamed: set[str] = set()
        self.marks = 0
        folder.mkdir(parents=True)
        # What `git init` would make, without its cost at each start.
        for name in ("objects", "refs/heads", "refs/tags"):
            (folder / name).mkdir(parents=True)
        (folder / "HEAD").write_text("ref: refs/heads/master\n")
        (folder / "config").write_text("[core]\n\trepositoryformatversion = 0\n\tbare = true\n")

    def git(self, *arguments: str, given: bytes = b"") -> bytes:
        done = subprocess.run(
            ["git", f"--git-dir={self.folder}", *arguments],
            input=given,
            check=True,
            capture_output=True,
            env=self.environment,
        )
        return done.stdout

    def commit(self, branch: str, commit: Commit, parents: Sequence[str] = ()) -> str:
        """Queues one commit and returns its mark. Without parents it follows the branch's head."""
        self.marks += 1
        mark = f":{self.marks}"
        ref = f"refs/heads/{branch}"
        # fast-import knows by itself only the heads of the stream that it reads.
        if not parents and branch in self.branches - self.streamed:
            parents = (f"{ref}^0",)
        self.branches.add(branch)
        self.streamed.add(branch)
        lines = [f"commit {ref}", f"mark {mark}"]
        for role, who, when in (
            ("author", commit.author, commit.written),
            ("committer", commit.committer, commit.committed),
        ):
            lines.append(f"{role} {who[0]} <{who[1]}> {when} {who[2]}")
        message = commit.message.encode()
        lines.append(f"data {len(message)}")
        text = "\n".join(lines).encode() + b"\n" + message + b"\n"
        for word, parent in zip(("from", "merge"), parents):
            text += f"{word} {parent}\n".encode()
        content = commit.content.encode()
        text += f"M 644 inline {commit.path}\ndata {len(content)}\n".encode() + content + b"\n"
        self.stream.append(text)
        return mark

    def release(self, branch: str, version: str, when: int) -> None:
        """Queues the commit that makes a release, and its tag."""
        mark = self.commit(branch, release_commit(version, when))
        self.stream.append(f"reset refs/tags/v{version}\nfrom {mark}\n\n".encode())
        self.tags.add(version)

    def flush(self) -> None:
        if self.stream:
            self.git("fast-import", "--quiet", given=b"".join(self.stream))
            self.stream.clear()
            self.streamed.clear()

    def log(self, version: str, since: str | None) -> bytes:
        return self.git("log", "--no-decorate", f"v{since}..v{version}" if since else f"v{version}")


class History:
    """The mainline tree and the stable tree."""

    def __init__(self, folder: Path, environment: dict[str, str]):
        self.mainline = Repository(folder / "mainline.git", environment)
        self.stable = Repository(folder / "stable.git", environment)
        self.last_final = ""
        self.before: dict[str, str] = {}

    def add(self, channel: str, version: str, when: int) -> None:
        """Puts a release on its branch, the commits before it included; flush() then writes it."""
        if version.count(".") == 2:
            self.add_stable(version, when)
        else:
            self.add_mainline(version, when)
            if channel != "mainline":
                self.start_branch(version, when)

    def add_mainline(self, version: str, when: int) -> None:
        tree = self.mainline
        if version in tree.tags:
            return
        if not tree.tags:
            self.last_final = final_before(version)
            tree.release("master", self.last_final, when - 28 * DAY)
            if "-rc" in release_before(version):
                self.add_mainline(release_before(version), when - 7 * DAY)
        for n in range(size(version) - 1, 0, -1):
            at = when - n * HOUR
            mark = tree.commit("master", change(version, n, at))
            if n % 6 == 0:
                side = tree.commit("master", change(version, n + 1000, at + 60), (mark,))
                main = tree.commit("master", change(version, n + 2000, at + 120), (mark,))
                tree.commit("master", merge(version, n, at + 180), (main, side))
        tree.release("master", version, when)
        if "-rc" not in version:
            self.before[version] = self.last_final
            self.last_final = version

    def start_branch(self, version: str, when: int) -> None:
        branch = f"linux-{version}.y"
        if branch not in self.stable.branches:
            self.stable.release(branch, version, when)

    def add_stable(self, version: str, when: int) -> None:
        tree = self.stable
        if version in tree.tags:
            return
        series, _, _ = version.rpartition(".")
        branch = f"linux-{series}.y"
        before = self.before.get(branch, series)
        if branch not in tree.branches:
            # The branch is as long as a reader of one ChangeLog needs it, it does not go back to the start.
            before = release_before(version)
            tree.release(branch, before, when - 7 * DAY)
        for n in range(size(version) - 1, 0, -1):
            tree.commit(branch, change(version, n, when - n * 300))
        tree.release(branch, version, when)
        self.before[version] = before
        self.before[branch] = version

    def flush(self) -> None:
        self.mainline.flush()
        self.stable.flush()

    def changelog(self, version: str) -> bytes:
        tree = self.stable if version.count(".") == 2 else self.mainline
        return tree.log(version, self.before.get(version))


def long_changelog(version: str, length: int) -> Iterator[bytes]:
    """A ChangeLog of at least so many bytes, in pieces of whole commits, without a repository behind it."""
    sent, n = 0, 0
    while sent < length:
        n += 1
        commit = release_commit(version, 1789131840) if n == 1 else change(version, n, 1789131840 - n * 300)
        zone = commit.author[2]
        seconds = (int(zone[1:3]) * 60 + int(zone[3:])) * 60 * (-1 if zone[0] == "-" else 1)
        day = time.gmtime(commit.written + seconds)
        date = f"{time.strftime('%a %b', day)} {day.tm_mday} {time.strftime('%H:%M:%S %Y', day)} {zone}"
        message = "".join(f"    {line}\n" for line in commit.message.splitlines())
        text = (
            f"commit {invented_hash(version, n)}\nAuthor: {commit.author[0]} <{commit.author[1]}>\n"
            f"Date:   {date}\n\n{message}\n"
        ).encode()
        sent += len(text)
        yield text
