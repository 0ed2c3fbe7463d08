# SPDX-License-Identifier: MIT
"""Texts that no window has room for, in one line and in thousands: every window keeps to the display, on both kinds of
display, and the libraries have nothing to complain of."""

import pytest
from stage.applet import Applet
from stage.compositor import TOOLTIP, surroundings
from stage.desktop import Display
from stage.probe import CHANGES, SETTINGS, SYSTEM, Probe, excerpt
from stage.project import BUILD
from stage.user import state_text
from stage.world import Module, machine_with_modules

# Far more than a display is high. What takes seconds would take minutes under the sanitizers.
LINES = 500 if BUILD.sanitized else 3000
# With letters that are wide in every font.
TEXTS = {"one-line": "W" * 65536, "lines": "WWW\n" * LINES}

SIZES = {CHANGES: (780, 660), SYSTEM: (820, 720)}

LOG = "https://cdn.kernel.org/pub/linux/kernel/v7.x/ChangeLog-7.2.4"
COMMIT = "commit {0}\nAuthor: {0} <nautilus@reef.invalid>\nDate:   {0}\n\n    {0}\n\n    {1}\n\n"

both_displays = pytest.mark.parametrize("backend", ["x11", "wayland"])
all_texts = pytest.mark.parametrize("text", TEXTS.values(), ids=TEXTS.keys())


def in_one_line(text: str) -> str:
    """As it can stand where a line feed would end it. To what draws it, it still has as many lines."""
    return text.replace("\n", "\N{LINE SEPARATOR}")


class Stage:
    """An applet on a display of either kind, with a look into its windows."""

    def __init__(self, machine, compositors, backend: str, environment: dict[str, str] | None = None, **options):
        self.probe = Probe(machine.folder)
        self.applet: Applet = machine.start(
            preload=self.probe.options["preload"],
            environment={
                **self.probe.options["environment"],
                **surroundings(compositors, backend),
                "G_DEBUG": "fatal-criticals",
                **(environment or {}),
            },
            **options,
        )
        if backend == "wayland":
            self.applet.expected_stderr = TOOLTIP

    def do(self, *requests: str) -> None:
        for request in requests:
            assert self.probe.do(request)
            self.applet.settle()

    def size(self, title: str) -> tuple[int, int]:
        window = self.probe.windows()[title]
        return window.width, window.height

    def look_around(self, title: str) -> None:
        """Draws what there is at both ends of all that scrolls. The window stays as it is."""
        self.do(f"draw {title}")
        assert self.size(title) == SIZES[title]
        self.do("scroll", f"draw {title}")
        assert self.size(title) == SIZES[title]


@pytest.fixture
def stage(machine, compositors):
    return lambda *arguments, **options: Stage(machine, compositors, *arguments, **options)


@both_displays
@pytest.mark.parametrize("text", ["W" * 6000, "W" * 65000, "reed\n" * 2500], ids=["6000", "65000", "lines"])
def test_pasted_filter_leaves_the_window_as_it_is(machine, stage, backend, text):
    listed = [Module(b"reed_%d 20480 0 - Live 0x0" % number) for number in range(60)]
    there = stage(backend, around=machine_with_modules(machine, listed))
    there.probe.open(there.applet, SYSTEM)
    there.do("page 1")
    assert there.size(SYSTEM) == SIZES[SYSTEM]
    there.do(f"filter {text}")
    assert f"0 of 60 modules  ·  0 in use  ·  filter: {text}" in there.probe.windows()[SYSTEM].texts
    there.look_around(SYSTEM)
    there.do("filter ")
    assert "60 of 60 modules  ·  0 in use" in there.probe.windows()[SYSTEM].texts
    assert there.size(SYSTEM) == SIZES[SYSTEM]


@both_displays
@all_texts
def test_versions(machine, stage, backend, text):
    text = in_one_line(text)
    state = state_text(mainline=text, stable=text, longterm=text)
    machine.saves_text(state)
    there = stage(backend)
    assert there.applet.item.label == excerpt(text)
    window = there.probe.open(there.applet, SETTINGS)
    assert window.texts.count(excerpt(text)) == 3
    assert window.width <= Display.WIDTH and window.height <= Display.HEIGHT
    # The selection goes round through all three, so all three are saved.
    there.do("choose mainline", "choose longterm", "choose stable")
    assert machine.saved == state
    assert there.applet.item.label == excerpt(text)


@both_displays
@all_texts
def test_commits(machine, stage, backend, text):
    line = in_one_line(text)
    index = f'{{"releases": [{{"moniker": "stable", "version": "7.2.4", "isodate": "{text}", "changelog": "{LOG}"}}]}}'
    machine.tools.answer("wget -qO- *releases.json", stdout=index)
    machine.tools.answer(f"wget -qO- *{LOG}", stdout=COMMIT.format(line, text.replace("\n", "\n    ")) * 3)
    there = stage(backend)
    window = there.probe.changes(there.applet)
    assert excerpt(f"stable  ·  7.2.4  ·  released {text}") in window.texts
    assert "3 changes" in window.texts and line in window.texts
    there.look_around(CHANGES)
    there.do("expand")
    there.look_around(CHANGES)
    there.probe.close(CHANGES)


@both_displays
@all_texts
def test_address_of_a_changelog(machine, stage, backend, text):
    index = f'{{"releases": [{{"moniker": "stable", "version": "7.2.4", "changelog": "{text}"}}]}}'
    machine.tools.answer("wget -qO- *releases.json", stdout=index)
    there = stage(backend)
    window = there.probe.changes(there.applet)
    assert f"Kernhaven returned an unexpected changelog address:\n{text}" in window.texts
    there.look_around(CHANGES)


@both_displays
@all_texts
def test_version_of_which_nothing_can_be_loaded(machine, stage, backend, text):
    version = in_one_line(text)
    machine.saves(stable=version)
    there = stage(backend)
    window = there.probe.changes(there.applet)
    assert any(shown.startswith(f"No changes could be loaded for stable {version}.\n") for shown in window.texts)
    there.look_around(CHANGES)


@both_displays
@all_texts
def test_words_about_the_machine(machine, stage, backend, text):
    line = in_one_line(text)
    files = {
        "/etc/os-release": f'PRETTY_NAME="{line}"\n',
        "/proc/version": f"Linux version 6.1 ({line}) ({line}) #1 SMP {line}",
        "/proc/cmdline": text,
    }
    around = machine_with_modules(machine, [], {path: contents.encode() for path, contents in files.items()})
    there = stage(backend, around=around)
    window = there.probe.open(there.applet, SYSTEM)
    assert window.texts.count(line) >= 3 and text.strip() in window.texts
    there.look_around(SYSTEM)
    there.probe.close(SYSTEM)


@both_displays
@all_texts
def test_details_of_a_module(machine, stage, backend, text):
    word = in_one_line(text).encode()
    details = {name: text.encode() for name in (b"version", b"srcversion", b"parameters/depth")}
    listed = [Module(b"heron 20480 2 %s, %s 0x0" % (word, word), details), Module(b"%s 20480 0 - Live 0x0" % word)]
    told = machine.folder / "told"
    # As much as it reads of a line.
    told.write_bytes(b"".join(b"%s: %s\n" % (key, word[:1800]) for key in (b"description", b"author", b"license")))
    machine.tools.put_script("modinfo", f"exec /bin/cat {told}")
    there = stage(backend, around=machine_with_modules(machine, listed))
    window = there.probe.open(there.applet, SYSTEM)
    names = [row[0] for row in window.rows]
    assert sorted(names) == sorted(["heron", in_one_line(text)])
    there.do("page 1")
    for row in range(2):
        there.do(f"select {row}")
        assert names[row] in there.probe.windows()[SYSTEM].texts
        there.look_around(SYSTEM)
    there.probe.close(SYSTEM)


@both_displays
@all_texts
def test_command_that_a_snap_asks_for(machine, stage, backend, text):
    # An entry takes no more than 65,535 letters.
    text = text[:65000]
    snap = dict.fromkeys(["SNAP", "SNAP_NAME", "SNAP_INSTANCE_NAME"], text)
    there = stage(backend, environment=snap, around=machine_with_modules(machine, []))
    # The indicator library knows where a snap's icons should not lie.
    there.applet.expected_stderr = (
        r"(\n\(veldrin:\d+\): libayatana-appindicator-WARNING \*\*: [\d:.]+: Using '/tmp' paths in SNAP [^\n]*\n)*"
    )
    window = there.probe.open(there.applet, SYSTEM)
    assert f"sudo snap connect {text}:system-observe" in window.entries
    there.do("page 1")
    there.look_around(SYSTEM)
