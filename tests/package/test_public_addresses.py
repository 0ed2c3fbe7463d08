# SPDX-License-Identifier: MIT
"""Where the project is found, and where bugs go: src/sites.h has the site and the mailbox, and every file that repeats
them, or adds a place to the site, says the same."""

import re
import subprocess
import xml.etree.ElementTree as xml
from pathlib import Path

import pytest
import yaml

ROOT = Path(__file__).resolve().parents[2]
SITES = (ROOT / "src/sites.h").read_text()
WEBSITE = re.search(r'define VELDRIN_WEBSITE "(.*)"', SITES)[1]
CONTACT = re.search(r'define VELDRIN_CONTACT "(.*)"', SITES)[1]
# Below the site; CONTRIBUTING.md lists them for whoever moves the project to a host.
BUGS, SOURCE, REPOSITORY = WEBSITE + "bugs", WEBSITE + "source", WEBSITE + "source/veldrin.git"
SECURITY, QUESTIONS, RELEASES = WEBSITE + "security", WEBSITE + "contact", WEBSITE + "releases/"


def text(name: str) -> str:
    return (ROOT / name).read_text()


def fields(name: str, mark: str) -> dict[str, str]:
    """The lines of a file that are a name, `mark` and a value."""
    return dict(re.findall(rf"^([\w-]+){mark}[ ]*(\S.*)$", text(name), re.MULTILINE))


def test_the_metainfo_says_where():
    urls = xml.parse(ROOT / "data/org.veldrin.Veldrin.metainfo.xml").getroot().findall("url")
    assert {url.get("type"): url.text for url in urls} == {
        "homepage": WEBSITE, "bugtracker": BUGS, "vcs-browser": SOURCE, "contact": QUESTIONS,
    }  # fmt: skip


def test_debian_is_told_where():
    control = fields("debian/control", ":")
    assert control["Homepage"] == WEBSITE
    assert (control["Vcs-Browser"], control["Vcs-Git"]) == (SOURCE, REPOSITORY)
    assert control["Maintainer"].endswith(f"<{CONTACT}>")
    assert yaml.safe_load(text("debian/upstream/metadata")) == {
        "Bug-Database": BUGS,
        "Bug-Submit": BUGS,
        "Repository": REPOSITORY,
        "Repository-Browse": SOURCE,
        "Security-Contact": CONTACT,
    }


@pytest.mark.parametrize("name", ["debian/copyright", ".reuse/dep5"])
def test_the_licence_names_the_site_and_the_mailbox(name):
    said = fields(name, ":")
    assert (said["Source"], said["Upstream-Contact"]) == (WEBSITE, CONTACT)


def test_the_recipes_say_where():
    snap = yaml.safe_load(text("packaging/snap/snapcraft.yaml"))
    assert (snap["website"], snap["issues"], snap["source-code"]) == (WEBSITE, BUGS, SOURCE)
    assert snap["contact"] == CONTACT
    spec = fields("packaging/rpm/veldrin.spec", ":")
    assert (spec["URL"], spec["Source0"]) == (WEBSITE, RELEASES + "%{name}-%{version}.tar.gz")
    arch = fields("packaging/arch/PKGBUILD", "=")
    assert (arch["url"], arch["source"]) == (f"'{WEBSITE}'", f'("{RELEASES}$pkgname-$pkgver.tar.gz")')
    assert f"<{CONTACT}>" in text("packaging/arch/PKGBUILD")


def test_the_reader_is_told_where():
    assert f"<{BUGS}>" in text("README.md")
    assert CONTACT in text("SECURITY.md")
    assert CONTACT in text("data/veldrin.1")
    (link,) = yaml.safe_load(text(".github/ISSUE_TEMPLATE/config.yml"))["contact_links"]
    assert link["url"] == SECURITY


def test_whoever_moves_the_project_finds_a_list_of_the_places():
    for place in (BUGS, SOURCE, REPOSITORY, SECURITY, QUESTIONS, RELEASES):
        assert f"`{place.removeprefix(WEBSITE)}`" in text("CONTRIBUTING.md")


def test_no_file_names_another_site_or_mailbox_of_the_project():
    # What tests and demos make up, and who made a commit, are not the project's.
    listed = subprocess.check_output(
        ["git", "ls-files", "-z", ":!tests", ":!tools/demo.d", ":!bench"], cwd=ROOT, text=True
    ).split("\0")
    host = re.search("//(.*)/", WEBSITE)[1]
    for name in filter(None, listed):
        try:
            said = text(name)
        except UnicodeDecodeError:
            continue
        for address in re.findall(r"\b[a-z]+://[\w.-]*veldrin[\w.-]*\.[\w/.-]*", said):
            assert address.startswith(WEBSITE), f"{name}: {address}"
        for mailbox in re.findall(rf"[\w.+-]+@[\w.-]*{re.escape(host)}", said):
            assert mailbox == CONTACT, f"{name}: {mailbox}"
