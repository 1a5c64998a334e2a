"""The window's popups and the file dialogs that it opens."""

import subprocess

from .window import Window, is_at_rest, wait_until


def press_key(key):
    """Presses a key of the keyboard, whoever has it."""
    subprocess.run(["xdotool", "key", key], check=True)


class Popup(Window):
    """An open popup, known by one of its controls. Unlike the window's own controls those of popups come and go,
    so that none is remembered."""

    def __init__(self, window, role, name):
        super().__init__(window.frame)
        self._mark = (role, name)
        wait_until(self._rests, 5, "the popup with {!r}".format(name))

    def find(self, role, name=None, description=None):
        self._found.clear()
        return super().find(role, name, description)

    def check(self, box, on=True):
        if self.is_checked(box) != on:
            self.click("check box", box)
        wait_until(lambda: self.is_checked(box) == on, 5, "{!r} to be {}".format(box, on))

    def is_open(self):
        return self._search(self.frame, *self._mark, None) is not None

    def wait_closed(self):
        wait_until(lambda: not self.is_open(), 5, "the popup to close")

    def _rests(self):
        found = self._search(self.frame, *self._mark, None)
        return found and is_at_rest(found)


class FileDialog:
    """The toolkit's own dialog, which it draws where the platform has none."""

    def __init__(self, program, title):
        self.program = program
        self.title = title
        frame = wait_until(self._frame, 10, "the dialog {!r}".format(title))
        self.window = Window(frame)

    def choose(self, path):
        """Types the path, which may be of a folder or of a file."""
        self.window.type(None, path)
        self._end("Return")

    def cancel(self):
        self._end("Escape")

    def _end(self, key):
        press_key(key)
        wait_until(lambda: not self._frame(), 5, "the dialog {!r} to close".format(self.title))

    def _frame(self):
        return next((frame for frame in self.program.frames() if frame.name() == self.title and frame.is_active()), None)
