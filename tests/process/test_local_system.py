# SPDX-License-Identifier: MIT
"""What the program knows of the machine on which it runs, on machines of every kind."""

import itertools
import platform
import signal
import subprocess
from pathlib import Path

import pytest
from stage.machines import (
    FLATPAK,
    LOCKED_SNAP,
    MACHINES,
    NOTHING_LOADED,
    NOT_OPENED,
    NO_FLATPAK,
    NO_KERNELS,
    NO_KERNELS_IN_SNAP,
    SNAP,
    TREES_ALONE,
    TREES_ALONE_IN_SNAP,
    Machine,
    installed,
    module,
    system,
    without_details,
)
from stage.world import World


@pytest.fixture
def world(tmp_path: Path) -> World:
    return World(tmp_path)


# ---- Whole machines ----


@pytest.fixture
def settled(world: World, request: pytest.FixtureRequest) -> tuple[World, Machine]:
    machine = request.param
    world.kernel = machine.kernel
    world.environment = dict(machine.environment)
    world.put(machine.files)
    for path in machine.empty_folders:
        world.make_folder(path)
    for path in machine.locked:
        world.lock(path)
    for name, printed in machine.modinfo.items():
        world.answer_modinfo(name, printed)
    return world, machine


EACH_MACHINE = pytest.mark.parametrize("settled", MACHINES.values(), ids=MACHINES.keys(), indirect=True)


@EACH_MACHINE
def test_system(settled):
    world, machine = settled
    assert world.system() == machine.system
    assert world.modinfo_calls() == []


@EACH_MACHINE
def test_modules(settled):
    world, machine = settled
    assert world.modules() == {"error": machine.error, "modules": [without_details(mod) for mod in machine.modules]}
    assert world.modinfo_calls() == []


@EACH_MACHINE
def test_details(settled):
    world, machine = settled
    assert world.dump("details") == list(machine.modules)
    assert world.modinfo_calls() == [f"1:{mod['name']}" for mod in machine.modules]


def test_kernel_names_are_the_kernels(world):
    names = platform.uname()
    expected = system(running_kernel=names.release, arch=names.machine, hostname=names.node, installed_note=NO_KERNELS)
    assert world.system() == expected


def test_two_looks_see_two_machines(world):
    world.put({"proc/uptime": "60 1\n", "proc/modules": "heron 1 0 - Live\n"})
    assert (world.system()["uptime"], len(world.modules()["modules"])) == ("1 min", 1)
    world.put({"proc/uptime": "120 1\n", "proc/modules": "heron 1 0 - Live\nreed 1 0 - Live\n"})
    assert (world.system()["uptime"], len(world.modules()["modules"])) == ("2 min", 2)


# ---- The system's single files ----


@pytest.mark.parametrize(
    ("content", "uptime"),
    {
        "0.01 0.00\n": "0 min",
        "59.99 1\n": "0 min",
        "60.00 1\n": "1 min",
        "3599.99 1\n": "59 min",
        "3600 1\n": "1 h 0 min",
        "3660 1\n": "1 h 1 min",
        "86399.99 1\n": "23 h 59 min",
        "86400.00 1\n": "1 day, 0 h 0 min",
        "90061.5 1\n": "1 day, 1 h 1 min",
        "172799 1\n": "1 day, 23 h 59 min",
        "172800 1\n": "2 days, 0 h 0 min",
        "31536000000 1\n": "365000 days, 0 h 0 min",
        "120": "2 min",
        " \n\t120 1": "2 min",
        "120kestrels": "2 min",
        "1.2e2 1": "2 min",
        "120,9 1": "2 min",
        "0.00 0.00\n": "",
        "0 7200": "",
        "-60 1\n": "",
        "\n": "",
        "heron 120\n": "",
        "h120": "",
        "": "",
    }.items(),
)
def test_uptime(world, content, uptime):
    world.put({"proc/uptime": content})
    assert world.system()["uptime"] == uptime


@pytest.mark.parametrize("content", ["nan", "inf", "1e19", "-inf", "9223372036854775808", "1e999"])
def test_uptime_beyond_all_time_is_none(world, content):
    world.put({"proc/uptime": content})
    assert world.system()["uptime"] == ""


BUILT = ("build_user", "compiler", "kernel_flags", "build_date")


@pytest.mark.parametrize(
    ("content", "built"),
    {
        # As kernels of several makers write it.
        "Linux version 5.4.0-fen (a@b) (gcc version 9.4.0 (Fen 9.4.0-1)) #90-Fen SMP Fri Jul 9 22:49:44 UTC 2021\n": (
            ("a@b", "gcc version 9.4.0 (Fen 9.4.0-1)", "#90-Fen SMP", "Fri Jul 9 22:49:44 UTC 2021")
        ),
        "Linux version 6.12.1-reed (a@b) (gcc (GCC) 14.2.1, GNU ld (GNU Binutils) 2.43) #1 SMP Sat, 23 Nov 2024\n": (
            ("a@b", "gcc (GCC) 14.2.1", "#1 SMP", "Sat, 23 Nov 2024")
        ),
        "Linux version 6.1.0-9 (a@b) (gcc-12 (Marsh 12.2.0-14) 12.2.0, GNU ld 2.40) #1 SMP 6.1.27-1 (2023-05-08)": (
            ("a@b", "gcc-12 (Marsh 12.2.0-14) 12.2.0", "#1 SMP 6.1.27-1 (2023-05-08)", "")
        ),
        "Linux version 4.4.0 #1 SMP Sun Jan 10 15:06:54 PST 2016\n": ("", "", "#1 SMP", "Sun Jan 10 15:06:54 PST 2016"),
        "Linux version 6.1 (a@b) (clang 16, LLD 16) #4-Monsoon SMP Wed Jan 1\n": (
            ("a@b", "clang 16, LLD 16", "#4-", "Monsoon SMP Wed Jan 1")
        ),
        # As none does.
        "  \t\r\nLinux version 6.1 (a@b) (c) #1 Mon\n\n": ("a@b", "c", "#1", "Mon"),
        "(a@b) (c) #1 Mon": ("a@b", "c", "#1", "Mon"),
        "Reed OS 4 (a@b) (c) Mon": ("", "", "Reed OS 4 (a@b) (c)", "Mon"),
        "Reed OS 4": ("", "", "Reed OS 4", ""),
        "Linux version 6.1 (a@b (c) #1 Mon\n": ("", "", "", ""),
        "Linux version 6.1 (a@b) (c #1 Mon\n": ("a@b", "", "", ""),
        "Linux version 6.1\n": ("", "", "", ""),
        " \n": ("", "", "", ""),
    }.items(),
)
def test_proc_version(world, content, built):
    world.put({"proc/version": content})
    record = world.system()
    assert tuple(record[name] for name in BUILT) == built


@pytest.mark.parametrize(
    ("content", "cmdline"),
    [
        ("quiet\n", "quiet"),
        (' \t a  b="c d" \r\n', 'a  b="c d"'),
        ("no last line feed", "no last line feed"),
        ("two\nlines\n", "two\nlines"),
        ("\n", ""),
        (b"caf\xe9=\xff\n", "caf\udce9=\udcff"),
    ],
)
def test_cmdline(world, content, cmdline):
    world.put({"proc/cmdline": content})
    assert world.system()["cmdline"] == cmdline


@pytest.mark.parametrize(
    ("content", "name"),
    [
        ('PRETTY_NAME="Heron Linux"\n', "Heron Linux"),
        ("NAME=Heron\n", ""),
        ("PRETTY_NAME='Heron Linux'\n", "'Heron Linux'"),
        ('PRETTY_NAME="\n', '"'),
        ('PRETTY_NAME=""\n', ""),
        ('PRETTY_NAME="Heron"\r\nID=heron\r\n', '"Heron"\r'),
        ("PRETTY_NAME=First\nPRETTY_NAME=Second\n", "First"),
        (' PRETTY_NAME="Indented"\n', ""),
        ('PRETTY_NAME="Heron \\"5\\""', 'Heron \\"5\\"'),
        (b"PRETTY_NAME=H\xe9ron\n", "H\udce9ron"),
    ],
)
@pytest.mark.parametrize(
    ("environment", "file"),
    [
        ({}, "etc/os-release"),
        (SNAP, "var/lib/snapd/hostfs/etc/os-release"),
        (FLATPAK, "run/host/os-release"),
    ],
    ids=["plain", "snap", "flatpak"],
)
def test_distribution(world, environment, file, content, name):
    world.environment = environment
    world.put({"etc/os-release": "PRETTY_NAME=Base\n"})
    world.put({file: content})
    record = world.system()
    in_sandbox = bool(environment)
    assert record["distro"] == (name or ("Base" if in_sandbox else ""))
    assert bool(record["distro_note"]) == (in_sandbox and not name)


# ---- Installed kernels ----


# By whether /boot and /lib/modules can be opened, and whether this is a Snap.
NOTES = {
    (False, False, True): NO_KERNELS_IN_SNAP,
    (False, False, False): NO_KERNELS,
    (False, True, True): TREES_ALONE_IN_SNAP,
    (False, True, False): TREES_ALONE,
}


@pytest.mark.parametrize("closed", ["locked", "missing", "file"])
@pytest.mark.parametrize("environment", [{}, SNAP, FLATPAK], ids=["plain", "snap", "flatpak"])
@pytest.mark.parametrize(("boot", "trees"), itertools.product([True, False], repeat=2))
def test_closed_folders_of_kernels(world, boot, trees, environment, closed):
    world.environment = environment
    world.kernel = "7.0.2-fen x86_64 fenland"
    for folder, file, is_open in (
        ("boot", "vmlinuz-7.0.2-fen", boot),
        ("lib/modules", "7.0.2-fen", trees),
    ):
        if is_open or closed == "locked":
            world.put({f"{folder}/{file}": ""})
        if not is_open and closed == "locked":
            world.lock(folder)
        if not is_open and closed == "file":
            world.put({folder: "no folder"})
    record = world.system()
    seen = [name for name, is_open in (("image", boot), ("modules", trees)) if is_open]
    assert record["installed"] == ([installed("7.0.2-fen", "running", *seen)] if seen else [])
    assert record["installed_note"] == NOTES.get((boot, trees, environment is SNAP), "")


def test_kernels_of_both_folders_are_one_list_newest_first(world):
    world.kernel = "6.9.2 x86_64 fenland"
    world.put(dict.fromkeys([f"boot/vmlinuz-{v}" for v in ("6.9.2", "6.10.2", "6.1", "6.9.2.bak", "6.9.2+")], ""))
    world.put({"lib/modules/6.9.12": "", "lib/modules/6.9.2/kernel/heron.ko": "", "lib/modules/6.1.0/modules.dep": ""})
    world.make_folder("lib/modules/6.10.2")
    assert world.system()["installed"] == [
        installed("6.10.2", "image", "modules"),
        installed("6.9.12", "modules"),
        installed("6.9.2.bak", "image"),
        installed("6.9.2+", "image"),
        installed("6.9.2", "running", "image", "modules"),
        installed("6.1.0", "modules"),
        installed("6.1", "image"),
    ]


def test_running_kernel_without_its_files_is_not_listed(world):
    world.kernel = "6.9.2 x86_64 fenland"
    world.put({"boot/vmlinuz-6.9.2-fen": "", "lib/modules/6.9": "", "boot/config-6.9.2": ""})
    assert world.system()["installed"] == [installed("6.9.2-fen", "image"), installed("6.9", "modules")]


def test_running_kernel_stays_in_its_place(world):
    world.kernel = "6.1 x86_64 fenland"
    world.put(dict.fromkeys(["boot/vmlinuz-6.1", "boot/vmlinuz-6.3", "boot/vmlinuz-5.2"], ""))
    assert world.system()["installed"] == [
        installed("6.3", "image"),
        installed("6.1", "running", "image"),
        installed("5.2", "image"),
    ]


def test_whatever_follows_the_prefix_is_a_version(world):
    names = ["vmlinuz-", "vmlinuz-linux", "vmlinuz--1", "vmlinuz", "vmlinux-6.1", "avmlinuz-6.1", "vmlinuz_6.1", ".x"]
    world.put(dict.fromkeys([f"boot/{name}" for name in names], ""))
    world.make_folder("boot/vmlinuz-folder")
    assert world.system()["installed"] == [
        installed("-1", "image"),
        installed("linux", "image"),
        installed("folder", "image"),
        installed("", "image"),
    ]


def test_hidden_trees_are_listed(world):
    world.put({"lib/modules/.old/modules.dep": "", "lib/modules/...": ""})
    assert world.system()["installed"] == [installed(".old", "modules"), installed("...", "modules")]


def test_flavours_are_sorted_by_name_descending(world):
    world.put(dict.fromkeys([f"boot/vmlinuz-6.6.8-{name}" for name in ("lts", "zen", "Zen", "hardened")], ""))
    versions = [kernel["version"] for kernel in world.system()["installed"]]
    assert versions == ["6.6.8-zen", "6.6.8-lts", "6.6.8-hardened", "6.6.8-Zen"]


# ---- Loaded modules ----


MODULE_LINES = {
    "five columns": ("heron 16384 2 reed, Live\n", [module("heron", 16384, 2, "reed")]),
    "many columns": ("heron 16384 2 reed, Live 0xf (OE) x\n", [module("heron", 16384, 2, "reed")]),
    "four columns among others": (
        "reed 1 0 - Live\nheron 16384 2 -\nsedge 2 0 - Live\n",
        [module("reed", 1), module("sedge", 2)],
    ),
    "blank lines": ("\n \nreed 1 0 - Live\n\n", [module("reed", 1)]),
    "no last line feed": (
        "heron 1 0 - Live\nreed 2 0 - Loading",
        [module("heron", 1), module("reed", 2, state="Loading")],
    ),
    "hyphen for a count": ("heron 1 - - Live\n", [module("heron", 1)]),
    "words for numbers": ("heron big many - Live\n", [module("heron")]),
    "numbers that end in words": ("heron 12kB 3x - Live\n", [module("heron", 12, 3)]),
    "two users": ("heron 1 2 reed,sedge, Live\n", [module("heron", 1, 2, "reed,sedge")]),
    "commas only": ("heron 1 2 ,, Live\n", [module("heron", 1, 2)]),
    "DOS lines": ("heron 1 2 - Live\r\n", [module("heron", 1, 2)]),
    "tabs": ("heron\t1\t2\t-\tLive\n", [module("heron", 1, 2)]),
    "largest numbers": (
        "heron 18446744073709551615 2147483647 - Live\n",
        [module("heron", 18446744073709551615, 2147483647)],
    ),
    "order by bytes": (
        "".join(f"{name} 1 0 - Live\n" for name in ("heron10", "heron9", "Reed", "heron", "_x", "Heron", "her")),
        [module(name, 1) for name in ("Heron", "Reed", "_x", "her", "heron", "heron10", "heron9")],
    ),
    "no text": (b"h\xe9ron 1 0 \xff, Live\n", [module("h\udce9ron", 1, 0, "\udcff")]),
}


@pytest.mark.parametrize(("content", "modules"), MODULE_LINES.values(), ids=MODULE_LINES.keys())
def test_module_lines(world, content, modules):
    world.put({"proc/modules": content})
    assert world.modules() == {"error": "", "modules": [without_details(mod) for mod in modules]}


def test_lines_of_any_length_and_number(world):
    users = ",".join(f"user_{i}" for i in range(5000))
    lines = [f"heron_{i:05} 4096 0 - Live 0x0\n" for i in range(5000)]
    world.put({"proc/modules": "".join([f"abbot 1 5000 {users}, Live\n", *reversed(lines)])})
    record = world.modules()
    assert record["error"] == ""
    assert record["modules"][0]["used_by"] == users
    assert [mod["name"] for mod in record["modules"][1:]] == [f"heron_{i:05}" for i in range(5000)]


@pytest.mark.parametrize("content", ["", "\n", "heron 1 2 -\nreed\n"], ids=["empty", "blank", "short lines"])
@pytest.mark.parametrize("environment", [{}, SNAP, FLATPAK], ids=["plain", "snap", "flatpak"])
def test_list_without_a_module_is_no_sandboxs_fault(world, environment, content):
    world.environment = environment
    world.put({"proc/modules": content})
    assert world.modules() == {"error": NOTHING_LOADED, "modules": []}


@pytest.mark.parametrize("environment", [{}, SNAP, FLATPAK], ids=["plain", "snap", "flatpak"])
def test_list_that_opens_and_cannot_be_read_is_one_without_a_module(world, environment):
    world.environment = environment
    world.make_folder("proc/modules")
    assert world.modules() == {"error": NOTHING_LOADED, "modules": []}


@pytest.mark.parametrize("closed", ["locked", "missing"])
@pytest.mark.parametrize(
    ("environment", "error"),
    [({}, NOT_OPENED), (SNAP, LOCKED_SNAP), (FLATPAK, NO_FLATPAK), ({**SNAP, **FLATPAK}, LOCKED_SNAP)],
    ids=["plain", "snap", "flatpak", "both"],
)
def test_closed_list_of_modules(world, environment, error, closed):
    world.environment = environment
    if closed == "locked":
        world.put({"proc/modules": "heron 1 0 - Live\n"})
        world.lock("proc/modules")
    assert world.modules() == {"error": error, "modules": []}


# ---- Details ----


def details(world: World, name: str | bytes = "heron") -> dict:
    (record,) = world.dump("details", name)
    return record


def ended_by(ended: subprocess.CompletedProcess) -> int:
    """The signal's number, as bubblewrap passes it on."""
    return ended.returncode - 128


def test_version_of_the_loaded_module_goes_before_that_of_its_file(world):
    world.answer_modinfo("heron", "version: 2\n")
    world.put({"sys/module/heron/version": "1\n"})
    assert details(world)["version"] == "1"
    world.put({"sys/module/heron/version": " \n"})
    assert details(world)["version"] == "2"
    (world.root / "sys/module/heron/version").unlink()
    assert details(world)["version"] == "2"


def test_locked_files_are_empty_and_the_others_are_read(world):
    world.answer_modinfo("heron", "version: 2\nsrcversion: B\n")
    world.put({f"sys/module/heron/{name}": "1\n" for name in ("version", "srcversion", "taint")})
    world.lock("sys/module/heron/version")
    world.lock("sys/module/heron/srcversion")
    record = details(world)
    assert (record["version"], record["srcversion"], record["taint"]) == ("2", "", "1")


def test_module_without_parameters(world):
    world.put({"sys/module/heron/taint": "\n"})
    assert details(world)["parameters"] == []
    world.make_folder("sys/module/heron/parameters")
    assert details(world)["parameters"] == []
    world.put({"sys/module/heron/parameters/wing": "2\n"})
    world.lock("sys/module/heron/parameters")
    assert details(world)["parameters"] == []
    # modinfo is asked even so.
    assert world.modinfo_calls() == ["1:heron"] * 3


def test_parameters_are_sorted_by_their_names(world):
    world.put({f"sys/module/heron/parameters/{name}": f"{name}\n" for name in ("b", "a10", "a9", "B", "_", "a")})
    names = ["B", "_", "a", "a10", "a9", "b"]
    assert details(world)["parameters"] == [[name, name] for name in names]


def test_every_parameter_is_read(world):
    world.put({f"sys/module/heron/parameters/p{i:04}": f"{i}\n" for i in range(1500)})
    assert details(world)["parameters"] == [[f"p{i:04}", str(i)] for i in range(1500)]


@pytest.mark.parametrize(
    ("content", "value"),
    [
        ("Y\n", "Y"),
        (" \t\r\n", "(empty)"),
        ("", "(empty)"),
        ("(null)\n", "(null)"),
        ("\n one\n\ttwo \n\n", "one\n\ttwo"),
        ("\f\n", "\f"),
        (b"\xe9\0\xff\n", "\udce9\0\udcff"),
    ],
)
def test_value_of_a_parameter(world, content, value):
    world.put({"sys/module/heron/parameters/wing": content})
    assert details(world)["parameters"] == [["wing", value]]


def test_locked_parameter_is_write_only(world):
    world.put({"sys/module/heron/parameters/wing": "2\n", "sys/module/heron/parameters/tail": "1\n"})
    world.lock("sys/module/heron/parameters/wing")
    assert details(world)["parameters"] == [["tail", "1"], ["wing", "(write-only)"]]


def test_parameter_that_opens_and_cannot_be_read_ends_the_program(world):
    world.make_folder("sys/module/heron/parameters/wing")
    assert ended_by(world.run("details", "heron")) == signal.SIGABRT


NOT_FOR_A_SHELL = ["heron;reed", "heron reed", "he'ron", 'he"ron', "$HOME", "heron.ko", "h" * 65, b"h\xe9ron"]


@pytest.mark.parametrize("name", NOT_FOR_A_SHELL)
def test_name_that_is_not_for_a_shell_still_has_its_files(world, name):
    folder = name if isinstance(name, str) else name.decode(errors="surrogateescape")
    world.put({f"sys/module/{folder}/{file}": "1\n" for file in ("version", "srcversion", "taint", "parameters/wing")})
    expected = module(folder, state="", version="1", srcversion="1", taint="1", parameters=[["wing", "1"]])
    assert details(world, name) == expected
    assert world.modinfo_calls() == []


def test_name_of_64_bytes_and_one_with_a_leading_hyphen_are_for_a_shell(world):
    world.dump("details", "h" * 64, "--help")
    assert world.modinfo_calls() == ["1:" + "h" * 64, "1:--help"]


def test_missing_modinfo(world):
    (world.tools / "modinfo").unlink()
    world.environment["PATH"] = str(world.tools)
    world.put({"sys/module/heron/taint": "O\n"})
    assert details(world) == module("heron", state="", taint="O")


# ---- Processes ----


def test_info_and_list_start_no_process(world):
    """The kernel kills the program at its first attempt to start one."""
    lines = "".join(f"heron_{i:03} 4096 0 - Live 0x0\n" for i in range(300))
    world.put({**MACHINES["plain"].files, "proc/modules": lines})
    info, modules = world.dump("alone", "system", "modules")
    assert info["distro"] == MACHINES["plain"].system["distro"]
    assert len(modules["modules"]) == 300
    assert world.modinfo_calls() == []


def test_details_start_a_process(world):
    world.put({"proc/modules": "heron 1 0 - Live\n"})
    ended = world.run("alone", "details")
    assert ended.stdout == b""
    assert ended_by(ended) == signal.SIGSYS
    assert world.modinfo_calls() == []
