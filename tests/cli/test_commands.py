#!/usr/bin/python3
"""What all commands have in common, and the commands that list."""

import json
import os

import command
from kit import cards, recordings, rig, testing

COMMANDS = ["drives", "import", "verify", "ports", "settings", "doctor", "audit", "takes"]


class Commands(command.CommandTest):
    def test_help_and_version_everywhere(self):
        overview = self.run_command("--help")[0]
        for name in COMMANDS:
            with self.subTest(name):
                self.assertIn("\n  {} ".format(name), overview)
                text = self.run_command(name, "--help")[0]
                self.assertTrue(text.startswith("Usage: "), text)
                self.assertIn("--json", text)
                self.assertTrue(text.endswith("Show the version and exit.\n"), text)
                self.assertEqual(self.run_command(name, "--version")[0], "Kelpora 360 1.8.0\n")
        self.assertEqual(self.run_command("--version")[0], "Kelpora 360 1.8.0\n")

    def test_help_lists_nothing_else(self):
        rows = self.run_command("--help")[0].split("Commands:\n")[1].split("\n\n")[0].split("\n")
        self.assertEqual([row.split()[0] for row in rows], COMMANDS)

    def test_wrong_usage(self):
        for arguments in ([], [""], ["nothing"], ["--json"], ["drives", "--nothing"], ["drives", "folder"]):
            with self.subTest(arguments):
                out, errors = self.run_command(*arguments, code=command.USAGE)
                self.assertEqual(out, "")
                self.assertRegex(errors, "^kelpora360-cli: .* See kelpora360-cli .*--help.\n$")

    def test_wrong_usage_in_json(self):
        for arguments in (["drives", "--nothing"], ["drives", "folder"], ["verify", "card", "--in"], ["verify", "card"]):
            with self.subTest(arguments):
                out, errors = self.run_command(arguments[0], "--json", *arguments[1:], code=command.USAGE)
                result = json.loads(out)
                self.assertEqual((result["command"], result["exit"]), (arguments[0], command.USAGE))
                self.assertEqual(errors, "kelpora360-cli: {}\n".format(result["error"]))

    def test_result_that_can_not_be_written_is_no_success(self):
        with open("/dev/full", "w") as full:
            process = self.start("drives", "--json", stdout=full)
            self.assertIn("could not be written", process.communicate(timeout=60)[1])
        self.assertEqual(process.returncode, command.NOT_CHECKED)

    def test_window_log_and_settings_stay(self):
        log = os.path.join(self.folder, "data", "Kelpora 360", "Kelpora360.log")
        os.makedirs(os.path.dirname(log))
        with open(log, "w") as file:
            file.write("mine")
        self.run_command("drives")
        recordings.fill(self.path("card"), 1)
        template = os.path.join(testing.SAMPLES, "Rig.kava")
        self.run_command("import", self.path("card"), "--to", self.path("dive"), "--template", template)
        self.assertIn("CLIP0001_autopano.kava", os.listdir(self.path("dive/DCIM/100MEDIA")))
        with open(log) as file:
            self.assertEqual(file.read(), "mine")
        files = [name for _, _, names in os.walk(self.folder) for name in names]
        self.assertNotIn("Kelpora360.ini", files, "nor are the window's settings written")


class Lists(command.CommandTest):
    def test_drives(self):
        self.need_mounts()
        reader = cards.MountedReader(self.folder)
        self.addCleanup(reader.close)
        path = reader.insert("KELPORA360_1")
        self.assertIn("{0} ({0})\n".format(path), self.run_command("drives")[0])
        self.assertIn({"path": path, "name": path}, self.run_json("drives")["drives"])

    def use_controller(self, *options):
        """A controller at a port whose name is returned."""
        if rig.why_not():
            self.skipTest(rig.why_not())
        controller = rig.Rig(self.folder, *options)
        self.program, *self.wrapper = controller.command(self.program)
        self.controller = controller
        return controller.port

    def run_beside(self, *arguments, code=command.GOOD):
        return self.run_command(*self.wrapper, *arguments, code=code)

    def test_ports(self):
        port = self.use_controller()
        self.assertEqual(self.run_beside("ports")[0], port + ", Kelpora 360 Controller, Kelpora, KELPORA0001\n")
        result = json.loads(self.run_beside("ports", "--json")[0])
        self.assertEqual(result["ports"], [{"name": port, "description": "Kelpora 360 Controller",
                                            "location": "/dev/" + port, "manufacturer": "Kelpora",
                                            "serial": "KELPORA0001"}])

    def test_settings(self):
        port = self.use_controller("--settings", "1,1500,10000,30,26")
        result = json.loads(self.run_beside("settings", port, "--json")[0])
        self.assertRegex(result.pop("date"), r"^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d$")
        self.assertEqual(result.pop("battery")[-1:], "%")
        self.assertEqual(result, {"command": "settings", "exit": 0, "firmware": "1.24", "recLedOn": True,
                                  "videoLoggingInterval": 1.5, "timelapseInterval": 10, "timelapseTimeout": 30,
                                  "cameraFirmware": 26})
        # Nothing is written, and the controller stays on.
        self.assertEqual({line.split("*")[0].split(",")[0] for line in self.controller.sent()},
                         {"$PSEABEEP", "$PSEAVER", "$PSEAGETSETTINGS"})
        self.assertIn("videoLoggingInterval: 1.5\n", self.run_beside("settings", port)[0])

    def test_settings_of_a_controller_that_is_unplugged(self):
        port = self.use_controller("--unplug-after", "1")
        out, errors = self.run_beside("settings", port, code=command.NOT_CHECKED)
        self.assertEqual(out, "")
        self.assertRegex(errors.splitlines()[-1], "^kelpora360-cli: Error")

    def test_settings_of_a_port_that_another_process_holds(self):
        port = self.use_controller()
        lock = "/run/lock/LCK.." + port
        with open(lock, "w") as file:
            file.write("{:10}\n".format(os.getpid()))
        self.addCleanup(os.unlink, lock)
        errors = self.run_beside("settings", port, code=command.NOT_CHECKED)[1]
        self.assertRegex(errors, r"^kelpora360-cli: {} is in use by .* \(process {}\)\.\n$".format(port, os.getpid()))
        self.assertEqual(self.controller.sent(), [])

    def test_settings_without_a_port(self):
        errors = self.run_command("settings", "ttyNothing", code=command.NOT_CHECKED)[1]
        self.assertIn("Error: Could not open port ttyNothing.\n", errors)


if __name__ == "__main__":
    command.main()
