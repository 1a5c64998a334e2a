"""The services of a desktop that the program asks: they note what they were asked, and answer, refuse or keep silent."""

import os
import select
import socket
import subprocess
import threading

import gi

gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib  # noqa: E402

_LOGIND = """<node><interface name="org.freedesktop.login1.Manager"><method name="Inhibit">
  <arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="s" direction="in"/>
  <arg type="h" direction="out"/></method></interface></node>"""
_SCREEN_SAVER = """<node><interface name="org.freedesktop.ScreenSaver">
  <method name="Inhibit"><arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="u" direction="out"/></method>
  <method name="UnInhibit"><arg type="u" direction="in"/></method></interface></node>"""
_NOTIFICATIONS = """<node><interface name="org.freedesktop.Notifications"><method name="Notify">
  <arg type="s" direction="in"/><arg type="u" direction="in"/><arg type="s" direction="in"/><arg type="s" direction="in"/>
  <arg type="s" direction="in"/><arg type="as" direction="in"/><arg type="a{sv}" direction="in"/>
  <arg type="i" direction="in"/><arg type="u" direction="out"/></method></interface></node>"""

ANSWERS, REFUSES, HANGS = "answers", "refuses", "hangs"


class Bus:
    """A message bus of its own."""

    def __init__(self):
        self._daemon = subprocess.Popen(["dbus-daemon", "--session", "--nofork", "--print-address"],
                                        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.address = self._daemon.stdout.readline().strip()

    def close(self):
        self._daemon.kill()
        self._daemon.wait()
        self._daemon.stdout.close()


class MuteBus:
    """A bus that takes connections and says nothing."""

    def __init__(self, folder):
        path = os.path.join(folder, "mute-bus")
        self._socket = socket.socket(socket.AF_UNIX)
        self._socket.bind(path)
        self._socket.listen()
        self.address = "unix:path=" + path

    def asked(self):
        """Whether somebody has connected."""
        return bool(select.select([self._socket], [], [], 0)[0])

    def close(self):
        self._socket.close()


class Service:
    """A service on the bus at `address`, which behaves as asked."""

    def __init__(self, address, name, path, description, behaviour):
        self.behaviour = behaviour
        self.calls = []
        self._context = GLib.MainContext()
        self._loop = GLib.MainLoop(self._context)
        started = threading.Event()
        self._thread = threading.Thread(target=self._run, args=(address, name, path, description, started), daemon=True)
        self._thread.start()
        started.wait()

    def _run(self, address, name, path, description, started):
        self._context.push_thread_default()
        flags = Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION
        connection = Gio.DBusConnection.new_for_address_sync(address, flags)
        interface = Gio.DBusNodeInfo.new_for_xml(description).interfaces[0]
        connection.register_object(path, interface, self._called, None, None)
        connection.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
                             GLib.Variant("(su)", (name, 0)), None, Gio.DBusCallFlags.NONE, -1)
        started.set()
        self._loop.run()
        connection.close_sync()
        self._context.pop_thread_default()

    def _called(self, connection, sender, path, interface, method, parameters, invocation):
        self.calls.append((method, *parameters.unpack()))
        if self.behaviour == REFUSES:
            invocation.return_dbus_error("org.freedesktop.DBus.Error.AccessDenied", "Not for you")
        elif self.behaviour == ANSWERS:
            self.answer(method, parameters.unpack(), invocation)

    def close(self):
        self._loop.quit()
        self._thread.join()


class Logind(Service):
    """Gives locks, each of which holds until its taker closes it."""

    def __init__(self, address, behaviour=ANSWERS):
        self._locks = []
        super().__init__(address, "org.freedesktop.login1", "/org/freedesktop/login1", _LOGIND, behaviour)

    def answer(self, method, arguments, invocation):
        ours, theirs = os.pipe()
        descriptors = Gio.UnixFDList.new()
        descriptors.append(theirs)
        os.close(theirs)
        self._locks.append(ours)
        invocation.return_value_with_unix_fd_list(GLib.Variant("(h)", (0,)), descriptors)

    def held(self):
        """How many locks are held just now."""
        return sum(not select.select([lock], [], [], 0)[0] for lock in list(self._locks))

    def close(self):
        super().close()
        for lock in self._locks:
            os.close(lock)


class ScreenSaver(Service):
    def __init__(self, address, behaviour=ANSWERS):
        self._cookies = set()
        super().__init__(address, "org.freedesktop.ScreenSaver", "/org/freedesktop/ScreenSaver", _SCREEN_SAVER, behaviour)

    def answer(self, method, arguments, invocation):
        if method == "UnInhibit":
            self._cookies.remove(arguments[0])
            invocation.return_value(None)
            return
        cookie = 4000 + len(self.calls)
        self._cookies.add(cookie)
        invocation.return_value(GLib.Variant("(u)", (cookie,)))

    def held(self):
        return len(self._cookies)


class Notifications(Service):
    def __init__(self, address, behaviour=ANSWERS):
        super().__init__(address, "org.freedesktop.Notifications", "/org/freedesktop/Notifications", _NOTIFICATIONS,
                         behaviour)

    def answer(self, method, arguments, invocation):
        invocation.return_value(GLib.Variant("(u)", (len(self.calls),)))

    def shown(self):
        """Title and text of each notification."""
        return [call[4:6] for call in list(self.calls)]
