#!/usr/bin/python3
"""The controller's jobs through the window: what is sent, what is shown, what is written."""

import calendar
import contextlib
import os
import re
import secrets
import signal
import time

from kit import recordings, rig, session, testing

SENTENCE = rig.sentence
ZONE = 2 * 3600
START = 1550782004  # 2019-02-21 22:46:44 here
POWER_OFF_WITHOUT_ANSWER = 8
# What the program waits, before the power-off and after it, for a job that goes on.
JOB_THAT_GOES_ON = 3

SHOWN = {"Firmware:": "1.24", "Battery:": "50 %", "Video interval": "0.5 seconds", "Photo interval": "12 seconds",
         "Photo timeout": "30 minutes"}
FACTORY = {"Firmware:": "1.24", "Battery:": "50 %", "Video interval": "1.0 seconds", "Photo interval": "10 seconds",
           "Photo timeout": "30 minutes"}

WAIT = "Please wait ..."
STOPS = "A job with the controller is running. Closing the window again stops it."
BEEP, VERSION, SETTINGS = SENTENCE("PSEABEEP"), SENTENCE("PSEAVER"), SENTENCE("PSEAGETSETTINGS")
READ = [BEEP, VERSION, SETTINGS]
SAVE = [BEEP, SENTENCE("PSEASETSETTINGS,1,700,13000,35,29"), SENTENCE("PSEASETRTC,1550782004")]
RESET = [BEEP, SENTENCE("PSEAFACTORYSETTINGS")]
DOWNLOAD = [BEEP, SENTENCE("PSEANUMDUMP"), SENTENCE("PSEADUMP")]
ERASE = [BEEP, SENTENCE("PSEAFORMAT")]
OFF = [BEEP, SENTENCE("PSEAOFF")]


def dive(number, flags, start, count):
    """A run: its start and `count` entries, numbered from `number` on, with values that need all their digits."""
    entries = [(number, 1, start, 0, 22, 0, 0, 3, 3.95)]
    for i in range(1, count + 1):
        entries.append((number + i, flags, (start + i) % 65536, 12.345678 * i / count, 20 - i / 7, 359.5 * i / count,
                        -4.3 + i / 100, 0.00001234 * i, 3.95))
    return entries


# Photos in the second run, whose 16-bit times wrap within it.
DIVES = dive(1, 10, START, 37) + dive(39, 18, (START // 65536 + 1) * 65536 - 15, 29)


class ControllerTest(testing.WindowTest):
    def setUp(self):
        before = os.environ.get("TZ")
        os.environ["TZ"] = "EET-2"
        self.addCleanup(lambda: os.environ.pop("TZ") if before is None else os.environ.update(TZ=before))
        super().setUp()

    def use_reader(self, mounted=None):
        if rig.why_not():
            self.skipTest(rig.why_not())

    def begin(self, *options, entries=()):
        """Starts the program with a controller; returns the window."""
        log = os.path.join(self.folder, "memory")
        with open(log, "w") as file:
            for entry in entries or DIVES:
                file.write(",".join(map(str, entry)) + "\n")
        self.rig = rig.Rig(self.folder, "--log", log, "--battery", "3.8", "--settings", "0,500,12500,30,30", *options)
        self.program = self.Program(os.environ["KELPORA_PROGRAM"], self.folder, self.rig)
        self.addCleanup(self.program.end)
        self.expected = []
        self.window = self.start()
        return self.window

    def finish(self, row, job, text, sent):
        """Presses the job's button; the last word of the job, what had to be sent, and a window that is free."""
        was = self.window.progress(row)
        self.window.press(job)
        final = self.wait_final(row, was)
        self.assertEqual(final, text)
        self.expected += sent
        self.assertEqual(self.rig.sent(), self.expected)
        self.wait_free()
        return final

    def wait_free(self):
        """Waits until the operator can use the window. Behind a popup every button looks bright."""
        self.wait_until(lambda: not self.window.shows(WAIT), 5, "the end of the popup")
        self.window.wait_bright("Exit")

    def wait_final(self, row, was="", seconds=30):
        def ended():
            text = self.window.progress(row)
            return text if text != was and re.match(r"Error|Success|Wrote|No records", text) else None
        return self.wait_until(ended, seconds, "the end of the job")

    # The jobs, each with what it must send and show.

    def read(self, shown=SHOWN, led=False, generation="0.30 (in beta, not officially supported)"):
        self.window.turn_to("Settings")
        self.finish("Settings", "Connect", "Success. Settings read.", READ)
        # The fields are filled just after the last word.
        self.wait_until(lambda: self.window.beside("Firmware:") != "-", 5, "the firmware")
        self.assertEqual(self.rows(), shown)
        self.assertEqual(self.window.is_checked("LED is on while recording"), led)
        self.assertEqual(self.window.choice("E1 Firmware"), generation)

    def rows(self):
        return {row: self.window.beside(row) for row in SHOWN}

    def save(self):
        window = self.window
        window.turn_to("Settings")
        window.type("Date/Time", "2019-02-21 22:46:44")
        if not window.is_checked("LED is on while recording"):
            window.click("check box", "LED is on while recording")
        window.find("slider", "Video interval").set_value(0.7)
        window.find("slider", "Photo interval").set_value(12)
        window.find("slider", "Photo interval").act("Increase")
        window.find("slider", "Photo timeout").set_value(35)
        window.choose("E1 Firmware", 1)
        self.wait_until(lambda: window.choice("E1 Firmware") == "0.29", 5, "0.29")
        self.finish("Settings", "Save Settings", "Success. Settings saved.", SAVE)
        self.read({**SHOWN, "Video interval": "0.7 seconds", "Photo interval": "13 seconds",
                   "Photo timeout": "35 minutes"}, True, "0.29")
        self.assertRegex(window.text("Date/Time"), "^2019-02-21 22:4[67]:..$")

    def reset(self):
        self.window.turn_to("Settings")
        before = self.rows()
        self.finish("Settings", "Reset Settings", "Success. Controller reset.", RESET)
        self.assertEqual(self.rows(), before)

    def download(self, project="reef"):
        window = self.window
        window.turn_to("Copy Files")
        window.type("Project Name", project)
        window.turn_to("Copy Data")
        self.finish("Data", "Copy Data", "Wrote {} records to 2 files in {}".format(len(DIVES), self.destination),
                    DOWNLOAD)
        self.check_files(DIVES, project)

    def check_files(self, entries, project=""):
        found = recordings.tree(self.destination)
        wanted = rig.csv_files(entries, ZONE, project)
        self.assertEqual(sorted(found), sorted(wanted))
        for name, data in wanted.items():
            self.assertEqual(found[name].decode().splitlines(True), data.decode().splitlines(True))

    def erase(self):
        self.window.turn_to("Copy Data")
        self.window.press("Erase Memory")
        self.finish("Data", "Erase", "Success. Memory erased.", ERASE)
        self.finish("Data", "Copy Data", "No records available.", DOWNLOAD[:2])

    def turn_off(self):
        self.assertEqual(self.exit(self.window), 0)
        self.assertEqual(self.rig.sent(), self.expected + OFF)
        self.assertIn("POWER OFF", self.rig.answered()[-1])
        self.assertEqual(self.rig.events()[-2:], ["port opened", "port closed"])
        self.assertEqual(self.program.messages()[-2:], ["Camera shut down", "Application end"])

    def every_job(self, *options):
        self.begin(*options)
        self.read()
        self.save()
        self.reset()
        self.read(FACTORY, True, "0.29")
        self.download()
        self.erase()
        self.turn_off()


class Jobs(ControllerTest):
    def test_read(self):
        self.begin()
        self.read()
        shown = time.strptime(self.window.text("Date/Time"), "%Y-%m-%d %H:%M:%S")
        self.assertLess(abs(time.time() + ZONE - calendar.timegm(shown)), 60)
        self.turn_off()

    def test_save(self):
        self.begin()
        self.save()

    def test_reset(self):
        self.begin()
        self.read()
        self.reset()
        self.read(FACTORY, True, "0.29")

    def test_download(self):
        self.begin()
        self.download()
        # A file of that name is replaced.
        with open(os.path.join(self.destination, "kelpora360_reef_20190221-224600.csv"), "w") as file:
            file.write("old\n" * 10000)
        self.window.press("Copy Data")
        self.wait_until(lambda: self.rig.sent() == self.expected + DOWNLOAD, 10, "a second download")
        self.wait_free()
        self.wait_until(lambda: recordings.tree(self.destination) == rig.csv_files(DIVES, ZONE, "reef"), 5, "the files")

    def test_erase(self):
        self.begin()
        self.erase()

    def test_nothing_is_erased_without_a_yes(self):
        window = self.begin()
        window.turn_to("Copy Data")
        window.press("Erase Memory")
        window.press("Cancel")
        self.finish("Data", "Copy Data", "Wrote {} records to 2 files in {}".format(len(DIVES), self.destination),
                    DOWNLOAD)
        window.press("Erase Memory")
        box = "Erase memory. This can't be undone."
        self.wait_until(lambda: window.find("check box", box).is_checked(), 5, "the question")
        window.click("check box", box)
        self.wait_until(lambda: not window.is_checked(box), 5, "an empty box")
        window.press("Erase")
        time.sleep(0.5)
        self.assertEqual(self.rig.sent(), self.expected)
        self.wait_free()

    def test_power_off_without_a_job(self):
        self.begin()
        self.turn_off()


class Deliveries(ControllerTest):
    """Every job in one run, however the answers come."""

    def test_whole(self):
        self.every_job()

    def test_burst(self):
        self.every_job("--burst")

    def test_bytewise(self):
        self.every_job("--bytewise")

    def test_noise(self):
        self.every_job("--noise")


class Trouble(ControllerTest):
    def test_unplugged_during_a_dump(self):
        answers = 51
        window = self.begin("--unplug-after", str(answers), "--replug-after", "2")
        window.turn_to("Copy Data")
        window.press("Copy Data")
        arrived = answers - 1  # the first answer was the count
        text = self.wait_final("Data")
        self.assertTrue(text.startswith("Error"), text)
        self.assertIn("Wrote {} records to 2 files in {}".format(arrived, self.destination), text)
        cut = rig.csv_files(DIVES[:arrived], ZONE)
        last = max(cut)
        cut[last.replace(".csv", "_incomplete.csv")] = cut.pop(last)
        self.assertEqual(recordings.tree(self.destination), cut)
        self.assertIn("cable pulled", self.rig.events())
        self.wait_free()
        for button in ("Copy Data", "Erase Memory"):
            window.wait_bright(button)
        self.expected = DOWNLOAD[:]
        self.wait_until(lambda: self.rig.events().count("plugged in") == 2, 10, "the cable")
        window.press("Copy Data")
        whole = "Wrote {} records to 2 files in {}".format(len(DIVES), self.destination)
        self.wait_until(lambda: window.progress("Data") == whole, 20, "the whole log")
        self.assertEqual(recordings.tree(self.destination), {**cut, **rig.csv_files(DIVES, ZONE)})
        self.expected += DOWNLOAD
        self.wait_free()
        self.turn_off()

    def test_mute(self):
        window = self.begin("--mute")
        window.turn_to("Copy Data")
        window.press("Erase Memory")
        self.finish("Data", "Erase", "Error erasing memory: Communication error. Please try again.", ERASE)

    def check_close(self, bound, sent=OFF):
        # A job runs: the first attempt is only answered.
        self.window.close()
        self.wait_until(lambda: self.window.shows(STOPS), 5, "the answer to the first attempt")
        self.assertNotIn("Shutting down camera ...", self.program.messages())
        self.window.close()
        asked = time.monotonic()
        code = self.program.wait(60)
        seconds = time.monotonic() - asked
        print("ended after {:.2f} s".format(seconds), end=" ", flush=True)
        self.assertEqual(code, 0)
        self.assertLess(seconds, bound)
        self.assertEqual(self.rig.sent(), self.expected + sent)
        self.assertEqual(self.program.messages()[-1], "Application end")

    def test_closed_during_a_job_of_a_mute_controller(self):
        window = self.begin("--mute")
        window.turn_to("Settings")
        window.press("Connect")
        self.wait_until(lambda: self.rig.sent() == READ[:2], 5, "a running job")
        self.assertTrue(window.shows(WAIT))
        # A reading asks for both, each at least once.
        self.expected = READ[:]
        self.check_close(testing.closing_bound() + POWER_OFF_WITHOUT_ANSWER)

    def test_closed_while_the_memory_is_erased(self):
        # It doesn't say that it is done.
        window = self.begin("--mute")
        window.turn_to("Copy Data")
        window.press("Erase Memory")
        window.press("Erase")
        self.wait_until(lambda: self.rig.sent() == ERASE, 5, "a running job")
        self.expected = ERASE[:]
        # Nobody turns it off in the middle of that.
        self.check_close(testing.closing_bound() + JOB_THAT_GOES_ON, sent=[])

    def test_closed_in_the_middle_of_a_dump(self):
        # 800 lines take more than 5 s on the wire: longer than it takes to close, and on a busy machine too they have
        # come before the power-off waits for them no more.
        entries = dive(1, 10, START, 799)
        window = self.begin("--slow", entries=entries)
        window.turn_to("Copy Data")
        window.press("Copy Data")
        self.wait_until(lambda: window.progress("Data").startswith("Reading dataset "), 10, "a running dump")
        self.expected = DOWNLOAD[:]
        self.check_close(testing.closing_bound() + POWER_OFF_WITHOUT_ANSWER)
        if "All data read" in self.program.messages():
            self.skipTest("This machine is too busy: the dump ended before the window was closed")
        # It took until the lines that were left had come.
        self.assertIn("POWER OFF", self.rig.answered()[-1])
        self.assertEqual(self.program.messages()[-2:], ["Camera shut down", "Application end"])
        name, = recordings.tree(self.destination)
        self.assertEqual(name, "kelpora360_20190221-224600_incomplete.csv")

    def test_a_signal_is_not_held_up_by_a_job(self):
        window = self.begin("--mute")
        window.turn_to("Settings")
        window.press("Connect")
        self.wait_until(lambda: self.rig.sent() == READ[:2], 5, "a running job")
        self.program.process.terminate()
        self.assertEqual(self.program.wait(testing.closing_bound()), 128 + signal.SIGTERM)

    def test_closed_during_a_dump_without_end(self):
        window = self.begin("--no-end")
        window.turn_to("Copy Data")
        window.press("Copy Data")
        self.wait_until(lambda: window.progress("Data") == "Reading dataset {0} of {0}".format(len(DIVES)), 10,
                        "all datasets")
        self.expected = DOWNLOAD[:]
        self.check_close(testing.closing_bound())
        self.check_files(DIVES)


class Devices(ControllerTest):
    """Only listed and opened: nothing answers."""

    def begin_with(self, *serials):
        # The lock files of ports are the machine's, which may have devices of the usual names.
        self.ports = ["ttyUSB{}{}".format(secrets.token_hex(4), number) for number in range(len(serials))]
        path = os.path.join(self.folder, "devices")
        with open(path, "w") as file:
            for number, serial in enumerate(serials):
                port = self.ports[number]
                usb = "/devices/pci0000:00/0000:00:14.0/usb1/1-{}".format(number + 1)
                file.write("P: {0}\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nA: manufacturer=Maker\n"
                           "A: product=Port\nA: serial={1}\n\n"
                           "P: {0}/1-1:1.0/{2}/tty/{2}\nN: {2}\nE: SUBSYSTEM=tty\nE: DEVNAME=/dev/{2}\n"
                           "E: ID_BUS=usb\nE: ID_VENDOR=Maker\nE: ID_MODEL=Port\nE: ID_SERIAL_SHORT={1}\n"
                           "A: dev=188:{3}\n\n".format(usb, serial, port, number))
        self.program = self.Program(os.environ["KELPORA_PROGRAM"], self.folder, _Listed(path))
        self.addCleanup(self.remove_locks)
        self.addCleanup(self.program.end)
        self.window = self.program.start()

    def remove_locks(self):
        """The program is ended while it holds a port."""
        for port in self.ports:
            for folder in ("/var/lock", "/var/lock/lockdev", "/tmp"):
                with contextlib.suppress(OSError):
                    os.unlink(os.path.join(folder, "LCK.." + port))

    def check_chosen(self, number, *serials):
        self.begin_with(*serials)
        for box in ("Device", "Port"):
            self.assertEqual(self.window.choice(box), serials[number] + " (Maker)")
        self.window.turn_to("Settings")
        self.window.press("Connect")
        opened = "Opening port " + self.ports[number]
        self.wait_until(lambda: opened in self.program.messages(), 5, opened)

    def test_a_controller_goes_before_the_others(self):
        self.check_chosen(2, "ACME1", "FTDI77", "KELPORA42", "KELPORA43")

    def test_without_a_controller_an_adapter_of_the_usual_maker(self):
        self.check_chosen(1, "ACME1", "FTDI77", "FTDI78")

    def test_nothing_else_is_chosen(self):
        self.begin_with("ACME1", "ACME2")
        for box in ("Device", "Port"):
            self.assertEqual(self.window.choice(box), "")
        self.window.turn_to("Settings")
        self.window.wait_bright("Connect", False)
        self.window.choose("Port", 1)
        self.wait_until(lambda: self.window.choice("Port") == "ACME2 (Maker)", 5, "the chosen port")
        self.window.wait_bright("Connect")

    def test_what_was_not_chosen_is_left_on(self):
        self.begin("--serial", "ACME1")
        self.assertEqual(self.window.choice("Device"), "")
        self.assertEqual(self.exit(self.window), 0)
        self.assertEqual(self.program.messages()[-2:], ["No camera connected", "Application end"])
        self.assertEqual(self.rig.sent(), [])


class _Listed:
    """Stands where a card reader does: the program sees the devices of a description."""

    def __init__(self, path):
        self.path = path

    def environment(self):
        options = os.environ.get("ASAN_OPTIONS", "")
        return {"ASAN_OPTIONS": ":".join(filter(None, [options, "verify_asan_link_order=0"]))}

    def command(self, program):
        return ["umockdev-run", "--device", self.path, "--", program]


class WithCards(ControllerTest):
    def test_an_import_and_a_download_at_once(self):
        if not session.mounted():
            self.skipTest("Mocked mounts and a mocked port can't be had in one program")
        from kit import cards
        reader = cards.card_reader(os.path.join(self.folder, "cards"))
        self.addCleanup(reader.close)
        for card in (1, 2, 3):
            recordings.fill(reader.insert("KELPORA360_{}".format(card)), card)
        window = self.begin("--bytewise")
        window.press("Copy Files")
        window.press("Copy Data")
        texts = self.summaries(window)
        self.assertFalse([text for text in texts if text.startswith("Error")])
        self.assertEqual(self.wait_final("Data"),
                         "Wrote {} records to 2 files in {}".format(len(DIVES), self.destination))
        found = recordings.tree(self.destination)
        for name, data in rig.csv_files(DIVES, ZONE).items():
            self.assertEqual(found[name], data)
        self.assertGreater(len(found), 3)


if __name__ == "__main__":
    testing.main()
