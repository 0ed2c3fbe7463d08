# SPDX-License-Identifier: MIT
"""A builder's own addresses: those that would be used wrongly do not compile, and the compiler says why."""

import re
import subprocess
from itertools import zip_longest
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
SITES = ["VELDRIN_RELEASE_SITE", "VELDRIN_RELEASE_APEX", "VELDRIN_RELEASE_CDN", "VELDRIN_GIT_BROWSER"]
TREE = "VELDRIN_MAINLINE_TREE"
WEBSITE = "VELDRIN_WEBSITE"
CONTACT = "VELDRIN_CONTACT"

NO_SCHEME = "{} must begin with https://"
NO_SLASH = "{} must end with a slash: without it, a host whose name goes on would pass for this one"
NO_HOST = "{} must name a host"
MORE = "{} must hold nothing but a host between its scheme and the slash at its end"
BYTE = "{} holds a byte that an address must not hold"
NO_PATH = "VELDRIN_MAINLINE_TREE must be a path without slashes at its ends"
NO_WEBSITE = "VELDRIN_WEBSITE must begin with a scheme, such as https://"
CONTACT_BYTE = "VELDRIN_CONTACT must hold nothing but letters, digits and the characters ._+-@"
NO_MAILBOX = "VELDRIN_CONTACT must be a name, one @ and a host"

BAD_SITES = [
    ("https://corp.example", [NO_SLASH]),
    ("http://corp.example/", [NO_SCHEME]),
    ("HTTPS://corp.example/", [NO_SCHEME]),
    ("ftp://corp.example/", [NO_SCHEME]),
    ("corp.example/", [NO_SCHEME]),
    ("corp.example", [NO_SCHEME, NO_SLASH]),
    ("", [NO_SCHEME, NO_SLASH, NO_HOST]),
    ("https://", [NO_HOST]),
    ("https:///", [NO_HOST]),
    ("https:////", [MORE]),
    ("https://corp.example//", [MORE]),
    ("https://corp.example/kernel/", [MORE]),
    ("https://corp.example/kernel", [NO_SLASH, MORE]),
    ("https://corp.example?/", [MORE]),
    ("https://corp.example#/", [MORE]),
    ("https://corp.example'/", [BYTE]),
    ("https://corp.example\\\\/", [BYTE]),
    ("https://corp.example`id`/", [BYTE]),
    ("https://corp example/", [BYTE]),
    (" https://corp.example/", [NO_SCHEME, MORE, BYTE]),
    ("https://corp.example/\\n", [NO_SLASH, MORE, BYTE]),
    ("https://corp.example\\t/", [BYTE]),
    ("https://kernhäven.example/", [BYTE]),
    ('https://corp.example\\"/', [BYTE]),
    ("https://<corp.example>/", [BYTE]),
    ("https://{corp}.example/", [BYTE]),
]

BAD_TREES = [
    ("", [NO_PATH]),
    ("/", [NO_PATH]),
    ("/pub/linux.git", [NO_PATH]),
    ("pub/linux.git/", [NO_PATH]),
    ("pub/linux.git?x", [NO_PATH]),
    ("pub/linux.git#x", [NO_PATH]),
    ("pub/linux git", [BYTE]),
    ("pub/linux'.git", [BYTE]),
    ("pub\\\\linux.git", [BYTE]),
    ("pub/linüx.git", [BYTE]),
]

BAD_WEBSITES = ["veldrin.org", "", "https", "https://", "://veldrin.org", "veldrin.org/://x", "mailto:me@veldrin.org"]

# What would end the quotes around it, start a command, end the link's address, or name a second receiver.
BAD_CONTACTS = [
    (f"a{byte}b@corp.example", [CONTACT_BYTE])
    for byte in ['\\"', "$", "`", "\\\\", "\\n", "'", "<", ">", "&", "?", "#", "%", " ", "\\t", ";", ",", ":", "/", "(",
                 "|", "!", "*", "=", "\\177", "ä"]
] + [
    ("a@b@corp.example", [NO_MAILBOX]),
    ("corp.example", [NO_MAILBOX]),
    ("@corp.example", [NO_MAILBOX]),
    ("support@", [NO_MAILBOX]),
    ("", [NO_MAILBOX]),
]  # fmt: skip

# Values that are wrong, one of each kind, go through the compiler together: it complains of all.
BAD = list(
    zip_longest(
        BAD_SITES, BAD_TREES, [(value, [NO_WEBSITE]) for value in BAD_WEBSITES], BAD_CONTACTS, fillvalue=(None, [])
    )
)

GOOD_SITES = ["https://corp.example/", "https://m/", "https://mirror.corp.example:8443/", "https://[2001:db8::1]/",
              "https://user@corp.example/"]  # fmt: skip
GOOD_TREES = ["linux.git", "pub/scm/linux/kernel/git/torvalds/linux.git"]
GOOD_WEBSITES = ["https://veldrin.org", "http://veldrin.org/tray/?lang=en#about"]
GOOD_CONTACTS = ["support@corp.example", "Kernel_Team+veldrin-1.3@mail.corp.example", "a@b"]
GOOD = list(zip_longest(GOOD_SITES, GOOD_TREES, GOOD_WEBSITES, GOOD_CONTACTS))


def builders_own(site: str | None, tree: str | None, website: str | None, contact: str | None) -> dict[str, str]:
    """These values, the first for all sites; None leaves the default."""
    values = {**dict.fromkeys(SITES, site), TREE: tree, WEBSITE: website, CONTACT: contact}
    return {name: value for name, value in values.items() if value is not None}


def complaints(compiler: str, values: dict[str, str]) -> list[str]:
    """What a file that includes the addresses is refused for; a value is a literal of C without its quotes."""
    words = [compiler, "-std=c++20", "-fsyntax-only", f"-I{ROOT / 'src'}", "-xc++", "-"]
    words += [f'-D{name}="{value}"' for name, value in values.items()]
    result = subprocess.run(words, input='#include "sites.h"\n', capture_output=True, text=True, check=False)
    found = re.findall(r"error: static.assert.*\b(VELDRIN_\w+ (?:must|holds) [^\"\n]*)", result.stderr)
    assert len(found) == len(re.findall(r"\berror:", result.stderr)), result.stderr
    assert (result.returncode == 0) == (not found), result.stderr
    return found


@pytest.fixture(name="compiler", params=["g++", "clang++"])
def each_compiler(request) -> str:
    return request.param


@pytest.mark.parametrize(("site", "tree", "website", "contact"), BAD)
def test_what_would_be_used_wrongly_does_not_compile(compiler, site, tree, website, contact):
    wanted = [complaint.format(name) for name in SITES for complaint in site[1]]
    wanted += [complaint.format(TREE) for complaint in tree[1]] + website[1] + contact[1]
    assert complaints(compiler, builders_own(site[0], tree[0], website[0], contact[0])) == wanted


@pytest.mark.parametrize("values", GOOD)
def test_what_can_be_used_compiles(compiler, values):
    assert complaints(compiler, builders_own(*values)) == []


def test_the_defaults_compile(compiler):
    assert complaints(compiler, {}) == []


# ---- By the build's variables ----


@pytest.fixture(name="build")
def build_with_addresses(tmp_path):
    def build(**values: str) -> subprocess.CompletedProcess[str]:
        """Configures the project with these and compiles a file that reads one of them."""
        options = ["-G", "Ninja", "-DVELDRIN_TESTS=OFF", *(f"-D{name}={value}" for name, value in values.items())]
        configured = subprocess.run(
            ["cmake", "-S", ROOT, "-B", tmp_path, *options], capture_output=True, text=True, check=False
        )
        if configured.returncode:
            return configured
        one_file = ["ninja", "-C", tmp_path, "CMakeFiles/veldrin.dir/src/crash_handler.cpp.o"]
        return subprocess.run(one_file, capture_output=True, text=True, check=False)

    return build


def test_a_build_without_the_slash_at_a_sites_end_fails_and_says_why(build):
    result = build(VELDRIN_RELEASE_APEX="https://corp.example")
    assert result.returncode != 0
    assert NO_SLASH.format("VELDRIN_RELEASE_APEX") in result.stdout


def test_a_build_with_an_organisations_own_values_succeeds(build, tmp_path):
    result = build(VELDRIN_RELEASE_APEX="https://corp.example/", VELDRIN_CONTACT="team+veldrin@corp.example")
    assert result.returncode == 0, result.stdout + result.stderr
    assert b"team+veldrin@corp.example" in (tmp_path / "CMakeFiles/veldrin.dir/src/crash_handler.cpp.o").read_bytes()


@pytest.mark.parametrize("value", ['a"b@corp.example', "a\\b@corp.example", "a;b@corp.example"])
def test_a_value_that_would_not_arrive_as_it_is_does_not_configure(build, value):
    result = build(VELDRIN_CONTACT=value)
    assert result.returncode != 0
    words = " ".join(result.stderr.split())
    assert "VELDRIN_CONTACT must hold no double quote, no backslash and no semicolon." in words
