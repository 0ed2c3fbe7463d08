# SPDX-License-Identifier: MIT
"""What an installation brings: the files that the Debian package is to hold, and none that the RPM's recipe forgets."""

import os
import re
import subprocess
from fnmatch import fnmatchcase
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
MACROS = {
    "_prefix": "/usr",
    "_bindir": "/usr/bin",
    "_datadir": "/usr/share",
    "_mandir": "/usr/share/man",
    "_sysconfdir": "/etc",
}
# debhelper adds these, and compresses the manuals.
ADDED_BY_DEBIAN = re.compile(r"usr/share/(doc|lintian)/")


@pytest.fixture(name="installed", scope="module")
def installed_files(tmp_path_factory) -> set[str]:
    build = tmp_path_factory.mktemp("build")
    options = ["-G", "Ninja", "-DVELDRIN_TESTS=OFF", "-DCMAKE_INSTALL_PREFIX=/usr"]
    subprocess.run(["cmake", "-S", ROOT, "-B", build, *options], check=True, stdout=subprocess.DEVNULL)
    # In place of the program, whose compilation would add nothing here.
    (build / "veldrin").touch()
    place = build / "installed"
    environment = {**os.environ, "DESTDIR": str(place)}
    subprocess.run(["cmake", "--install", build], check=True, stdout=subprocess.DEVNULL, env=environment)
    return {str(file.relative_to(place)) for file in place.rglob("*") if file.is_file()}


def test_an_installation_is_what_the_debian_package_holds(installed):
    wanted = {file.removesuffix(".gz") for file in (Path(__file__).parent / "files").read_text().split()
              if not ADDED_BY_DEBIAN.match(file)}  # fmt: skip
    assert installed == wanted


def test_the_rpm_packs_all_of_an_installation_and_asks_for_nothing_else(installed):
    spec = (ROOT / "packaging/rpm/veldrin.spec").read_text()
    section = re.search(r"^%files\n(.*?)\n\n", spec, re.MULTILINE | re.DOTALL)[1]
    paths = [line.split()[-1] for line in section.splitlines() if not line.startswith(("%license", "%doc"))]
    patterns = [re.sub(r"%\{(\w+)\}", lambda macro: MACROS[macro[1]], path) for path in paths]
    files = ["/" + file for file in installed]
    assert [file for file in files if not any(fnmatchcase(file, pattern) for pattern in patterns)] == []
    assert [pattern for pattern in patterns if not any(fnmatchcase(file, pattern) for file in files)] == []
