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
import controller
import power
import run
import window
from kit import recordings, rig, testing

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

        for name, skipped in (("power/ext4/import beside", "sync_file_range destination 1+ skip"),
                              ("power/xfs/settings beside", "fdatasync home 1+ skip")):
            class Hasty(bench.Bench):
                def run(self, command, environment=None, skipped=skipped):
                    return super().run(command, self.spoiled(skipped))

            with self.subTest(name):
                kinds = {complaint.split(":")[0] for _, complaints in power.attempts(
                    lambda name, hasty=Hasty: hasty(self.build, self.bench.folder.parent / name), 20, name.__eq__)
                    for complaint in complaints}
                self.assertIn("half", kinds)


class Window(unittest.TestCase):
    """What a faultless press of a button leaves, of which one thing is changed afterwards."""

    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.folder = pathlib.Path(scratch.name)

    def kinds(self, command, holds="told", memory=(), file=None, **changes):
        """The kinds of the complaints. `memory` is what the controller keeps instead, `file` the content of a CSV file."""
        answers = ["PSEASETTINGS,1,1000,10000,30,29", "PSEACLOCK,2019,02,21,20,46,44,4,A",
                   "PSEAMSG,1,PSEAFORMAT,MEMORY,COMPLETE", "PSEAMSG,1,PSEADUMP,MEMORY,DATA END"]
        kept = {"on": "0", "datasets": "0" if command == "erase" else "8",
                "settings": {"save": window.SAVED, "reset": window.FACTORY}.get(command, window.HELD), **dict(memory)}
        if command == "download":
            files = rig.csv_files(controller.LOG, 0)
            for name, content in files.items():
                (self.folder / name).write_bytes(content if file is None else file)
        texts = {"exit": [], "download": ["Wrote 8 records to 2 files in /dive"]}.get(command, [window.COMMANDS[command][2]])
        seen = window.Seen(texts, True, window.READ if command == "connect" else window.UNREAD, 0, self.folder, kept,
                           [rig.sentence(body) for body in answers])
        return {complaint.split(":")[0] for complaint in window.judge(command, holds, seen._replace(**changes))}

    def test_nothing_is_wrong(self):
        for command in window.COMMANDS:
            with self.subTest(command):
                self.assertEqual(self.kinds(command, "done"), set())

    def test_what_is_changed_afterwards(self):
        error = "Error: Communication error. Please try again."
        for kind, command, holds, changes in (
                ("hang", "connect", "told", {"texts": [None]}),
                ("hang", "save", "told", {"free": False}),
                ("hang", "exit", "fails", {"code": None}),
                ("crash", "exit", "told", {"code": 1}),
                ("crash", "download", "closed", {"texts": [], "code": 139}),
                ("wrong", "erase", "done", {"texts": [error]}),
                ("wrong", "erase", "fails", {}),
                ("wrong", "erase", "again", {"texts": ["Success. Memory erased.", error]}),
                ("wrong", "exit", "done", {"memory": {"on": "1"}}),
                ("untrue", "connect", "told", {"shown": window.UNREAD}),
                ("untrue", "connect", "told", {"texts": [error]}),
                ("untrue", "save", "told", {"memory": {"settings": window.HELD}}),
                ("untrue", "reset", "told", {"memory": {"settings": window.HELD}}),
                ("untrue", "erase", "told", {"memory": {"datasets": "8"}}),
                ("untrue", "save", "told", {"answered": []}),
                ("untrue", "reset", "told", {"answered": ["$PSEASETTINGS,1,1000,10000,30,29*00"]}),
                ("untrue", "download", "told", {"texts": ["Wrote 9 records to 2 files in /dive"]}),
                ("half", "download", "told", {"file": b"Number,Id"}),
                ("half", "download", "closed", {"texts": [], "file": b"Number,Id"}),
                ("lost", "download", "told", {"memory": {"datasets": "0"}}),
                ("lost", "erase", "fails", {"texts": [error], "memory": {"datasets": "3"}}),
                ("lost", "erase", "other", {"texts": [error], "memory": {"datasets": "0"}}),
                ("lost", "connect", "told", {"memory": {"settings": window.SAVED}}),
                ("lost", "save", "told", {"texts": [error], "memory": {"settings": "0 0 0 0 0"}})):
            with self.subTest(kind=kind, command=command, holds=holds, **changes):
                self.assertIn(kind, self.kinds(command, holds, **changes))


if __name__ == "__main__":
    run.hide_mounts()
    Oracle.build = pathlib.Path(sys.argv.pop(1)).resolve()
    testing.run()
