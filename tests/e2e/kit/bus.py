"""The accessibility bus (AT-SPI 2), asked directly: a client library's cache would lag behind the window."""

import functools
import os

import gi

gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib  # noqa: E402

Error = GLib.Error

_ACCESSIBLE = "org.a11y.atspi.Accessible"
_VALUE = "org.a11y.atspi.Value"
_ACTIVE = 1
_CHECKED = 4
_SCREEN = 0
_TIMEOUT_MS = 30000


@functools.lru_cache(maxsize=None)
def address():
    """Where the bus is."""
    session = Gio.bus_get_sync(Gio.BusType.SESSION)
    answer = session.call_sync("org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus", "GetAddress", None, None,
                               Gio.DBusCallFlags.NONE, _TIMEOUT_MS)
    return answer.unpack()[0]


@functools.lru_cache(maxsize=None)
def _connection():
    flags = Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION
    return Gio.DBusConnection.new_for_address_sync(address(), flags)


def _call(name, path, interface, method, signature=None, *arguments):
    parameters = GLib.Variant(signature, arguments) if signature else None
    answer = _connection().call_sync(name, path, interface, method, parameters, None, Gio.DBusCallFlags.NONE,
                                     _TIMEOUT_MS)
    return answer.unpack()


class Accessible:
    """One thing on the bus."""

    def __init__(self, name, path):
        self.bus_name = name
        self.path = path

    def children(self):
        return [Accessible(*child) for child in self._call(_ACCESSIBLE, "GetChildren")[0]]

    def process(self):
        return _call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                     "GetConnectionUnixProcessID", "(s)", self.bus_name)[0]

    def role(self):
        return self._call(_ACCESSIBLE, "GetRoleName")[0]

    def name(self):
        return self._property("Name")

    def description(self):
        return self._property("Description")

    def is_active(self):
        """Of a window: whether it has the keyboard."""
        return self._is(_ACTIVE)

    def is_checked(self):
        return self._is(_CHECKED)

    def place(self):
        """Left, top, width and height on the screen."""
        # The toolkit tells its own pixels, whatever they were scaled by.
        scale = float(os.environ.get("QT_SCALE_FACTOR", "1"))
        place = self._call("org.a11y.atspi.Component", "GetExtents", "(u)", _SCREEN)[0]
        return tuple(round(scale * length) for length in place)

    def text(self):
        return self._call("org.a11y.atspi.Text", "GetText", "(ii)", 0, -1)[0]

    def value(self):
        return self._property("CurrentValue", _VALUE)

    def set_value(self, value):
        self._call("org.freedesktop.DBus.Properties", "Set", "(ssv)", _VALUE, "CurrentValue",
                   GLib.Variant("d", value))

    def press(self):
        self.act("Press")

    def act(self, action):
        actions = [entry[0] for entry in self._call("org.a11y.atspi.Action", "GetActions")[0]]
        self._call("org.a11y.atspi.Action", "DoAction", "(i)", actions.index(action))

    def _is(self, state):
        return bool(self._call(_ACCESSIBLE, "GetState")[0][0] & 1 << state)

    def _property(self, name, interface=_ACCESSIBLE):
        return self._call("org.freedesktop.DBus.Properties", "Get", "(ss)", interface, name)[0]

    def _call(self, interface, method, signature=None, *arguments):
        return _call(self.bus_name, self.path, interface, method, signature, *arguments)


def desktop():
    """Its children are the running applications."""
    return Accessible("org.a11y.atspi.Registry", "/org/a11y/atspi/accessible/root")
