#!/usr/bin/python3
"""Cards prepared through the window, compared byte for byte with what the two boxes ask for."""

import os
import stat

from kit import recordings, testing
from kit.popups import Popup, press_key

ERASE = "Erase cards. This can't be undone."
SYNC = "Write sync configuration files"
_CONFIG = b"multi.auto_ena=1\nrecord.tl_enable=0\n"
_LABEL = ("[autorun]\r\nlabel=360_0{}\r\n\r\n[Content]\r\nMusicFiles=0\r\nPictureFiles=0\r\nVideoFiles=0")


def over(old, new):
    """What is left of `old` once `new` is written from its start."""
    return new + old[len(new):]


def prepared(before, card, erase, sync):
    """The files of a card (path, content) after its preparation."""
    files = {} if erase else dict(before)
    if sync:
        files["MISC/cfg"] = over(files.get("MISC/cfg", b""), _CONFIG)
    for name in ("360_0{}".format(card), ".disable_osx_metadata", ".metadata_never_index"):
        files.setdefault(name, b"")
    files["AutoRun.inf"] = over(files.get("AutoRun.inf", b""), _LABEL.format(card).encode())
    return files


def folders(root):
    return sorted(os.path.relpath(os.path.join(top, name), root) for top, names, _ in os.walk(root) for name in names)


class Preparation(testing.WindowTest):
    def test_erase_and_write_configuration(self):
        self.prepare(erase=True, sync=True, status="Erased and prepared.")

    def test_erase_only(self):
        self.prepare(erase=True, sync=False, status="Erased")

    def test_write_configuration_only(self):
        self.prepare(erase=False, sync=True, status="Prepared.")

    def test_neither_box(self):
        self.prepare(erase=False, sync=False, status="No action")

    def test_an_empty_card_gets_everything(self):
        self.prepare(erase=False, sync=True, status="Prepared.", used=False)

    def test_cancel_touches_nothing(self):
        cards, before = self.filled_cards()
        window = self.start()
        popup = self.ask(window)
        popup.press("Cancel")
        popup.wait_closed()
        for card, folder in cards.items():
            self.assertEqual(recordings.tree(folder), before[card])
        # The popup asks again, and only its answer counts.
        popup = self.ask(window)
        popup.press("Erase")
        self.wait_status(window, ["Erased and prepared."] * 3)

    def test_escape_and_a_press_outside_are_no_answer(self):
        cards, before = self.filled_cards()
        window = self.start()
        popup = self.ask(window)
        window.click("text", "Project Name")
        press_key("Escape")
        self.assertTrue(popup.is_open())
        for card, folder in cards.items():
            self.assertEqual(recordings.tree(folder), before[card])
        popup.press("Cancel")
        popup.wait_closed()

    def test_a_place_without_a_card_is_told(self):
        cards = {card: self.reader.insert("KELPORA360_{}".format(card)) for card in (1, 3)}
        for card, folder in cards.items():
            recordings.fill(folder, card)
        window = self.start()
        self.assertEqual(window.choice("Card 2"), "")
        self.ask(window).press("Erase")
        self.wait_status(window, ["Erased and prepared.", "Invalid directory", "Erased and prepared."])
        for card, folder in cards.items():
            self.assertEqual(recordings.tree(folder), prepared({}, card, True, True))

    def prepare(self, erase, sync, status, used=True):
        cards, before = self.filled_cards() if used else (self.insert_cards(), {1: {}, 2: {}, 3: {}})
        window = self.start()
        popup = self.ask(window)
        self.assertTrue(popup.is_checked(ERASE) and popup.is_checked(SYNC))
        popup.check(ERASE, erase)
        popup.check(SYNC, sync)
        folders_before = {card: folders(folder) for card, folder in cards.items()}
        popup.press("Erase")
        popup.wait_closed()
        self.wait_status(window, [status] * 3)
        for card, folder in cards.items():
            self.assert_same(recordings.tree(folder), prepared(before[card], card, erase, sync))
            kept = [] if erase else folders_before[card]
            self.assertEqual(folders(folder), sorted(set(kept) | ({"MISC"} if sync else set())))
            if sync:
                mode = os.stat(os.path.join(folder, "MISC", "cfg")).st_mode
                self.assertEqual(stat.S_IMODE(mode), 0o444)
        # What a link on a card leads to is not the card's.
        self.assertEqual(recordings.tree(self.elsewhere) if used else None, {"mine.MOV": b"mine"} if used else None)
        self.check_log(cards, erase, sync)
        self.assertEqual(self.exit(window), 0)

    def check_log(self, cards, erase, sync):
        messages = self.program.messages()
        for card, folder in cards.items():
            lines = ["Erased card {} ({})"] if erase else []
            lines += ["Created config file on card {} ({})"] if sync else []
            lines += ["Created {} file on card {{}} ({{}})".format(name)
                      for name in ("index", "disable_osx_metadata", "metadata_never_index", "AutoRun")]
            lines = [line.format(card, folder) for line in lines]
            ends = " card {} ({})".format(card, folder)
            self.assertEqual([message for message in messages if message.endswith(ends)], lines)

    def filled_cards(self):
        """Cards full of what the cameras and other systems leave, and the content of each."""
        self.elsewhere = os.path.join(self.folder, "elsewhere")
        recordings.write(self.elsewhere, "mine.MOV", b"mine")
        cards = self.insert_cards()
        before = {}
        for card, folder in cards.items():
            recordings.fill(folder, card)
            recordings.write(folder, "360_0{}".format(card), b"kept")
            recordings.write(folder, "AutoRun.inf", b"x" * 300)
            recordings.write(folder, "a/b/c/d/Straße.txt", b"deep")
            os.chmod(os.path.join(folder, "a/b/c/d/Straße.txt"), 0o444)
            os.makedirs(os.path.join(folder, "empty", ".hidden"))
            before[card] = recordings.tree(folder)
            if card == 2:
                os.symlink(self.elsewhere, os.path.join(folder, "DCIM", "link"))
        return cards, before

    def ask(self, window):
        window.press("Erase Cards")
        return Popup(window, "check box", ERASE)

    def wait_status(self, window, wanted):
        self.wait_equal(lambda: self.progress(window), wanted, 20)


if __name__ == "__main__":
    testing.main()
