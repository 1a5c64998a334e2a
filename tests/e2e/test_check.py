#!/usr/bin/python3
"""kelpora360-check: cards and copies on real volumes, its verdicts read and its buttons pressed through its window."""

import mmap
import os
import re
import subprocess
import sys
import time

from kit import desktop, disks, recordings, session, testing
from kit.popups import FileDialog, press_key

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "cli"))
import reader  # noqa: E402

CLIP = "DCIM/100MEDIA/CLIP0001.MOV"
STOPPED = "Stopped. Nothing is proven."


class Check(disks.Volumes, testing.WindowTest):
    def setUp(self):
        super().setUp()
        if not session.mounted():
            self.skipTest("This machine does not allow mounts")
        self.cards = {}
        # As the desktop would: by name, these are cards 1, 2 and 3.
        os.rmdir(self.destination)
        self.volume("ext4", "dive")

    def insert(self, number, files=None):
        """A card with a recording, and its copy."""
        card = self.volume("ext4", "KELPORA360_{}".format(number), size_mib=16)
        os.rmdir(os.path.join(card, "lost+found"))
        for name, data in (files or {CLIP: recordings.content(number, CLIP, 300000 + number)}).items():
            recordings.write(card, name, data)
            stem, ending = os.path.splitext(name)
            recordings.write(self.destination, "{}_cam{}{}".format(stem, number, ending), data)
        self.cards[number] = card
        return card

    def copy_of(self, number):
        return os.path.join(self.destination, CLIP.replace(".", "_cam{}.".format(number)))

    def begin(self, *numbers):
        for number in numbers:
            self.insert(number)
        window = self.program.start()
        window.type("Folder", self.destination)
        return window

    def labels(self, window, description):
        """What the labels of that description say."""
        found = []

        def look(accessible):
            if accessible.role() == "label" and accessible.description() == description:
                found.append(accessible.name())
            for child in accessible.children():
                look(child)
        look(window.frame)
        return found

    def verdict(self, window):
        """The verdict, once it is there."""
        return self.wait_until(lambda: self.labels(window, "Verdict"), 30, "the verdict")[0]

    def of_cards(self, window):
        return [self.labels(window, "Verdict of card {}".format(card))[0] for card in (1, 2, 3)]

    def report(self, window):
        window._found.clear()
        return window.text("Report")

    def check(self, window):
        window.press("Check")
        return self.verdict(window)

    def flip_bit(self, path):
        """A bit flips on the disk, below the file system."""
        with open(path, "rb") as file:
            data = file.read()
        with open(self.destination + ".image", "r+b") as image, mmap.mmap(image.fileno(), 0) as whole:
            subprocess.run(["sync", "--file-system", self.destination], check=True)
            place = whole.find(data[1000:200000])
            self.assertGreaterEqual(place, 0, "the copy is in one piece")
            whole[place + 5000] ^= 1

    def serve(self, number, name):
        """A card behind a reader that holds a file; the card lies in the place of the volume."""
        source = os.path.join(self.folder, "source")
        data = recordings.content(number, name, 300000)
        recordings.write(source, name, data)
        recordings.write(self.destination, name.replace(".", "_cam{}.".format(number)), data)
        try:
            server = reader.Server(os.path.join(self.folder, "KELPORA360_{}".format(number)), source, "--hold", name)
        except OSError as error:
            self.skipTest(str(error))
        self.addCleanup(server.close)
        return server

    def test_safe(self):
        window = self.begin(1, 2, 3)
        self.assertEqual(self.check(window), "Safe to erase: cards 1, 2 and 3")
        self.assertEqual(self.of_cards(window), ["Card {}: Safe to erase".format(card) for card in (1, 2, 3)])
        self.assertEqual(self.report(window).splitlines(), [
            "Card {}: 1 of 1 files are in {}, both read from disk. Safe to erase.".format(card, self.destination)
            for card in (1, 2, 3)])
        self.assertEqual(self.exit(window), 0)
        self.assertEqual(os.listdir(self.program.support), ["templates"], "the log is the main window's")

    def test_one_bit_flipped(self):
        window = self.begin(1, 2, 3)
        self.flip_bit(self.copy_of(3))
        self.assertEqual(self.check(window), "Do NOT erase card 3")
        self.assertEqual(self.of_cards(window), ["Card 1: Safe to erase", "Card 2: Safe to erase", "Card 3: do NOT erase"])
        self.assertIn("  {}: its copy {} differs from it".format(CLIP, CLIP.replace(".", "_cam3.")),
                      self.report(window).splitlines())

    def test_two_cards(self):
        window = self.begin(1, 3)
        self.assertEqual(self.check(window), "Safe to erase: cards 1 and 3")
        self.assertEqual(self.of_cards(window), ["Card 1: Safe to erase", "Card 2: none chosen", "Card 3: Safe to erase"])

    def test_nothing_on_a_card(self):
        self.insert(3, {"MISC/empty.txt": b"x"})
        for folder, _, names in os.walk(self.cards[3]):
            for name in names:
                os.unlink(os.path.join(folder, name))
        window = self.begin(1)
        self.assertEqual(self.check(window), "There is nothing on card 3")
        self.assertEqual(self.of_cards(window)[2], "Card 3: There is nothing on it")
        self.assertNotIn("Safe", self.labels(window, "Verdict")[0])

    def test_card_in_memory_is_not_checked(self):
        # Nobody knows whether a disk has it.
        card = self.reader.insert("KELPORA360_1")
        recordings.write(card, CLIP, b"clip")
        recordings.write(self.destination, CLIP.replace(".", "_cam1."), b"clip")
        window = self.begin()
        self.assertEqual(self.check(window), "Do NOT erase: not checked")
        self.assertEqual(self.of_cards(window)[0], "Card 1: not checked")

    def test_card_that_is_pulled(self):
        server = self.serve(1, CLIP)
        window = self.begin(2)
        self.choose_card(window, 1, server.folder)
        window.press("Check")
        server.wait_held()
        subprocess.run(["umount", "--lazy", server.folder], check=True)
        server.release()
        self.assertEqual(self.verdict(window), "Do NOT erase: not checked")
        self.assertEqual(self.of_cards(window)[:2], ["Card 1: not checked", "Card 2: Safe to erase"])
        self.assertIn("  the card was pulled, or another one put in, while it was read", self.report(window).splitlines())

    def choose_card(self, window, number, path):
        window.press("Card {} ...".format(number))
        FileDialog(self.program, "Choose a card").choose(path)
        wanted = testing.entry(path)
        self.wait_equal(lambda: window.choice("Card {}".format(number)), wanted)

    def held(self):
        """A check that reads a file of card 1."""
        server = self.serve(1, CLIP)
        window = self.begin()
        self.choose_card(window, 1, server.folder)
        window.press("Check")
        server.wait_held()
        return server, window

    def test_stopped(self):
        server, window = self.held()
        window.press("Stop")
        self.assertEqual(self.verdict(window), STOPPED)
        server.release()
        # What the check found later is not told.
        self.wait_until(lambda: window.find("push button", "Check"), 5, "the button")
        time.sleep(0.5)
        self.assertEqual(self.labels(window, "Verdict"), [STOPPED])
        window._found.clear()
        window.wait_bright("Check")
        self.assertEqual(self.check_again(window), "Do NOT erase: not checked")

    def check_again(self, window):
        """Checks while a verdict is there."""
        window.press("Check")
        return self.wait_until(lambda: [text for text in self.labels(window, "Verdict") if text != STOPPED], 30,
                               "the next verdict")[0]

    def test_window_closed_while_a_disk_hangs(self):
        _, window = self.held()
        start = time.monotonic()
        window.close()
        self.assertEqual(self.program.wait(30), 0)
        self.assertLess(time.monotonic() - start, testing.closing_bound())

    def test_progress(self):
        server, window = self.held()
        self.assertEqual(self.labels(window, "Verdict"), [])
        self.wait_until(lambda: re.fullmatch(r"\d+ %  \d+ MB/s  \d+:\d\d left", self.labels(window, "Card 1")[0]), 5,
                        "speed and time left")
        for control in ("Refresh Cards", "Card 1 ...", "Folder ..."):
            window.wait_bright(control, False)
        server.release()

    def test_seal(self):
        window = self.begin(1, 2, 3)
        window.click("check box", "Seal the folder")
        self.assertEqual(self.check(window), "Safe to erase: cards 1, 2 and 3")
        self.assertEqual(self.labels(window, "Seal"), ["Sealed: 3 new, 0 before."])
        self.assertIn("ascmhl", os.listdir(self.destination))

    def test_without_seal(self):
        window = self.begin(1)
        self.check(window)
        self.assertEqual(self.labels(window, "Seal"), [""])
        self.assertNotIn("ascmhl", os.listdir(self.destination))

    def test_file_that_is_not_as_it_was_sealed(self):
        window = self.begin(1)
        window.click("check box", "Seal the folder")
        self.check(window)
        for folder in (self.cards[1], self.destination):
            for top, _, names in os.walk(folder):
                for name in names:
                    if name.endswith(".MOV"):
                        recordings.write(top, name, b"another recording")
        window.press("Check")
        self.wait_equal(lambda: self.labels(window, "Verdict"), ["Do NOT erase card 1"])
        self.assertEqual(self.of_cards(window)[0], "Card 1: do NOT erase")
        self.assertIn("Altered since it was sealed: " + CLIP.replace(".", "_cam1."), self.report(window).splitlines())

    def test_other_card_clears_the_verdict(self):
        window = self.begin(1, 2, 3)
        self.check(window)
        window.choose("Card 2", 0)
        self.wait_cleared(window)
        self.assertEqual(window.choice("Card 2"), "No card")

    def test_other_folder_clears_the_verdict(self):
        window = self.begin(1)
        self.check(window)
        window.type("Folder", self.destination + "x")
        self.wait_cleared(window)
        window.press("Check")
        self.assertEqual(self.verdict(window), "Nothing was checked")
        self.assertEqual(self.labels(window, "Verdict details"), ["{}x is no folder.".format(self.destination)])

    def test_refresh_clears_the_verdict(self):
        window = self.begin(1)
        self.check(window)
        self.insert(2)
        window.press("Refresh Cards")
        self.wait_cleared(window)
        self.assertEqual(self.check(window), "Safe to erase: cards 1 and 2")

    def wait_cleared(self, window):
        self.wait_until(lambda: not self.labels(window, "Verdict"), 5, "no verdict")

    def test_folder_without_a_full_path(self):
        window = self.begin(1)
        window.type("Folder", "dive")
        self.assertEqual(self.check(window), "Nothing was checked")

    def test_report_is_saved(self):
        window = self.begin(1)
        os.unlink(self.copy_of(1))
        self.check(window)
        path = os.path.join(self.folder, "report.txt")
        self.save(window, path)
        self.wait_until(lambda: self.labels(window, "Report") == ["Saved as {}.".format(path)], 5, "the file")
        with open(path, encoding="utf-8") as file:
            lines = file.read().splitlines()
        self.assertEqual(lines[0], "Do NOT erase card 1")
        self.assertRegex(lines[1], r"^Copies in {}, checked \d{{4}}-\d\d-\d\d \d\d:\d\d\.$".format(self.destination))
        self.assertEqual(lines[2], "Card 1: do NOT erase - " + testing.entry(self.cards[1]))
        self.assertEqual(lines[-1], "  {}: no copy of it is there".format(CLIP))

    def test_report_that_can_not_be_saved(self):
        window = self.begin(1)
        self.check(window)
        self.save(window, "/proc/report.txt")
        self.wait_until(lambda: self.labels(window, "Report")[0].startswith("Not saved: "), 5, "the message")

    def save(self, window, path):
        window.press("Save ...")
        FileDialog(self.program, "Save the report").choose(path)

    def test_computer_stays_awake(self):
        system = desktop.Bus()
        self.addCleanup(system.close)
        before = os.environ.get("DBUS_SYSTEM_BUS_ADDRESS")
        self.addCleanup(lambda: os.environ.pop("DBUS_SYSTEM_BUS_ADDRESS") if before is None
                        else os.environ.update(DBUS_SYSTEM_BUS_ADDRESS=before))
        os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = system.address
        logind = desktop.Logind(system.address)
        self.addCleanup(logind.close)
        server, window = self.held()
        self.wait_equal(lambda: (len(logind.calls), logind.held()), (1, 1))
        server.release()
        self.verdict(window)
        self.wait_equal(lambda: (len(logind.calls), logind.held()), (1, 0))

    def test_colours(self):
        """Red for what is lost, green for what is safe, grey for what isn't there."""
        window = self.begin(1, 2)
        os.unlink(self.copy_of(2))
        self.check(window)
        colours = [self.colour_beside(window, text) for text in
                   ("Do NOT erase card 2", "Card 1: Safe to erase", "Card 2: do NOT erase", "Card 3: none chosen")]
        (red, green, _), others = colours[0], colours[1:]
        self.assertGreater(red, green + 50)
        self.assertEqual(others[1], colours[0])
        self.assertGreater(others[0][1], others[0][0] + 30)
        self.assertLess(max(others[2]) - min(others[2]), 5)

    def colour_beside(self, window, text):
        """Red, green and blue, to 255, of what is beside a label."""
        left, top, _, _ = window.find("label", text).place()
        raw = subprocess.run(["import", "-silent", "-window", "root", "-crop", "1x1+{}+{}".format(left - 3, top + 3),
                              "+repage", "-depth", "8", "rgb:-"], check=True, stdout=subprocess.PIPE).stdout
        return tuple(raw[:3])

    def test_everything_is_in_sight_in_the_smallest_window(self):
        window = self.begin(1)
        window.click("check box", "Seal the folder")
        subprocess.run(["xdotool", "getactivewindow", "windowsize", "100", "100"], check=True)
        self.check(window)
        window._found.clear()
        for role, name in (("text", "Report"), ("push button", "Save ..."), ("push button", "Exit")):
            self.wait_until(lambda role=role, name=name: self.is_in_sight(window, role, name), 5, name)

    def is_in_sight(self, window, role, name):
        _, top, _, height = window.find(role, name).place()
        _, frame_top, _, frame_height = window.frame.place()
        return height > 30 and top + height <= frame_top + frame_height

    def test_keyboard_alone(self):
        window = self.begin(1)
        window.click("check box", "Seal the folder")
        for key in ("Tab", "Tab", "Return"):
            press_key(key)
        self.assertEqual(self.verdict(window), "Safe to erase: card 1")
        # A screen reader is at the report.
        self.assertEqual(window.find("text", "Report").description(), "Safe to erase: card 1")
        for key in ("Tab", "Return"):
            press_key(key)
        self.wait_until(lambda: self.labels(window, "Report") == ["Copied."], 5, "the copy")
        window.click("text", "Folder")
        for key in ("ctrl+a", "ctrl+v"):
            press_key(key)
        self.wait_until(lambda: window.text("Folder").startswith("Safe to erase: card 1"), 5, "the report")
        self.assertIn("Card 1: 1 of 1 files are in ", window.text("Folder"))

    def test_keys_scroll_the_report(self):
        card = self.insert(1)
        for number in range(100):
            recordings.write(card, "{:05}.JPG".format(number), b"")
        window = self.begin()
        window.click("check box", "Seal the folder")
        for key in ("Tab", "Tab", "Return"):
            press_key(key)
        self.verdict(window)
        report = window.find("text", "Report")
        begin = report.place()[1]
        for key in ("Down", "Next", "ctrl+End"):
            press_key(key)
            self.wait_until(lambda: report.place()[1] < begin, 5, key + " to scroll")
            begin = report.place()[1]
        for key in ("Prior", "Up"):
            press_key(key)
            self.wait_until(lambda: report.place()[1] > begin, 5, key + " to scroll")
            begin = report.place()[1]

    def test_name_that_looks_like_markup(self):
        card = self.insert(1)
        recordings.write(card, "<b>bold</b>.MOV", b"no copy")
        window = self.begin()
        self.check(window)
        self.assertIn("  <b>bold</b>.MOV: no copy of it is there", self.report(window).splitlines())

    def test_very_many_findings(self):
        card = self.insert(1)
        for number in range(3000):
            recordings.write(card, "{:05}.JPG".format(number), b"")
        window = self.begin()
        self.assertEqual(self.check(window), "Do NOT erase card 1")
        lines = self.report(window).splitlines()
        self.assertLess(len(lines), 1000)
        self.assertEqual(lines[-1], "  ... and {} more".format(3001 - len(lines) + 1))


if __name__ == "__main__":
    testing.main()
