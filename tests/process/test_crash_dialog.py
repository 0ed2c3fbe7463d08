# SPDX-License-Identifier: MIT
"""What the dying program leaves to the user: a question, an answer in the report, a mail."""

import contextlib
import os
import re
import signal
import subprocess
import time
from pathlib import Path
from urllib.parse import unquote

import pytest
from stage.applet import AT_ONCE
from stage.crash import CRASH, GERMAN, REPORT, SIGNALS, dies, read
from stage.project import site
from stage.tools import SYSTEM
from stage.waiting import wait_until
from stage.world import other_world

pytestmark = pytest.mark.usefixtures("no_core_dump")

CONTACT = site("VELDRIN_CONTACT")

QUESTION = "Veldrin - Können Sie beschreiben, wann der Fehler aufgetreten ist?"
ZENITY = [
    "zenity",
    "--text-info",
    "--editable",
    f"--title={QUESTION}",
    "--width=500",
    "--height=250",
    "--ok-label=Absturzbericht senden",
    "--cancel-label=Nicht senden",
]

# Bash's word on a script that is none, in the user's language.
COMPLAINT = r"bash: .+"


class Desk:
    """The user's machine with what the dialog needs: stand-ins for the dialog and the mail, and the real encoder."""

    def __init__(self, machine, orphans) -> None:
        self.machine = machine
        self.tools = machine.tools
        self.orphans = orphans
        for name in ("zenity", "xdg-open"):
            self.tools.put_stand_in(name)
        self.tools.answer("zenity *", status=1)
        self.tools.answer("xdg-open *")
        self.tools.put("python3")

    @property
    def report(self) -> str:
        return (self.machine.runtime / REPORT).read_text()

    def answers(self, text: str, **options):
        """From now on the user sends the report with these words."""
        return self.tools.answer("zenity *", stdout=text, **options)

    def crashed(self, number: signal.Signals = signal.SIGSEGV, environment=GERMAN, **options):
        """An applet that a signal has ended."""
        applet = self.machine.start(environment=environment, **options)
        dies(applet, number)
        return applet

    def finish(self, applet) -> None:
        assert self.orphans.status(applet) == 0

    def mail(self) -> tuple[str, str]:
        """The one mail's subject and body as they travel."""
        (address,) = [command[1:] for command in self.tools.commands() if command[0] == "xdg-open"]
        assert len(address) == 1
        found = re.fullmatch(rf"mailto:{re.escape(CONTACT)}\?subject=([^&?\s]*)&body=([^&?\s]*)", address[0])
        assert found, address
        return found[1], found[2]

    def commands(self) -> list[str]:
        return [command[0] for command in self.tools.commands()]


def group_of(pid: int) -> int | None:
    try:
        return os.getpgid(pid)
    except ProcessLookupError:
        return None


@pytest.fixture
def desk(machine, orphans) -> Desk:
    return Desk(machine, orphans)


def described(report: str, words: str) -> str:
    """The report with the user's words behind its end."""
    return f"{report}\nUser description:\n{words}\n"


# ---- German: the dialog ----


def test_asks_in_german_with_one_call(desk):
    desk.finish(desk.crashed())
    assert desk.tools.commands() == [ZENITY]


def test_what_it_starts_takes_every_signal(desk):
    seen = desk.machine.folder / "signals"
    # In bash, because Debian's sh lets all signals in itself.
    desk.tools.put_script("zenity", f"grep ^SigBlk: /proc/self/status >'{seen}'", "exit 1", shell="/bin/bash")
    desk.finish(desk.crashed())
    assert seen.read_text().split() == ["SigBlk:", "0" * 16]


@pytest.mark.parametrize(
    "words",
    [
        "Beim Öffnen der Einstellungen.",
        "",
        "erste Zeile\nzweite Zeile\n\nvierte",
        """'einfach' "doppelt" `id` $(id) $HOME \\ \\n & ; | > < * ? ~ ! #""",
        "-n",
        "100 % ?subject=&body=",
        "=== End Report ===",
    ],
    ids=["words", "empty", "lines", "shell", "option", "address", "mark"],
)
def test_answer_goes_to_the_reports_end_and_with_it_into_the_mail(desk, words):
    held = desk.answers(words + "\n", hold=True)
    applet = desk.crashed()
    wait_until(desk.commands, "the dialog")
    before = desk.report
    read(before, signal.SIGSEGV)
    held.release()
    desk.finish(applet)
    if words == "-n":
        # It is echo's own word.
        assert desk.report == f"{before}\nUser description:\n"
    else:
        assert desk.report == described(before, words)
    subject, body = desk.mail()
    assert unquote(body) == desk.report
    assert desk.commands() == ["zenity", "xdg-open"]


@pytest.mark.parametrize("number", SIGNALS, ids=lambda number: number.name)
def test_subject_names_the_signal_and_the_reports_time(desk, number):
    desk.answers("x\n")
    desk.finish(desk.crashed(number))
    subject, body = desk.mail()
    report = read(unquote(body).removesuffix("\nUser description:\nx\n"), number)
    name = SIGNALS[number].rpartition(" (")[0]
    assert unquote(subject) == f"Veldrin Crash: {name} - {report.time}"
    # All that an address could take for its own travels encoded.
    assert not re.search(r"[^\w.~/%-]", subject + body)


def test_encoder_gets_the_report_and_then_the_subject(desk):
    desk.tools.remove("python3")
    desk.tools.put_stand_in("python3")
    desk.tools.answer("python3 *", stdout="SUBJECT\n")
    desk.tools.answer("python3 *data*", stdout="BODY\n")
    desk.answers("x\n")
    desk.finish(desk.crashed())
    _, body, subject, _ = desk.tools.commands()
    path = desk.machine.runtime / REPORT
    assert body == [
        "python3",
        "-c",
        f"\nimport urllib.parse, sys\nwith open('{path}') as f: data = f.read()\nprint(urllib.parse.quote(data))\n",
    ]
    time_of_crash = read(desk.report.removesuffix("\nUser description:\nx\n"), signal.SIGSEGV).time
    title = f"Veldrin Crash: SIGSEGV (Segmentation fault) - {time_of_crash}"
    assert subject == ["python3", "-c", f"import urllib.parse; print(urllib.parse.quote('{title}'))"]
    assert desk.mail() == ("SUBJECT", "BODY")
    assert desk.commands() == ["zenity", "python3", "python3", "xdg-open"]


@pytest.mark.parametrize("status", [1, 2, 5, 127, 255])
def test_without_consent_the_report_stays_and_no_mail_opens(desk, status):
    # Even words already written do not count.
    held = desk.answers("not to be sent\n", status=status, hold=True)
    applet = desk.crashed()
    wait_until(desk.commands, "the dialog")
    before = (desk.report, (desk.machine.runtime / REPORT).stat().st_mtime_ns)
    held.release()
    desk.finish(applet)
    assert (desk.report, (desk.machine.runtime / REPORT).stat().st_mtime_ns) == before
    read(desk.report, signal.SIGSEGV)
    assert desk.commands() == ["zenity"]


def test_process_ends_at_once_while_the_dialog_stands(desk):
    held = desk.answers("x\n", hold=True)
    applet = desk.machine.start(environment=GERMAN)
    begin = time.monotonic()
    dies(applet, signal.SIGSEGV)
    assert time.monotonic() - begin < AT_ONCE
    wait_until(desk.commands, "the dialog")
    assert desk.orphans.running(applet)
    held.release()
    desk.finish(applet)
    assert desk.commands() == ["zenity", "xdg-open"]


def test_dialog_holds_none_of_the_applets_connections(desk):
    # A bus or a display that still had one would show the dead applet's icon and windows for as long as the dialog.
    held = desk.answers("x\n", hold=True)
    applet = desk.crashed()
    wait_until(desk.commands, "the dialog")
    processes = [int(entry.name) for entry in Path("/proc").iterdir() if entry.name.isdecimal()]
    left = [pid for pid in processes if group_of(pid) == applet.process.pid]
    assert left
    for pid in left:
        with contextlib.suppress(FileNotFoundError):
            files = [os.readlink(file) for file in Path(f"/proc/{pid}/fd").iterdir()]
            assert not [file for file in files if file.startswith("socket:")]
    held.release()
    desk.finish(applet)


def test_dialog_is_there_for_longer_than_the_handlers_patience(desk):
    held = desk.answers("spät\n", hold=True)
    applet = desk.crashed()
    begin = time.monotonic()
    wait_until(lambda: time.monotonic() - begin > 6 or not desk.orphans.running(applet), "the end of the patience")
    held.release()
    desk.finish(applet)
    assert desk.commands() == ["zenity", "xdg-open"]


def test_fault_on_the_check_thread_asks_as_well(desk):
    desk.answers("x\n")
    applet = desk.machine.start(preload=[CRASH], environment={**GERMAN, "CRASH": "popen=abrt"})
    applet.begin_check()
    assert applet.exit_status() == -signal.SIGABRT
    desk.finish(applet)
    assert desk.commands() == ["zenity", "xdg-open"]


# ---- What is missing or fails ----


def test_without_zenity_nothing_happens(desk):
    desk.tools.remove("zenity")
    desk.finish(desk.crashed())
    read(desk.report, signal.SIGSEGV)
    assert desk.commands() == []


@pytest.mark.parametrize("failing", [False, True], ids=["missing", "failing"])
def test_without_an_encoder_the_mail_is_empty(desk, failing):
    desk.tools.remove("python3")
    if failing:
        desk.tools.put_stand_in("python3")
        desk.tools.answer("python3 *", stderr="Traceback\n", status=1)
    desk.answers("x\n")
    desk.finish(desk.crashed())
    assert desk.mail() == ("", "")
    assert desk.report.endswith("=== End Report ===\n\nUser description:\nx\n")


@pytest.mark.parametrize("missing", [False, True], ids=["failing", "missing"])
def test_mail_program_that_fails_is_no_matter(desk, missing):
    if missing:
        desk.tools.remove("xdg-open")
    desk.tools.answer("xdg-open *", stderr="no method available\n", status=3)
    desk.answers("x\n")
    desk.finish(desk.crashed())
    assert desk.report.endswith("=== End Report ===\n\nUser description:\nx\n")
    assert desk.commands() == ["zenity"] + ["xdg-open"] * (not missing)


def test_fork_that_fails_means_no_dialog(desk):
    desk.answers("x\n")
    applet = desk.crashed(preload=[CRASH], environment={**GERMAN, "CRASH": "fork=fail"})
    assert desk.orphans.none(applet)
    read(desk.report, signal.SIGSEGV)
    assert desk.commands() == []


def test_without_bash_the_child_ends_silently(desk):
    desk.answers("x\n")
    options = other_world(desk.machine.folder / "root", desk.machine.folder)
    # Of all mentions, this is what makes the folder: a link, or the folder of this machine.
    last = len(options) - 1 - options[::-1].index(Path("/bin"))
    del options[last - 2 : last + 1]
    assert Path("/bin") not in options
    applet = desk.machine.start(around=options, environment=GERMAN)
    applet.send(signal.SIGSEGV)
    assert applet.exit_status() == 128 + signal.SIGSEGV
    desk.finish(applet)
    read(desk.report, signal.SIGSEGV)
    assert desk.commands() == []


def test_apostrophe_in_the_path_breaks_the_quoting(desk):
    runtime = desk.machine.folder / "it's"
    runtime.mkdir(mode=0o700)
    desk.answers("x\n")
    applet = desk.crashed(environment={**GERMAN, "XDG_RUNTIME_DIR": str(runtime)})
    applet.expected_stderr = COMPLAINT
    assert desk.orphans.status(applet) != 0
    read((runtime / REPORT).read_text(), signal.SIGSEGV)
    assert "xdg-open" not in desk.commands()


# ---- The environment ----


@pytest.mark.parametrize("changes", [{}, {"WAYLAND_DISPLAY": "wayland-7", "XAUTHORITY": "/nowhere/.Xauthority"}])
def test_dialog_inherits_the_session(desk, changes):
    applet = desk.crashed(environment={**GERMAN, **changes, "GDK_BACKEND": "x11"})
    desk.finish(applet)
    (call,) = desk.tools.calls()
    expected = {**desk.machine.environment, **GERMAN, **changes}
    for name in ("DISPLAY", "WAYLAND_DISPLAY", "XAUTHORITY", "HOME", "LANG", "LC_ALL", "LANGUAGE", "XDG_RUNTIME_DIR"):
        assert call.environment.get(name) == expected.get(name), name


def test_dialog_inherits_the_applets_input_and_files(desk):
    given = desk.machine.folder / "given"
    given.write_text("Ein Anfang.\n")
    seen = desk.machine.folder / "seen"
    desk.tools.put_script("zenity", f"{{ /bin/cat; /bin/cat <&7; }} >'{seen}'", "exit 1")
    desk.finish(desk.crashed(around=["bash", "-c", 'exec "$@" <"$0" 7<"$0"', given]))
    # The dialog's text begins with what comes by its input.
    assert seen.read_text() == "Ein Anfang.\n" * 2


# The library's word on a locale that this machine has not got.
ANY_WARNING = ".*"


@pytest.mark.parametrize(
    "languages",
    [
        {"LANG": "de_DE.UTF-8"},
        {"LANG": "de_DE.UTF-8", "LC_ALL": "POSIX"},
        {"LANG": "en_US.UTF-8", "LANGUAGE": "de"},
        {"LANG": "C.UTF-8", "LANGUAGE": "de:en"},
        {"LANG": "C.UTF-8", "LC_ALL": "de_AT"},
        {"LANG": None, "LC_ALL": "C.UTF-8", "LANGUAGE": "de_CH"},
    ],
    ids=lambda languages: ",".join(f"{name}={value}" for name, value in languages.items()),
)
def test_german_environment_gets_the_dialog(desk, languages):
    desk.answers("x\n")
    applet = desk.crashed(environment=languages)
    applet.expected_stderr = ANY_WARNING
    desk.finish(applet)
    assert desk.commands() == ["zenity", "xdg-open"]
    assert desk.tools.commands()[0] == ZENITY


@pytest.mark.parametrize(
    "languages",
    [
        {"LANG": "en_US.UTF-8"},
        {"LANG": "DE_de"},
        {"LANG": "C.UTF-8", "LC_ALL": "C.UTF-8", "LANGUAGE": "en:de"},
        {"LANG": "C.UTF-8", "LC_MESSAGES": "de_DE.UTF-8"},
        {"LANG": None},
    ],
    ids=lambda languages: ",".join(f"{name}={value}" for name, value in languages.items()),
)
def test_other_environments_get_no_dialog(desk, languages):
    # The English button's apostrophe makes a script of which bash runs nothing.
    desk.answers("x\n")
    applet = desk.crashed(environment=languages)
    applet.expected_stderr = rf"(.*\n)?{COMPLAINT}"
    assert desk.orphans.status(applet) not in (0, -signal.SIGALRM)
    assert desk.commands() == []
    read(desk.report, signal.SIGSEGV)


# ---- With the real dialog ----


def xdotool(machine, *words: str) -> str:
    environment = {"DISPLAY": machine.environment["DISPLAY"], "PATH": SYSTEM}
    return subprocess.run(["xdotool", *words], env=environment, stdout=subprocess.PIPE, text=True, check=False).stdout


def test_user_writes_what_happened_and_sends_it(desk):
    machine = desk.machine
    desk.tools.remove("zenity")
    desk.tools.put("zenity")
    applet = desk.crashed()
    find = ("search", "--onlyvisible", "--name", "^Veldrin - K")
    window = wait_until(lambda: xdotool(machine, *find).strip(), "the dialog")
    assert xdotool(machine, "getwindowname", window).strip() == QUESTION
    size = dict(line.split("=") for line in xdotool(machine, "getwindowgeometry", "--shell", window).splitlines())
    assert (int(size["WIDTH"]), int(size["HEIGHT"])) == (500, 250)
    xdotool(machine, "mousemove", "--window", window, "200", "80", "click", "1")
    xdotool(machine, "type", "--delay", "30", "It happened 'at once'")
    # In zenity 4 the buttons stand higher than in zenity 3; this is a point of both.
    xdotool(machine, "mousemove", "--window", window, str(int(size["WIDTH"]) - 60), str(int(size["HEIGHT"]) - 34))
    xdotool(machine, "click", "1")
    desk.finish(applet)
    assert desk.report.endswith("=== End Report ===\n\nUser description:\nIt happened 'at once'\n")
    subject, body = desk.mail()
    assert unquote(body) == desk.report
    assert unquote(subject).startswith("Veldrin Crash: SIGSEGV (Segmentation fault) - 20")
