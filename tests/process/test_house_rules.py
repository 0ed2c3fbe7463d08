# SPDX-License-Identifier: MIT
"""tests/form's own rules: each is seen to fail where it is broken, and none where a file only looks like it."""

import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
LAYERS = "From the ground up: `low` · `high`.\n"
# In pieces, lest this file break the rules itself.
WORK, HOME, SUPERUSER = "/" + "work/", "/" + "home/ada/", "/" + "root/"


def complaints(folder: Path, files: dict[str, str]) -> list[str]:
    """What the rules say of a checkout with these files beside two modules in order."""
    sound = {"docs/architecture.md": LAYERS, "src/low.h": "", "src/high.cpp": '#include "low.h"\n'}
    for name, text in (sound | files).items():
        (folder / name).parent.mkdir(parents=True, exist_ok=True)
        (folder / name).write_text(text)
    for command in (["init", "--quiet"], ["add", "--all"]):
        subprocess.run(["git", *command], cwd=folder, check=True)
    told = subprocess.run([ROOT / "tests/form", "--rules", folder], capture_output=True, text=True)
    assert told.stderr == ""
    assert told.returncode == bool(told.stdout)
    return told.stdout.splitlines()


@pytest.mark.parametrize(
    ("name", "text", "complaint"),
    [
        ("src/low.cpp", "//" + "x" * 119, "src/low.cpp:1: 121 columns, and 120 are the most"),
        ("tools/list", "\n#" + "ö" * 120, "tools/list:2: 121 columns, and 120 are the most"),
        ("tests/raw.cpp", f'auto a = R"(\n{"x" * 121}\n)";\n//{"x" * 119}', "tests/raw.cpp:4: 121 columns, and"),
        ("tests/long.cpp", "\n" * 951, "tests/long.cpp: 951 lines, and 950 are the most"),
        ("tools/demo.d/machine/tool.c", "\n" * 951, "tools/demo.d/machine/tool.c: 951 lines"),
        (
            "src/low.cpp",
            'void f() {\n    std::system ("ls");\n}',
            "src/low.cpp:2: popen() is this program's only shell",
        ),
        ("tools/run", f"cd {WORK}main", "tools/run:1: a path of one machine"),
        ("docs/a.md", f"see `{HOME}x`", "docs/a.md:1: a path of one machine"),
        ("tests/a.py", f'PLACE = "{SUPERUSER}x"', "tests/a.py:1: a path of one machine"),
        ("tests/systems/run", f"ls {SUPERUSER}other", "tests/systems/run:1: a path of one machine"),
        ("src/low.cpp", "// as the " + "specification says", "src/low.cpp:1: a word that leads out"),
        ("src/low.cpp", "// so says the\n    // " + "Specification", "src/low.cpp:1: a word that leads out"),
        ("README.md", "see Part " + "3.1", "README.md:1: a word that leads out"),
        ("tests/a.sh", "# for Issue " + "12", "tests/a.sh:1: a word that leads out"),
        ("src/low.cpp", '#include <cstdio>\n#include "high.h"\n', "src/low.cpp:2: low does not stand above high"),
        ("src/low.h", '#include "high.h"\n', "src/low.h:1: low does not stand above high"),
        ("src/high.cpp", '#include "none.h"\n', None),
        ("src/new.h", "", "docs/architecture.md: new has no layer"),
        ("src/new_rgba.h", "", "docs/architecture.md: new_rgba has no layer"),
        (
            "docs/architecture.md",
            "From the ground up: `low` · `high` · `gone`.",
            "docs/architecture.md: gone stands there",
        ),
        ("docs/architecture.md", "From the ground up: `low`, `high`.", "src/high.cpp:1: high does not stand above low"),
        ("docs/architecture.md", "Nothing.", "docs/architecture.md: no line"),
    ],
)
def test_a_broken_rule_is_told(tmp_path: Path, name: str, text: str, complaint: str | None):
    told = complaints(tmp_path, {name: text})
    assert len(told) == (complaint is not None)
    assert complaint is None or told[0].startswith(complaint)


def test_what_only_looks_like_it_is_no_offence(tmp_path: Path):
    files = {
        "src/low.cpp": f"//{'x' * 118}\nint get_system() {{ return operating_system(1); }}\n",
        "src/low_rgba.h": "\n" * 951,
        "docs/architecture.md": "From the ground up: `low`, `low_rgba` · `high`.\n",
        "docs/table.md": "| " + "x" * 130,
        "tests/edge.cpp": "\n" * 950,
        "tests/fuzz/corpus/a/b": f"{'x' * 130} {WORK} in the " + "specification, Part " + "1",
        "tests/systems/run": f"mv {SUPERUSER}veldrin x",
        "tools/paths": "ls $HOME/work/x ${root}/root/y build/work/z tree/home/ada/\n",
        "tests/words.cpp": "part * 2, issues, the specifications, a specification, Part of 3, issuer 1\n",
        "tests/script": "#!/usr/bin/python3\n# " + "x" * 130,
        "art/a.svg": "x" * 130,
    }
    assert complaints(tmp_path, files) == []


def test_a_file_that_does_not_name_its_licence_is_told(tmp_path: Path):
    line = "SPDX-License-" + "Identifier: MIT"
    files = {
        ".reuse/dep5": "",
        "docs/architecture.md": f"<!-- {line} -->\n\n{LAYERS}",
        "src/low.h": f"// {line}\n",
        "src/high.cpp": '#include "low.h"\n',
        "tests/run": f"#!/bin/bash\n# {line}\n",
        "tests/late": f"#!/bin/bash\n\n\n# {line}\n",
        "tests/other": "# SPDX-License-" + "Identifier: GPL-2.0-only\n",
        "LICENSES/MIT.txt": "",
        "CMakePresets.json": "{}",
        "debian/changelog": "",
        "debian/rules": "",
        "tests/fuzz/corpus/a/b": "",
        "tools/demo.d/machine/version": "",
        "tools/demo.d/machine/uname.c": "",
    }
    told = [complaint.split(":")[0] for complaint in complaints(tmp_path, files)]
    assert told == ["debian/rules", "src/high.cpp", "tests/late", "tests/other", "tools/demo.d/machine/uname.c"]


def test_what_is_not_tracked_does_not_count(tmp_path: Path):
    assert complaints(tmp_path, {}) == []
    (tmp_path / "notes").write_text("x" * 130)
    told = subprocess.run([ROOT / "tests/form", "--rules", tmp_path], capture_output=True, text=True)
    assert told.stdout == ""
