#!/usr/bin/python3
"""The command that tells why there is no port, no answer or no card, on mocked ports and mounted cards."""

import json
import os
import re
import shutil
import signal
import subprocess
import time

import command
from kit import cards, rig

with open(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "docs", "cli.md"), encoding="utf-8") as _page:
    DOCUMENTED = set(re.findall(r"`([\w -]+)`", _page.read()))
WAITING = ["--plug-after", "3000"]  # no port
# Gives the port to another user, and to a group; then obeys permissions as any user must.
AS_ANYBODY = """tty=$(readlink /dev/{port}) && chown nobody:dialout $tty && chmod 660 $tty &&
exec setpriv --bounding-set=-dac_override,-dac_read_search --inh-caps=-all "$0" "$@" """
# Holds the port in a way that only opening it tells, as far as a user who isn't root can see.
HELD_UNSEEN = """exec 3<>/dev/{port} && /usr/bin/python3 -c 'import fcntl, termios; fcntl.ioctl(3, termios.TIOCEXCL)' &&
exec setpriv --bounding-set=-sys_admin --inh-caps=-all "$0" "$@" """


class DoctorTest(command.CommandTest):
    def use_controller(self, *options):
        """A controller at `self.port`."""
        if rig.why_not():
            self.skipTest(rig.why_not())
        self.controller = rig.Rig(self.folder, *options)
        self.port = self.controller.port
        self.title = self.port + " (Kelpora 360 Controller, Kelpora, USB 0403:6015, serial number KELPORA0001)"
        self.program, *self.wrapper = self.controller.command(self.program)

    def begin_with(self, script):
        """The program is started by `script`, beside the controller."""
        self.wrapper[-1:] = ["sh", "-c", script.format(port=self.port), self.wrapper[-1]]

    def doctor(self, *arguments, code):
        """Its lines."""
        return self.run_command(*self.wrapper, "doctor", *arguments, code=code)[0].splitlines()

    def doctor_json(self, *arguments, code):
        result = json.loads(self.run_command(*self.wrapper, "doctor", *arguments, "--json", code=code)[0])
        self.assertEqual((result["command"], result["exit"]), ("doctor", code))
        self.check_documented(result)
        return result

    def check_documented(self, result):
        """Every key, and every kind of finding, stands in the documents."""
        if isinstance(result, dict):
            self.assertLessEqual(set(result), DOCUMENTED)
            self.assertIn(result.get("kind", "no port"), DOCUMENTED)
        for part in result.values() if isinstance(result, dict) else result:
            if isinstance(part, (dict, list)):
                self.check_documented(part)

    def check_finding(self, kind, text, typed, verdict="not asked."):
        """What it says of the port, in both ways: this finding alone."""
        self.assertEqual(self.doctor(self.port, code=command.FINDING),
                         ["{}: {}".format(self.title, verdict), "  {} Type: {}".format(text, typed)])
        port, = self.doctor_json(self.port, code=command.FINDING)["ports"]
        self.assertEqual(port["findings"], [{"kind": kind, "text": text, "command": typed}])
        return port


class Ports(DoctorTest):
    def test_all_well(self):
        self.use_controller()
        self.assertEqual(self.doctor(self.port, code=command.GOOD), [
            self.title + ": all well, the controller answers (firmware 1.24, battery 70 %)."])
        # Nothing sounds, and nothing is changed.
        self.assertEqual({line.split("*")[0] for line in self.controller.sent()}, {"$PSEAVER"})
        self.assertEqual(self.doctor_json("/dev/" + self.port, code=command.GOOD), {
            "command": "doctor", "exit": 0, "findings": [],
            "ports": [{"name": self.port, "location": "/dev/" + self.port, "description": "Kelpora 360 Controller",
                       "manufacturer": "Kelpora", "serial": "KELPORA0001", "usb": "0403:6015", "mayOpen": True,
                       "group": "", "nextLogin": False, "holder": "", "modemManager": False, "braille": False,
                       "answers": True, "firmware": "1.24", "battery": "70 %", "findings": []}]})

    def test_controller_that_is_not_silent_at_first(self):
        program = self.program
        for options in (["--boots"], ["--leftovers", "50"]):
            with self.subTest(options):
                self.program = program
                self.use_controller(*options)
                self.doctor(self.port, code=command.GOOD)

    def test_nothing_plugged_in(self):
        self.use_controller(*WAITING)
        self.assertEqual(self.doctor(code=command.FINDING)[0],
                         "There is no USB serial port: connect the controller with a cable that carries data, and tap "
                         "its record button twice. Type: sudo dmesg | tail")
        result = self.doctor_json(code=command.FINDING)
        self.assertEqual(([one["kind"] for one in result["findings"]], result["ports"]), (["no port"], []))

    def test_port_that_is_no_usb_device(self):
        self.use_controller("--property", "ID_VENDOR_ID=none")
        lines = self.doctor(code=command.FINDING)
        self.assertEqual(lines[0], self.title.replace("USB 0403:6015, ", "") + ": no USB device, not asked.")
        self.assertIn("There is no USB serial port", lines[1])
        self.assertEqual(self.controller.sent(), [])
        self.assertIn("all well", self.doctor(self.port, code=command.GOOD)[0], "it is asked if named")

    def test_no_such_port(self):
        self.use_controller()
        self.assertEqual(self.doctor("ttyNothing", code=command.FINDING), [
            "There is no port ttyNothing, but {0}. Type: kelpora360-cli doctor {0}".format(self.port)])
        self.assertEqual(self.doctor_json("ttyNothing", code=command.FINDING)["findings"][0]["kind"], "no such port")
        self.assertEqual(self.controller.sent(), [])

    def test_no_such_port_where_there_is_none(self):
        self.use_controller(*WAITING)
        self.assertIn("There is no USB serial port", self.doctor("ttyNothing", code=command.FINDING)[0])

    def test_no_answer(self):
        self.use_controller("--mute")
        port = self.check_finding(
            "no answer", "Nobody answers: charge the rig if need be, switch it on, tap its record button twice, and "
            "try again.", "kelpora360-cli doctor " + self.port, verdict="no answer.")
        self.assertIs(port["answers"], False)

    def test_port_that_another_process_holds(self):
        self.use_controller("--busy")
        first, second = self.doctor(self.port, code=command.FINDING)
        self.assertEqual(first, self.title + ": not asked.")
        self.assertRegex(second, r"^  It is in use by kelpora360-rig \(process (\d+)\): close that program, or end "
                                 r"it\. Type: ps -fp \1$")
        port, = self.doctor_json(self.port, code=command.FINDING)["ports"]
        self.assertRegex(port["holder"], r"^kelpora360-rig \(process \d+\)$")
        self.assertEqual((port["mayOpen"], port["answers"]), (True, None))
        self.assertEqual(self.controller.sent(), [])
        self.assertNotIn("port opened", self.controller.events())

    def test_port_that_an_unseen_process_holds(self):
        self.use_controller()
        self.begin_with(HELD_UNSEEN)
        port = self.check_finding("not opened", "It could not be opened (Device or resource busy): look whether another "
                                  "user's program holds it.", "sudo kelpora360-cli doctor " + self.port)
        self.assertIs(port["answers"], None)
        self.assertEqual(self.controller.sent(), [])

    def test_no_permission_for_any_group(self):
        self.use_controller("--forbidden")
        port = self.check_finding("no permission", "This user may not open it, and no group may: take it until it is "
                                  "unplugged.", "sudo chown $USER /dev/" + self.port)
        self.assertEqual((port["mayOpen"], port["group"], port["answers"]), (False, "", None))

    def need_root(self):
        with open("/proc/self/uid_map") as file:
            if os.geteuid() != 0 or int(file.read().split()[2]) == 1:
                self.skipTest("Only root can give a port to another user")

    def test_no_permission(self):
        self.need_root()
        self.use_controller()
        self.begin_with(AS_ANYBODY)
        port = self.check_finding("no permission", "This user may not open it: join the group \"dialout\", then log "
                                  "out and in again.", "sudo usermod -aG dialout $USER")
        self.assertEqual((port["mayOpen"], port["group"], port["nextLogin"]), (False, "dialout", False))
        self.assertNotIn("port opened", self.controller.events())

    def test_permission_from_the_next_login_on(self):
        self.need_root()
        self.need_mounts()
        with open("/etc/group") as file:
            groups = re.sub(r"^(dialout:.*:)(.*)$", lambda row: row[1] + ",".join(filter(None, [row[2], "root"])),
                            file.read(), flags=re.M)
        with open(self.path("group"), "w") as file:
            file.write(groups)
        subprocess.run(["mount", "--bind", self.path("group"), "/etc/group"], check=True)
        self.addCleanup(subprocess.run, ["umount", "--lazy", "/etc/group"], check=True)
        self.use_controller()
        self.begin_with(AS_ANYBODY)
        port = self.check_finding("next login", "This user is in the group \"dialout\" from the next login on: log "
                                  "out and in again, or join it in this terminal alone.", "newgrp dialout")
        self.assertEqual((port["mayOpen"], port["nextLogin"]), (False, True))

    def test_stopped(self):
        self.use_controller("--mute")
        process = self.start(*self.wrapper, "doctor")
        deadline = time.monotonic() + 60
        while not (os.path.exists(self.controller.transcript) and self.controller.sent()):
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.02)
        begun = time.monotonic()
        process.send_signal(signal.SIGINT)
        out = process.communicate(timeout=60)[0]
        self.assertEqual(process.returncode, command.STOPPED)
        self.assertNotRegex(out, "Nobody answers|all well")
        # The wait for the answer would take eight seconds.
        self.assertLess(time.monotonic() - begun, 4)

    def test_silent_port_beside_a_controller(self):
        self.use_controller("--beside", "OTHER")
        lines = self.doctor(code=command.GOOD)
        self.assertIn("no answer.", lines[0])
        self.assertIn(self.title + ": all well, the controller answers (firmware 1.24, battery 70 %).", lines)
        self.assertEqual([port["answers"] for port in self.doctor_json(code=command.GOOD)["ports"]], [False, True])


class OtherPrograms(DoctorTest):
    TEXT = "ModemManager has not been told to leave this port alone, and may hold it for half a minute after it is " \
           "plugged in: if there is no mobile modem, switch it off."
    TYPED = "sudo systemctl disable --now ModemManager"
    ANSWERS = "the controller answers (firmware 1.24, battery 70 %)."

    def run_modem_manager(self):
        shutil.copy("/bin/sleep", self.path("ModemManager"))
        process = subprocess.Popen([self.path("ModemManager"), "1000"])
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)

    def test_modem_manager_that_runs(self):
        self.use_controller("--property", "ID_MM_CANDIDATE=1")
        self.run_modem_manager()
        self.assertIs(self.check_finding("modem manager", self.TEXT, self.TYPED, self.ANSWERS)["modemManager"], True)

    def test_modem_manager_that_starts_with_the_system(self):
        self.need_mounts()
        folder = "/etc/systemd/system"
        if not os.path.isdir(folder):
            self.skipTest("This machine lacks " + folder)
        self.use_controller("--property", "ID_MM_CANDIDATE=1")
        subprocess.run(["mount", "-t", "tmpfs", "services", folder], check=True)
        self.addCleanup(subprocess.run, ["umount", "--lazy", folder], check=True)
        self.doctor(self.port, code=command.GOOD)
        os.mkdir(folder + "/multi-user.target.wants")
        os.symlink("nowhere", folder + "/multi-user.target.wants/ModemManager.service")
        self.check_finding("modem manager", self.TEXT, self.TYPED, self.ANSWERS)

    def test_modem_manager_that_leaves_the_port_alone(self):
        self.run_modem_manager()
        program = self.program
        for properties in (["ID_MM_CANDIDATE=1", "ID_MM_DEVICE_IGNORE=1"], ["ID_MM_CANDIDATE=1", "ID_MM_PORT_IGNORE=1"],
                           []):
            with self.subTest(properties):
                self.program = program
                self.use_controller(*[part for one in properties for part in ("--property", one)])
                self.doctor(self.port, code=command.GOOD)

    def test_braille_daemon(self):
        self.use_controller("--property", "BRLTTY_BRAILLE_DRIVER=bm")
        text = "The braille daemon brltty claims the USB device 0403:6015, which then has no port: if nobody uses a " \
               "braille display, remove it, and plug the device in anew."
        self.assertIs(self.check_finding("braille", text, "sudo apt remove brltty", self.ANSWERS)["braille"], True)
        self.assertEqual(self.doctor_json(code=command.FINDING)["findings"], [], "it is told once")

    def test_braille_daemon_that_took_the_port(self):
        self.use_controller("--property", "BRLTTY_BRAILLE_DRIVER=bm", *WAITING)
        for arguments in ([], ["ttyNothing"]):
            with self.subTest(arguments):
                kinds = [one["kind"] for one in self.doctor_json(*arguments, code=command.FINDING)["findings"]]
                self.assertEqual(kinds, ["no port", "braille"])
                self.assertIn("sudo apt remove brltty", self.doctor(*arguments, code=command.FINDING)[1])

    def test_braille_daemon_that_was_told_to_leave_it_alone(self):
        self.use_controller("--property", "BRLTTY_BRAILLE_DRIVER=ignore")
        self.doctor(self.port, code=command.GOOD)


class Cards(DoctorTest):
    def setUp(self):
        super().setUp()
        self.need_mounts()
        self.use_controller()
        self.reader = cards.MountedReader(self.folder)
        self.addCleanup(self.reader.close)

    def cards(self, code):
        """Those of this test, by name."""
        result = self.doctor_json(code=code)["cards"]
        return {os.path.basename(card["path"]): card for card in result if card["path"].startswith(self.folder)}

    def about(self, path, code):
        """The lines about the volume at `path`."""
        lines = self.doctor(code=code)
        first = next(number for number, line in enumerate(lines) if "({})".format(path) in line)
        following = lines[first + 1:]
        return [lines[first]] + following[:next((number for number, line in enumerate(following)
                                                 if not line.startswith("  ")), len(following))]

    def test_cards_as_the_window_takes_them(self):
        paths = {name: self.reader.insert(name) for name in ("KELPORA360_1", "KELPORA360_3", "360-other", "reef2")}
        found = self.cards(command.GOOD)
        self.assertEqual({name: card["card"] for name, card in found.items()},
                         {"KELPORA360_1": 1, "KELPORA360_3": 3, "360-other": None, "reef2": None})
        self.assertEqual(found["KELPORA360_1"], {
            "path": paths["KELPORA360_1"], "name": paths["KELPORA360_1"], "fileSystem": "tmpfs", "writable": True,
            "card": 1, "findings": []})
        path = paths["KELPORA360_3"]
        self.assertEqual(self.about(path, command.GOOD), ["Card 3: {0} ({0}): all well, tmpfs, writable.".format(path)])
        path = paths["reef2"]
        self.assertEqual(self.about(path, command.GOOD), ["Not chosen: {0} ({0}): tmpfs, writable.".format(path)])
        lines = self.doctor(code=command.GOOD)
        self.assertIn("Card 2: no volume is chosen. Name the card 360_02 and put it in.", lines)
        self.assertFalse([line for line in lines if line.startswith("Card 1: no volume")])
        for path in paths.values():
            self.assertEqual(os.listdir(path), [], "nothing is written")

    def test_write_protected_card(self):
        path = self.reader.insert("KELPORA360_2")
        self.reader.protect(path)
        self.assertEqual(self.about(path, command.FINDING), [
            "Not chosen: {0} ({0}): tmpfs, write-protected.".format(path),
            "  It fits card 2, but the window doesn't list it: open the card's lock and put it in again, or choose its "
            "folder with \"...\" for an import. Type: sudo mount -o remount,rw '{}'".format(path)])
        card = self.cards(command.FINDING)["KELPORA360_2"]
        self.assertEqual((card["writable"], card["card"], card["findings"][0]["kind"]), (False, None, "write-protected"))

    def test_other_write_protected_volumes_are_no_matter(self):
        self.reader.protect(self.reader.insert("system"))
        self.assertEqual(self.cards(command.GOOD), {})

    def test_two_volumes_for_one_card(self):
        first, last = self.reader.insert("360_2"), self.reader.insert("DIVES360_2")
        self.assertEqual(self.about(first, command.FINDING)[1:], [
            "  It fits card 2 as well, and the window takes the last: remove or rename the one that is not the card. "
            "Type: umount '{}'".format(first)])
        self.assertEqual(self.about(last, command.FINDING),
                         ["Card 2: {0} ({0}): all well, tmpfs, writable.".format(last)])

    def test_card_of_another_user(self):
        path = self.reader.insert("it's 360_1")
        os.chmod(path, 0o555)
        self.wrapper[-1:] = ["setpriv", "--bounding-set=-dac_override,-dac_read_search", "--inh-caps=-all",
                             self.wrapper[-1]]
        self.assertEqual(self.about(path, command.FINDING), [
            "Card 1: {0} ({0}): tmpfs, not writable for this user.".format(path),
            "  It can be imported from, but not erased by this user: unmount it, and put it in anew. Type: sudo umount '{}'".format(
                path.replace("'", "'\\''"))])

    def test_card_that_is_not_mounted(self):
        self.begin_with("""dev=$UMOCKDEV_DIR/dev && mkdir -p $dev/disk/by-label && touch $dev/card2 &&
ln -sf ../../card2 $dev/disk/by-label/360_02 && ln -sf ../../card2 $dev/disk/by-label/DATA && exec "$0" "$@" """)
        lines = [line for line in self.doctor(code=command.FINDING) if "not mounted" in line]
        self.assertEqual(lines, [
            "/dev/card2 is called 360_02, as card 2 is, but it is not mounted. Type: udisksctl mount -b '/dev/card2'"])
        self.assertEqual([finding["kind"] for finding in self.doctor_json(code=command.FINDING)["unmounted"]],
                         ["not mounted"])

    def test_only_the_port_where_one_is_named(self):
        self.reader.protect(self.reader.insert("KELPORA360_2"))
        self.assertNotIn("cards", self.doctor_json(self.port, code=command.GOOD))


if __name__ == "__main__":
    command.main()
