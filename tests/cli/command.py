"""The frame of the tests of kelpora360-cli: each has a folder and mounts of its own."""

import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "e2e"))

from kit import session, testing  # noqa: E402

GOOD, FINDING, USAGE, NOT_CHECKED, STOPPED = 0, 1, 2, 3, 130


class CommandTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="kelpora-cli-")
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.environment = dict(os.environ, HOME=self.folder, XDG_DATA_HOME=os.path.join(self.folder, "data"))
        self.program = os.environ["KELPORA_PROGRAM"]

    def path(self, name):
        return os.path.join(self.folder, name)

    def start(self, *arguments, **options):
        options = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "cwd": self.folder, **options}
        return subprocess.Popen([self.program, *arguments], env=self.environment, text=True, **options)

    def run_command(self, *arguments, code=GOOD):
        """Runs a command that must end with `code`; returns what it wrote on standard output, then on standard error."""
        process = self.start(*arguments)
        out, errors = process.communicate(timeout=300)
        self.assertEqual(process.returncode, code, out + errors)
        return out, errors

    def run_json(self, *arguments, code=GOOD):
        """Runs a command with --json; returns its object."""
        result = json.loads(self.run_command(*arguments, "--json", code=code)[0])
        self.assertEqual(result["exit"], code)
        self.assertEqual(result["command"], arguments[0])
        return result

    def need_mounts(self):
        if not session.mounted():
            self.skipTest("This machine does not allow mounts")


def main():
    if len(sys.argv) < 2 or not os.access(sys.argv[1], os.X_OK):
        sys.exit("usage: {} EXECUTABLE [TEST...]".format(sys.argv[0]))
    os.environ["KELPORA_PROGRAM"] = os.path.abspath(sys.argv.pop(1))
    if "KELPORA_SESSION" not in os.environ:
        # It starts this script once more.
        sys.argv.insert(1, os.environ["KELPORA_PROGRAM"])
    session.enter(screen=False)
    testing.run()
