# SPDX-License-Identifier: MIT
"""A panel of our own: StatusNotifier watcher and host, and a client of the items' menus."""

import time
from dataclasses import dataclass
from pathlib import PurePath
from typing import Any

from gi.repository import Gio, GLib
from stage.bus import CALL_TIMEOUT, PROPERTIES, ask_bus, call, connect

WATCHER_INTERFACE = """
<node>
  <interface name="org.kde.StatusNotifierWatcher">
    <method name="RegisterStatusNotifierItem"><arg type="s" direction="in"/></method>
    <method name="RegisterStatusNotifierHost"><arg type="s" direction="in"/></method>
    <property name="RegisteredStatusNotifierItems" type="as" access="read"/>
    <property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
    <property name="ProtocolVersion" type="i" access="read"/>
    <signal name="StatusNotifierItemRegistered"><arg type="s"/></signal>
    <signal name="StatusNotifierItemUnregistered"><arg type="s"/></signal>
    <signal name="StatusNotifierHostRegistered"/>
  </interface>
</node>
"""
WATCHER = "org.kde.StatusNotifierWatcher"
ITEM = "org.kde.StatusNotifierItem"
MENU = "com.canonical.dbusmenu"
LABEL_REPEATED = "PropertiesChanged"


@dataclass(frozen=True)
class Entry:
    id: int
    label: str
    kind: str
    enabled: bool
    visible: bool
    properties: dict[str, Any]
    children: list["Entry"]


class Menu:
    def __init__(self, connection: Gio.DBusConnection, owner: str, path: str) -> None:
        self._connection = connection
        self._owner = owner
        self._path = path

    def entries(self, timeout: float = CALL_TIMEOUT) -> list[Entry]:
        place = (self._connection, self._owner, self._path, MENU)
        _, root = call(*place, "GetLayout", "(iias)", 0, -1, [], timeout=timeout)
        return self._entry(root).children

    def is_there(self) -> bool:
        """The menu comes to the bus a little later than the icon."""
        try:
            return bool(self.entries())
        except GLib.Error as problem:
            if problem.matches(Gio.dbus_error_quark(), Gio.DBusError.UNKNOWN_METHOD):
                return False
            raise

    def entry(self, label: str) -> Entry:
        (entry,) = [entry for entry in self.entries() if entry.label == label]
        return entry

    def _entry(self, node: tuple) -> Entry:
        number, properties, children = node
        return Entry(
            number,
            properties.get("label", ""),
            properties.get("type", "standard"),
            properties.get("enabled", True),
            properties.get("visible", True),
            properties,
            [self._entry(child) for child in children],
        )

    def opens(self) -> bool:
        """Tells the menu that it is about to be shown, as a panel does. Returns whether the entries are others then."""
        (changed,) = call(self._connection, self._owner, self._path, MENU, "AboutToShow", "(i)", 0)
        return changed

    def click(self, label: str) -> None:
        """Picks the entry as a panel does. Its effect comes later."""
        self.click_entry(self.entry(label))

    def click_entry(self, entry: Entry) -> None:
        event = GLib.Variant("(isvu)", (entry.id, "clicked", GLib.Variant("i", 0), 0))
        # Not waited for: a program that quits need not answer.
        self._connection.call(
            self._owner, self._path, MENU, "Event", event, None, Gio.DBusCallFlags.NONE, -1, None, None
        )
        self._connection.flush_sync()


class Item:
    """A program's icon in the panel, as the program tells it at the moment of the question."""

    def __init__(self, connection: Gio.DBusConnection, owner: str, path: str, registered: float) -> None:
        self._connection = connection
        self.owner = owner
        self.path = path
        self.registered = registered  # on the monotonic clock
        (self.pid,) = ask_bus(connection, "GetConnectionUnixProcessID", "(s)", owner)
        self.signals: list[tuple] = []
        for interface in (ITEM, PROPERTIES):
            connection.signal_subscribe(owner, interface, None, path, None, Gio.DBusSignalFlags.NONE, self._on_signal)

    def _on_signal(self, connection, sender, path, interface, signal, arguments) -> None:
        self.signals.append((signal, *arguments.unpack()))

    @property
    def news(self) -> list[tuple]:
        """Its signals but for the repeated label, which comes a second after the icon has been taken."""
        return [signal for signal in self.signals if signal[0] != LABEL_REPEATED]

    @property
    def repeated_labels(self) -> list[str]:
        repeats = [signal[1:] for signal in self.signals if signal[0] == LABEL_REPEATED]
        labels = [values.get("XAyatanaLabel") for _, values, _ in repeats]
        assert repeats == [(ITEM, {"XAyatanaLabel": label}, []) for label in labels]
        return labels

    def properties(self) -> dict[str, Any]:
        return call(self._connection, self.owner, self.path, PROPERTIES, "GetAll", "(s)", ITEM)[0]

    @property
    def icon_path(self) -> str:
        return self.properties()["IconName"]

    @property
    def icon(self) -> str:
        """The stem of the icon's file."""
        return PurePath(self.icon_path).name

    @property
    def label(self) -> str:
        return self.properties()["XAyatanaLabel"]

    @property
    def menu(self) -> Menu:
        return Menu(self._connection, self.owner, self.properties()["Menu"])


class Panel:
    """The watcher and the one host of a session bus."""

    def __init__(self, address: str) -> None:
        self._connection = connect(address)
        self.items: list[Item] = []
        self._connection.register_object(
            "/StatusNotifierWatcher",
            Gio.DBusNodeInfo.new_for_xml(WATCHER_INTERFACE).interfaces[0],
            self._on_call,
            self._on_property,
            None,
        )
        self.come()

    def come(self) -> None:
        ask_bus(self._connection, "RequestName", "(su)", WATCHER, 0)

    def leave(self) -> None:
        ask_bus(self._connection, "ReleaseName", "(s)", WATCHER)

    def _on_call(self, connection, sender, path, interface, method, arguments, invocation) -> None:
        registered = time.monotonic()
        invocation.return_value(None)
        if method == "RegisterStatusNotifierItem":
            (service,) = arguments.unpack()
            # Indicators give their object's path and mean the connection that the call came by.
            self.items.append(Item(connection, sender, service, registered))
            connection.emit_signal(
                None, path, interface, "StatusNotifierItemRegistered", GLib.Variant("(s)", (sender + service,))
            )

    def _on_property(self, connection, sender, path, interface, name):
        if name == "RegisteredStatusNotifierItems":
            return GLib.Variant("as", [item.owner + item.path for item in self.items])
        if name == "IsStatusNotifierHostRegistered":
            return GLib.Variant("b", True)
        return GLib.Variant("i", 0)

    def close(self) -> None:
        self._connection.close_sync(None)
