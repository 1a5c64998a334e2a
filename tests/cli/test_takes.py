#!/usr/bin/python3
"""Takes of three cameras: on their cards, and imported."""

import datetime
import os

import command
import recordings

DIVE = datetime.datetime(2026, 5, 1, 10, 30)
VIDEOS = [(0, 40), (95, 63), (240, 130), (500, 25), (610, 200), (900, 300), (1300, 45), (1400, 90)]
PHOTOS = [1600, 1610, 1630, 1700]


class Takes(command.CommandTest):
    def camera(self, number, clock=0, missed=(), stopped=None, deleted=()):
        """Writes what a camera made of the dive, on its card and as it is imported; clock and stopped are in seconds."""
        count = 0

        def write(kind, content):
            nonlocal count
            count += 1
            if count in deleted:
                return
            for path in ("card{1}/DCIM/100MEDIA/C{0:04}.{2}", "copies/DCIM/100MEDIA/C{0:04}_reef_cam{1}.{2}"):
                path = self.path(path.format(count, number, kind))
                os.makedirs(os.path.dirname(path), exist_ok=True)
                with open(path, "wb") as file:
                    file.write(content)

        for trigger, (second, length) in enumerate(VIDEOS, 1):
            if trigger not in missed:
                start = DIVE + datetime.timedelta(seconds=second + clock)
                write("MOV", recordings.movie(start, length - (stopped or {}).get(trigger, 0)))
        for second in PHOTOS:
            write("JPG", recordings.photo(DIVE + datetime.timedelta(seconds=second + clock)))

    def both(self, code):
        """What the command says of the cards, and of the folder that they were imported into."""
        cards = [self.path("card{}".format(number)) for number in (1, 2, 3)]
        for arguments in (cards, [self.path("copies")]):
            out, errors = self.run_command("takes", *arguments, code=code)
            self.assertEqual(errors, "")
            yield out, self.run_json("takes", *arguments, code=code)

    def test_all_is_well(self):
        for number in (1, 2, 3):
            self.camera(number)
        for out, result in self.both(command.GOOD):
            self.assertEqual(out, "")
            self.assertEqual((result["takes"], result["recordings"]), (12, 36))
            self.assertEqual((result["findings"], result["unreadable"]), ([], []))
            self.assertEqual(result["clocks"], [0, 0, 0])

    def test_every_fault_is_told_and_nothing_else(self):
        self.camera(1)
        self.camera(2, clock=137, missed=[3])
        self.camera(3, clock=-12, stopped={5: 150}, deleted=[10])
        for out, result in self.both(command.FINDING):
            told = [(one["kind"], one.get("camera")) for one in result["findings"]]
            self.assertEqual(told, [("missing", 2), ("shifted", None), ("shifted", None), ("short", 3)]
                             + [("shifted", None)] * 4 + [("missing", 3)] + [("shifted", None)] * 3)
            self.assertEqual(result["clocks"], [0, 137, -12])
            lines = out.splitlines()
            self.assertEqual(lines[:-2], [one["text"] for one in result["findings"]])
            self.assertEqual(lines[-2:], ["Clock: camera 2 is 137 s ahead of camera 1.",
                                          "Clock: camera 3 is 12 s behind camera 1."])

            missing, first = result["findings"][0], result["findings"][1]
            self.assertEqual(missing["start"], "2026-05-01T10:34:00.000")
            self.assertIsNone(missing["files"][1])
            names = [os.path.basename(file).split("_")[0].split(".")[0] for file in first["files"]]
            self.assertEqual(names, ["C0004", "C0003", "C0004"])
            short = next(one for one in result["findings"] if one["kind"] == "short")
            self.assertEqual(short["seconds"], 150)

    def test_clocks_alone_are_no_finding(self):
        for number, clock in ((1, 0), (2, 137), (3, -12)):
            self.camera(number, clock)
        for out, result in self.both(command.GOOD):
            self.assertEqual(out.count("\n"), 2)
            self.assertEqual(result["findings"], [])

    def test_time_that_is_unknown_is_not_checked(self):
        for number in (1, 2, 3):
            self.camera(number)
        for path in ("card3/DCIM/100MEDIA/C0002.MOV", "copies/DCIM/100MEDIA/C0002_reef_cam3.MOV"):
            os.truncate(self.path(path), 40)
        for out, result in self.both(command.NOT_CHECKED):
            self.assertRegex(out, "^Not checked: when camera 3 recorded .*C0002.* is unknown .*not finished.*\n$")
            self.assertEqual([one["kind"] for one in result["findings"]], ["untimed"])

    def test_length_that_is_unknown_is_not_checked(self):
        cards = self.cards([0, 700], [0, 700], [0, 700])
        path = self.path("card2/DCIM/100MEDIA/C0001.MOV")
        with open(path, "rb") as file:
            content = file.read()
        length = (120 * 1000).to_bytes(4, "big")
        self.assertEqual(content.count(length), 1)
        with open(path, "wb") as file:
            file.write(content.replace(length, b"\xff" * 4))
        result = self.run_json("takes", *cards, code=command.NOT_CHECKED)
        self.assertEqual([(one["kind"], one["camera"]) for one in result["findings"]], [("unmeasured", 2)])

    def cards(self, *cameras):
        """Cards with videos of two minutes each; cameras are lists of starts in seconds."""
        for number, starts in enumerate(cameras, 1):
            for count, second in enumerate(starts):
                path = self.path("card{}/DCIM/100MEDIA/C{:04}.MOV".format(number, count))
                os.makedirs(os.path.dirname(path), exist_ok=True)
                with open(path, "wb") as file:
                    file.write(recordings.movie(DIVE + datetime.timedelta(seconds=second), 120))
        return [self.path("card{}".format(number)) for number in (1, 2, 3)]

    def test_regular_takes_are_paired_by_the_clocks(self):
        times = range(0, 4800, 600)
        cards = self.cards(times[:7], times[1:], times[:7])
        kinds = [one["kind"] for one in self.run_json("takes", *cards, code=command.FINDING)["findings"]]
        self.assertEqual(kinds, ["uncertain", "missing"] + ["shifted"] * 6 + ["unpaired"])

    def test_regular_takes_with_another_clock_are_uncertain(self):
        times = range(0, 4800, 600)
        cards = self.cards(times, [second + 137 for second in times], times)
        self.assertIn("Not checked: which takes camera 2 recorded is uncertain (its times fit two pairings).",
                      self.run_command("takes", *cards, code=command.NOT_CHECKED)[0])

    def test_single_take_of_another_day_is_uncertain(self):
        cards = self.cards([0], [-86400], [0])
        result = self.run_json("takes", *cards, code=command.NOT_CHECKED)
        self.assertEqual([(one["kind"], one["camera"]) for one in result["findings"]], [("uncertain", 2)])
        self.assertIn("(only one of them pairs, and the clocks differ)", result["findings"][0]["text"])

    def test_bad_input(self):
        for number in (1, 2, 3):
            self.camera(number)
        os.mkdir(self.path("empty"))
        cards = [self.path("card1"), self.path("card2"), self.path("card3")]
        for title, arguments, code, error in (
                ("two cards", cards[:2], command.USAGE, "one folder or three cards"),
                ("four cards", cards + cards[:1], command.USAGE, "takes"),
                ("none", [], command.USAGE, "takes"),
                ("no such folder", [self.path("nowhere")], command.NOT_CHECKED, "is no folder"),
                ("a file", [self.path("card1/DCIM/100MEDIA/C0001.MOV")], command.NOT_CHECKED, "is no folder"),
                ("a card twice", [cards[0], cards[1], cards[0] + "/../card1/"], command.NOT_CHECKED, "is given twice"),
                ("no recordings", [self.path("empty")], command.NOT_CHECKED, "there are no recordings")):
            with self.subTest(title):
                out, errors = self.run_command("takes", *arguments, code=code)
                self.assertEqual(out, "")
                self.assertIn(error, errors)

    def test_names_that_are_no_text(self):
        for number in (1, 2, 3):
            self.camera(number)
        with open(os.path.join(os.fsencode(self.path("copies")), b"C\xff_cam1.MOV"), "w"):
            pass
        out = self.run_command("takes", self.path("copies"), code=command.NOT_CHECKED)[0]
        self.assertRegex(out, "^Not checked: .* can't be read.\n$")


if __name__ == "__main__":
    command.main()
