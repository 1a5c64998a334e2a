"""The frame of every end-to-end test program."""

import os
import re
import shutil
import sys
import tempfile
import unittest
import xml.etree.ElementTree as ET

from . import expected, recordings, session

SAMPLES = os.path.join(os.path.dirname(__file__), "..", "..", "data", "sample")

_SUMMARY = re.compile(r"Copied (\d+)/(\d+) videos and (\d+)/(\d+) photos\.$")


def entry(folder):
    """How a drop-down names a card without a label of its own."""
    return "{0} ({0})".format(folder)


def closing_bound():
    """Seconds within which a closed program must have ended, whatever it was doing; more where others are busy."""
    busy = max(1, os.getloadavg()[0] / os.cpu_count())
    return busy * (6 if os.environ.get("KELPORA_SANITIZED") else 2)


class WindowTest(unittest.TestCase):
    """A program with three card places, a home and a destination of its own."""

    def setUp(self):
        if session.why_not():
            self.skipTest(session.why_not())
        from . import window
        self.Program = window.Program
        self.wait_until = window.wait_until
        self.folder = tempfile.mkdtemp(prefix="kelpora-test-")
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.destination = os.path.join(self.folder, "dive")
        os.mkdir(self.destination)
        self.use_reader()

    def use_reader(self, mounted=None):
        from . import cards
        place = tempfile.mkdtemp(prefix="cards", dir=self.folder)
        self.reader = cards.card_reader(place, mounted)
        self.addCleanup(self.reader.close)
        self.program = self.Program(os.environ["KELPORA_PROGRAM"], self.folder, self.reader)
        self.addCleanup(self.program.end)

    def insert_cards(self, size_mib=64):
        """Three empty cards: number, folder."""
        return {card: self.reader.insert("KELPORA360_{}".format(card), size_mib) for card in (1, 2, 3)}

    def insert_filled_cards(self):
        cards = self.insert_cards()
        for card, folder in cards.items():
            recordings.fill(folder, card)
        return cards

    def write_templates(self):
        for name in ("Rig.kava", "Rig.jpg"):
            recordings.write(self.program.templates, name, self.sample(name))

    def write_settings(self, settings):
        lines = ["[General]"] + ["{}={}".format(key, value) for key, value in settings.items()]
        recordings.write(self.program.support, "Kelpora360.ini", "\n".join(lines + [""]).encode())

    def start(self, project=""):
        window = self.program.start()
        window.type("Folder", self.destination)
        if project:
            window.type("Project Name", project)
        return window

    def wait_equal(self, get, wanted, seconds=5):
        """Waits until `get()` returns `wanted`; fails with the difference if it never does."""
        try:
            self.wait_until(lambda: get() == wanted, seconds, wanted)
        except TimeoutError:
            self.assertEqual(get(), wanted)

    def choices(self, window):
        """What the three cards' drop-downs show."""
        return [window.choice("Card {}".format(card)) for card in (1, 2, 3)]

    def progress(self, window):
        """What stands below the three cards' bars."""
        return [window.progress(card) for card in (1, 2, 3)]

    def summaries(self, window, seconds=30):
        """Waits until every card has ended; returns what it said."""
        def ended():
            texts = self.progress(window)
            return texts if all(text.startswith("Error") or _SUMMARY.match(text) for text in texts) else None
        return self.wait_until(ended, seconds, "the end of the import")

    def check_projects(self, found, destination):
        """Compares the projects among the files `found` (name, content) with those of `destination`."""
        projects = {name: text for name, text in found.items() if name.endswith((".kava", ".pano"))}
        self.assertEqual(sorted(projects), sorted(destination.projects))
        for name, text in projects.items():
            with self.subTest(project=name):
                self.assertEqual(expected.canonical(ET.fromstring(text)),
                                 expected.canonical(destination.projects[name]))

    def assert_same(self, found, wanted):
        self.assertEqual(sorted(found), sorted(wanted))
        self.assertEqual([name for name in wanted if found[name] != wanted[name]], [], "the content differs")

    def sample(self, name):
        with open(os.path.join(SAMPLES, name), "rb") as file:
            return file.read()

    def exit(self, window):
        """Presses "Exit" as soon as that is possible, and returns the exit code."""
        window.wait_bright("Exit")
        window.press("Exit")
        code = self.program.wait(30)
        if code != 0:
            print(self.program.errors()[-4000:], file=sys.stderr)
        return code


class _Result(unittest.TextTestResult):
    passed = 0

    def addSuccess(self, test):
        super().addSuccess(test)
        self.passed += 1


def main():
    """Runs the calling program's tests and says how they went. The executable is $KELPORA_PROGRAM or the
    first argument."""
    if len(sys.argv) > 1 and os.access(sys.argv[1], os.X_OK):
        os.environ["KELPORA_PROGRAM"] = os.path.abspath(sys.argv.pop(1))
        sys.argv[0] = os.path.abspath(sys.argv[0])
    if not os.access(os.environ.get("KELPORA_PROGRAM", ""), os.X_OK):
        sys.exit("usage: {} EXECUTABLE [TEST...]".format(sys.argv[0]))
    session.enter()
    run()


def run():
    """Runs the calling program's tests, which need no window, and says how they went."""
    runner = unittest.TextTestRunner(verbosity=2, resultclass=_Result)
    result = unittest.main(module="__main__", testRunner=runner, exit=False).result
    skipped = len(result.skipped)
    for test, reason in result.skipped:
        print("SKIP   : {} {}".format(test, reason))
    failed = result.testsRun - result.passed - skipped
    if not result.wasSuccessful():
        failed = max(failed, 1)
    sys.stderr.flush()
    print("Totals: {} passed, {} failed, {} skipped".format(result.passed, failed, skipped), flush=True)
    sys.exit(0 if failed == 0 and result.testsRun else 1)
