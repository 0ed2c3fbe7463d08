#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The desktop's half of the real portal: a user who agrees to all that is asked, after some thought. Writes down each
question, and says on its output that it is there.

    flatpak_portal.py FILE
"""

import sys
from pathlib import Path

from gi.repository import Gio, GLib

NAME = "org.freedesktop.impl.portal.desktop.tests"
PLACE = "/org/freedesktop/portal/desktop"
INTERFACES = """<node>
<interface name="org.freedesktop.impl.portal.Access"><method name="AccessDialog">
<arg type="o" name="handle" direction="in"/><arg type="s" name="app_id" direction="in"/>
<arg type="s" name="parent_window" direction="in"/><arg type="s" name="title" direction="in"/>
<arg type="s" name="subtitle" direction="in"/><arg type="s" name="body" direction="in"/>
<arg type="a{sv}" name="options" direction="in"/><arg type="u" name="response" direction="out"/>
<arg type="a{sv}" name="results" direction="out"/></method></interface>
<interface name="org.freedesktop.impl.portal.AppChooser"><method name="ChooseApplication">
<arg type="o" name="handle" direction="in"/><arg type="s" name="app_id" direction="in"/>
<arg type="s" name="parent_window" direction="in"/><arg type="as" name="choices" direction="in"/>
<arg type="a{sv}" name="options" direction="in"/><arg type="u" name="response" direction="out"/>
<arg type="a{sv}" name="results" direction="out"/></method></interface>
<interface name="org.freedesktop.impl.portal.Background"><method name="GetAppState">
<arg type="a{sv}" name="apps" direction="out"/></method><method name="EnableAutostart">
<arg type="s" name="app_id" direction="in"/><arg type="b" name="enable" direction="in"/>
<arg type="as" name="commandline" direction="in"/><arg type="u" name="flags" direction="in"/>
<arg type="b" name="result" direction="out"/></method><signal name="RunningApplicationsChanged"/></interface>
<interface name="org.freedesktop.impl.portal.Settings"><method name="ReadAll">
<arg type="as" name="namespaces" direction="in"/><arg type="a{sa{sv}}" name="value" direction="out"/></method>
<signal name="SettingChanged"><arg type="s"/><arg type="s"/><arg type="v"/></signal></interface>
</node>"""
# What programs ask by themselves, and the type of the answer.
NOTHING = {"GetAppState": "(a{sv})", "ReadAll": "(a{sa{sv}})"}
# Milliseconds. Whoever asks has long gone by then.
THOUGHT = 2000

told = Path(sys.argv[1])


def asked(connection, sender, path, interface, method, parameters, invocation) -> None:
    if method in NOTHING:
        invocation.return_value(GLib.Variant(NOTHING[method], ({},)))
        return
    with told.open("a") as file:
        print(method, parameters.unpack(), file=file)
    if method == "EnableAutostart":
        invocation.return_value(GLib.Variant("(b)", (True,)))
        return
    agree = GLib.Variant("(ua{sv})", (0, {}))
    GLib.timeout_add(THOUGHT, lambda: invocation.return_value(agree))


def have_bus(connection, name) -> None:
    for interface in Gio.DBusNodeInfo.new_for_xml(INTERFACES).interfaces:
        connection.register_object(PLACE, interface, asked)


def have_name(connection, name) -> None:
    print("ready", flush=True)


Gio.bus_own_name(Gio.BusType.SESSION, NAME, Gio.BusNameOwnerFlags.NONE, have_bus, have_name, None)
GLib.MainLoop().run()
