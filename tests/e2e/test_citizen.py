#!/usr/bin/python3
"""What the program asks of the desktop while jobs run: no sleep, and a notification for whoever looks elsewhere."""

import html
import os
import re
import subprocess
import time

from kit import desktop, recordings, rig, testing
from kit.popups import Popup, press_key

LOCK = ("Inhibit", "sleep:idle", "Kelpora 360", "A job is running.", "block")
MAY_SLEEP = "The computer may go to sleep during a job:"


class DesktopTest(testing.WindowTest):
    """With a system bus of its own; the session's bus is that of all tests."""

    def setUp(self):
        super().setUp()
        before = os.environ.get("DBUS_SYSTEM_BUS_ADDRESS")
        self.addCleanup(lambda: os.environ.pop("DBUS_SYSTEM_BUS_ADDRESS") if before is None
                        else os.environ.update(DBUS_SYSTEM_BUS_ADDRESS=before))
        os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = "unix:path=" + os.path.join(self.folder, "no-bus")

    def system_bus(self):
        bus = desktop.Bus()
        self.addCleanup(bus.close)
        os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = bus.address
        return bus.address

    def serve(self, service, address=None, behaviour=desktop.ANSWERS):
        served = service(address or os.environ["DBUS_SESSION_BUS_ADDRESS"], behaviour)
        self.addCleanup(served.close)
        return served

    def use_rig(self, *options):
        if rig.why_not():
            self.skipTest(rig.why_not())
        self.program = self.Program(os.environ["KELPORA_PROGRAM"], self.folder, rig.Rig(self.folder, *options))
        self.addCleanup(self.program.end)

    def insert_long_cards(self):
        """Cards whose import takes a while."""
        for card in (1, 2, 3):
            folder = self.reader.insert("KELPORA360_{}".format(card), size_mib=96)
            recordings.fill_photos(folder, card, 3000, 5000)

    def begin_import(self, window):
        window.press("Copy Files")
        self.wait_until(lambda: any(window.progress(card) for card in (1, 2, 3)), 10, "a running import")


class Sleep(DesktopTest):
    def test_none_while_an_import_runs(self):
        logind = self.serve(desktop.Logind, self.system_bus())
        saver = self.serve(desktop.ScreenSaver)
        self.insert_long_cards()
        window = self.start()
        self.assertEqual((logind.calls, saver.calls), ([], []))
        self.begin_import(window)
        self.wait_until(lambda: logind.calls and saver.calls, 10, "the calls")
        # However short the import is on this machine.
        while True:
            held = (logind.held(), saver.held())
            if all(text.startswith("Copied") for text in self.progress(window)):
                break
            self.assertEqual(held, (1, 1))
        self.summaries(window)
        self.wait_equal(lambda: (logind.held(), saver.held()), (0, 0))
        # Once for the three cards.
        self.assertEqual(logind.calls, [LOCK])
        self.assertEqual(saver.calls[0], ("Inhibit", "Kelpora 360", "A job is running."))
        self.assertEqual([call[0] for call in saver.calls], ["Inhibit", "UnInhibit"])
        self.assertEqual(self.exit(window), 0)
        self.assertFalse([line for line in self.program.messages() if "may" in line])

    def test_each_job_asks_anew(self):
        logind = self.serve(desktop.Logind, self.system_bus())
        self.insert_filled_cards()
        window = self.start()
        for imports in (1, 2):
            window.press("Copy Files")
            self.wait_equal(lambda: (len(logind.calls), logind.held()), (imports, 0), 30)
            self.summaries(window)
        self.assertEqual(self.exit(window), 0)

    def test_none_while_cards_are_prepared(self):
        logind = self.serve(desktop.Logind, self.system_bus())
        self.insert_cards()
        window = self.start()
        window.press("Erase Cards")
        Popup(window, "check box", "Erase cards. This can't be undone.").press("Erase")
        self.wait_equal(lambda: self.progress(window), ["Erased and prepared."] * 3, 20)
        self.wait_equal(lambda: (logind.calls, logind.held()), ([LOCK], 0))
        self.assertEqual(self.exit(window), 0)

    def test_none_while_a_job_with_the_controller_runs(self):
        logind = self.serve(desktop.Logind, self.system_bus())
        saver = self.serve(desktop.ScreenSaver)
        self.use_rig("--slow", "--datasets", "300")
        window = self.start()
        window.turn_to("Copy Data")
        window.press("Copy Data")
        self.wait_equal(lambda: (logind.held(), saver.held()), (1, 1))
        self.wait_until(lambda: window.progress("Data").startswith("Wrote"), 30, "the end of the job")
        self.wait_equal(lambda: (logind.held(), saver.held()), (0, 0))
        self.assertEqual(logind.calls, [LOCK])

    def test_again_once_the_program_was_closed_amid_a_job(self):
        self.end_amid_an_import(lambda window: window.close())
        self.assertIn("Application end", self.program.messages())

    def test_again_once_the_program_was_killed_amid_a_job(self):
        self.end_amid_an_import(lambda window: self.program.process.kill())

    def end_amid_an_import(self, end):
        logind = self.serve(desktop.Logind, self.system_bus())
        self.insert_long_cards()
        window = self.start()
        self.begin_import(window)
        self.wait_equal(logind.held, 1)
        end(window)
        self.program.wait(30)
        self.wait_equal(logind.held, 0)
        self.assertFalse("Done." in self.program.messages(), "the import ended before the program")


class Without(DesktopTest):
    """A desktop that isn't there, refuses or hangs costs a line in the log, and nothing else."""

    def test_a_system_bus(self):
        self.import_twice()
        self.assertEqual(len(self.told()), 1)

    def test_a_service(self):
        self.system_bus()
        self.import_twice()
        self.assertEqual(len(self.told()), 1)

    def test_the_right_to_it(self):
        logind = self.serve(desktop.Logind, self.system_bus(), desktop.REFUSES)
        self.import_twice()
        self.assertEqual(len(logind.calls), 2)
        self.assertEqual(self.told(), [MAY_SLEEP + " Not for you"])

    def test_an_answer(self):
        logind = self.serve(desktop.Logind, self.system_bus(), desktop.HANGS)
        saver = self.serve(desktop.ScreenSaver, behaviour=desktop.HANGS)
        self.import_twice()
        self.assertEqual((len(logind.calls), len(saver.calls)), (2, 2))

    def test_a_bus_that_speaks(self):
        bus = desktop.MuteBus(self.folder)
        self.addCleanup(bus.close)
        os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = bus.address
        self.insert_filled_cards()
        # From here on the toolkit answers no assistive tool, either.
        self.start().click("push button", "Copy Files")
        self.wait_imports(1)
        self.assertTrue(bus.asked())
        asked = time.monotonic()
        press_key("alt+F4")
        self.assertEqual(self.program.wait(30), 0)
        self.check_end(asked)

    def told(self):
        return [line for line in self.program.messages() if line.startswith(MAY_SLEEP)]

    def import_twice(self):
        self.insert_filled_cards()
        window = self.start()
        for imports in (1, 2):
            window.press("Copy Files")
            self.wait_imports(imports)
            self.summaries(window)
            window.wait_bright("Exit")
        asked = time.monotonic()
        self.assertEqual(self.exit(window), 0)
        self.check_end(asked)

    def wait_imports(self, imports):
        self.wait_equal(lambda: sum(line.endswith("photos.") for line in self.program.messages()), 3 * imports, 30)

    def check_end(self, asked):
        self.assertLess(time.monotonic() - asked, testing.closing_bound())
        self.assertEqual(self.program.messages()[-1], "Application end")


class SecondStart(DesktopTest):
    def test_while_the_first_is_closing_waits_for_its_end(self):
        # The power-off gets no answer, which takes seconds.
        self.use_rig("--mute-after", "3")
        window = self.start()
        window.turn_to("Settings")
        window.press("Connect")
        self.wait_equal(lambda: window.progress("Settings"), "Success. Settings read.", 30)
        window.close()
        self.wait_until(lambda: "Shutting down camera ..." in self.program.messages(), 10, "the power-off")
        second = self.Program(os.environ["KELPORA_PROGRAM"], self.folder, self.reader)
        self.addCleanup(second.end)
        second.launch()
        self.assertEqual(self.program.wait(30), 0)
        self.program = second
        self.program.window = self.wait_until(second._find_window, 20, "the second window")
        told = [line for line in second.errors().splitlines() if re.search("still closing|Application (start|end)", line)]
        self.assertEqual([line.split("Info: ")[-1] for line in told],
                         ["Application start", "Kelpora 360 is still closing; it starts again once that is done.",
                          "Application end", "Application start"])
        self.assertEqual(self.exit(second.window), 0)


class Notification(DesktopTest):
    def setUp(self):
        super().setUp()
        self.server = self.serve(desktop.Notifications)

    def test_of_an_import_for_whoever_looks_elsewhere(self):
        self.insert_filled_cards()
        self.begin()
        self.window.press("Copy Files")
        self.wait_shown(["Card 1: Copied 3/3 videos and 3/3 photos.\n"
                         "Card 2: Copied 3/3 videos and 3/3 photos.\n"
                         "Card 3: Copied 2/2 videos and 3/3 photos."])

    def test_of_a_card_that_was_not_copied(self):
        cards = self.insert_filled_cards()
        self.begin()
        self.reader.pull(cards[3])
        self.window.press("Copy Files")
        self.wait_equal(lambda: len(self.server.shown()), 1, 20)
        lines = self.server.shown()[0][1].split("\n")
        self.assertEqual(lines, ["Card {}: {}".format(card, self.window.progress(card)) for card in (1, 2, 3)])
        self.assertTrue(lines[2].startswith("Card 3: Error"), lines[2])

    def test_of_cards_that_are_prepared(self):
        self.insert_cards()
        window = self.start()
        window.press("Erase Cards")
        popup = Popup(window, "check box", "Erase cards. This can't be undone.")
        self.look_elsewhere(window)
        popup.press("Erase")
        self.wait_shown(["\n".join("Card {}: Erased and prepared.".format(card) for card in (1, 2, 3))])

    def test_of_a_job_with_the_controller(self):
        self.use_rig()
        window = self.start()
        window.turn_to("Settings")
        self.look_elsewhere(window)
        window.press("Connect")
        self.wait_shown(["Success. Settings read."])

    def test_none_while_the_window_is_in_front(self):
        self.insert_filled_cards()
        window = self.start()
        window.press("Copy Files")
        self.wait_until(lambda: sum("photos." in line for line in self.program.messages()) == 3, 30, "the import")
        window.wait_bright("Exit")
        # The first would be there before the second.
        self.look_elsewhere(window)
        window.press("Erase Cards")
        Popup(window, "check box", "Erase cards. This can't be undone.").press("Erase")
        self.wait_shown(["\n".join("Card {}: Erased and prepared.".format(card) for card in (1, 2, 3))])

    def test_of_text_that_looks_like_markup(self):
        self.use_rig()
        self.destination = os.path.join(self.folder, "R&D <i>")
        os.mkdir(self.destination)
        window = self.start()
        window.turn_to("Copy Data")
        self.look_elsewhere(window)
        window.press("Copy Data")
        self.wait_equal(lambda: len(self.server.shown()), 1, 20)
        text = window.progress("Data")
        self.assertIn("R&D <i>", text)
        self.wait_shown([html.escape(text)])

    def begin(self):
        self.window = self.start()
        self.look_elsewhere(self.window)

    def look_elsewhere(self, window):
        """Puts the window away; an assistive tool still reaches it."""
        subprocess.run(["xdotool", "getactivewindow", "windowminimize"], check=True)
        self.wait_until(lambda: not window.frame.is_active(), 5, "another window in front")

    def wait_shown(self, texts):
        self.wait_equal(self.server.shown, [("Kelpora 360", text) for text in texts], 20)


if __name__ == "__main__":
    testing.main()
