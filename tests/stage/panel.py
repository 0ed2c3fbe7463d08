"""A panel of our own: StatusNotifier watcher and host, and a client of the items' menus."""

from dataclasses import dataclass
from pathlib import PurePath
from typing import Any

from gi.repository import Gio, GLib

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
CALL_TIMEOUT_MS = 10_000


def _call(connection: Gio.DBusConnection, owner: str, path: str, interface: str, method: str, signature: str, *values):
    reply = connection.call_sync(
        owner, path, interface, method, GLib.Variant(signature, values), None, Gio.DBusCallFlags.NONE,
        CALL_TIMEOUT_MS, None,
    )
    return reply.unpack()


def _ask_bus(connection: Gio.DBusConnection, method: str, signature: str, *values):
    name = "org.freedesktop.DBus"
    return _call(connection, name, "/org/freedesktop/DBus", name, method, signature, *values)


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

    def entries(self) -> list[Entry]:
        _, root = _call(self._connection, self._owner, self._path, MENU, "GetLayout", "(iias)", 0, -1, [])
        return self._entry(root).children

    def is_there(self) -> bool:
        """The menu comes to the bus a little later than the icon."""
        try:
            return bool(self.entries())
        except GLib.Error as problem:
            if problem.matches(Gio.dbus_error_quark(), Gio.DBusError.UNKNOWN_METHOD):
                return False
            raise

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

    def click(self, label: str) -> None:
        """Picks the entry as a panel does. Its effect comes later."""
        (entry,) = [entry for entry in self.entries() if entry.label == label]
        self.click_entry(entry)

    def click_entry(self, entry: Entry) -> None:
        event = GLib.Variant("(isvu)", (entry.id, "clicked", GLib.Variant("i", 0), 0))
        # Not waited for: a program that quits need not answer.
        self._connection.call(
            self._owner, self._path, MENU, "Event", event, None, Gio.DBusCallFlags.NONE, CALL_TIMEOUT_MS, None, None
        )
        self._connection.flush_sync()


class Item:
    """A program's icon in the panel, as the program tells it at the moment of the question."""

    def __init__(self, connection: Gio.DBusConnection, owner: str, path: str) -> None:
        self._connection = connection
        self.owner = owner
        self.path = path
        (self.pid,) = _ask_bus(connection, "GetConnectionUnixProcessID", "(s)", owner)
        self.signals: list[tuple] = []
        for interface in (ITEM, "org.freedesktop.DBus.Properties"):
            connection.signal_subscribe(
                owner, interface, None, path, None, Gio.DBusSignalFlags.NONE, self._on_signal
            )

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
        method = ("org.freedesktop.DBus.Properties", "GetAll")
        return _call(self._connection, self.owner, self.path, *method, "(s)", ITEM)[0]

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
        flags = Gio.DBusConnectionFlags
        self._connection = Gio.DBusConnection.new_for_address_sync(
            address, flags.AUTHENTICATION_CLIENT | flags.MESSAGE_BUS_CONNECTION, None, None
        )
        self._connection.set_exit_on_close(False)
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
        _ask_bus(self._connection, "RequestName", "(su)", WATCHER, 0)

    def leave(self) -> None:
        _ask_bus(self._connection, "ReleaseName", "(s)", WATCHER)

    def _on_call(self, connection, sender, path, interface, method, arguments, invocation) -> None:
        invocation.return_value(None)
        if method == "RegisterStatusNotifierItem":
            (service,) = arguments.unpack()
            # Indicators give their object's path and mean the connection that the call came by.
            self.items.append(Item(connection, sender, service))
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
