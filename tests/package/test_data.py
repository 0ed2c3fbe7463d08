# SPDX-License-Identifier: MIT
"""What is installed beside the program: desktop entries, metainfo, icons and manual say the same, and what is so."""

import os
import re
import select
import shutil
import signal
import subprocess
import xml.etree.ElementTree as xml
from collections.abc import Iterator
from io import BytesIO
from pathlib import Path

import pytest
import yaml
from gi.repository import GLib
from PIL import Image

ROOT = Path(__file__).resolve().parents[2]
DATA = ROOT / "data"
ENTRY = DATA / "org.veldrin.Veldrin.desktop"
AUTOSTART = DATA / "autostart" / "org.veldrin.Veldrin.desktop"
METAINFO = DATA / "org.veldrin.Veldrin.metainfo.xml"
MANUAL = DATA / "veldrin.1"


def output(*command: str | Path) -> str:
    """What the command says, which must not be a complaint."""
    result = subprocess.run([str(word) for word in command], capture_output=True, text=True, check=False)
    assert result.returncode == 0, result.stdout + result.stderr
    return result.stdout


def version() -> str:
    return re.search(r"^project\(veldrin VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text(), re.MULTILINE)[1]


@pytest.fixture(name="metainfo")
def metainfo_tree() -> xml.Element:
    return xml.parse(METAINFO).getroot()


def key_file(path: Path) -> GLib.KeyFile:
    file = GLib.KeyFile()
    file.load_from_file(str(path), GLib.KeyFileFlags.NONE)
    return file


# ---- Validators ----


# Validators before 0.27 take this key for a mistake.
YOUNG_KEY = "SingleMainWindow"


@pytest.mark.parametrize("entry", [ENTRY, AUTOSTART], ids=["launcher", "autostart"])
def test_desktop_entries_are_valid(entry):
    command = ["desktop-file-validate", str(entry)]
    result = subprocess.run(command, capture_output=True, text=True, check=False)
    said = result.stdout + result.stderr
    assert [line for line in said.splitlines() if f'error: file contains key "{YOUNG_KEY}"' not in line] == []
    assert result.returncode == 0 or YOUNG_KEY in said


def test_metainfo_is_valid():
    command = ["appstreamcli", "validate", "--no-net", "--no-color", METAINFO]
    result = subprocess.run(command, capture_output=True, text=True, check=False)
    # Validators below 1.0 know the developer by another name only, and newer ones by this only.
    passed_over = "unknown-tag developer"
    said = re.findall(r"^[EWI]: .*", result.stdout, re.MULTILINE)
    assert [line for line in said if not line.endswith(passed_over)] == []
    assert result.returncode == 0


UNIT = DATA / "veldrin.service"


@pytest.mark.skipif(not shutil.which("systemd-analyze"), reason="takes systemd")
def test_the_units_form_is_valid(tmp_path):
    # Its program need not be installed here.
    (tmp_path / UNIT.name).write_text(UNIT.read_text().replace("ExecStart=veldrin\n", "ExecStart=true\n"))
    command = ["systemd-analyze", "--user", "verify", "--man=no", str(tmp_path / UNIT.name)]
    environment = {**os.environ, "XDG_RUNTIME_DIR": str(tmp_path)}
    result = subprocess.run(command, capture_output=True, text=True, check=False, env=environment)
    assert (result.returncode, result.stderr) == (0, "")


def test_the_unit_starts_the_program_with_the_session_once_enabled():
    unit = key_file(UNIT)
    assert unit.get_string("Service", "ExecStart") == key_file(AUTOSTART).get_string("Desktop Entry", "Exec")
    assert unit.get_string("Unit", "Description") == key_file(AUTOSTART).get_string("Desktop Entry", "Comment")
    assert unit.get_string("Unit", "PartOf") == unit.get_string("Install", "WantedBy") == "graphical-session.target"
    # Not by the package: the autostart entry would start a second one.
    assert "\noverride_dh_installsystemduser:\n\n" in (ROOT / "debian/rules").read_text()


@pytest.mark.parametrize("page", ["veldrin.1", "veldrin-window.1"])
def test_the_manual_is_well_formed(page):
    command = ["mandoc", "-T", "lint", "-W", "style", str(DATA / page)]
    result = subprocess.run(command, capture_output=True, text=True, check=False)
    # Which other manuals are there is the machine's business.
    passed_over = "referenced manual not found"
    assert [line for line in result.stdout.splitlines() if passed_over not in line] == []


# ---- One version, one name ----


def test_the_version_is_the_same_everywhere(metainfo):
    wanted = version()
    changelog = (ROOT / "debian/changelog").read_text()
    snap = yaml.safe_load((ROOT / "packaging/snap/snapcraft.yaml").read_text())
    # Debian's own revision of it comes behind.
    assert re.match(r"veldrin \(([^)]+)-1\)", changelog)[1] == wanted
    assert snap["version"] == wanted
    assert re.search(r"^Version:\s*(\S+)", (ROOT / "packaging/rpm/veldrin.spec").read_text(), re.MULTILINE)[1] == wanted
    assert re.search(r"^pkgver=(\S+)", (ROOT / "packaging/arch/PKGBUILD").read_text(), re.MULTILINE)[1] == wanted
    assert metainfo.find("releases/release").get("version") == wanted
    # What stands above a release is on its way to the next.
    headings = re.findall(r"^## (\S+)", (ROOT / "CHANGELOG.md").read_text(), re.MULTILINE)
    assert [heading for heading in headings if heading != "Unreleased"][0] == wanted
    assert "Unreleased" not in headings[1:]


def test_the_packages_of_all_systems_need_the_same_tools():
    control = (ROOT / "debian/control").read_text().split("\nPackage:")[1]
    spec = (ROOT / "packaging/rpm/veldrin.spec").read_text()
    arch = (ROOT / "packaging/arch/PKGBUILD").read_text()
    for tool in ("grep", "kmod", "sed", "wget"):
        assert re.search(rf"^Depends:(?:.|\n)*? {tool},?\n(?:.|\n)*?^Recommends:", control, re.MULTILINE), tool
        assert re.search(rf"^Requires: +{tool}$", spec, re.MULTILINE), tool
        assert re.search(rf"^depends=\([^)]*\b{tool}\b[^)]*\)$", arch, re.MULTILINE), tool
    for tool in ("curl", "xdg-utils", "zenity"):
        assert re.search(rf"^Recommends:(?:.|\n)*? {tool},?\n", control, re.MULTILINE), tool
        assert re.search(rf"^Recommends: +{tool}$", spec, re.MULTILINE), tool
        assert f"'{tool}: " in arch, tool


def test_no_package_brings_gnome_for_the_sake_of_its_extension():
    extension = "gnome-shell-extension-appindicator"
    control = (ROOT / "debian/control").read_text().split("\nPackage:")[1]
    assert re.findall(rf"^([\w-]+):(?:[^:]|:[^ ])*\b{extension}\b", control, re.MULTILINE) == ["Suggests"]
    spec = (ROOT / "packaging/rpm/veldrin.spec").read_text()
    assert re.findall(rf"^.*{extension}.*$", spec, re.MULTILINE) == [f"Recommends:     ({extension} if gnome-shell)"]
    arch = (ROOT / "packaging/arch/PKGBUILD").read_text()
    assert re.findall(rf"^.*{extension}.*$", arch, re.MULTILINE) == [
        f"            '{extension}: icon and version in the panel of GNOME'"
    ]


def test_the_packages_of_all_systems_bring_what_reads_gtks_icons():
    control = (ROOT / "debian/control").read_text().split("\nPackage:")[1]
    assert " librsvg2-common," in control.partition("\nRecommends:")[0].partition("\nDepends:")[2]
    spec = (ROOT / "packaging/rpm/veldrin.spec").read_text()
    assert re.search(r"^Requires: +\(librsvg2 or gdk-pixbuf-loader-rsvg\)$", spec, re.MULTILINE)
    assert re.search(
        r"^depends=\([^)]*\blibrsvg\b[^)]*\)$", (ROOT / "packaging/arch/PKGBUILD").read_text(), re.MULTILINE
    )


# ---- German ----


@pytest.mark.parametrize(
    ("entry", "keys"), [(ENTRY, ["GenericName", "Comment", "Keywords"]), (AUTOSTART, ["Comment"])],
    ids=["launcher", "autostart"],
)  # fmt: skip
def test_the_entries_say_in_german_what_a_user_reads_or_looks_for(entry, keys):
    file = GLib.KeyFile()
    file.load_from_file(str(entry), GLib.KeyFileFlags.KEEP_TRANSLATIONS)
    for key in keys:
        assert file.get_locale_string("Desktop Entry", key, "de") != file.get_string("Desktop Entry", key)
    # An action is called as the menu in the panel calls it, which has no German.
    assert re.findall(r"^Name\[", entry.read_text(), re.MULTILINE) == []


def test_each_text_of_the_metainfo_is_followed_by_its_german(metainfo):
    language = "{http://www.w3.org/XML/1998/namespace}lang"
    texts = 0
    # What is new in a release is written once, in the list of changes, and in English.
    releases = set(metainfo.find("releases").iter())
    for parent in [element for element in metainfo.iter() if element not in releases]:
        told = [child for child in parent if child.tag in ("summary", "p", "li", "caption")]
        for text, german in zip(told[::2], told[1::2], strict=True):
            assert (german.tag, german.get(language), text.get(language)) == (text.tag, "de", None), text.text
            assert german.text.split() != text.text.split()
            texts += 1
    assert texts > 10


# ---- Metainfo ----


def test_the_screenshots_are_pictures_of_the_project(metainfo):
    addresses = [image.text for image in metainfo.findall("screenshots/screenshot/image")]
    website = re.search(r'VELDRIN_WEBSITE "([^"]+)"', (ROOT / "src/sites.h").read_text())[1]
    assert addresses
    for address in addresses:
        assert address.startswith(website)
        assert (ROOT / address.removeprefix(website)).is_file(), address


def test_metainfo_names_the_entry_and_the_programs_that_are_installed(metainfo):
    assert metainfo.findtext("launchable") == ENTRY.name
    installed = (Path(__file__).parent / "files").read_text().split()
    assert [f"usr/bin/{program.text}" for program in metainfo.findall("provides/binary")] == [
        file for file in installed if file.startswith("usr/bin/")
    ]


# ---- Launcher icons ----


@pytest.fixture(name="tree")
def copied_tree(tmp_path) -> Path:
    for folder in ("art", "data", "tools", "src"):
        shutil.copytree(ROOT / folder, tmp_path / folder)
    return tmp_path


def render_art(root: Path, *options: str) -> subprocess.CompletedProcess[str]:
    return subprocess.run([root / "tools/render-art", *options], capture_output=True, text=True, check=False)


def test_the_icons_are_what_their_picture_gives(tree):
    assert render_art(tree, "--check").returncode == 0
    (tree / "data/icons/48.png").unlink()
    assert render_art(tree).returncode == 0
    assert (tree / "data/icons/48.png").read_bytes().startswith(b"\x89PNG")
    assert render_art(tree, "--check").returncode == 0


@pytest.mark.parametrize("size", ["48", "128", "256"])
def test_a_check_names_each_icon_that_is_another_picture(tree, size):
    icon = tree / f"data/icons/{size}.png"
    subprocess.run(["rsvg-convert", "-w", size, "-h", size, "-o", icon, tree / "art/logo.svg"], check=True)
    result = render_art(tree, "--check")
    assert result.returncode == 1
    assert re.findall(r"data/icons/\d+\.png", result.stderr) == [f"data/icons/{size}.png"]


@pytest.mark.parametrize(
    "harm",
    [Path.unlink, lambda icon: icon.write_bytes(b"no picture"), lambda icon: shutil.copy(icon.parent / "48.png", icon)],
)
def test_a_check_names_an_icon_that_is_gone_or_broken_or_of_another_size(tree, harm):
    harm(tree / "data/icons/128.png")
    result = render_art(tree, "--check")
    assert result.returncode == 1
    assert re.findall(r"data/icons/\d+\.png", result.stderr) == ["data/icons/128.png"]


# ---- Symbolic icon ----

SYMBOLIC = ROOT / "art/symbolic.svg"
SVG = "{http://www.w3.org/2000/svg}"


def test_the_symbolic_icon_is_one_plain_shape_of_16_units():
    picture = xml.parse(SYMBOLIC).getroot()
    assert {name: picture.get(name) for name in ("width", "height", "viewBox")} == {
        "width": "16", "height": "16", "viewBox": "0 0 16 16",
    }  # fmt: skip
    # A desktop colours shapes by their fill: no stroke, no gradient and no style would follow.
    (shape,) = picture
    assert shape.tag == f"{SVG}path"
    assert set(shape.attrib) == {"fill", "fill-rule", "d"}


def symbolic_icon(size: int, colour: str, tmp_path: Path) -> Image.Image:
    """The icon as a desktop draws it: with every fill set to a colour of its own."""
    style = tmp_path / "style.css"
    style.write_text(f"rect, circle, path {{ fill: {colour} !important }}")
    command = ["rsvg-convert", "-w", str(size), "-h", str(size), "--stylesheet", style, SYMBOLIC]
    return Image.open(BytesIO(subprocess.run(command, capture_output=True, check=True).stdout)).convert("RGBA")


@pytest.mark.parametrize("size", [16, 22, 32, 64])
@pytest.mark.parametrize("colour", ["#ffffff", "#000000", "#33d17a"])
def test_the_symbolic_icon_takes_the_desktops_colour_alone(size, colour, tmp_path):
    wanted = tuple(bytes.fromhex(colour[1:]))
    solid = [pixel[:3] for pixel in symbolic_icon(size, colour, tmp_path).getdata() if pixel[3] == 255]
    assert len(solid) > size * size // 4
    assert set(solid) == {wanted}


@pytest.mark.parametrize("size", [16, 32, 64])
def test_the_symbolic_icon_is_a_penguin(size, tmp_path):
    icon = symbolic_icon(size, "#000000", tmp_path)

    def alpha(x: float, y: float) -> int:
        return icon.getpixel((int(x * size / 16), int(y * size / 16)))[3]

    for name, x, y in (("head", 8, 1), ("brow", 8, 4), ("flipper", 2, 9), ("chest", 8, 8.2), ("side", 4, 11),
                       ("foot", 4, 15)):  # fmt: skip
        assert alpha(x, y) == alpha(15.9 - x, y) > 200, name
    for name, x, y in (("eye", 5.5, 3.5), ("beak", 7.5, 6.5), ("belly", 7.5, 11.5), ("between the feet", 7.5, 15.5),
                       ("corner", 0, 0), ("under the flipper", 0, 13)):  # fmt: skip
        assert alpha(x, y) == alpha(15.9 - x, y) < 55, name


# ---- Manual ----


def test_the_manual_names_every_variable_that_the_program_looks_at():
    sources = "".join(path.read_text() for path in (ROOT / "src").glob("*.cpp"))
    variables = set(re.findall(r'getenv\("(\w+)"\)', sources))
    assert "HOME" in variables
    named = set(re.findall(r"[A-Z_]{3,}", MANUAL.read_text())) | {"PATH"}
    assert variables <= named


def manual_text(page: Path) -> str:
    text = output("mandoc", "-T", "ascii", "-O", "width=200", page)
    return re.sub(".\b", "", text)


def test_the_manual_names_every_window_signal_and_file():
    text = manual_text(MANUAL)
    for word in ("SIGUSR1", "SIGUSR2", "SIGRTMIN+1", "SIGRTMIN+2", "SIGSEGV", "app_state.json", "VeldrinWatch-icons",
                 "tux-red", "tux-green", "tux-white", "Veldrin_crash.txt", "/.flatpak-info", "wget(1)", "curl(1)",
                 "grep(1)", "sed(1)", "modinfo(8)", "bash(1)", "zenity(1)", "python3(1)", "xdg-open(1)"):  # fmt: skip
        assert word in text, word


def test_the_windows_manual_names_every_word_signal_and_class():
    text = manual_text(DATA / "veldrin-window.1")
    for word in (*WORDS, "state", "--json", "--help"):
        assert re.search(rf"^ +(.*, )?{word}\b", text, re.MULTILINE), word
    script = (DATA / "veldrin-window").read_text()
    for name in re.findall(r"class=(\S+)", script):
        assert f"`{name}'" in text, name
    for number in re.findall(r"open_window (\S+) ;;", script):
        assert f"SIG{number}" in text, number
    for words in re.findall(r'words="(nothing [^"]+)"', script):
        assert f'"{words}"' in text or words == "nothing is known yet", words


# ---- The launcher's actions ----

ACTIONS = {
    "settings": signal.SIGUSR1,
    "about": signal.SIGUSR2,
    "changes": signal.SIGRTMIN + 1,
    "system": signal.SIGRTMIN + 2,
}
# What a running applet is sent for each word.
WORDS = {"open": signal.SIGUSR1, **ACTIONS}

RECORDER = """
import signal, sys
for number in map(int, sys.argv[1:]):
    signal.signal(number, lambda number, frame: print(number, flush=True))
print("ready", flush=True)
while True:
    signal.pause()
"""
INTERPRETER = "/usr/bin/python3"
DEADLINE = 10.0


class Running:
    """A program with a file of its own at the given path, which prints the number of each signal that it gets."""

    def __init__(self, program: Path, *numbers: int, user: int | None = None) -> None:
        if not program.exists():
            program.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(INTERPRETER, program)
        words = [str(program), "-c", RECORDER, *map(str, numbers)]
        self.process = subprocess.Popen(words, stdout=subprocess.PIPE, text=True, user=user)
        assert self._line() == "ready\n"

    def _line(self) -> str:
        readable, _, _ = select.select([self.process.stdout], [], [], DEADLINE)
        assert readable, f"waited {DEADLINE:g} s in vain for a signal"
        return self.process.stdout.readline()

    def got(self) -> int:
        return int(self._line())

    def ended(self) -> bool:
        return self.process.poll() is not None


@pytest.fixture(name="run")
def run_programs() -> Iterator:
    programs = []

    def run(*arguments, **options) -> Running:
        programs.append(Running(*arguments, **options))
        return programs[-1]

    yield run
    for program in programs:
        program.process.kill()
        program.process.wait()
        program.process.stdout.close()


@pytest.fixture(name="bin_folder")
def folder_with_the_script(tmp_path) -> Path:
    folder = tmp_path / "bin"
    folder.mkdir()
    shutil.copy(DATA / "veldrin-window", folder)
    return folder


def ask(folder: Path, word: str) -> None:
    result = subprocess.run([folder / "veldrin-window", word], capture_output=True, text=True, check=False)
    assert (result.returncode, result.stdout, result.stderr) == (0, "", "")


@pytest.mark.parametrize("word", WORDS)
def test_each_word_sends_its_signal(word, bin_folder, run):
    applet = run(bin_folder / "veldrin", *ACTIONS.values())
    ask(bin_folder, word)
    assert applet.got() == WORDS[word]


@pytest.mark.parametrize("word", WORDS)
def test_a_program_that_ends_at_once_is_not_waited_for(word, bin_folder):
    (bin_folder / "veldrin").write_text(f"#!/bin/sh\necho started >>{bin_folder}/started\necho no display >&2\n")
    (bin_folder / "veldrin").chmod(0o755)
    result = subprocess.run([bin_folder / "veldrin-window", word], capture_output=True, text=True, check=False)
    assert (result.returncode, result.stdout) == (1, "")
    assert result.stderr == "veldrin-window: the applet did not start\n"
    assert (bin_folder / "started").read_text() == "started\n"


def test_a_link_to_the_script_serves_the_same_program(bin_folder, run, tmp_path):
    applet = run(bin_folder / "veldrin", *ACTIONS.values())
    (tmp_path / "veldrin-window").symlink_to(bin_folder / "veldrin-window")
    ask(tmp_path, "about")
    assert applet.got() == ACTIONS["about"]


def test_an_applet_whose_file_was_replaced_by_an_upgrade_is_served(bin_folder, run):
    applet = run(bin_folder / "veldrin", *ACTIONS.values())
    (bin_folder / "veldrin").unlink()
    shutil.copy(INTERPRETER, bin_folder / "veldrin")
    ask(bin_folder, "system")
    assert applet.got() == ACTIONS["system"]


@pytest.mark.parametrize("word", WORDS)
def test_an_applet_that_still_starts_is_left_alone(word, bin_folder, run):
    # It has no handlers yet, and the signal would end it.
    starting = run(bin_folder / "veldrin")
    running = run(bin_folder / "veldrin", *ACTIONS.values())
    ask(bin_folder, word)
    assert running.got() == WORDS[word]
    assert not starting.ended()


@pytest.mark.parametrize("word", WORDS)
def test_another_program_of_the_same_name_is_left_alone(word, bin_folder, run, tmp_path):
    other = run(tmp_path / "games" / "veldrin", *ACTIONS.values())
    applet = run(bin_folder / "veldrin", *ACTIONS.values())
    ask(bin_folder, word)
    assert applet.got() == WORDS[word]
    other.process.terminate()
    assert other.process.stdout.read() == ""


@pytest.mark.skipif(os.geteuid() != 0, reason="takes root to run something as another user")
def test_root_leaves_the_applets_of_others_alone(bin_folder, run):
    # The folders above belong to root alone.
    for folder in (bin_folder, *bin_folder.parents):
        if folder == Path("/tmp"):
            break
        folder.chmod(0o755)
    others = run(bin_folder / "veldrin", *ACTIONS.values(), user=65534)
    own = run(bin_folder / "veldrin", *ACTIONS.values())
    ask(bin_folder, "settings")
    assert own.got() == ACTIONS["settings"]
    others.process.terminate()
    assert others.process.stdout.read() == ""


USAGE = """\
usage: veldrin-window open | settings | about | changes | system
       veldrin-window state [--json]
       veldrin-window --help
"""


@pytest.mark.parametrize(
    "words",
    [[], ["setings"], [""], ["open", "settings"], ["settings", ""], ["state", "--jsn"], ["state", ""], ["state --json"],
     ["state", "--json", "--json"], ["--json"], ["--json", "state"], ["open", "--json"], ["--help", "state"], ["*"]],
)  # fmt: skip
def test_another_word_is_a_mistake(words, bin_folder, run):
    applet = run(bin_folder / "veldrin", *ACTIONS.values())
    result = subprocess.run([bin_folder / "veldrin-window", *words], capture_output=True, text=True, check=False)
    assert (result.returncode, result.stdout, result.stderr) == (2, "", USAGE)
    applet.process.terminate()
    assert applet.process.stdout.read() == ""


def test_help_names_every_word(bin_folder):
    result = subprocess.run([bin_folder / "veldrin-window", "--help"], capture_output=True, text=True, check=False)
    assert (result.returncode, result.stderr) == (0, "")
    assert result.stdout.startswith(USAGE)
    explained = result.stdout.removeprefix(USAGE)
    for word in (*WORDS, "state", "--json"):
        assert re.search(rf"^  (\w+, )*{word}\b", explained, re.MULTILINE), word


def test_the_entrys_actions_are_the_menus_window_entries():
    entry = key_file(ENTRY)
    actions = entry.get_string_list("Desktop Entry", "Actions")
    assert sorted(actions) == sorted(ACTIONS)
    menu = set(re.findall(r'add_item\("([^"]+)"', (ROOT / "src/app.cpp").read_text()))
    for action in actions:
        group = f"Desktop Action {action}"
        assert entry.get_string(group, "Name") in menu
        _, words = GLib.shell_parse_argv(entry.get_string(group, "Exec"))
        assert words == ["veldrin-window", action]


def test_the_launcher_is_for_one_applet_and_waits_for_no_window():
    entry = key_file(ENTRY)
    # What a desktop calls a new window would be another look at the one applet's Settings.
    assert entry.get_boolean("Desktop Entry", "SingleMainWindow")
    # A start opens no window, and one that a signal opens tells the desktop of no start.
    assert not entry.get_boolean("Desktop Entry", "StartupNotify")


@pytest.mark.parametrize(
    ("path", "command"), [(ENTRY, "veldrin-window open"), (AUTOSTART, "veldrin")], ids=["launcher", "autostart"]
)
def test_the_entries_start_the_program_and_vanish_with_it(path, command):
    entry = key_file(path)
    assert entry.get_string("Desktop Entry", "Exec") == command
    # The autostart entry is a setting and outlives the program until the package is purged.
    assert entry.get_string("Desktop Entry", "TryExec") == "veldrin"
