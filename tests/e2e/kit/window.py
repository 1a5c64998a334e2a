"""The running program: its process, its log and its window, read and pressed through the accessibility bus."""

import os
import subprocess
import time

from . import bus

# Sanitized builds are several times slower, and other programs may be busy.
SLOW = 12 if os.environ.get("KELPORA_SANITIZED") else 3


def wait_until(condition, seconds, what):
    """Waits until `condition()` is truthy and returns that; raises TimeoutError naming `what` if it never is."""
    deadline = time.monotonic() + seconds * SLOW
    while True:
        try:
            result = condition()
        except bus.Error:
            # The program is just starting, busy or gone; the time-out tells.
            result = None
        if result:
            return result
        if time.monotonic() > deadline:
            raise TimeoutError("Waited {} s for {}".format(seconds * SLOW, what))
        time.sleep(0.02)


class Program:
    """The program in a home folder of its own below `folder`, with the cards of `reader`."""

    def __init__(self, path, folder, reader):
        self.path = path
        self.folder = folder
        self.reader = reader
        self.home = os.path.join(folder, "home")
        self.support = os.path.join(folder, "data", "Kelpora 360")
        self.templates = os.path.join(self.support, "templates")
        self.log_path = os.path.join(self.support, "Kelpora360.log")
        self.process = None
        self.window = None
        os.makedirs(self.home, exist_ok=True)
        os.makedirs(self.templates, exist_ok=True)

    def launch(self):
        """Starts the process without looking at its window."""
        environment = dict(os.environ, HOME=self.home, XDG_DATA_HOME=os.path.join(self.folder, "data"),
                           QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1")
        environment.update(self.reader.environment())
        with open(os.path.join(self.folder, "stderr"), "ab") as errors:
            self.process = subprocess.Popen(self.reader.command(self.path), env=environment, stderr=errors)

    def start(self):
        """Starts the program; returns its window once the operator could use it."""
        self.launch()
        self.window = wait_until(self._find_window, 20, "the window")
        return self.window

    def wait(self, seconds):
        """The exit code; raises subprocess.TimeoutExpired if the process still runs after `seconds`."""
        return self.process.wait(seconds)

    def is_running(self):
        return self.process.poll() is None

    def end(self):
        """Ends the process if a test left it."""
        if self.process and self.is_running():
            # A rig takes its device away before it goes.
            self.process.terminate()
            try:
                self.process.wait(10)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()

    def log(self):
        """The lines of the log file."""
        with open(self.log_path, encoding="utf-8") as file:
            return file.read().splitlines()

    def messages(self):
        """What was logged, without time and level."""
        return [line.split(": ", 1)[1] for line in self.log() if line != "Logfile path:"]

    def errors(self):
        """What the process wrote on its standard error stream, its logged lines included."""
        with open(os.path.join(self.folder, "stderr"), encoding="utf-8", errors="replace") as file:
            return file.read()

    def _find_window(self):
        if not self.is_running():
            raise RuntimeError("The program ended at its start:\n" + self.errors())
        return next((Window(frame) for frame in self.frames() if frame.is_active()), None)

    def frames(self):
        """The program's windows and dialogs on the accessibility bus."""
        return [frame for application in bus.desktop().children() if self._is_ours(application.process())
                for frame in application.children()]

    def _is_ours(self, pid):
        """Whether that is the process that was started, or the program that it runs."""
        while pid > 1:
            if pid == self.process.pid:
                return True
            try:
                with open("/proc/{}/stat".format(pid)) as file:
                    pid = int(file.read().rsplit(")", 1)[1].split()[1])
            except OSError:
                return False
        return False


class Window:
    def __init__(self, frame):
        self.frame = frame
        self._found = {}

    def find(self, role, name=None, description=None):
        """The control of a role ("push button") and an accessible name or description, once it is there."""
        key = (role, name, description)
        if key not in self._found:
            self._found[key] = wait_until(lambda: self._search(self.frame, *key), 5,
                                          "a {} named {!r}".format(role, name or description))
        return self._found[key]

    def press(self, button):
        """Presses a button through its action, as an assistive tool does."""
        self.find("push button", button).press()

    def turn_to(self, page):
        """Turns to a page by its tab, and waits until it stands still."""
        self.click("page tab", page)
        control = self.find("push button", {"Copy Data": "Erase Memory", "Settings": "Connect"}.get(page, page))
        left, _, width, _ = self.frame.place()
        seen = []

        def still():
            seen.append(control.place()[0])
            return left <= seen[-1] < left + width and seen[-5:] == [seen[-1]] * 5
        wait_until(still, 5, "the page {!r}".format(page))

    def click(self, role, name):
        """Clicks into the middle of a control with the mouse."""
        control = self.find(role, name)
        wait_until(lambda: is_at_rest(control), 5, "{!r} to stand still".format(name))
        left, top, width, height = control.place()
        _xdotool("mousemove", str(left + width // 2), str(top + height // 2), "click", "1")

    def type(self, field, text):
        """Replaces the text of a field from the keyboard."""
        self.click("text", field)
        self._wait_active()
        _xdotool("key", "ctrl+a", "BackSpace")
        if text:
            _xdotool("type", "--delay", "5", text)
        try:
            wait_until(lambda: self.text(field) == text, 5, "the text")
        except TimeoutError:
            raise TimeoutError("{!r} instead of {!r} in {}".format(self.text(field), text, field)) from None

    def text(self, field):
        return self.find("text", field).text()

    def choice(self, box):
        """The entry that a drop-down shows."""
        return self.find("combo box", box).description()

    def choose(self, box, place):
        """Chooses the entry at `place` (0, ...) of a drop-down from the keyboard."""
        self.click("combo box", box)
        self._wait_active()
        _xdotool("key", "Home", *["Down"] * place, "Return")

    def is_checked(self, box):
        return self.find("check box", box).is_checked()

    def beside(self, label):
        """The last text in the row that begins with `label`, whatever it is just now."""
        left, top, _, height = self.find("label", label).place()
        middle = top + height // 2
        row = [(place[0], found) for found, place in self._labels() if place[0] > left
               and place[1] <= middle < place[1] + place[3] and place[0] < left + self.frame.place()[2] - 20]
        return max(row, key=lambda entry: entry[0])[1].name()

    def progress(self, row):
        """What stands below a bar: of card 1, 2 or 3, or of the row "Data" or "Settings"."""
        name = "Card {}".format(row) if isinstance(row, int) else row
        return self.find("label", description=name).name()

    def is_bright(self, button):
        """Whether a button is drawn as one that can be used. The accessibility bus doesn't say: this
        toolkit reports every control as enabled."""
        place = "{2}x{3}+{0}+{1}".format(*self.find("push button", button).place())
        brightest = subprocess.run(["import", "-silent", "-window", "root", "-crop", place, "+repage", "miff:-"],
                                   check=True, stdout=subprocess.PIPE).stdout
        value = subprocess.run(["convert", "miff:-", "-format", "%[fx:maxima]", "info:"], input=brightest,
                               check=True, stdout=subprocess.PIPE).stdout
        return float(value) > 0.75

    def shows(self, text):
        """Whether such a label is there just now, as those of an open popup are."""
        return self._search(self.frame, "label", text, None) is not None

    def wait_bright(self, button, bright=True, seconds=5):
        wait_until(lambda: self.is_bright(button) == bright, seconds,
                   "{!r} to look {}".format(button, "enabled" if bright else "disabled"))

    def close(self):
        """Closes the window from the keyboard, through the window manager."""
        self._wait_active()
        _xdotool("key", "alt+F4")

    def screenshot(self, path):
        place = "{2}x{3}+{0}+{1}".format(*self.frame.place())
        subprocess.run(["import", "-silent", "-window", "root", "-crop", place, "+repage", path], check=True)

    def _wait_active(self):
        """Waits until the window has the keyboard: its manager gives it a moment after a click or a closed dialog."""
        wait_until(self.frame.is_active, 5, "the keyboard")

    def _labels(self, accessible=None):
        accessible = accessible or self.frame
        if accessible.role() == "label":
            yield accessible, accessible.place()
        for child in accessible.children():
            yield from self._labels(child)

    def _search(self, accessible, role, name, description):
        if accessible.role() == role and name in (None, accessible.name()) \
                and description in (None, accessible.description()):
            return accessible
        for child in accessible.children():
            found = self._search(child, role, name, description)
            if found:
                return found
        return None


def is_at_rest(control):
    """Whether a control is there and neither moves nor grows, so that the mouse can hit it."""
    before = control.place()
    time.sleep(0.1)
    return before[2] > 0 and control.place() == before


def _xdotool(*arguments):
    subprocess.run(["xdotool", *arguments], check=True)
