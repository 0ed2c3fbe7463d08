# SPDX-License-Identifier: MIT
"""Checks by the real wget and curl against the local copy of the release site."""

import socket
import threading
from pathlib import Path

import pytest
from stage.applet import AT_ONCE, Applet, Machine
from stage.site import KernelSite
from stage.tools import RealTools
from stage.user import state_text
from stage.waiting import wait_until

WWW = "www.kernel.org"


class Network:
    """An applet's view of the site, by the real tools."""

    def __init__(self, machine: Machine, site: KernelSite) -> None:
        self._machine = machine
        self._site = site
        self.tools = RealTools(machine.folder / "real-tools")

    def start(self, **environment: str) -> Applet:
        return self._machine.start(
            environment={**self._site.environment, "PATH": str(self.tools.folder), **environment}
        )

    def start_and_check(self, **environment: str) -> Applet:
        applet = self.start(**environment)
        applet.check()
        return applet

    def requests(self, applet: Applet) -> list[tuple[str, int | None, str]]:
        """Method, status and If-Modified-Since of the requests of the next check."""
        self._site.clear_requests()
        applet.check()
        return [(request.method, request.status, request.if_modified_since) for request in self._site.requests()]


@pytest.fixture
def network(machine: Machine, site: KernelSite) -> Network:
    return Network(machine, site)


SAVED = state_text("", "7.8.4", "7.9-rc3", "7.8.4", "7.6.21")


def test_first_check(machine, site, network):
    applet = network.start()
    assert network.requests(applet) == [("GET", 200, ""), ("HEAD", 200, "")]
    assert (applet.item.icon, applet.item.label) == ("tux-green", "7.8.4")
    assert machine.saved == SAVED


def test_unchanged_page_is_answered_by_304_twice(machine, site, network):
    applet = network.start_and_check()
    before = machine.time_of_save
    asked = ("HEAD", 304, site.last_modified)
    assert network.requests(applet) == [asked, asked]
    assert network.requests(applet) == [asked, asked]
    assert machine.time_of_save == before


def test_new_release_turns_white_to_green(machine, site, network):
    machine.saves(kernel="7.8.4", latest_kernel="7.8.4", stable="7.8.4", longterm="7.6.20", channel="longterm")
    applet = network.start_and_check()
    assert (applet.item.icon, applet.item.label) == ("tux-white", "7.6.21")
    known = site.last_modified
    site.publish(stable="7.8.5", longterm="7.6.22")
    asked = ("HEAD", 200, known)
    assert network.requests(applet) == [asked, asked, ("GET", 200, ""), ("HEAD", 200, "")]
    assert (applet.item.icon, applet.item.label) == ("tux-green", "7.6.22")
    assert machine.saved == state_text("7.8.4", "7.8.5", "7.9-rc3", "7.8.5", "7.6.22", "longterm")


@pytest.mark.parametrize("code", [403, 404, 500, 503])
def test_error_status_changes_nothing_until_the_site_is_back(machine, site, network, code):
    machine.saves_text(SAVED)
    before = machine.time_of_save
    site.misbehave(WWW, "/", "status", code=code)
    applet = network.start()
    # The second GET is curl's, which is content with an error page. A HEAD that gets a 500 is followed by a GET.
    last = [("HEAD", code, "")] + [("GET", code, "")] * (code == 500)
    assert network.requests(applet) == [("GET", code, ""), ("GET", code, ""), *last]
    assert (applet.item.icon, applet.item.label) == ("tux-red", "7.8.4")
    assert machine.time_of_save == before
    site.behave()
    site.publish(stable="7.8.5")
    applet.check()
    assert (applet.item.icon, applet.item.label) == ("tux-green", "7.8.5")


@pytest.mark.parametrize("code", [500, 501])
def test_site_that_refuses_head_is_asked_by_get(machine, site, network, code):
    # An unchanged page costs no download and no save there, either.
    site.misbehave(WWW, "/", "status", code=code, method="HEAD")
    applet = network.start()
    assert network.requests(applet) == [("GET", 200, ""), ("HEAD", code, ""), ("GET", 200, "")]
    assert (applet.item.label, machine.saved) == ("7.8.4", SAVED)
    before = machine.time_of_save
    known = site.last_modified
    assert network.requests(applet) == [("HEAD", code, known), ("GET", 304, known)] * 2
    assert machine.time_of_save == before
    site.publish(stable="7.8.5")
    applet.check()
    assert (applet.item.icon, applet.item.label) == ("tux-green", "7.8.5")


def test_error_status_between_good_checks_keeps_the_versions(machine, site, network):
    applet = network.start_and_check()
    known = site.last_modified
    site.misbehave(WWW, "/", "status", code=503)
    assert network.requests(applet)[:2] == [("HEAD", 503, known)] * 2
    assert applet.item.label == "7.8.4"
    assert machine.saved == SAVED


def test_redirect_is_followed(site, network):
    site.misbehave(WWW, "/", "redirect", to=f"https://{WWW}/index.html", exact=True)
    applet = network.start()
    assert network.requests(applet) == [("GET", 301, ""), ("GET", 200, ""), ("HEAD", 301, ""), ("HEAD", 200, "")]
    assert applet.item.label == "7.8.4"
    asked = [("HEAD", 301, site.last_modified), ("HEAD", 304, site.last_modified)]
    assert network.requests(applet) == asked * 2


def test_unreachable_host_leaves_all_as_it_is(machine, site, network):
    site.misbehave(WWW, "/", "unreachable")
    applet = network.start_and_check()
    assert (applet.item.icon, applet.item.label) == ("tux-red", "")
    assert machine.saved is None
    # One of wget and one of curl.
    assert len(site.connections()) == 2


def test_silent_site_gets_two_tries_of_each_wget(machine, site, network):
    network.tools.make_impatient()
    applet = network.start_and_check()
    assert applet.item.label == "7.8.4"
    before = len(site.connections())
    site.misbehave(WWW, "/", "silence")
    applet.check()
    # Two conditional requests and the page by wget, twice each, then the page by curl.
    assert len(site.connections()) == before + 7
    assert applet.item.label == "7.8.4"
    assert machine.saved == SAVED


def test_silent_site_gets_two_tries_of_wget2_in_wgets_place(site, network):
    network.tools.make_impatient(wget="wget2")
    site.misbehave(WWW, "/", "silence")
    network.start_and_check()
    # The page by wget2, twice, then by curl.
    assert len(site.connections()) == 3


def test_site_that_hangs_up_gets_two_tries_of_wget_and_one_of_curl(network):
    connections = []
    with socket.create_server(("127.0.0.1", 0)) as server:

        def hang_up() -> None:
            while True:
                try:
                    connection, _ = server.accept()
                except OSError:
                    return
                connections.append(connection.recv(4096))
                connection.close()

        thread = threading.Thread(target=hang_up)
        thread.start()
        try:
            proxy = f"http://127.0.0.1:{server.getsockname()[1]}/"
            applet = network.start_and_check(https_proxy=proxy, http_proxy=proxy)
        finally:
            server.shutdown(socket.SHUT_RDWR)
            thread.join()
    assert len(connections) == 3
    assert applet.item.label == ""


def test_quit_while_the_site_is_silent(machine, site, network):
    site.misbehave(WWW, "/", "silence")
    applet = network.start()
    applet.begin_check()
    wait_until(site.connections, "wget's connection")
    applet.item.menu.click("Quit")
    assert applet.exit_status(AT_ONCE) == 0
    assert machine.saved is None


def test_304_in_another_header_counts_as_not_modified(site, network):
    applet = network.start_and_check()
    known = site.last_modified
    site.publish(stable="7.8.5")
    site.misbehave(WWW, "/", "headers", headers={"X-Request": "a304f"})
    assert network.requests(applet) == [("HEAD", 200, known)] * 2
    assert applet.item.label == "7.8.4"


@pytest.mark.parametrize("text", ["'; touch marker; '", "$(touch marker)", "`touch marker`", '" & touch marker & "'])
def test_hostile_last_modified_is_sent_back_as_it_came(machine, site, network, text):
    network.tools.put("touch")
    site.misbehave(WWW, "/", "last-modified", text=text)
    applet = network.start_and_check()
    assert applet.item.label == "7.8.4"
    assert network.requests(applet) == [("HEAD", 304, text)] * 2
    assert not list(machine.folder.rglob("marker"))


def test_header_in_lower_case_makes_every_check_a_download(site, network):
    text = site.last_modified
    site.misbehave(WWW, "/", "last-modified", name="last-modified", text=text)
    applet = network.start_and_check()
    # Blanks before a header's value do not count.
    asked = ("HEAD", 200, f"last-modified: {text}")
    assert network.requests(applet) == [asked, asked, ("GET", 200, ""), ("HEAD", 200, "")]


def test_without_wget_every_check_is_curls_download(site, network):
    network.tools.remove("wget")
    applet = network.start()
    for _ in range(2):
        assert network.requests(applet) == [("GET", 200, "")]
    assert applet.item.label == "7.8.4"
    assert {request.agent.split("/")[0] for request in site.requests()} == {"curl"}


def test_wget2_in_wgets_place_makes_every_check_a_download(site, network):
    # Its spider prints no header lines that could be stored.
    network.tools.put("wget", "wget2")
    applet = network.start()
    for _ in range(2):
        assert network.requests(applet) == [("GET", 200, ""), ("HEAD", 200, "")]
    assert (applet.item.icon, applet.item.label) == ("tux-green", "7.8.4")


def test_users_settings_have_the_last_word(machine, site, network):
    settings = Path(site.environment["WGETRC"]).read_text()
    (machine.home / "own.wgetrc").write_text(settings + "user_agent = Own agent\n")
    network.start_and_check(WGETRC=str(machine.home / "own.wgetrc"))
    assert {request.agent for request in site.requests()} == {"Own agent"}
