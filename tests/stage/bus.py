# SPDX-License-Identifier: MIT
"""Calls on a D-Bus connection of our own."""

from typing import Any

from gi.repository import Gio, GLib

# GDBus's own. A busy machine takes seconds to draw what the tests ask for.
CALL_TIMEOUT = 25.0
BUS = "org.freedesktop.DBus"
PROPERTIES = "org.freedesktop.DBus.Properties"


def connect(address: str) -> Gio.DBusConnection:
    flags = Gio.DBusConnectionFlags
    connection = Gio.DBusConnection.new_for_address_sync(
        address, flags.AUTHENTICATION_CLIENT | flags.MESSAGE_BUS_CONNECTION, None, None
    )
    connection.set_exit_on_close(False)
    return connection


def call(
    connection: Gio.DBusConnection,
    owner: str,
    path: str,
    interface: str,
    method: str,
    signature: str = "()",
    *values: object,
    timeout: float = CALL_TIMEOUT,
    flags: Gio.DBusCallFlags = Gio.DBusCallFlags.NONE,
) -> Any:
    """Returns the values of the answer."""
    reply = connection.call_sync(
        owner, path, interface, method, GLib.Variant(signature, values), None, flags, int(timeout * 1000), None
    )
    return reply.unpack()


def ask_bus(connection: Gio.DBusConnection, method: str, signature: str = "()", *values: object) -> Any:
    """What the bus itself answers."""
    return call(connection, BUS, "/org/freedesktop/DBus", BUS, method, signature, *values)
