"""A session of its own: mounts that nobody else sees, message buses, a virtual screen with a window manager.

enter() runs the calling script again inside it. Everything that talks to the window must share the session,
because the buses know their clients by the user and process numbers of its namespaces.
"""

import atexit
import ctypes
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time

# "mounted", "mocked" or "none": how cards can be had here. Set by enter() for the script inside; may be set
# from outside to leave out what the machine could do.
MODE = "KELPORA_CARDS"
_INSIDE = "KELPORA_SESSION"
_REASON = "KELPORA_NO_SESSION"

# The window manager takes no part in clicks. With its usual bindings it holds each one up until it has looked at it, and
# keys that were pressed after the click overtake it.
_MANAGER = """<?xml version="1.0"?>
<openbox_config xmlns="http://openbox.org/3.4/rc">
  <focus><focusNew>yes</focusNew><focusLast>yes</focusLast></focus>
  <keyboard><keybind key="A-F4"><action name="Close"/></keybind></keyboard>
  <mouse/>
</openbox_config>
"""
_OWN_PROCESSES = ["--pid", "--fork", "--kill-child", "--mount-proc"]
_MOUNT_WRAPPERS = [
    ["unshare", "--mount"] + _OWN_PROCESSES,
    ["unshare", "--user", "--map-root-user", "--mount"] + _OWN_PROCESSES,
    ["unshare", "--mount"],
    ["unshare", "--user", "--map-root-user", "--mount"],
]


def enter(screen=True, size="1280x1024"):
    """Returns inside the session; `screen` False keeps the display that the user sits at, else there is a virtual
    one of `size`."""
    if _INSIDE in os.environ:
        _adopt_orphans()
        if not why_not():
            _start(screen, size)
        return
    wrapper = []
    mode = os.environ.get(MODE) or "mounted"
    if mode == "mounted":
        wrapper = _mount_wrapper()
        if wrapper is None:
            mode, wrapper = "mocked", []
    if mode == "mocked" and not shutil.which("umockdev-wrapper"):
        mode = "none"
    os.environ[MODE] = mode
    os.environ[_INSIDE] = "1"
    missing = _missing(screen)
    if mode == "none":
        missing.append("mounts, or umockdev to mock them")
    if missing:
        os.environ[_REASON] = "This machine lacks " + ", ".join(missing)
    command = wrapper + [sys.executable] + sys.argv
    os.execvp(command[0], command)


def why_not():
    """Why no session could be had here; empty if there is one."""
    return os.environ.get(_REASON, "")


def mounted():
    """Whether cards are real volumes here."""
    return os.environ.get(MODE) == "mounted"


def _missing(screen):
    if not screen:
        return []
    tools = ["dbus-daemon", "Xvfb", "openbox", "xdotool", "import", "convert"]
    missing = [tool for tool in tools if not shutil.which(tool)]
    if not os.path.exists("/usr/share/dbus-1/services/org.a11y.Bus.service"):
        missing.append("at-spi2-core")
    if subprocess.run([sys.executable, "-c", "import gi"], stderr=subprocess.DEVNULL).returncode != 0:
        missing.append("gi for " + sys.executable)
    return missing


def _mount_wrapper():
    """The command that gives a process mounts of its own, or None where it is forbidden."""
    with tempfile.TemporaryDirectory() as folder:
        for wrapper in _MOUNT_WRAPPERS:
            try:
                probe = subprocess.run(wrapper + ["mount", "-t", "tmpfs", "probe", folder],
                                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            except FileNotFoundError:
                return None
            if probe.returncode == 0:
                return wrapper
    return None


def _adopt_orphans():
    """What a child leaves behind becomes this process's child and ends with it."""
    set_child_subreaper = 36
    ctypes.CDLL(None).prctl(set_child_subreaper, 1, 0, 0, 0)
    atexit.register(_end_descendants)
    # A killed test must clean up too.
    signal.signal(signal.SIGTERM, lambda number, frame: sys.exit(128 + number))


def _children(of):
    try:
        with open("/proc/{0}/task/{0}/children".format(of)) as file:
            return [int(pid) for pid in file.read().split()]
    except OSError:
        return []


def _end_descendants():
    for sign in (signal.SIGTERM, signal.SIGKILL):
        deadline = time.monotonic() + 3
        for pid in _children(os.getpid()):
            _signal(pid, sign)
        while _children(os.getpid()) and time.monotonic() < deadline:
            try:
                while os.waitpid(-1, os.WNOHANG)[0]:
                    pass
            except ChildProcessError:
                return
            if sign == signal.SIGKILL:
                for pid in _children(os.getpid()):
                    _signal(pid, sign)
            time.sleep(0.02)


def _signal(pid, sign):
    try:
        os.kill(pid, sign)
    except ProcessLookupError:
        pass


def _start(screen, size):
    if not screen:
        return
    # Nothing of the user's desktop may steer the window.
    for name in list(os.environ):
        if name.startswith("QT_") and name != "QT_QUICK_BACKEND" or name in ("WAYLAND_DISPLAY", "XAUTHORITY", "LD_PRELOAD"):
            del os.environ[name]
    runtime = tempfile.mkdtemp(prefix="kelpora-session-")
    atexit.register(shutil.rmtree, runtime, ignore_errors=True)
    os.environ.update({"XDG_RUNTIME_DIR": runtime, "LANG": "C.UTF-8", "LC_ALL": "C.UTF-8", "NO_AT_BRIDGE": "1",
                       "XDG_CACHE_HOME": os.path.join(runtime, "cache"),
                       "XDG_CONFIG_HOME": os.path.join(runtime, "config")})
    # Without auto-repeat: on a busy machine a key's release comes so late that its letter would be typed twice.
    os.environ["DISPLAY"] = ":" + _answer("the screen", lambda out: [
        "Xvfb", "-r", "-displayfd", out, "-screen", "0", size + "x24", "-nolisten", "tcp", "-noreset"])
    os.environ["DBUS_SESSION_BUS_ADDRESS"] = _answer("the session bus", lambda out: [
        "dbus-daemon", "--session", "--nofork", "--print-address", out])
    quiet = {"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}
    config = os.path.join(runtime, "openbox.xml")
    with open(config, "w") as file:
        file.write(_MANAGER)
    subprocess.Popen(["openbox", "--config-file", config], **quiet)
    from . import bus, window
    # The question starts the accessibility bus, whose address is a property of the screen by the time of the answer. A
    # toolkit that has to ask for the address may use the bus too early and never shows up.
    bus.address()
    # A window that is there before its manager never gets the keyboard.
    window.wait_until(lambda: subprocess.run(["xdotool", "get_desktop"], **quiet).returncode == 0, 10,
                      "the window manager")


def _answer(what, command):
    """Starts a server; returns the line with which it says where it is, on the descriptor that it is told."""
    read_end, write_end = os.pipe()
    subprocess.Popen(command(str(write_end)), pass_fds=[write_end], stdout=subprocess.DEVNULL,
                     stderr=subprocess.DEVNULL)
    os.close(write_end)
    with os.fdopen(read_end) as pipe:
        line = pipe.readline().strip()
    if not line:
        raise RuntimeError(what + " did not start")
    return line
