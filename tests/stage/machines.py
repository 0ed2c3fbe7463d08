# SPDX-License-Identifier: MIT
"""Machines of all kinds, each with what the program is to know of it: a plain one, in the sandboxes, and where nothing
can be read. Each is a table, since most of a tree of files would be names alone."""

from collections.abc import Mapping, Sequence
from dataclasses import dataclass, field

LOCKED_SNAP = (
    "Module list locked by the sandbox\n"
    "Reading /proc/modules needs the system-observe permission, which is not connected yet. Run the command at the "
    "bottom of this window, then open it again."
)
NO_FLATPAK = (
    "Module list not available\n"
    "The Flatpak sandbox does not grant access to /proc/modules. Use the Snap, .deb or .rpm build if you need this "
    "view."
)
NOT_OPENED = (
    "No modules could be read\n"
    "/proc/modules could not be opened. This kernel may have been built without loadable module support."
)
NOTHING_LOADED = (
    "No modules loaded\n"
    "This kernel appears to be fully built-in — everything it needs is compiled into the image rather than loaded at "
    "runtime."
)

SNAP_BASE = "sandbox base — run: snap connect veldrin:system-observe"
FLATPAK_BASE = "sandbox base — host details not available"

NO_KERNELS = "/boot and /lib/modules are not readable."
NO_KERNELS_IN_SNAP = "/boot and /lib/modules are not readable in the sandbox."
TREES_ALONE = "/boot is not readable — the list shows module trees from /lib/modules."
TREES_ALONE_IN_SNAP = (
    "/boot is not readable in the sandbox — the list shows module trees from /lib/modules, which can outlive their "
    "kernel image."
)


@dataclass(frozen=True)
class Machine:
    files: Mapping[str, str]
    system: dict
    error: str = ""
    modules: Sequence[dict] = ()  # with their details
    kernel: str = ""  # release, machine, host name; if empty, the kernel does not tell them
    environment: Mapping[str, str] = field(default_factory=dict)
    modinfo: Mapping[str, str] = field(default_factory=dict)  # what it prints of each module
    locked: Sequence[str] = ()
    empty_folders: Sequence[str] = ()


def system(**known: object) -> dict:
    """A whole record, in which everything else is empty."""
    texts = (
        "running_kernel arch hostname build_user compiler build_date kernel_flags distro distro_note uptime cmdline "
        "installed_note"
    )
    return dict.fromkeys(texts.split(), "") | {"installed": []} | known


def installed(version: str, *seen: str) -> dict:
    return {
        "version": version,
        "running": "running" in seen,
        "has_image": "image" in seen,
        "has_modules": "modules" in seen,
    }


DETAILS = {
    **dict.fromkeys(("version", "srcversion", "taint", "description", "author", "license", "filename"), ""),
    "parameters": [],
}


def module(name: str, size: int = 0, refcount: int = 0, used_by: str = "", state: str = "Live", **details) -> dict:
    columns = {"name": name, "size": size, "refcount": refcount, "used_by": used_by, "state": state}
    return {**columns, "details_loaded": True, **DETAILS, **details}


def without_details(record: dict) -> dict:
    return {**record, "details_loaded": False, **DETAILS}


SNAP = {"SNAP": "/snap/veldrin/31", "SNAP_NAME": "veldrin", "SNAP_INSTANCE_NAME": "veldrin"}
FLATPAK = {"FLATPAK_ID": "org.veldrin.Veldrin"}
FLATPAK_MARK = {".flatpak-info": "[Application]\nname=org.veldrin.Veldrin\n"}

SNAP_HOST = "var/lib/snapd/hostfs/etc/os-release"
FLATPAK_HOST = "run/host/os-release"

PLAIN = Machine(
    kernel="6.11.4-200.kestrel.x86_64 x86_64 reedbed",
    files={
        "proc/version": (
            "Linux version 6.11.4-200.kestrel.x86_64 (warbler@build-7.marsh.example) (gcc (Kestrel 14.2.1-3) 14.2.1, "
            "GNU ld version 2.43-2.kestrel) #1 SMP PREEMPT_DYNAMIC Thu Oct 17 08:12:40 UTC 2024\n"
        ),
        "proc/uptime": "277395.71 1041233.08\n",
        "proc/cmdline": "BOOT_IMAGE=/vmlinuz-6.11.4-200.kestrel.x86_64 root=/dev/mapper/reed ro  quiet\n",
        "proc/modules": (
            "heron 24576 0 - Live 0x0000000000000000 (OE)\n"
            "reed_core 131072 3 heron,reed_usb, Live 0x0000000000000000\n"
            "reed_usb 45056 0 [permanent], Live 0x0000000000000000\n"
            "Bittern 16384 0 - Unloading 0x0000000000000000\n"
        ),
        "sys/module/heron/version": "2.4-marsh\n",
        "sys/module/heron/srcversion": "7C0FFEE5A11AD0F1E57A7E5\n",
        "sys/module/heron/taint": "OE\n",
        "sys/module/heron/refcnt": "0\n",
        "sys/module/heron/parameters/wingspan": "180\n",
        "sys/module/heron/parameters/Depth": "  first\nsecond  \n",
        "sys/module/heron/parameters/nickname": " \n\n",
        "sys/module/heron/parameters/secret": "never shown\n",
        "sys/module/heron/parameters/.hidden": "Y\n",
        "sys/module/reed_core/version": "\n",
        "sys/module/reed_core/srcversion": "",
        "boot/vmlinuz-6.11.4-200.kestrel.x86_64": "",
        "boot/vmlinuz-6.9.12-100.kestrel.x86_64": "",
        "boot/vmlinuz-6.9.12-100.kestrel.x86_64.old": "",
        "boot/vmlinuz-0-rescue-51ab": "",
        "boot/vmlinuz-": "",
        "boot/vmlinuz": "",
        "boot/initrd.img-6.11.4-200.kestrel.x86_64": "",
        "boot/old-vmlinuz-6.0": "",
        "boot/Vmlinuz-6.0": "",
        "lib/modules/6.11.4-200.kestrel.x86_64/modules.dep": "",
        "lib/modules/6.9.12-100.kestrel.x86_64/modules.dep": "",
        "lib/modules/6.9.2-100.kestrel.x86_64/modules.dep": "",
        "lib/modules/README": "",
        "etc/os-release": 'NAME="Kestrel Linux"\nID=kestrel\nPRETTY_NAME="Kestrel Linux 41 (Café Edition)"\n',
        # Nobody may ask these outside a sandbox.
        SNAP_HOST: 'PRETTY_NAME="A Snap\'s host"\n',
        FLATPAK_HOST: 'PRETTY_NAME="A Flatpak\'s host"\n',
    },
    locked=["sys/module/heron/parameters/secret"],
    modinfo={
        "heron": (
            "filename:       /lib/modules/6.11.4-200.kestrel.x86_64/extra/heron.ko.zst\n"
            "version:        2.3-of-the-file\n"
            "license:        GPL v2\n"
            "author:         \n"
            "author:         Reed Warbler <reed@marsh.example>\n"
            "author:         Sedge Wren <sedge@marsh.example>\n"
            "description:    Heron: stands in the marsh\n"
            "srcversion:     OTHER\n"
            "depends:        reed_core\n"
            "parm:           wingspan:in centimetres (int)\n"
        ),
        "reed_core": "license:        GPL\nversion:        1.0.9\n",
    },
    system=system(
        running_kernel="6.11.4-200.kestrel.x86_64",
        arch="x86_64",
        hostname="reedbed",
        build_user="warbler@build-7.marsh.example",
        compiler="gcc (Kestrel 14.2.1-3) 14.2.1",
        build_date="Thu Oct 17 08:12:40 UTC 2024",
        kernel_flags="#1 SMP PREEMPT_DYNAMIC",
        distro="Kestrel Linux 41 (Café Edition)",
        uptime="3 days, 5 h 3 min",
        cmdline="BOOT_IMAGE=/vmlinuz-6.11.4-200.kestrel.x86_64 root=/dev/mapper/reed ro  quiet",
        installed=[
            installed("6.11.4-200.kestrel.x86_64", "running", "image", "modules"),
            installed("6.9.12-100.kestrel.x86_64.old", "image"),
            installed("6.9.12-100.kestrel.x86_64", "image", "modules"),
            installed("6.9.2-100.kestrel.x86_64", "modules"),
            installed("0-rescue-51ab", "image"),
            installed("README", "modules"),
            installed("", "image"),
        ],
    ),
    modules=[
        module("Bittern", 16384, state="Unloading"),
        module(
            "heron",
            24576,
            version="2.4-marsh",
            srcversion="7C0FFEE5A11AD0F1E57A7E5",
            taint="OE",
            description="Heron: stands in the marsh",
            author="Reed Warbler <reed@marsh.example>",
            license="GPL v2",
            filename="/lib/modules/6.11.4-200.kestrel.x86_64/extra/heron.ko.zst",
            parameters=[
                [".hidden", "Y"],
                ["Depth", "first\nsecond"],
                ["nickname", "(empty)"],
                ["secret", "(write-only)"],
                ["wingspan", "180"],
            ],
        ),
        module("reed_core", 131072, 3, "heron,reed_usb", version="1.0.9", license="GPL"),
        module("reed_usb", 45056, 0, "[permanent]"),
    ],
)

# The machine on which the sandboxes below are, and what is known of it in each of them.
FEN = "6.8.0-61-fen x86_64 fenland"
FEN_PROC = {
    "proc/version": (
        "Linux version 6.8.0-61-fen (pipit@fen-03) (x86_64-linux-gnu-gcc-13 (Fen 13.2.0-4) 13.2.0, GNU ld (GNU "
        "Binutils for Fen) 2.42) #63-Fen SMP PREEMPT_DYNAMIC Tue Jun 10 10:15:22 UTC 2025\n"
    ),
    "proc/uptime": "4980.00 9000.00\n",
    "proc/cmdline": "root=LABEL=fen ro splash\n",
}
FEN_KERNEL = {"running_kernel": "6.8.0-61-fen", "arch": "x86_64", "hostname": "fenland"}
FEN_KNOWN = {
    **FEN_KERNEL,
    "build_user": "pipit@fen-03",
    "compiler": "x86_64-linux-gnu-gcc-13 (Fen 13.2.0-4) 13.2.0",
    "build_date": "Tue Jun 10 10:15:22 UTC 2025",
    "kernel_flags": "#63-Fen SMP PREEMPT_DYNAMIC",
    "uptime": "1 h 23 min",
    "cmdline": "root=LABEL=fen ro splash",
}
SEDGE = "sedge 20480 1 - Live 0x0000000000000000\n"

MACHINES = {
    "plain": PLAIN,
    "snap with its plug": Machine(
        kernel=FEN,
        environment=SNAP,
        files={
            **FEN_PROC,
            "proc/modules": SEDGE,
            "sys/module/sedge/parameters/height": "40\n",
            "boot/vmlinuz-6.8.0-61-fen": "",
            "lib/modules/6.8.0-61-fen/modules.dep": "",
            "lib/modules/6.8.0-58-fen/modules.dep": "",
            "etc/os-release": 'PRETTY_NAME="Fen Core 24"\n',
            SNAP_HOST: 'PRETTY_NAME="Fen 24.04.2 LTS"\nNAME=Fen\n',
            FLATPAK_HOST: 'PRETTY_NAME="A Flatpak\'s host"\n',
        },
        locked=["boot"],
        system=system(
            **FEN_KNOWN,
            distro="Fen 24.04.2 LTS",
            installed=[installed("6.8.0-61-fen", "running", "modules"), installed("6.8.0-58-fen", "modules")],
            installed_note=TREES_ALONE_IN_SNAP,
        ),
        modules=[module("sedge", 20480, 1, parameters=[["height", "40"]])],
    ),
    # The note names the package, whatever the instance is called.
    "snap without its plug": Machine(
        kernel=FEN,
        environment={**SNAP, "SNAP_NAME": "kestrel", "SNAP_INSTANCE_NAME": "kestrel_two"},
        files={
            **FEN_PROC,
            "proc/modules": SEDGE,
            "boot/vmlinuz-6.8.0-61-fen": "",
            "lib/modules/6.8.0-61-fen/modules.dep": "",
            "etc/os-release": 'PRETTY_NAME="Fen Core 24"\n',
            SNAP_HOST: 'PRETTY_NAME="Fen 24.04.2 LTS"\n',
        },
        locked=["proc/modules", "boot", "lib/modules", "var/lib/snapd/hostfs"],
        system=system(**FEN_KNOWN, distro="Fen Core 24", distro_note=SNAP_BASE, installed_note=NO_KERNELS_IN_SNAP),
        error=LOCKED_SNAP,
    ),
    "snap with an empty host file": Machine(
        kernel=FEN,
        environment=SNAP,
        files={**FEN_PROC, "proc/modules": "", "etc/os-release": "PRETTY_NAME=Fen Core 24", SNAP_HOST: ""},
        empty_folders=["boot"],
        system=system(**FEN_KNOWN, distro="Fen Core 24", distro_note=SNAP_BASE),
        error=NOTHING_LOADED,
    ),
    "snap with a nameless host": Machine(
        kernel=FEN,
        environment=SNAP,
        files={**FEN_PROC, SNAP_HOST: 'PRETTY_NAME=""\n', FLATPAK_HOST: 'PRETTY_NAME="A Flatpak\'s host"\n'},
        empty_folders=["lib/modules"],
        system=system(**FEN_KNOWN, distro_note=SNAP_BASE, installed_note=TREES_ALONE_IN_SNAP),
        error=LOCKED_SNAP,
    ),
    "flatpak": Machine(
        kernel=FEN,
        environment=FLATPAK,
        files={
            **FEN_PROC,
            "proc/modules": SEDGE,
            "lib/modules/6.8.0-61-fen/modules.dep": "",
            "etc/os-release": 'PRETTY_NAME="Flat Platform 24.08"\n',
            FLATPAK_HOST: 'PRETTY_NAME="Fen 24.04.2 LTS"\n',
            SNAP_HOST: 'PRETTY_NAME="A Snap\'s host"\n',
        },
        locked=["proc/modules"],
        system=system(
            **FEN_KNOWN,
            distro="Fen 24.04.2 LTS",
            installed=[installed("6.8.0-61-fen", "running", "modules")],
            installed_note=TREES_ALONE,
        ),
        error=NO_FLATPAK,
    ),
    "flatpak by its file, without a host file": Machine(
        kernel=FEN,
        files={
            **FEN_PROC,
            **FLATPAK_MARK,
            "etc/os-release": 'PRETTY_NAME="Flat Platform 24.08"\n',
            SNAP_HOST: 'PRETTY_NAME="A Snap\'s host"\n',
        },
        system=system(**FEN_KNOWN, distro="Flat Platform 24.08", distro_note=FLATPAK_BASE, installed_note=NO_KERNELS),
        error=NO_FLATPAK,
    ),
    "flatpak by its file, which is locked": Machine(
        kernel=FEN,
        files={**FEN_PROC, **FLATPAK_MARK, FLATPAK_HOST: "PRETTY_NAME=Fen"},
        locked=[".flatpak-info"],
        system=system(**FEN_KNOWN, distro="Fen", installed_note=NO_KERNELS),
        error=NO_FLATPAK,
    ),
    "flatpak with an empty host file, and with modules": Machine(
        kernel=FEN,
        environment=FLATPAK,
        files={
            **FEN_PROC,
            "proc/modules": SEDGE,
            "boot/vmlinuz-6.8.0-61-fen": "",
            "etc/os-release": 'PRETTY_NAME="Flat Platform 24.08"\n',
            FLATPAK_HOST: "",
        },
        system=system(
            **FEN_KNOWN,
            distro="Flat Platform 24.08",
            distro_note=FLATPAK_BASE,
            installed=[installed("6.8.0-61-fen", "running", "image")],
        ),
        modules=[module("sedge", 20480, 1)],
    ),
    "flatpak with a locked host file": Machine(
        kernel=FEN,
        environment=FLATPAK,
        files={**FEN_PROC, "etc/os-release": "PRETTY_NAME=Flat", FLATPAK_HOST: "PRETTY_NAME=Fen"},
        locked=[FLATPAK_HOST],
        system=system(**FEN_KNOWN, distro="Flat", distro_note=FLATPAK_BASE, installed_note=NO_KERNELS),
        error=NO_FLATPAK,
    ),
    "flatpak with a nameless host": Machine(
        kernel=FEN,
        environment={"FLATPAK_ID": ""},
        files={
            **FEN_PROC,
            "proc/modules": "",
            "etc/os-release": "NAME=Flat\n",
            FLATPAK_HOST: 'NAME=Fen\nPRETTY_NAME=""\nPRETTY_NAME="Fen 24.04.2 LTS"\n',
        },
        empty_folders=["boot", "lib/modules"],
        system=system(**FEN_KNOWN, distro_note=FLATPAK_BASE),
        error=NOTHING_LOADED,
    ),
    # A Snap's words and a Snap's way to the host.
    "snap and flatpak at once": Machine(
        kernel=FEN,
        environment={"SNAP": "", **FLATPAK},
        files={
            **FEN_PROC,
            **FLATPAK_MARK,
            "lib/modules/6.8.0-61-fen/modules.dep": "",
            "etc/os-release": 'PRETTY_NAME="Fen Core 24"\n',
            FLATPAK_HOST: 'PRETTY_NAME="A Flatpak\'s host"\n',
        },
        system=system(
            **FEN_KNOWN,
            distro="Fen Core 24",
            distro_note=SNAP_BASE,
            installed=[installed("6.8.0-61-fen", "running", "modules")],
            installed_note=TREES_ALONE_IN_SNAP,
        ),
        error=LOCKED_SNAP,
    ),
    "everything locked": Machine(
        kernel=FEN,
        files={
            **FEN_PROC,
            "proc/modules": SEDGE,
            "boot/vmlinuz-6.8.0-61-fen": "",
            "lib/modules/6.8.0-61-fen/modules.dep": "",
            "etc/os-release": 'PRETTY_NAME="Fen 24.04.2 LTS"\n',
        },
        locked=[*FEN_PROC, "proc/modules", "boot", "lib/modules", "etc/os-release"],
        system=system(**FEN_KERNEL, installed_note=NO_KERNELS),
        error=NOT_OPENED,
    ),
    "everything empty": Machine(
        kernel=FEN,
        files=dict.fromkeys([*FEN_PROC, "proc/modules", "etc/os-release"], ""),
        empty_folders=["boot", "lib/modules"],
        system=system(**FEN_KERNEL),
        error=NOTHING_LOADED,
    ),
    "nothing there at all": Machine(files={}, system=system(installed_note=NO_KERNELS), error=NOT_OPENED),
    "a kernel that tells no names": Machine(
        files={
            **FEN_PROC,
            "proc/modules": SEDGE,
            "boot/vmlinuz-6.8.0-61-fen": "",
            "etc/os-release": "PRETTY_NAME=Fen\n",
        },
        system=system(
            **{**FEN_KNOWN, **dict.fromkeys(FEN_KERNEL, "")},
            distro="Fen",
            installed=[installed("6.8.0-61-fen", "image")],
        ),
        modules=[module("sedge", 20480, 1)],
    ),
}
