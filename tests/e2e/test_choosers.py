#!/usr/bin/python3
"""Folders and files chosen in dialogs that really open. Where the platform has none the toolkit draws its own,
so that the dialogs are the same on every machine."""

import os

from kit import expected, recordings, testing
from kit.popups import FileDialog
from kit.testing import entry

SOURCE = "Choose a directory"
DESTINATION = "Choose the target directory"
TEMPLATE = "Select a stitching template"


class Choosers(testing.WindowTest):
    def new_folder(self, name):
        path = os.path.join(self.folder, name)
        os.makedirs(path)
        return path

    def choose(self, window, button, title, path):
        window.press(button)
        FileDialog(self.program, title).choose(path)

    def wait_choices(self, window, wanted):
        self.wait_equal(lambda: self.choices(window), wanted)

    def wait_folder(self, window, wanted):
        self.wait_equal(lambda: window.text("Folder"), wanted)

    def wait_template(self, window, wanted):
        self.wait_equal(lambda: window.choice("Template"), wanted)

    def test_a_chosen_destination_is_used(self):
        chosen = self.new_folder("50% of the reef")
        cards = self.insert_cards()
        recordings.write(cards[1], "CLIP0001.MOV", b"clip")
        window = self.start()
        self.choose(window, "Folder ...", DESTINATION, chosen)
        self.wait_folder(window, chosen)
        window.press("Copy Files")
        self.summaries(window)
        self.assertEqual(recordings.tree(chosen)["CLIP0001_cam1.MOV"], b"clip")
        self.assertEqual(recordings.tree(self.destination), {})
        self.assertEqual(self.exit(window), 0)

    def test_a_dialog_can_be_cancelled_and_opened_again(self):
        chosen = self.new_folder("chosen")
        window = self.start()
        window.press("Folder ...")
        FileDialog(self.program, DESTINATION).cancel()
        self.assertEqual(window.text("Folder"), self.destination)
        self.choose(window, "Folder ...", DESTINATION, chosen)
        self.wait_folder(window, chosen)

    def test_chosen_sources_are_copied_and_keep_the_other_choices(self):
        cards = self.insert_cards()
        backup = self.new_folder("a card's backup")
        other = self.new_folder("other")
        recordings.fill(backup, 1)
        recordings.fill(other, 3)
        recordings.fill(cards[2], 2)
        window = self.start()
        self.choose(window, "Card 1 ...", SOURCE, backup)
        self.wait_choices(window, [entry(backup), entry(cards[2]), entry(cards[3])])
        self.choose(window, "Card 3 ...", SOURCE, other)
        self.wait_choices(window, [entry(backup), entry(cards[2]), entry(other)])
        wanted = expected.Destination()
        summaries = wanted.add_import({1: backup, 2: cards[2], 3: other})
        window.press("Copy Files")
        self.assertEqual(self.summaries(window), summaries)
        # The log is copied after the last summary.
        log_copy = os.path.join(self.destination, "Kelpora360.log")
        self.wait_until(lambda: os.path.exists(log_copy), 10, "the log's copy")
        found = recordings.tree(self.destination)
        del found["Kelpora360.log"]
        self.assert_same(found, wanted.files)
        window.wait_bright("Exit")
        window.press("Refresh Cards")
        self.wait_choices(window, [entry(cards[card]) for card in (1, 2, 3)])

    def test_a_card_without_a_choice_takes_the_new_folder_too(self):
        cards = {card: self.reader.insert("KELPORA360_{}".format(card)) for card in (1, 2)}
        chosen = self.new_folder("chosen")
        window = self.start()
        self.wait_choices(window, [entry(cards[1]), entry(cards[2]), ""])
        self.choose(window, "Card 1 ...", SOURCE, chosen)
        self.wait_choices(window, [entry(chosen), entry(cards[2]), entry(chosen)])

    def test_a_chosen_template_is_used(self):
        cards = self.insert_filled_cards()
        recordings.write(self.program.templates, "Installed.kava", self.sample("Rig.kava"))
        mine = self.new_folder("my templates")
        template = self.sample("Rig.kava").replace(b'name="', b'name="mine ')
        recordings.write(mine, "Mine.kava", template)
        recordings.write(mine, "Mine.jpg", self.sample("Rig.jpg"))
        window = self.start()
        self.wait_template(window, "Installed")
        path = os.path.join(mine, "Mine.kava")
        self.choose(window, "Template ...", TEMPLATE, path)
        self.wait_template(window, path)
        wanted = expected.Destination(template, self.sample("Rig.jpg"), expected.DEFAULT_ANGLES)
        wanted.add_import(cards)
        window.press("Copy Files")
        self.summaries(window)
        window.wait_bright("Exit")
        self.check_projects(recordings.tree(self.destination), wanted)
        # An import leaves a template that was chosen elsewhere in the templates folder.
        window.press("Refresh Templates")
        self.wait_template(window, "Mine")

    def test_a_chosen_template_goes_when_the_list_is_read_again(self):
        recordings.write(self.program.templates, "Installed.kava", self.sample("Rig.kava"))
        path = os.path.join(self.folder, "my templates", "Mine.kava")
        recordings.write(os.path.dirname(path), "Mine.kava", self.sample("Rig.kava"))
        window = self.start()
        self.choose(window, "Template ...", TEMPLATE, path)
        self.wait_template(window, path)
        window.press("Refresh Templates")
        self.wait_template(window, "Installed")


if __name__ == "__main__":
    testing.main()
