#!/usr/bin/python3
"""Which cards the window offers, and what becomes of those that are pulled, protected or too full."""

import ctypes
import os
import shutil
import subprocess
import time

from kit import recordings, session, testing
from kit.testing import entry


class Cards(testing.WindowTest):
    def skip_unless_mounted(self):
        if not session.mounted():
            self.skipTest("This machine forbids mounts")

    def test_cards_are_preselected_by_their_names(self):
        # Put in the other way round: the name decides, not the system's order.
        cards = {card: self.reader.insert("KELPORA360_{}".format(card)) for card in (3, 1, 2)}
        window = self.start()
        self.assertEqual(self.choices(window), [entry(cards[card]) for card in (1, 2, 3)])
        window.wait_bright("Copy Files")

    def test_refresh_finds_a_new_card(self):
        cards = {card: self.reader.insert("KELPORA360_{}".format(card)) for card in (1, 2)}
        window = self.start()
        self.assertEqual(self.choices(window), [entry(cards[1]), entry(cards[2]), ""])
        window.wait_bright("Copy Files", False)
        third = self.reader.insert("KELPORA360_3")
        self.assertNotIn(entry(third), self.choices(window))
        window.press("Refresh Cards")
        self.wait_until(lambda: self.choices(window)[2] == entry(third), 5, "the third card")
        self.assertEqual(self.choices(window)[:2], [entry(cards[1]), entry(cards[2])])
        window.wait_bright("Copy Files")

    def test_refresh_forgets_a_pulled_card(self):
        cards = self.insert_cards()
        window = self.start()
        self.reader.pull(cards[2])
        window.press("Refresh Cards")
        self.wait_until(lambda: self.choices(window) == [entry(cards[1]), "", entry(cards[3])], 5,
                        "the pulled card to go")
        window.wait_bright("Copy Files", False)

    def test_nothing_can_be_copied_without_a_card(self):
        if not shutil.which("umockdev-wrapper"):
            self.skipTest("This machine lacks umockdev")
        # A mocked table of mounts, because a real machine has other volumes to offer.
        self.use_reader(mounted=False)
        window = self.start()
        self.assertEqual(self.choices(window), ["", "", ""])
        window.wait_bright("Copy Files", False)
        window.press("Copy Files")
        window.click("push button", "Copy Files")
        cards = self.insert_cards()
        window.press("Refresh Cards")
        self.wait_until(lambda: self.choices(window) == [entry(cards[card]) for card in (1, 2, 3)], 5, "three cards")
        window.wait_bright("Copy Files")
        for card in cards.values():
            self.reader.pull(card)
        window.press("Refresh Cards")
        self.wait_until(lambda: self.choices(window) == ["", "", ""], 5, "the cards to go")
        window.wait_bright("Copy Files", False)
        self.assertNotIn("Start.", self.program.messages())

    def test_nothing_can_be_copied_without_a_destination(self):
        self.insert_cards()
        window = self.start()
        window.wait_bright("Copy Files")
        window.type("Folder", "")
        window.wait_bright("Copy Files", False)
        window.press("Copy Files")
        window.type("Folder", self.destination)
        window.wait_bright("Copy Files")
        self.assertNotIn("Start.", self.program.messages())

    def test_a_card_pulled_before_the_import_is_told(self):
        cards = self.insert_cards()
        for card, folder in cards.items():
            recordings.fill(folder, card)
        window = self.start()
        self.reader.pull(cards[3])
        window.press("Copy Files")
        self.assertEqual(self.summaries(window),
                         ["Copied 3/3 videos and 3/3 photos."] * 2 + ["Error: Please choose source"])
        window.wait_bright("Exit")
        self.assertEqual(self.exit(window), 0)
        messages = self.program.messages()
        self.assertIn("Card 3: Please choose source", messages)
        self.assertNotIn("Done.", messages)
        self.assertFalse(os.path.exists(os.path.join(self.destination, "Kelpora360.log")))

    def test_a_protected_card_is_not_offered(self):
        self.skip_unless_mounted()
        cards = self.insert_cards()
        self.reader.protect(cards[2])
        window = self.start()
        self.assertNotIn(entry(cards[2]), self.choices(window))
        self.assertEqual(self.choices(window)[0], entry(cards[1]))

    def test_a_volume_that_stalls_holds_nothing_up(self):
        self.skip_unless_mounted()
        stalled = self.stall("KELPORA360_1")
        cards = {card: self.reader.insert("KELPORA360_{}".format(card)) for card in (2, 3)}
        begin = time.monotonic()
        window = self.program.start()
        self.assertLess(time.monotonic() - begin, 5)
        self.assertEqual(self.choices(window), ["", entry(cards[2]), entry(cards[3])])
        line = "A volume does not answer and is left out: " + stalled
        told = self.program.messages().count(line)
        self.assertGreater(told, 0)
        self.reader.pull(cards[2])
        begin = time.monotonic()
        window.press("Refresh Cards")
        self.wait_until(lambda: self.choices(window) == ["", "", entry(cards[3])], 5, "the pulled card to go")
        self.assertLess(time.monotonic() - begin, 2)
        self.assertGreater(self.program.messages().count(line), told)
        self.assertEqual(self.exit(window), 0)

    def stall(self, label):
        """Mounts a volume that answers no question; returns its path."""
        path = os.path.join(self.reader.folder, label)
        os.mkdir(path)
        connection = os.open("/dev/fuse", os.O_RDWR)
        self.addCleanup(os.close, connection)
        options = "fd={},rootmode=40000,user_id=0,group_id=0".format(connection)
        libc = ctypes.CDLL(None, use_errno=True)
        if libc.mount(label.encode(), path.encode(), b"fuse", 0, options.encode()) != 0:
            self.skipTest("This machine allows no volumes in user space")
        self.addCleanup(libc.umount2, path.encode(), 3)  # MNT_FORCE | MNT_DETACH
        return path

    def test_a_full_destination_is_told(self):
        self.skip_unless_mounted()
        cards = self.insert_cards()
        for card, folder in cards.items():
            recordings.write(folder, "CLIP0001.MOV", recordings.content(card, "CLIP0001.MOV", 1536 * 1024))
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=2m", "disk", self.destination], check=True)
        self.addCleanup(subprocess.run, ["umount", "--lazy", self.destination], check=True)
        window = self.start()
        window.press("Copy Files")
        summaries = self.summaries(window)
        copied = recordings.tree(self.destination)
        self.assertIn("Copied 0/1 videos and 0/0 photos.", summaries)
        for card, summary in enumerate(summaries, 1):
            name = "CLIP0001_cam{}.MOV".format(card)
            whole = copied.pop(name, None) == recordings.content(card, "CLIP0001.MOV", 1536 * 1024)
            self.assertEqual(summary, "Copied {}/1 videos and 0/0 photos.".format(int(whole)))
        copied.pop("Kelpora360.log", None)
        self.assertEqual(copied, {})
        window.wait_bright("Exit")


if __name__ == "__main__":
    testing.main()
