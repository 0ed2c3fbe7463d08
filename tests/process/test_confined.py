# SPDX-License-Identifier: MIT
"""The applet in worlds that are laid out as a Flatpak and a Snap lay theirs out: the panel outside finds its icons, and
what it has saved is there at its next start. The recipes of the packages say what a world shares with the machine."""

import shutil
import signal
import tempfile
from collections.abc import Iterator, Sequence
from pathlib import Path

import pytest
import yaml
from stage.applet import Applet, Machine
from stage.project import ROOT
from stage.tools import page
from stage.user import state_text
from stage.world import other_world
from PIL import Image

FLATPAK = yaml.safe_load((ROOT / "packaging/flatpak/org.veldrin.Veldrin.yml").read_text())
SNAP = yaml.safe_load((ROOT / "packaging/snap/snapcraft.yaml").read_text())

RED, GREEN, WHITE = (220, 60, 60), (60, 180, 60), (240, 240, 240)


class World:
    """A world in which the user's home and runtime folder are empty but for what is given to it."""

    def __init__(self, machine: Machine, environment: dict[str, str]) -> None:
        self.machine = machine
        self.environment = environment
        self.files: dict[str, str] = {}  # in its root, with their contents
        self.missing: list[Path] = []  # of the root's folders
        self._layout: list[str | Path] = ["--unshare-pid", "--tmpfs", machine.home, "--tmpfs", machine.runtime]

    def give(self, folder: Path, place: Path) -> None:
        """Puts a folder of the machine, made if need be, to a place in the world."""
        folder.mkdir(parents=True, exist_ok=True)
        self._layout += ["--bind", folder, place]

    def hide(self, hidden: Path) -> None:
        """Leaves something out: the folder in which it lies is made anew of all else that is in it."""
        if not hidden.exists():
            return
        if hidden.parent == Path("/"):
            self.missing.append(hidden)
            return
        self._layout += ["--tmpfs", hidden.parent]
        for entry in sorted(hidden.parent.iterdir()):
            if entry.is_symlink():
                self._layout += ["--symlink", entry.readlink(), entry]
            elif entry != hidden:
                self._layout += ["--ro-bind", entry, entry]

    def start(self) -> Applet:
        root = Path(tempfile.mkdtemp(prefix="root-", dir=self.machine.folder))
        for name, contents in self.files.items():
            (root / name).write_text(contents)
        around = other_world(root, self.machine.folder)
        for folder in self.missing:
            bound = around.index(folder)
            assert around[bound - 1 : bound + 2] == ["--ro-bind", folder, folder]
            del around[bound - 1 : bound + 2]
        return self.machine.start(around=[*around[:-1], *self._layout, around[-1]], environment=self.environment)


def flatpak(machine: Machine, permissions: Sequence[str]) -> World:
    own = machine.home / ".var" / "app" / FLATPAK["id"]
    environment = {"FLATPAK_ID": FLATPAK["id"]}
    for variable, name in (("CONFIG", "config"), ("CACHE", "cache"), ("DATA", "data")):
        environment[f"XDG_{variable}_HOME"] = str(own / name)
    world = World(machine, environment)
    world.files[".flatpak-info"] = f"[Application]\nname={FLATPAK['id']}\n"
    for hidden in ("/boot", "/sys/module", "/usr/lib/modules"):
        world.hide(Path(hidden))
    world.give(machine.runtime / ".flatpak" / FLATPAK["id"] / "xdg-run", machine.runtime)
    for name in ("config", "cache", "data"):
        world.give(own / name, own / name)
    for permission in permissions:
        option, _, value = permission.partition("=")
        if option == "--persist":
            world.give(own / value, machine.home / value)
        elif option == "--filesystem":
            place, _, mode = value.partition(":")
            name = place.removeprefix("xdg-run/")
            assert (place, mode) == (f"xdg-run/{name}", "create"), f"no world for {permission} yet"
            # The runtime folder has the same path inside and outside.
            world.give(machine.runtime / name, machine.runtime / name)
    return world


def without(option: str) -> list[str]:
    return [permission for permission in FLATPAK["finish-args"] if not permission.startswith(option)]


def snap(machine: Machine, revision: str = "x1") -> World:
    name = SNAP["name"]
    data = machine.home / "snap" / name / revision
    runtime = machine.runtime / f"snap.{name}"
    environment = {
        "SNAP": f"/snap/{name}/{revision}",
        "SNAP_NAME": name,
        "SNAP_INSTANCE_NAME": name,
        "SNAP_REVISION": revision,
        "SNAP_USER_DATA": str(data),
        "HOME": str(data),
        "XDG_RUNTIME_DIR": str(runtime),
        "XDG_CONFIG_HOME": str(data / ".config"),
        "XDG_CACHE_HOME": str(data / ".cache"),
        "XDG_DATA_HOME": str(data / ".local" / "share"),
    }
    world = World(machine, environment)
    world.give(data, data)
    world.give(runtime, runtime)
    return world


@pytest.fixture(name="machine")
def machine_with_a_runtime_folder_outside_tmp(machine: Machine) -> Iterator[Machine]:
    # In a Snap the indicator library looks at the paths that it is given, and takes none below /tmp for the panel's.
    with tempfile.TemporaryDirectory(prefix="veldrin-run-", dir="/var/tmp") as folder:
        machine.runtime = Path(folder)
        machine.environment["XDG_RUNTIME_DIR"] = folder
        yield machine


@pytest.fixture(name="confined", params=["flatpak", "snap"])
def confined_world(request: pytest.FixtureRequest, machine: Machine) -> World:
    return flatpak(machine, FLATPAK["finish-args"]) if request.param == "flatpak" else snap(machine)


def shown_colour(applet: Applet) -> tuple[int, ...]:
    """The colour of the icon that the panel shows: it opens the file by the path that it was given, out here."""
    with Image.open(applet.item.icon_path) as picture:
        assert (picture.format, picture.size) == ("PNG", (22, 22))
        return picture.convert("RGB").getpixel((0, 0))


def test_the_panel_outside_reads_each_icon_by_the_path_that_it_gets(confined):
    applet = confined.start()
    assert shown_colour(applet) == RED
    confined.machine.tools.publish(page(stable="7.2.4"))
    applet.check()
    assert shown_colour(applet) == GREEN
    applet.item.menu.click("Acknowledge Update")
    applet.settle()
    assert shown_colour(applet) == WHITE


def test_what_was_saved_is_there_at_the_next_start(confined):
    first = confined.start()
    confined.machine.tools.publish(page(mainline="7.3-rc2", stable="7.2.4", longterm="6.18.31"))
    first.check()
    first.item.menu.click("Acknowledge Update")
    first.settle()
    assert first.quit() == 0
    second = confined.start()
    assert second.item.label == "7.2.4"
    assert shown_colour(second) == WHITE


def test_nothing_of_it_lies_where_an_unconfined_applet_keeps_its_own(confined):
    applet = confined.start()
    confined.machine.tools.publish(page(stable="7.2.4"))
    applet.check()
    assert not confined.machine.state_file.exists()
    assert list((confined.machine.home / ".config").iterdir()) == []


def test_the_saved_state_of_a_flatpak_lies_in_its_own_folder(machine):
    applet = flatpak(machine, FLATPAK["finish-args"]).start()
    machine.tools.publish(page(stable="7.2.4"))
    applet.check()
    saved = machine.home / ".var" / "app" / FLATPAK["id"] / ".config" / "VeldrinWatch" / "app_state.json"
    assert saved.read_text() == state_text(latest_kernel="7.2.4", stable="7.2.4")


def test_a_flatpak_sees_nothing_of_the_kernels_files_but_the_list_of_modules(machine):
    applet = flatpak(machine, FLATPAK["finish-args"]).start()
    inside = Path(f"/proc/{applet.pid}/root")
    assert not any((inside / name).exists() for name in ("boot", "sys/module", "usr/lib/modules"))
    # Nothing hides this one, where the kernel has it.
    assert (inside / "proc/modules").exists() == Path("/proc/modules").exists()


def test_the_crash_report_of_a_flatpak_is_kept_where_readme_says(machine):
    applet = flatpak(machine, FLATPAK["finish-args"]).start()
    applet.expected_stderr = ".*"  # the dialog's, which is another test's
    applet.send(signal.SIGSEGV)
    applet.exit_status()
    folder = ".flatpak/org.veldrin.Veldrin/xdg-run/"
    assert f"`$XDG_RUNTIME_DIR/{folder}`" in (ROOT / "README.md").read_text()
    assert (machine.runtime / folder / "Veldrin_crash.txt").read_text() != ""


def test_the_saved_state_of_a_snap_lies_in_the_data_of_its_revision(machine):
    applet = snap(machine).start()
    machine.tools.publish(page(stable="7.2.4"))
    applet.check()
    saved = machine.home / "snap" / SNAP["name"] / "x1" / "app_state.json"
    assert saved.read_text() == state_text(latest_kernel="7.2.4", stable="7.2.4")


def test_a_refreshed_snap_goes_on_with_the_copied_data(machine):
    first = snap(machine).start()
    machine.tools.publish(page(stable="7.2.4"))
    first.check()
    assert first.quit() == 0
    data = machine.home / "snap" / SNAP["name"]
    shutil.copytree(data / "x1", data / "x2")
    second = snap(machine, "x2").start()
    assert second.item.label == "7.2.4"


# What each permission of the Flatpak is there for: these fail where the world lets through what it should not.


def test_a_flatpak_that_keeps_no_configuration_folder_forgets(machine):
    world = flatpak(machine, without("--persist"))
    first = world.start()
    machine.tools.publish(page(stable="7.2.4"))
    first.check()
    assert first.item.label == "7.2.4"
    assert first.quit() == 0
    assert world.start().item.label == ""


def test_the_panel_finds_no_icon_of_a_flatpak_that_shares_no_folder_for_them(machine):
    applet = flatpak(machine, without("--filesystem")).start()
    assert not Path(applet.item.icon_path).exists()
