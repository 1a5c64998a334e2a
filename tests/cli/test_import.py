#!/usr/bin/python3
"""Imports without the window: the same tree as the window's own tests ask for."""

import os
import re
import signal
import subprocess
import xml.etree.ElementTree as ET

import command
from kit import expected, recordings, testing


class Import(command.CommandTest):
    def setUp(self):
        super().setUp()
        self.cards = {}
        for card in (1, 2, 3):
            self.cards[card] = self.path("KELPORA360_{}".format(card))
            recordings.fill(self.cards[card], card)
        self.destination = self.path("dive")
        self.templates = os.path.join(self.folder, "data", "Kelpora 360", "templates")

    def sample(self, name):
        with open(os.path.join(testing.SAMPLES, name), "rb") as file:
            return file.read()

    def check(self, destination, *options, cards=None, code=command.GOOD):
        """Imports, and compares the whole destination with what is expected by now."""
        cards = cards or self.cards
        project = options[options.index("--project") + 1] if "--project" in options else ""
        summaries = destination.add_import(cards, project)
        places = [cards.get(card, "-") for card in range(1, max(cards) + 1)]
        result = self.run_json("import", *places, "--to", self.destination, *options, code=code)
        self.assertEqual([one["text"] for one in result["imported"]], summaries)
        self.assertEqual([one["card"] for one in result["imported"]], list(cards))
        found = recordings.tree(self.destination)
        log = found.pop("Kelpora360.log", None)
        for name, project in destination.projects.items():
            self.assertEqual(expected.canonical(ET.fromstring(found.pop(name))), expected.canonical(project), name)
        self.assertEqual(sorted(found), sorted(destination.files))
        self.assertEqual([name for name in found if found[name] != destination.files[name]], [])
        return result, log

    def test_first_and_second_import(self):
        destination = expected.Destination()
        result, log = self.check(destination)
        self.assertEqual(result["sameNames"], [])
        lines = log.decode().splitlines()
        self.assertRegex(lines[-1], r"^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} Info: Done\.$")
        self.assertEqual(sum(bool(re.search(r"Info: Card [123]: copied \d", line)) for line in lines), 3)
        result, second = self.check(destination)
        self.assertEqual(second, log, "a log that is there stays")
        self.assertEqual(result["sameNames"],
                         sorted({name for folder in self.cards.values()
                                 for name in expected.recordings_in(recordings.tree(folder))}))

    def test_project_name(self):
        destination = expected.Destination()
        self.check(destination, "--project", "reef")
        self.check(destination, "--project", "reef")

    def test_template(self):
        for name in ("Rig.kava", "Rig.jpg"):
            recordings.write(self.templates, name, self.sample(name))
        destination = expected.Destination(self.sample("Rig.kava"), self.sample("Rig.jpg"), expected.DEFAULT_ANGLES)
        # Given as a path from here.
        self.check(destination, "--template", "data/Kelpora 360/templates/Rig.kava")
        self.check(destination, "--template", os.path.join(self.templates, "Rig.kava"), "--project", "reef")

    def test_card_that_is_not_there(self):
        destination = expected.Destination()
        _, log = self.check(destination, cards={2: self.cards[2]})
        self.assertIsNone(log, "the window leaves its log after three cards")

    def test_lines(self):
        out, errors = self.run_command("import", self.cards[1], "--to", self.destination)
        self.assertEqual((out, errors), ("Card 1: Copied 3/3 videos and 3/3 photos.\n"
                                         "Card 1: 4 other files were not copied.\n"
                                         "The copies are in {}.\n".format(self.destination), ""))
        errors = self.run_command("import", self.cards[2], "--to", self.destination)[1]
        self.assertRegex(errors, "^kelpora360-cli: .* already holds takes of the same names, 6 of them, such as "
                                 "DCIM/100MEDIA/CLIP0001.MOV.*\n$")

    def test_takes_of_other_names_are_no_mix(self):
        recordings.write(self.destination, "DCIM/100MEDIA/CLIP00012_cam1.MOV", b"x")
        recordings.write(self.destination, "DCIM/100MEDIA/CLIP0001_cam1.THM", b"x")
        recordings.write(self.destination, "DCIM/CLIP0001_cam1.MOV", b"x")
        self.assertEqual(self.run_json("import", self.cards[1], "--to", self.destination)["sameNames"], [])

    def test_no_room(self):
        self.need_mounts()
        os.mkdir(self.destination)
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=128k", "small", self.destination], check=True)
        self.addCleanup(subprocess.run, ["umount", self.destination], check=True)
        target = os.path.join(self.destination, "new", "folder")
        out, errors = self.run_command("import", *self.cards.values(), "--to", target, code=command.NOT_CHECKED)
        self.assertEqual(out, "")
        self.assertRegex(errors, r"^kelpora360-cli: .*folder needs \d+ kB, 131 kB free\.\n$")
        self.assertEqual(os.listdir(self.destination), [])

    def test_card_without_recordings_is_no_success(self):
        os.mkdir(self.path("empty"))
        for options in ([], ["--verify"]):
            result = self.run_json("import", self.path("empty"), "--to", self.destination, *options,
                                   code=command.NOT_CHECKED)
            self.assertEqual(result["imported"], [{"card": 1, "path": self.path("empty"), "others": 0, "whole": False,
                                                   "text": "Copied 0/0 videos and 0/0 photos."}])
        out = self.run_command("import", self.path("empty"), self.cards[2], "--to", self.destination,
                               code=command.NOT_CHECKED)[0]
        self.assertIn("Card 1: there are no recordings on it.\n", out)
        self.assertNotIn("Card 2: there are no recordings", out)

    def test_recording_that_can_not_be_copied(self):
        blocked = os.path.join(self.destination, "DCIM", "101MEDIA")
        os.makedirs(os.path.dirname(blocked))
        with open(blocked, "w"):
            pass
        result = self.run_json("import", self.cards[1], "--to", self.destination, code=command.FINDING)
        self.assertEqual(result["imported"][0]["text"], "Copied 2/3 videos and 2/3 photos.")
        self.assertFalse(result["imported"][0]["whole"])

    def test_verify_afterwards_tells_what_was_not_copied(self):
        self.need_mounts()
        result = self.run_json("import", *self.cards.values(), "--to", self.destination, "--verify",
                               code=command.FINDING)
        for card in result["cards"]:
            self.assertEqual(card["stored"] + len(card["findings"]) + len(card["notChecked"]), card["files"])
            self.assertEqual({finding["path"] for finding in card["findings"]},
                             {"MISC/cfg", "DCIM/100MEDIA/CLIP0001.THM", "DCIM/100MEDIA/clip0009.mov",
                              "DCIM/100MEDIA/img0009.jpg", "DCIM/100MEDIA/.CLIP0001.MOV", ".Trashes/CLIP0008.MOV"})

    def test_interrupt(self):
        with open(os.path.join(self.cards[1], "LONG.MOV"), "wb") as file:
            file.truncate(4 << 30)
        process = self.start("import", self.cards[1], "--to", self.destination)

        def begun():
            return any(".kelpora360-" in name for _, _, names in os.walk(self.destination) for name in names)
        while not begun() and process.poll() is None:
            pass
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.communicate(timeout=60)[0], "")
        self.assertEqual(process.returncode, command.STOPPED)
        self.assertFalse(os.path.exists(os.path.join(self.destination, "LONG_cam1.MOV")))


if __name__ == "__main__":
    command.main()
