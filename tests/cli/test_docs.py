#!/usr/bin/python3
"""Runs every example of docs/cli.md, and compares what it writes with what stands there."""

import os
import re
import subprocess

import command
from kit import recordings, rig

PAGE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "docs", "cli.md")
FILES = ("DCIM/100MEDIA/CLIP0001.MOV", "DCIM/100MEDIA/IMG0001.JPG")


def examples():
    with open(PAGE, encoding="utf-8") as file:
        return re.findall(r"^```\n\$ (kelpora360-cli.*)\n((?:.*\n)*?)```$", file.read(), re.M)


class Docs(command.CommandTest):
    """In mounts of its own, where the paths of the examples are real volumes."""

    def setUp(self):
        super().setUp()
        self.environment["PATH"] = os.path.dirname(self.program) + os.pathsep + os.environ["PATH"]

    def volume(self, path):
        image = self.path(os.path.basename(path) + ".image")
        with open(image, "wb") as file:
            file.truncate(32 << 20)
        subprocess.run(["mkfs.ext4", "-q", "-F", image], check=True)
        os.makedirs(path)
        subprocess.run(["mount", "-o", "loop", image, path], check=True)
        self.addCleanup(subprocess.run, ["umount", "--lazy", path], check=True)

    def place(self):
        """The folders of the examples."""
        self.need_mounts()
        for folder in ("/media", "/data"):
            os.makedirs(folder, exist_ok=True)
            subprocess.run(["mount", "-t", "tmpfs", "place", folder], check=True)
            self.addCleanup(subprocess.run, ["umount", "--lazy", folder], check=True)
        for card in (1, 2, 3):
            folder = "/media/360_0{}".format(card)
            self.volume(folder)
            for number, name in enumerate(FILES):
                recordings.write(folder, name, recordings.content(card, name, 5000 + number))
            os.rmdir(os.path.join(folder, "lost+found"))
        for name in ("dive", "second"):
            self.volume("/data/" + name)
            os.rmdir("/data/{}/lost+found".format(name))
        self.run_command("import", *["/media/360_0{}".format(card) for card in (1, 2, 3)], "--to", "/data/dive")

    def test_examples(self):
        self.place()
        tried = 0
        for line, wanted in examples():
            name = line.split()[1]
            if name in ("ports", "settings", "doctor") and not line.endswith("--help"):
                continue
            with self.subTest(line):
                result = subprocess.run(line.split(), env=self.environment, cwd=self.folder, stdout=subprocess.PIPE,
                                        stderr=subprocess.STDOUT, text=True, check=False)
                if line.endswith(" drives"):
                    # This machine may have more.
                    self.assertIn(wanted.split("(")[1], result.stdout)
                else:
                    self.assertEqual(result.stdout, wanted)
                tried += 1
        self.assertGreaterEqual(tried, 9)

    def test_examples_with_a_controller(self):
        if rig.why_not():
            self.skipTest(rig.why_not())
        tried = 0
        for line, wanted in examples():
            if line.split()[1] not in ("ports", "settings", "doctor") or "--help" in line:
                continue
            with self.subTest(line):
                controller = rig.Rig(self.folder)
                program, *arguments = controller.command(self.program) + line.split()[1:]
                arguments = [controller.port if argument == "ttyUSB0" else argument for argument in arguments]
                result = subprocess.run([program, *arguments], env=self.environment, stdout=subprocess.PIPE,
                                        text=True, check=False)
                date = re.compile("^date: .*$", re.M)
                self.assertEqual(date.sub("", result.stdout), date.sub("", wanted.replace("ttyUSB0", controller.port)))
                tried += 1
        self.assertEqual(tried, 4)

    def test_every_command_has_its_help(self):
        overview = self.run_command("--help")[0].split("Commands:\n")[1].split("\n\n")[0]
        helps = [line for line, _ in examples() if line.endswith(" --help")]
        self.assertEqual(helps, ["kelpora360-cli --help"] + ["kelpora360-cli {} --help".format(row.split()[0])
                                                             for row in overview.split("\n")])

    def test_every_key_is_named(self):
        self.place()
        with open(PAGE, encoding="utf-8") as file:
            named = set(re.findall(r"`(\w+)`", file.read()))

        def keys(value):
            if isinstance(value, dict):
                return set(value).union(*map(keys, value.values()))
            return set().union(*map(keys, value)) if isinstance(value, list) else set()
        recordings.write("/media/360_01", ".hidden", b"x")
        cards = ["/media/360_0{}".format(card) for card in (1, 2, 3)]
        for result in (self.run_json("drives"), self.run_json("ports"),
                       self.run_json("import", *cards, "--to", "/data/second", "--verify", code=command.FINDING),
                       self.run_json("settings", "nothing", code=command.NOT_CHECKED),
                       self.run_json("verify", *cards, "--in", "/data/second", "--seal", code=command.FINDING),
                       self.run_json("audit", "/data/second", "--seal"),
                       self.run_json("takes", "/data/second", code=command.NOT_CHECKED)):
            self.assertLessEqual(keys(result), named)


if __name__ == "__main__":
    command.main()
