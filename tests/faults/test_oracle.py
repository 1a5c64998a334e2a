#!/usr/bin/python3
"""The oracle and the spoiled calls themselves: what is wrong must be told.

test_oracle.py BUILD
"""

import os
import pathlib
import sys
import tempfile
import unittest

import bench
import power
import run
from kit import recordings, testing

PROJECT = "reef"
COPY = f"DCIM/101MEDIA/CLIP0003_{PROJECT}_cam1.MOV"


class Oracle(unittest.TestCase):
    """A faultless import, of which one thing is changed afterwards."""

    build = None

    def setUp(self):
        scratch = tempfile.TemporaryDirectory(prefix="oracle-", dir=self.build)
        self.addCleanup(scratch.cleanup)
        self.bench = bench.Bench(self.build, pathlib.Path(scratch.name) / "bench")
        self.arguments, self.judge = self.bench.equip_import(recordings.fill, project=PROJECT)

    def run_job(self, spoil=""):
        self.outcome = self.bench.spoil(self.arguments, spoil)

    def kinds(self, holds="sound", texts=None, log=None):
        """The kinds of the complaints."""
        complaints = bench.ending(self.outcome) + self.judge.judge(
            texts or self.outcome.texts, self.outcome.log if log is None else log, self.bench.destination, holds)
        return {complaint.split(":")[0] for complaint in complaints}

    def test_nothing_is_wrong(self):
        self.run_job()
        self.assertEqual(self.kinds("complete"), set())
        self.assertEqual(self.kinds("told"), set())

    def test_what_is_changed_afterwards(self):
        def change(path):
            with open(path, "r+b") as file:
                file.seek(100)
                byte = file.read(1)
                file.seek(100)
                file.write(bytes([byte[0] ^ 1]))

        destination = str(self.bench.destination)
        for kind, action in {
                "half": lambda: change(os.path.join(destination, COPY)),
                "untrue": lambda: os.unlink(os.path.join(destination, COPY)),
                "leftover": lambda: recordings.write(destination, ".kelpora360-0123456789abcdef.part", b"x"),
                "wrong": lambda: recordings.write(destination, "DCIM/x", b"x"),
                "lost": lambda: change(os.path.join(self.bench.card(1), "DCIM/101MEDIA/CLIP0003.MOV")),
        }.items():
            with self.subTest(kind):
                self.arguments, self.judge = self.bench.equip_import(recordings.fill, project=PROJECT)
                self.run_job()
                self.assertEqual(self.kinds(), set())
                action()
                self.assertIn(kind, self.kinds())

    def test_what_is_changed_beside_the_copies(self):
        for path, content in ((COPY + ".jpg", b"half a picture"),
                              (f"DCIM/101MEDIA/CLIP0003_{PROJECT}_autopano.kava", b"<kava><pano></kava>"),
                              (f"DCIM/101MEDIA/CLIP0003_{PROJECT}_autopano.kava", b"")):
            with self.subTest(path):
                self.arguments, self.judge = self.bench.equip_import(recordings.fill, project=PROJECT)
                self.run_job()
                recordings.write(self.bench.destination, path, content)
                self.assertIn("half", self.kinds())
        os.unlink(self.bench.destination / COPY.replace(".MOV", ".MOV.jpg"))
        self.assertIn("untrue", self.kinds("told"))

    def test_what_is_told(self):
        self.run_job()
        self.assertIn("untrue", self.kinds(texts={1: "Copied 2/2 videos and 3/3 photos."}))
        self.assertIn("untrue", self.kinds(texts={1: "Copied 4/4 videos and 3/3 photos."}))
        self.assertIn("untrue", self.kinds(texts={1: "Copying CLIP0001"}))
        self.assertIn("untrue", self.kinds("refused"))
        self.assertIn("wrong", self.kinds(texts={1: "Copied 2/3 videos and 3/3 photos."}, log=""))
        self.assertIn("wrong", self.kinds("complete", texts={1: "Error: Copied 3/3 videos and 3/3 photos."}))

    def test_a_preparation(self):
        self.arguments, self.judge = self.bench.equip_preparation(erase=True)
        self.run_job()
        self.assertEqual(self.kinds("complete"), set())
        recordings.write(self.bench.card(1), "DCIM/100MEDIA/CLIP0001.MOV", b"still there")
        self.assertIn("untrue", self.kinds())
        self.arguments, self.judge = self.bench.equip_preparation(erase=False)
        self.run_job()
        self.assertEqual(self.kinds("complete"), set())
        os.unlink(os.path.join(self.bench.card(1), "DCIM/100MEDIA/CLIP0001.MOV"))
        self.assertIn("lost", self.kinds())

    def test_spoiled_calls(self):
        """Each fault shows in what becomes of the job."""
        for spoil, wanted in (("write destination 1 5", {"wrong"}), ("mkdir destination 1+ 28", {"wrong"}),
                              ("copy destination 1 short", set()), ("syncfs destination 1 5", {"wrong"})):
            with self.subTest(spoil):
                self.arguments, self.judge = self.bench.equip_import(recordings.fill, project=PROJECT)
                self.run_job(spoil)
                self.assertEqual(self.kinds("complete") & {"wrong"}, wanted)
        self.run_job("copy destination 1 kill")
        self.assertEqual(self.outcome.code, -9)
        self.assertEqual(self.kinds("killed"), {"crash"})

    def test_a_program_that_does_not_wait_for_the_disk(self):
        """A power cut shows it."""
        if power.why_not():
            self.skipTest(power.why_not())

        class Hasty(bench.Bench):
            def run(self, command, environment=None):
                return super().run(command, self.spoiled("sync_file_range destination 1+ skip"))

        kinds = {complaint.split(":")[0] for _, complaints in power.attempts(
            lambda name: Hasty(self.build, self.bench.folder.parent / name), 20, "power/ext4/import beside".__eq__)
            for complaint in complaints}
        self.assertIn("half", kinds)


if __name__ == "__main__":
    run.hide_mounts()
    Oracle.build = pathlib.Path(sys.argv.pop(1)).resolve()
    testing.run()
