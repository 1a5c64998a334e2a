#!/usr/bin/python3
"""Imports through the real window, compared with what the cards' content asks for."""

import os
import re

from kit import expected, recordings, testing

_SUMMARY = r"copied \d+/\d+ videos and \d+/\d+ photos\.$"


class Import(testing.WindowTest):
    def setUp(self):
        super().setUp()
        self.cards = self.insert_filled_cards()

    def test_first_and_second_import(self):
        self.import_twice(project="", template=False)

    def test_first_and_second_import_with_a_project_name(self):
        self.import_twice(project="reef", template=False)

    def test_first_and_second_import_with_a_template(self):
        self.import_twice(project="", template=True)

    def test_first_and_second_import_with_a_project_name_and_a_template(self):
        self.import_twice(project="reef", template=True)

    def test_template_keeps_its_angles_if_asked_to(self):
        self.write_settings({"OverwriteAngles": "0"})
        self.import_once(angles=None)

    def test_angles_become_radians_if_asked_to(self):
        settings = {"Camera{}{}".format(camera, angle): str(value + camera)
                    for camera in (1, 2, 3)
                    for angle, value in (("Yaw", 10), ("Pitch", -20), ("Roll", 87), ("OffsetX", -30), ("OffsetY", 4))}
        settings.update(OverwriteAngles="1", RadiansAngles="1")
        self.write_settings(settings)
        self.import_once(expected.angles_of(settings))

    def test_a_third_import_counts_on(self):
        window, destination = self.begin(template=False)
        for _ in range(3):
            self.check_import(window, destination, "")
        self.assertIn("DCIM/100MEDIA/CLIP0001-2_cam1.MOV", destination.files)

    def test_a_file_that_is_in_the_way_stays(self):
        window, destination = self.begin(template=False)
        mine = {"DCIM/100MEDIA/CLIP0002_cam2.MOV": b"mine", "Kelpora360.log": b"my own notes"}
        for name, data in mine.items():
            recordings.write(self.destination, name, data)
        destination.files["DCIM/100MEDIA/CLIP0002_cam2.MOV"] = b"mine"
        destination.add_import(self.cards)
        window.press("Copy Files")
        self.summaries(window)
        self.wait_log("Done.")
        self.assertEqual(self.exit(window), 0)
        found = recordings.tree(self.destination)
        self.assertEqual(found.pop("Kelpora360.log"), b"my own notes")
        self.assert_same(found, destination.files)

    def import_once(self, angles):
        window, destination = self.begin(template=True)
        destination.angles = angles
        self.check_import(window, destination, "")
        self.assertEqual(self.exit(window), 0)

    def import_twice(self, project, template):
        originals = {card: recordings.tree(folder) for card, folder in self.cards.items()}
        window, destination = self.begin(template, project)
        self.check_import(window, destination, project)
        first_log = self.check_log_copy()
        self.check_import(window, destination, project)
        self.assertEqual(self.exit(window), 0)
        with open(os.path.join(self.destination, "Kelpora360.log"), "rb") as file:
            self.assertEqual(file.read(), first_log, "only the first import of a run leaves its log")
        for card, folder in self.cards.items():
            self.assert_same(recordings.tree(folder), originals[card])

    def begin(self, template, project=""):
        destination = expected.Destination()
        if template:
            self.write_templates()
            destination = expected.Destination(self.sample("Rig.kava"), self.sample("Rig.jpg"),
                                               expected.DEFAULT_ANGLES)
        window = self.start(project)
        self.assertEqual(window.choice("Template"), "Rig" if template else "")
        return window, destination

    def check_import(self, window, destination, project):
        """Imports, and compares the whole destination with what is expected by now."""
        summaries = destination.add_import(self.cards, project)
        done = self.count_log(_SUMMARY)
        window.press("Copy Files")
        # The labels still tell of the import before until this one has begun.
        self.wait_until(lambda: self.count_log(_SUMMARY) == done + 3, 30, "the end of three imports")
        self.assertEqual(self.summaries(window), summaries)
        window.wait_bright("Exit")
        window.wait_bright("Copy Files")
        self.wait_log("Done.")
        log_copy = os.path.join(self.destination, "Kelpora360.log")
        self.wait_until(lambda: os.path.exists(log_copy), 5, "the copy of the log")

        found = recordings.tree(self.destination)
        del found["Kelpora360.log"]
        self.check_projects(found, destination)
        for name in destination.projects:
            start = b"<?xml version='1.0' encoding='UTF-8'?>\n<pano" if name.endswith(".pano") else b"<?xml"
            self.assertTrue(found.pop(name).startswith(start), name)
        self.assert_same(found, destination.files)
        if destination.projects:
            self.assertEqual(sorted(os.listdir(self.program.templates)), ["Rig.jpg", "Rig.kava", "Rig.pano"])
            self.assertEqual(recordings.tree(self.program.templates)["Rig.kava"], self.sample("Rig.kava"))

    def check_log_copy(self):
        """The destination's log is the program's own up to the end of the import."""
        with open(os.path.join(self.destination, "Kelpora360.log"), "rb") as file:
            copy = file.read()
        with open(self.program.log_path, "rb") as file:
            self.assertTrue(file.read().startswith(copy))
        lines = copy.decode().splitlines()
        # Cards that end in the same moment may each tell of the end.
        self.assertTrue(any(line.endswith("Info: Done.") for line in lines))
        for card in (1, 2, 3):
            self.assertTrue(any("Card {}: copied ".format(card) in line and line.endswith(" photos.")
                                for line in lines), "card {} has ended in the log".format(card))
        return copy

    def count_log(self, pattern):
        return sum(bool(re.search(pattern, message)) for message in self.program.messages())

    def wait_log(self, message):
        self.wait_until(lambda: message in self.program.messages(), 5, "{!r} in the log".format(message))


if __name__ == "__main__":
    testing.main()
