# SPDX-License-Identifier: MIT
"""What the program reads from real machines' files, held against other readers of the same files: a shell's word
splitting, regular expressions, lsmod, and a reader of modinfo's output as a whole.

The data are no part of the repository; test_samples.py says where they may lie. Where the program's simple cutting is
known to give something else than a full reader, the case stands in a table with what the program makes of it.
"""

import re
import shlex
from pathlib import Path

import pytest
from stage.machines import NOTHING_LOADED
from stage.samples import SAMPLES, samples
from stage.world import World

pytestmark = pytest.mark.skipif(
    SAMPLES is None or not (SAMPLES / "system").is_dir(), reason="no sample data: VELDRIN_SAMPLES names their folder"
)


@pytest.fixture
def world(tmp_path: Path) -> World:
    return World(tmp_path)


def without(end: str, files: list[pytest.param]) -> list[pytest.param]:
    return [file for file in files if not file.id.endswith(end)]


@pytest.mark.parametrize("pattern", ["os-release/*", "proc_version/lines.txt", "proc_modules/*", "modinfo/*"])
def test_each_kind_has_samples(pattern):
    assert samples(f"system/{pattern}")


# ---- Distributions ----

ODD_NAMES = {
    # Its lines end as on DOS: the quote is not the last byte, so both quotes stay.
    "slackware_15.0": '"Slackware 15.0 x86_64"\r',
}


def assignments(content: str) -> dict[str, str]:
    """As a shell that reads the file would have them."""
    return dict(word.partition("=")[::2] for word in shlex.split(content, comments=True))


@pytest.mark.parametrize("file", samples("system/os-release/*"))
def test_distribution(world, file):
    content = file.read_bytes()
    world.put({"etc/os-release": content})
    name = assignments(content.decode())["PRETTY_NAME"]
    distro = world.system()["distro"]
    if file.name in ODD_NAMES:
        assert distro == ODD_NAMES[file.name] != name
    else:
        assert distro == name != ""


# ---- How kernels were built ----

BUILT = ("build_user", "compiler", "kernel_flags", "build_date")

# What a reader who knows the makers of kernels takes from a line.
VERSION = re.compile(
    r"Linux version \S+"
    r"(?: \((?P<build_user>\S+)\))?"
    r"(?: \((?P<compiler>.*?)(?:, (?:GNU ld|LLD) .*?)? ?\))?"
    r" (?P<kernel_flags>#.*?)"
    r"(?: \(?(?P<build_date>(?:Mon|Tue|Wed|Thu|Fri|Sat|Sun),? .*?|\d{4}-\d\d-\d\d)\)?)?"
    r"(?: \([0-9a-f]{7}\))?"
)

# By release: the fields in which the program differs from that reader.
ODD_BUILDS = {
    # A linker of another make stays with the compiler.
    "5.19.0-rc6+": {"compiler": "clang version 14.0.6, LLD 14.0.6"},
    # A commit behind the date stays with it.
    "5.3.7-1-default": {"build_date": "Mon Oct 21 06:03:17 UTC 2019 (3eea5a9)"},
    "3.0.101-63-default": {"build_date": "Tue Jun 23 16:02:31 UTC 2015 (4b89d0c)"},
    # A date without a weekday stays with the flags.
    "4.9.0-8-amd64": {"kernel_flags": "#1 SMP Debian 4.9.144-3.1 (2019-02-19)", "build_date": ""},
    "5.10.0-10-amd64": {"kernel_flags": "#1 SMP Debian 5.10.84-1 (2021-12-08)", "build_date": ""},
}


def version_lines() -> list[pytest.param]:
    return [
        pytest.param(line, id=line.split()[2])
        for file in samples("system/proc_version/lines.txt")
        for line in file.values[0].read_text().splitlines()
    ]


def built(world: World, line: str) -> dict:
    world.put({"proc/version": f"{line}\n"})
    record = world.system()
    return {name: record[name] for name in BUILT}


@pytest.mark.parametrize("line", version_lines())
def test_proc_version(world, line):
    expected = {name: value or "" for name, value in VERSION.fullmatch(line).groupdict().items()}
    odd = ODD_BUILDS.get(line.split()[2], {})
    assert all(expected[name] != value for name, value in odd.items())
    assert built(world, line) == expected | odd


def test_every_odd_build_is_among_the_samples():
    assert ODD_BUILDS.keys() <= {line.id for line in version_lines()}


@pytest.mark.parametrize("file", samples("system/proc_version/*.uname-a.txt"))
def test_what_uname_prints_is_flags_and_date(world, file):
    """It has no groups, so that the release and the host's name stand among the flags, the machine behind the date."""
    line = file.read_text().strip()
    day = re.search(r" (?=(Mon|Tue|Wed|Thu|Fri|Sat|Sun) )", line)
    assert built(world, line) == {
        "build_user": "",
        "compiler": "",
        "kernel_flags": line[: day.start()],
        "build_date": line[day.end() :],
    }


# ---- Installed kernels ----


def newest_first(versions: set[str]) -> list[str]:
    """By all their numbers, as lists of one length, and then by their text."""

    def key(version: str) -> tuple[list[int], bytes]:
        numbers = [int(number) for number in re.findall("[0-9]+", version)]
        return numbers + [0] * (50 - len(numbers)), version.encode()

    return sorted(versions, key=key, reverse=True)


@pytest.mark.parametrize("file", samples("system/listings/*boot*"))
def test_images(world, file):
    versions = set(re.findall(r"(?<!\S)vmlinuz-(\S+)", file.read_text()))
    world.put({f"boot/vmlinuz-{version}": "" for version in versions})
    world.make_folder("boot")
    installed = world.system()["installed"]
    assert [kernel["version"] for kernel in installed] == newest_first(versions)


def tree_listings() -> list[pytest.param]:
    files = samples("system/listings/lib-modules.ls.txt")
    lines = [line for file in files for line in file.values[0].read_text().splitlines()]
    machines = (line.partition(": ") for line in lines if not line.startswith("#") and ": " in line)
    return [pytest.param(set(names.split()), id=machine) for machine, _, names in machines]


@pytest.mark.parametrize("versions", tree_listings())
def test_module_trees(world, versions):
    for version in versions:
        world.make_folder(f"lib/modules/{version}")
    installed = world.system()["installed"]
    assert [kernel["version"] for kernel in installed] == newest_first(versions)


# ---- Loaded modules ----


def columns(line: str) -> dict:
    name, size, refcount, users, state = line.split()[:5]
    used_by = ",".join(user for user in users.split(",") if user not in ("", "-"))
    return {"name": name, "size": int(size), "refcount": int(refcount), "used_by": used_by, "state": state}


@pytest.mark.parametrize("file", without("lsmod.txt", samples("system/proc_modules/*")))
def test_loaded_modules(world, file):
    content = file.read_text()
    world.put({"proc/modules": content})
    record = world.modules()
    assert record["error"] == ""
    expected = sorted((columns(line) for line in content.splitlines()), key=lambda mod: mod["name"].encode())
    assert [{name: mod[name] for name in expected[0]} for mod in record["modules"]] == expected


def lsmod_of(file: Path) -> Path:
    return next(file.parent.glob(file.name.split("-")[0] + "*.lsmod.txt"))


@pytest.mark.parametrize("file", samples("system/proc_modules/rhcos*.root.txt"))
def test_loaded_modules_are_those_of_lsmod(world, file):
    """lsmod gives the users in another order, and leaves out the mark of a module that stays for ever. The program
    shows that mark as if it were a user."""
    world.put({"proc/modules": file.read_bytes()})
    modules = world.modules()["modules"]
    assert any(mod["used_by"] == "[permanent]" for mod in modules)
    listed = [
        (mod["name"], mod["size"], mod["refcount"], set(mod["used_by"].split(",")) - {"", "[permanent]"})
        for mod in modules
    ]
    (lsmod,) = file.parent.glob("rhcos*.lsmod.txt")
    _, *lines = lsmod.read_text().splitlines()
    rows = [(*line.split(), "")[:4] for line in lines]
    assert listed == sorted(
        (name, int(size), int(count), set(users.split(",")) - {""}) for name, size, count, users in rows
    )


@pytest.mark.parametrize("file", samples("system/proc_modules/*.lsmod.txt"))
def test_output_of_lsmod_has_too_few_columns(world, file):
    world.put({"proc/modules": file.read_bytes()})
    assert world.modules() == {"error": NOTHING_LOADED, "modules": []}


# ---- modinfo ----

DETAILS = ("description", "author", "license", "filename", "version")

# modinfo wrote these to its standard error, which went to the same file, in the middle of lines even.
ERRORS = re.compile(r"modinfo: ERROR: [^\n]*\n")


def read_modinfo(printed: str) -> dict[str, str]:
    """Each key's first value, whose further lines begin with a blank or have no key."""
    values: dict[str, list[str]] = {}
    key = ""
    for line in printed.split("\n"):
        if found := re.match(r"([a-z_]+):\s*(.*)", line):
            key = found[1]
            values.setdefault(key, []).append(found[2].rstrip())
        elif key:
            values[key][-1] = (values[key][-1] + "\n" + line).rstrip()
    return {key: next(filter(None, values.get(key, ())), "") for key in DETAILS}


def check_modinfo(world: World, outputs: dict[str, str]) -> None:
    for name, printed in outputs.items():
        world.answer_modinfo(name, printed)
    for mod in world.dump("details", *outputs):
        assert {name: mod[name] for name in DETAILS} == read_modinfo(outputs[mod["name"]])
    assert world.modinfo_calls() == [f"1:{name}" for name in outputs]


@pytest.mark.parametrize("file", without("all-loaded-modules.txt", samples("system/modinfo/*")))
def test_modinfo(world, file):
    check_modinfo(world, {"sample": file.read_text()})


@pytest.mark.parametrize("file", samples("system/modinfo/*-all-loaded-modules.txt"))
def test_modinfo_of_a_whole_machine(world, file):
    blocks = re.split(r"(?m)^(?=filename:)", ERRORS.sub("", file.read_text()))[1:]
    outputs = {re.search(r"([\w-]+)\.ko", block)[1]: block for block in blocks}
    assert len(outputs) > 50
    check_modinfo(world, outputs)
