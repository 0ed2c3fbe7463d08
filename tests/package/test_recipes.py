# SPDX-License-Identifier: MIT
"""The recipes of the Snap and the Flatpak: they follow their formats' rules, and ask for what the applet needs."""

import copy
import re
import subprocess
from pathlib import Path
from typing import Any

import pytest
import yaml
from recipes import flatpak_faults, snap_faults

ROOT = Path(__file__).resolve().parents[2]
SNAP_FILE = ROOT / "packaging/snap/snapcraft.yaml"
FLATPAK_FILE = ROOT / "packaging/flatpak/org.veldrin.Veldrin.yml"
INSTALLED = (Path(__file__).parent / "files").read_text().split()


@pytest.fixture(name="snap")
def snap_recipe() -> dict[str, Any]:
    return yaml.safe_load(SNAP_FILE.read_text())


@pytest.fixture(name="flatpak")
def flatpak_manifest() -> dict[str, Any]:
    return yaml.safe_load(FLATPAK_FILE.read_text())


def test_the_snap_follows_its_rules(snap):
    assert snap_faults(snap, ROOT) == []


def test_the_flatpak_follows_its_rules(flatpak):
    assert flatpak_faults(flatpak, FLATPAK_FILE.parent) == []


def set_key(*path, value):
    def change(recipe):
        for key in path[:-1]:
            recipe = recipe[key]
        recipe[path[-1]] = value

    return change


def drop(*path):
    def change(recipe):
        for key in path[:-1]:
            recipe = recipe[key]
        del recipe[path[-1]]

    return change


def module(recipe: dict[str, Any], name: str) -> dict[str, Any]:
    (found,) = (module for module in recipe["modules"] if isinstance(module, dict) and module["name"] == name)
    return found


@pytest.mark.parametrize(
    ("change", "complaint"),
    [
        (set_key("colour", value="red"), "snap: no such key: colour"),
        (drop("platforms"), "snap: no platforms"),
        (set_key("name", value="Veldrin"), "snap: not a name for a Snap"),
        (set_key("version", value=1.3), "snap: not a text of at most 32 characters as version"),
        (set_key("summary", value="s" * 79), "snap: summary of more than 78 characters"),
        (set_key("base", value="core18"), "snap: another base than these rules are for"),
        (set_key("grade", value="best"), "snap: grade"),
        (set_key("confinement", value="loose"), "snap: confinement"),
        (set_key("icon", value="art/none.svg"), "snap: no such icon"),
        (set_key("apps", "veldrin", "comand", value="x"), "veldrin: no such key: comand"),
        (
            set_key("apps", "veldrin", "command", value="/usr/bin/veldrin"),
            "veldrin: the command is no path below the Snap",
        ),
        (set_key("apps", "veldrin", "plugs", value=["netwrok"]), "veldrin: no such plug: netwrok"),
        (set_key("apps", "veldrin", "plugs", value=["x11"]), "veldrin: the extension gnome brings the plug x11"),
        (set_key("apps", "veldrin", "extensions", value=["gnome-3"]), "veldrin: no such extension: gnome-3"),
        (set_key("apps", "veldrin", "autostart", value="yes"), "veldrin: autostart is no name of a desktop entry"),
        (drop("parts", "autostart", "organize"), "veldrin: no part brings bin/autostart-once"),
        (set_key("parts", "veldrin", "plugin", value="cmak"), "veldrin: no such plugin: cmak"),
        (set_key("parts", "veldrin", "configflags", value=[]), "veldrin: no such key: configflags"),
        (drop("parts", "veldrin", "source"), "veldrin: no source"),
        (set_key("parts", "autostart", "source", value="snap/local"), "autostart: no such source: snap/local"),
        (set_key("parts", "veldrin", "after", value=["x"]), "veldrin: comes after a part that there is not: x"),
        (set_key("parts", "autostart", "organize", "gone", value="bin/gone"), "autostart: no such file: gone"),
    ],
)
def test_each_rule_of_the_snap_finds_its_fault(snap, change, complaint):
    change(snap)
    assert complaint in snap_faults(snap, ROOT)


@pytest.mark.parametrize(
    ("change", "complaint"),
    [
        (set_key("colour", value="red"), "manifest: no such key: colour"),
        (set_key("id", value="veldrin"), "manifest: not an id"),
        (set_key("runtime-version", value=48), "manifest: no text as runtime-version"),
        (set_key("finish-args", value=["--socket=waylnd"]), "manifest: not a permission: --socket=waylnd"),
        (set_key("finish-args", value=["--persist=.config/x"]), "manifest: not a permission: --persist=.config/x"),
        (lambda m: m["modules"].append(copy.deepcopy(m["modules"][1])), "manifest: several modules are called wget"),
        (lambda m: m["modules"].append("libayatana-appindicator-gtk3.json"),
         "manifest: no shared module: libayatana-appindicator-gtk3.json"),
        (lambda m: m["modules"].append({"sources": []}), "a module without a name"),
        (lambda m: module(m, "wget").update(configopts=[]), "wget: no such key: configopts"),
        (lambda m: module(m, "wget").update(buildsystem="make"), "wget: no such build system"),
        (lambda m: module(m, "wget").update(buildsystem="simple"), "wget: nothing says how to build it"),
        (lambda m: module(m, "wget").pop("sources"), "wget: no sources"),
        (lambda m: module(m, "wget")["sources"][0].update(type="tar"), "wget: no such kind of source: tar"),
        (lambda m: module(m, "wget")["sources"][0].update(sha1="00"), "wget: no such key: sha1"),
        (lambda m: module(m, "wget")["sources"][0].update(url="http://ftp.gnu.org/"),
         "wget: a source from an address that is not https"),
        (lambda m: module(m, "veldrin")["sources"][0].update(path="../nowhere"), "veldrin: no such path"),
        (lambda m: module(m, "wget")["sources"][0].pop("url"), "wget: a source from nowhere"),
        (lambda m: module(m, "wget")["sources"][0].update(sha256="5726"), "wget: not a checksum"),
        (lambda m: module(m, "wget")["sources"][0].pop("sha256"), "wget: no sha256 pins the source"),
        (lambda m: module(m, "wget")["sources"][0].pop("x-checker-data"),
         "wget: nothing looks for newer versions of the source"),
        (lambda m: module(m, "wget")["sources"][0]["x-checker-data"].pop("version-pattern"),
         "wget: nothing looks for newer versions of the source"),
        (lambda m: module(m, "wget").update(sources=[{"type": "git", "url": "https://x", "commit": "v30"}]),
         "wget: not a commit"),
        (lambda m: module(m, "wget").update(sources=[{"type": "git", "url": "https://x"}]),
         "wget: neither a commit nor a tag"),
        (lambda m: module(m, "autostart-once")["sources"][0].update(path="gone"), "autostart-once: no such file"),
    ],
)  # fmt: skip
def test_each_rule_of_the_flatpak_finds_its_fault(flatpak, change, complaint):
    change(flatpak)
    assert complaint in flatpak_faults(flatpak, FLATPAK_FILE.parent)


# ---- What the applet needs of them ----


def test_the_snap_asks_for_what_the_applet_needs_and_no_more(snap):
    app = snap["apps"]["veldrin"]
    # The indicator reaches the panel by desktop-legacy, which the extension brings with all that a window needs.
    assert app["extensions"] == ["gnome"]
    given_by_the_user = ["system-observe", "kernel-module-observe"]
    assert app["plugs"] == ["network", *given_by_the_user]
    # The commands that users are told name the Snap and the plug.
    for plug in given_by_the_user:
        assert f"sudo snap connect veldrin:{plug}\n" in snap["description"]


def test_the_snap_leaves_out_what_the_extension_brings_and_nothing_else(snap, tmp_path):
    brought, prime = tmp_path / "snap/gnome-46-2404/current", tmp_path / "prime"
    twice = ["usr/lib/x86_64-linux-gnu/libgtk-3.so.0", "usr/lib/x86_64-linux-gnu/gio/modules/a file.so",
             "usr/share/icons/Adwaita/index.theme"]  # fmt: skip
    own = ["usr/lib/x86_64-linux-gnu/libayatana-appindicator3.so.1", "usr/bin/wget", "usr/lib/python3.12/os.py",
           "usr/share/icons/hicolor/scalable/apps/org.veldrin.Veldrin.svg"]  # fmt: skip
    extension_alone = ["usr/lib/x86_64-linux-gnu/libgtk-4.so.1", "usr/bin/wget"]
    for folder, names in ((brought, twice + extension_alone), (prime, twice + own)):
        for name in names:
            (folder / name).parent.mkdir(parents=True, exist_ok=True)
            (folder / name).touch()
    script = snap["parts"]["brought"]["override-prime"]
    command = ["bwrap", "--ro-bind", "/usr", "/usr", "--symlink", "usr/bin", "/bin", "--symlink", "usr/lib", "/lib",
               "--symlink", "usr/lib64", "/lib64", "--bind", prime, prime, "--ro-bind", tmp_path / "snap", "/snap",
               "bash", "-euc", script]  # fmt: skip
    subprocess.run(command, env={"CRAFT_PRIME": str(prime), "PATH": "/usr/bin:/bin"}, check=True)
    assert sorted(str(file.relative_to(prime)) for file in prime.rglob("*") if file.is_file()) == sorted(own)


def test_the_snap_brings_the_tools_that_its_base_lacks(snap):
    assert {"wget", "curl", "kmod", "zenity", "python3"} <= set(snap["parts"]["veldrin"]["stage-packages"])


def test_the_snap_names_files_that_are_installed(snap):
    app = snap["apps"]["veldrin"]
    assert app["command"] in INSTALLED
    assert app["desktop"] in INSTALLED
    assert f"etc/xdg/autostart/{app['autostart']}" in INSTALLED


def test_the_flatpak_asks_for_what_the_applet_needs_and_no_more(flatpak):
    assert set(flatpak["finish-args"]) == {
        "--share=network",
        "--share=ipc",
        "--socket=wayland",
        "--socket=fallback-x11",
        "--talk-name=org.kde.StatusNotifierWatcher",
        "--filesystem=xdg-run/VeldrinWatch-icons:create",
        "--persist=.config",
    }


def test_the_flatpak_builds_what_the_runtime_lacks_and_no_more(flatpak):
    # modinfo would find nothing to read in there.
    assert [entry if isinstance(entry, str) else entry["name"] for entry in flatpak["modules"]] == [
        "shared-modules/libayatana-appindicator/libayatana-appindicator-gtk3.json", "wget", "autostart-once", "veldrin",
    ]  # fmt: skip


def test_the_flatpak_is_built_by_the_commands_that_its_manifest_and_readme_give():
    commands = re.findall(r"^#     (\S.*)$", FLATPAK_FILE.read_text(), re.MULTILINE)
    assert commands[0].endswith(f" {FLATPAK_FILE.parent.relative_to(ROOT)}/shared-modules")
    assert commands[1].endswith(f" {FLATPAK_FILE.relative_to(ROOT)}")
    readme = (ROOT / "README.md").read_text()
    for command in commands:
        assert f"`{command}`" in readme


def test_the_flatpak_packs_nothing_that_building_it_leaves(flatpak):
    (source,) = module(flatpak, "veldrin")["sources"]
    assert {"build", ".git", ".flatpak-builder", "packaging/flatpak/shared-modules"} <= set(source["skip"])


def test_the_flatpak_carries_nothing_for_developers_and_nothing_for_systemd(flatpak):
    assert {"/include", "/lib/pkgconfig", "/lib/girepository-1.0", "/share/gir-1.0", "/lib/systemd", "*.a"} <= set(
        flatpak["cleanup"]
    )


def test_the_flatpak_starts_by_the_script_that_asks_the_portal(flatpak):
    assert flatpak["command"] == "autostart-once"
    assert module(flatpak, "autostart-once")["build-commands"] == [
        f"install -Dm755 -t ${{FLATPAK_DEST}}/bin {flatpak['command']}"
    ]


def test_the_flatpak_is_named_as_its_desktop_entry_and_its_metainfo(flatpak):
    assert f"usr/share/applications/{flatpak['id']}.desktop" in INSTALLED
    assert f"usr/share/metainfo/{flatpak['id']}.metainfo.xml" in INSTALLED
    assert FLATPAK_FILE.stem == flatpak["id"]


def test_both_take_the_released_programs_settings(snap, flatpak):
    assert "--preset=release" in snap["parts"]["veldrin"]["cmake-parameters"]
    assert "--preset=release" in module(flatpak, "veldrin")["config-opts"]


def test_both_start_the_applet_itself_by_a_launcher_without_actions(snap, flatpak, tmp_path):
    entry = tmp_path / "usr/share/applications/org.veldrin.Veldrin.desktop"
    metainfo = tmp_path / "usr/share/metainfo/org.veldrin.Veldrin.metainfo.xml"
    for script, command in (
        (snap["parts"]["veldrin"]["override-build"], "veldrin"),
        ("\n".join(module(flatpak, "veldrin")["post-install"]), "autostart-once"),
    ):
        for file in (entry, metainfo):
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text((ROOT / "data" / file.name).read_text())
        (tmp_path / "usr/bin").mkdir(exist_ok=True)
        (tmp_path / "usr/bin/veldrin-window").touch()
        (tmp_path / "usr/lib/systemd/user").mkdir(parents=True, exist_ok=True)
        folders = {"CRAFT_PART_INSTALL": str(tmp_path), "FLATPAK_DEST": str(tmp_path / "usr"), "PATH": "/usr/bin:/bin"}
        subprocess.run(["bash", "-euc", f"craftctl() {{ :; }}\n{script}"], env=folders, check=True)
        assert "Action" not in entry.read_text()
        assert "SingleMainWindow" not in entry.read_text()
        assert re.findall("^Exec=.*$", entry.read_text(), re.MULTILINE) == [f"Exec={command}"]
        # snapd puts the Snap's folder into the path of the icon when it installs the entry.
        entry.write_text(entry.read_text().replace("=${SNAP}/", "=/snap/veldrin/current/"))
        subprocess.run(["desktop-file-validate", str(entry)], check=True)
        assert not (tmp_path / "usr/bin/veldrin-window").exists()
        assert re.findall("<binary>.*</binary>", metainfo.read_text()) == ["<binary>veldrin</binary>"]


# ---- The Snap's start with the session ----


@pytest.fixture(name="snap_start")
def start_in_a_snap(tmp_path):
    entry = tmp_path / "snap/etc/xdg/autostart/org.veldrin.Veldrin.desktop"
    entry.parent.mkdir(parents=True)
    entry.write_text((ROOT / "data/autostart/org.veldrin.Veldrin.desktop").read_text())
    (tmp_path / "data").mkdir()

    def start() -> Path:
        folders = {"SNAP": str(tmp_path / "snap"), "SNAP_USER_DATA": str(tmp_path / "data"), "PATH": "/usr/bin:/bin"}
        script = str(ROOT / "packaging/snap/local/autostart-once")
        result = subprocess.run([script, "echo", "started"], env=folders, capture_output=True, text=True, check=True)
        assert (result.stdout, result.stderr) == ("started\n", "")
        return tmp_path / "data/.config/autostart/org.veldrin.Veldrin.desktop"

    return start


def test_the_first_start_in_a_snap_leaves_an_entry_for_the_next_session(snap_start):
    assert "\nExec=veldrin\n" in snap_start().read_text()


def test_an_entry_that_the_user_removed_stays_away(snap_start):
    snap_start().unlink()
    assert not snap_start().exists()


def test_a_start_in_a_snap_whose_data_cannot_be_written_is_a_start_all_the_same(snap_start, tmp_path):
    (tmp_path / "data/.config").write_text("in the way")
    folders = {"SNAP": str(tmp_path / "snap"), "SNAP_USER_DATA": str(tmp_path / "data"), "PATH": "/usr/bin:/bin"}
    script = str(ROOT / "packaging/snap/local/autostart-once")
    result = subprocess.run([script, "echo", "started"], env=folders, capture_output=True, text=True, check=True)
    assert result.stdout == "started\n"
