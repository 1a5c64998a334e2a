#!/usr/bin/python3
"""How a run begins and ends: the log's first and last lines, "Exit", and a window closed during an import."""

import re
import time

from kit import recordings, testing

_CLOSING = ["Shutting down camera ...", "No camera connected", "Application end"]
_FACTS = ["AppName:", "AppVersion:", "AppExecutable:", "AppDirectory:", "WorkingDirectory:", "CpuArchitecture:",
          "KernelType:", "KernelVersion:", "OperatingSystem:", "PhysicalSizeHeight:", "PhysicalDpi:", "LogicalDpi:",
          "SizeHeight:", "GeometryHeight:", "AvailableSizeHeight:", "AvailableGeometryHeight:",
          "AvailableVirtualGeometryHeight:", "AvailableVirtualSizeHeight:", "VirtualGeometryHeight:",
          "VirtualSizeHeight:", "CalculatedScaleFactor:", "SettingsScaleFactor:", "ScaleFactor:"]


class Closing(testing.WindowTest):
    def test_a_run_without_a_port(self):
        window = self.start()
        self.assertEqual(window.find("label", "Version 1.8.0").name(), "Version 1.8.0")
        self.assertEqual(self.exit(window), 0)
        messages = self.program.messages()
        self.assertEqual(messages[-3:], _CLOSING)
        self.assertEqual(messages[0], "Application start")
        self.assertEqual(messages[1:3], ['AppName: "Kelpora 360"', 'AppVersion: "1.8.0"'])
        self.assertEqual([message.split(" ")[0] for message in messages[1:len(_FACTS) + 1]], _FACTS)
        lines = self.program.log()
        self.assertEqual(lines[0], "Logfile path:")
        for before, line in zip(lines, lines[1:]):
            if line != "Logfile path:":
                self.assertEqual(before, "Logfile path:")
                self.assertRegex(line, r"^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} (Info|Warning): ")

    def test_closing_the_window_is_an_exit(self):
        window = self.start()
        window.close()
        self.assertEqual(self.program.wait(10), 0)
        self.assertEqual(self.program.messages()[-3:], _CLOSING)

    def test_the_log_tells_of_one_run(self):
        recordings.write(self.program.support, "Kelpora360.log", b"of an earlier run\n")
        self.assertEqual(self.exit(self.start()), 0)
        self.assertEqual(self.exit(self.start()), 0)
        messages = self.program.messages()
        self.assertEqual(messages.count("Application start"), 1)
        self.assertEqual(messages.count("Application end"), 1)
        self.assertEqual(self.program.log()[0], "Logfile path:")
        self.assertNotIn("of an earlier run", self.program.log())

    def test_the_settings_of_a_first_run(self):
        self.assertEqual(self.exit(self.start()), 0)
        with open(self.program.support + "/Kelpora360.ini", encoding="utf-8") as file:
            lines = file.read().splitlines()
        for line in ("EnableAutoScale=0", "EnableScaleFactor=1", "EnableHighDpiScaling=1", "AppVersion=1.8.0",
                     "AppName=Kelpora 360"):
            self.assertIn(line, lines)


class DuringAnImport(testing.WindowTest):
    """One large video and many small photos."""

    video_mib = 512
    photos = 8000

    def setUp(self):
        super().setUp()
        self.cards = {card: self.reader.insert("KELPORA360_{}".format(card), size_mib=self.video_mib + 128)
                      for card in (1, 2, 3)}
        block = recordings.content(1, "block", 1024 * 1024)
        with open(self.cards[1] + "/CLIP0001.MOV", "wb") as file:
            for number in range(self.video_mib):
                file.write(number.to_bytes(4, "big") + block[4:])
        for card in (2, 3):
            recordings.fill_photos(self.cards[card], card, self.photos, 5000)

    def begin(self):
        window = self.start()
        self.assertEqual([window.progress(card) for card in (1, 2, 3)], ["", "", ""])
        window.press("Copy Files")
        self.wait_until(lambda: any(window.progress(card) for card in (1, 2, 3)), 10, "a running import")
        return window

    def test_exit_waits_for_the_import(self):
        window = self.begin()
        window.wait_bright("Exit", False)
        window.wait_bright("Copy Files", False)
        window.press("Exit")
        window.click("push button", "Exit")
        window.press("Copy Files")
        time.sleep(0.2)
        self.assertTrue(self.program.is_running())
        self.assertFalse("Done." in self.program.messages(), "the import ended before the buttons were looked at")
        self.assertEqual(self.summaries(window, 120), ["Copied 1/1 videos and 0/0 photos."]
                         + ["Copied 0/0 videos and {0}/{0} photos.".format(self.photos)] * 2)
        window.wait_bright("Exit")
        window.wait_bright("Copy Files")
        self.assertEqual(self.program.messages().count("Start."), 1)
        self.assertEqual(self.exit(window), 0)

    def test_closing_the_window_stops_the_import(self):
        window = self.begin()
        window.close()
        asked = time.monotonic()
        code = self.program.wait(30)
        seconds = time.monotonic() - asked
        print("ended after {:.2f} s".format(seconds), end=" ", flush=True)
        self.assertEqual(code, 0)
        self.assertLess(seconds, testing.closing_bound())
        messages = self.program.messages()
        self.assertEqual([line for line in messages if line in _CLOSING], _CLOSING)
        self.assertEqual(messages[-1], _CLOSING[-1])
        self.assertFalse("Done." in messages, "the import ended before the window was closed")
        stopped = [line for line in messages if re.match(r"Card \d: Stopped after ", line)]
        self.assertTrue(stopped, "no card tells that it was stopped")
        self.check_copies()

    def check_copies(self):
        """Under the recordings' names stand whole copies, and nothing else is left."""
        photos = {card: recordings.content(card, "time lapse", 5000) for card in (2, 3)}
        for name, data in recordings.tree(self.destination).items():
            photo = re.match(r"DCIM/\d+MEDIA/IMG\d+_cam([23])\.JPG$", name)
            if photo:
                self.assertTrue(data == photos[int(photo.group(1))], name + " is not whole")
            else:
                self.assertEqual(name, "CLIP0001_cam1.MOV")
                self.assertEqual(len(data), self.video_mib * 1024 * 1024)


if __name__ == "__main__":
    testing.main()
