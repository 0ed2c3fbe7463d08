# SPDX-License-Identifier: MIT
"""The scenes: what happens in each, and which pictures are taken of it."""

from album import Album
from applet import Applet
from assistive import Hand
from desktop import STILL_WINDOW_FOR, Desktop
from failure import fail
from pictures import Where, difference, release_edge
from stage.site import KernelSite
from subjects import (
    ABOUT,
    CHANGES,
    CHANNELS,
    CRASH,
    DETAILED,
    FILTER,
    FILTERED,
    FIRST_RELEASE,
    GERMAN,
    HOSTS,
    LARGEST,
    MACHINES,
    NEXT_RELEASE,
    SETTINGS,
    SYSTEM,
    WINDOWS,
    WORKSTATION,
)
from wayland import WaylandDesktop
from workshop import MODULES, Workshop


def story(theme: str, workshop: Workshop, album: Album) -> None:
    """A user's first days with Veldrin."""
    with KernelSite() as site, Desktop(theme, "indicator", workshop) as desktop:
        applet = Applet(desktop, site, workshop)

        applet.shows("red", label="")
        album.panel(desktop, "1-red", "first start: red icon, no label")

        applet.check()
        applet.shows("green", label=FIRST_RELEASE)
        album.panel(desktop, "2-green", f"first check: green icon, label {FIRST_RELEASE}")

        menu = applet.open_menu()
        album.menu(desktop, menu)
        applet.close_menu()

        applet.choose("Acknowledge Update")
        applet.shows("white", label=FIRST_RELEASE)
        album.panel(desktop, "3-white", f"acknowledged: white icon, label {FIRST_RELEASE}")

        site.publish(stable=NEXT_RELEASE)
        applet.check()
        applet.shows("green", label=NEXT_RELEASE)
        album.panel(desktop, "4-green", f"a newer release: green icon, label {NEXT_RELEASE}")

        for window in WINDOWS:
            if window is CRASH:
                applet.quit()
                applet = Applet(desktop, site, workshop, **GERMAN)
                applet.shows("green", label=NEXT_RELEASE)
            applet.ask_for(window)
            album.window(desktop, window, applet.where(window))
            applet.close_window(window)


def visit(theme: str, workshop: Workshop, album: Album) -> None:
    """The first check once more, in a tray that knows no labels."""
    with KernelSite() as site, Desktop(theme, "systray", workshop) as desktop:
        applet = Applet(desktop, site, workshop)
        applet.check()
        applet.shows("green", label=FIRST_RELEASE, drawn_label=False)
        album.panel(desktop, "systray", "first check, in the panel's own tray: green icon, it shows no labels")
        applet.quit()


def tour(theme: str, workshop: Workshop, album: Album) -> None:
    """The windows on each channel, large and small, and then without the net."""
    with KernelSite() as site, Desktop(theme, "indicator", workshop) as desktop:
        applet = Applet(desktop, site, workshop)
        applet.check()
        applet.shows("green", label=FIRST_RELEASE)
        desktop.still_for = STILL_WINDOW_FOR

        for channel in CHANNELS:
            applet.ask_for(SETTINGS)
            applet.choose_channel(channel)
            applet.shows("green", label=channel.version)
            applet.shows_header(SETTINGS, channel)
            album.state(
                desktop, applet.where(SETTINGS), f"settings-{channel.name}", f"the overview, {channel.name} chosen"
            )
            applet.close_window(SETTINGS)

            site.clear_requests()
            applet.ask_for(CHANGES)
            desktop.wait(lambda: gave(site, channel.source), f"{channel.source} was not asked for")
            box = applet.shows_header(CHANGES, channel)
            applet.shows_commits(box)
            name = f"changes-{channel.name}-{channel.kind}"
            album.state(desktop, applet.where(CHANGES), name, channel.summary)
            if channel.kind == "text":
                applet.open_first_commit()
                album.state(desktop, applet.where(CHANGES), f"{name}-open", "the same, with a commit's message opened")
            small = applet.shrink(CHANGES)
            applet.shows_commits(small)
            album.state(desktop, applet.where(CHANGES), f"{name}-smallest", "the same, as small as the window gets")
            applet.close_window(CHANGES)

        for host in HOSTS:
            site.misbehave(host, "/", "unreachable")
        applet.ask_for(CHANGES)
        box = applet.shows_header(CHANGES, CHANNELS[-1])
        applet.shows_failure(box)
        album.state(desktop, applet.where(CHANGES), "changes-failure", "the site cannot be reached")
        small = applet.shrink(CHANGES)
        applet.shows_failure(small)
        album.state(desktop, applet.where(CHANGES), "changes-failure-smallest", "the same, as small as the window gets")
        applet.close_window(CHANGES)
        applet.quit()


def inspection(theme: str, workshop: Workshop, album: Album) -> None:
    """What the system window tells of one machine and of another, large and small; and the disclaimer."""
    with KernelSite() as site, Desktop(theme, "indicator", workshop) as desktop:
        desktop.still_for = STILL_WINDOW_FOR
        desktop.start_accessibility()

        applet = Applet(desktop, site, workshop)
        where = applet.where(SYSTEM)
        applet.signal_for(SYSTEM)
        applet.shrink(SYSTEM)
        album.state(desktop, where, "system-smallest", "the system tab, as small as the window gets")
        applet.close_window(SYSTEM)

        applet.signal_for(SYSTEM)
        applet.hand.opens_leftovers()
        applet.scrolls_down(SYSTEM)
        album.state(desktop, where, "system-leftovers", "the system tab with what is left of kernels")
        browse(desktop, applet.hand, where, album)
        applet.shrink(SYSTEM)
        applet.hand.picks(LARGEST[0], 0)
        album.state(desktop, where, "modules-smallest", "the modules tab, as small as the window gets")
        applet.close_window(SYSTEM)

        applet.signal_for(ABOUT)
        applet.hand.opens_license()
        album.state(desktop, applet.where(ABOUT), "about-license", "what stands behind the button")
        applet.ends()

        for machine in MACHINES:
            applet = Applet(desktop, site, workshop, machine)
            where = applet.where(SYSTEM)
            applet.signal_for(SYSTEM)
            name = f"system-{machine.name}"
            album.state(desktop, where, name, f"the system tab: {machine.summary}")
            if machine.name == "snap":
                picture = (f"{name}-copied", "the same, after a click on the command")
                applet.clicks_command(lambda: album.state(desktop, where, *picture))
                applet.scrolls_down(SYSTEM)
                album.state(desktop, where, f"{name}-lower", "the same, scrolled to its end")
            applet.hand.shows_modules(machine.error)
            album.state(desktop, where, f"modules-{machine.name}", f"the modules tab: {machine.summary}")
            applet.ends()


def look(theme: str, workshop: Workshop, album: Album) -> None:
    """All windows on Wayland, where nobody can press a key: each opens in a program of its own, by a signal."""
    with KernelSite() as site, WaylandDesktop(theme, workshop) as desktop:
        for channel in CHANNELS:
            desktop.opens(SETTINGS, channel, site)
            album.state(desktop, difference, f"settings-{channel.name}", f"the overview, {channel.name} chosen")
            desktop.ends()

            desktop.opens(CHANGES, channel, site)
            desktop.wait(lambda: release_edge(desktop.screenshot()), "no commit of a release is shown")
            album.state(desktop, difference, f"changes-{channel.name}-{channel.kind}", channel.summary)
            desktop.ends()

        desktop.start_accessibility()
        desktop.opens(SYSTEM, WORKSTATION, site)
        album.state(desktop, difference, "system", "the system tab")
        desktop.hand.opens_leftovers()
        album.state(desktop, difference, "system-leftovers", "the system tab with what is left of kernels")
        browse(desktop, desktop.hand, difference, album)
        desktop.ends()

        for machine in MACHINES:
            desktop.opens(SYSTEM, machine, site)
            album.state(desktop, difference, f"system-{machine.name}", f"the system tab: {machine.summary}")
            desktop.hand.shows_modules(machine.error)
            album.state(desktop, difference, f"modules-{machine.name}", f"the modules tab: {machine.summary}")
            desktop.ends()

        desktop.opens(ABOUT, WORKSTATION, site)
        album.state(desktop, difference, "about", "the program's name, version and where it comes from")
        desktop.hand.opens_license()
        album.state(desktop, difference, "about-license", "what stands behind the button")
        desktop.ends()

        for host in HOSTS:
            site.misbehave(host, "/", "unreachable")
        desktop.opens(CHANGES, CHANNELS[-1], site)
        if release_edge(desktop.still()):
            fail("there are commits in the window, but the site gave none")
        album.state(desktop, difference, "changes-failure", "the site cannot be reached")
        desktop.ends()


def browse(desktop: Desktop, hand: Hand, where: Where, album: Album) -> None:
    """Through the modules tab of an open window."""
    hand.shows_modules("Reload")
    for module in DETAILED:
        hand.picks(module, rows().index(module))
        album.state(desktop, where, f"modules-{module}", f"the modules tab, {module} selected")
    hand.filters(FILTER)
    hand.picks(FILTERED, rows(FILTER).index(FILTERED))
    album.state(desktop, where, "modules-filter", "the modules tab, filtered")
    hand.filters("")
    hand.sorts_by_size(LARGEST[0])
    for row, module in enumerate(LARGEST):
        hand.picks(module, row)
    album.state(desktop, where, "modules-by-size", "the modules tab, the largest first")


def rows(text: str = "") -> list[str]:
    """The modules of the table's rows, filtered by that text."""
    lines = (line.split() for line in MODULES.read_text().splitlines())
    return sorted(name for name, _, _, users, *_ in lines if text in name or text in users)


def gave(site: KernelSite, path: str) -> bool:
    return any(request.path.startswith(path) and request.status == 200 for request in site.requests())


SCENES = (story, visit, tour, inspection, look)
