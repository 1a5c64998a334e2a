#!/usr/bin/python3
"""A sealed folder, and what became of it."""

import os
import re
import subprocess

import command

NAMES = ["DCIM/a.MOV", "DCIM/b.MOV", "DCIM/c d & e.JPG", "f.JPG"]


class Audit(command.CommandTest):
    def setUp(self):
        super().setUp()
        self.card, self.copies = self.path("card"), self.path("dive")
        for folder in (self.card, self.copies):
            for number, name in enumerate(NAMES):
                self.write(os.path.join(folder, name), b"recording %d " % number * 10000)

    def write(self, path, content):
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.write(content)

    def seal(self, code=command.GOOD):
        return self.run_json("verify", self.card, "--in", self.copies, "--seal", code=code)

    def audit(self, *options, code=command.GOOD):
        result = self.run_json("audit", self.copies, *options, code=code)
        lines = [line for line in self.run_command("audit", self.copies, code=code)[0].splitlines()]
        told = {kind: sorted(line.split(": ", 1)[1] for line in lines if line.startswith(start + ": "))
                for kind, start in (("altered", "Altered"), ("missing", "Missing"), ("new", "New"))}
        self.assertEqual(told, {kind: result[kind] for kind in told})
        return result

    def manifests(self):
        return sorted(name for name in os.listdir(os.path.join(self.copies, "ascmhl")) if name.endswith(".mhl"))

    def flip(self, name, folder=None):
        with open(os.path.join(folder or self.copies, name), "r+b") as file:
            file.seek(5000)
            byte = file.read(1)[0]
            file.seek(5000)
            file.write(bytes([byte ^ 1]))

    def test_sealed_folder_is_good(self):
        self.assertEqual(self.seal()["sealed"], 4)
        result = self.audit()
        self.assertEqual((result["files"], result["unchanged"], result["generations"]), (4, 4, 1))
        self.assertIn("4 of 4 sealed files are as they were sealed", self.run_command("audit", self.copies)[0])

    def test_later_files_are_sealed_alone(self):
        self.seal()
        for folder in (self.card, self.copies):
            self.write(os.path.join(folder, "new.MOV"), b"new")
        self.assertEqual(self.audit(code=command.FINDING)["new"], ["new.MOV"])
        self.assertEqual(self.seal()["sealed"], 1)
        self.assertEqual(self.seal()["sealed"], 0)
        with open(os.path.join(self.copies, "ascmhl", self.manifests()[1])) as file:
            self.assertEqual(re.findall("<path[^>]*>([^<]*)<", file.read()), ["new.MOV"])
        self.assertEqual(self.audit()["generations"], 2)

    def test_only_what_matched_is_sealed(self):
        self.flip("DCIM/b.MOV")
        self.assertEqual(self.seal(code=command.FINDING)["sealed"], 3)
        result = self.audit(code=command.FINDING)
        self.assertEqual((result["unchanged"], result["new"]), (3, ["DCIM/b.MOV"]))

    def test_files_of_stitchers_are_nothing_new(self):
        self.seal()
        for name in ("DCIM/a.kava", "a.pano", "DCIM/a_cam1.MOV.jpg", "Kelpora360.log", ".kelpora360-0123456789abcdef.part"):
            self.write(os.path.join(self.copies, name), b"x")
        self.audit()

    def test_what_the_seal_leaves_out_is_counted(self):
        for folder in (self.card, self.copies):
            self.write(os.path.join(folder, "a.kava"), b"project")
        out = self.run_command("verify", self.card, "--in", self.copies, "--seal")[0]
        self.assertIn("Sealed: 4 new, 0 before, 1 left out by pattern.\n", out)
        result = self.seal()
        self.assertEqual((result["sealed"], result["sealIgnored"]), (0, 1))

    def test_flip_removal_and_addition(self):
        self.seal()
        self.flip("DCIM/a.MOV")
        os.remove(os.path.join(self.copies, "f.JPG"))
        self.write(os.path.join(self.copies, "DCIM", "new.JPG"), b"x")
        result = self.audit(code=command.FINDING)
        self.assertEqual((result["altered"], result["missing"], result["new"], result["unchanged"]),
                         (["DCIM/a.MOV"], ["f.JPG"], ["DCIM/new.JPG"], 2))

        # The generation that tells so doesn't make it good.
        self.assertTrue(self.run_json("audit", self.copies, "--seal", code=command.FINDING)["sealed"])
        with open(os.path.join(self.copies, "ascmhl", self.manifests()[1])) as file:
            text = file.read()
        found = re.findall('<path[^>]*>([^<]*)</path>\\s*<xxh128 action="([a-z]*)"', text)
        self.assertEqual(found, [("DCIM/a.MOV", "failed"), ("DCIM/b.MOV", "verified"), ("DCIM/c d &amp; e.JPG", "verified")])
        self.assertIn("<process>in-place</process>", text)
        self.assertEqual(self.audit(code=command.FINDING)["altered"], ["DCIM/a.MOV"])
        # The content that was sealed at first is good again.
        self.flip("DCIM/a.MOV")
        self.assertEqual(self.audit(code=command.FINDING)["altered"], [])

    def test_altered_file_is_sealed_as_failed(self):
        self.seal()
        self.flip("DCIM/a.MOV")
        self.flip("DCIM/a.MOV", self.card)
        for _ in range(2):
            self.assertEqual(self.seal(code=command.FINDING)["sealAltered"], ["DCIM/a.MOV"])
            self.assertEqual(len(self.manifests()), 2)
        self.assertEqual(self.audit(code=command.FINDING)["altered"], ["DCIM/a.MOV"])

    def test_manifest_edited_by_hand_is_refused(self):
        self.seal()
        path = os.path.join(self.copies, "ascmhl", self.manifests()[0])
        with open(path) as file:
            text = file.read()
        with open(path, "w") as file:
            file.write(text.replace("<xxh128 action=\"original\">", "<xxh128 action=\"verified\">", 1))
        result = self.audit(code=command.FINDING)
        self.assertRegex(result["damaged"][0], "altered: its C4")
        self.assertEqual((result["unchanged"], result["new"]), (0, []))
        self.assertFalse(self.run_json("audit", self.copies, "--seal", code=command.FINDING)["sealed"])
        self.seal(code=command.NOT_CHECKED)
        self.assertEqual(len(self.manifests()), 1)

    def test_interrupted_seal_is_no_damage(self):
        self.seal()
        with open(os.path.join(self.copies, "ascmhl", "ascmhl_chain.xml"), "rb") as file:
            chain = file.read()
        self.run_json("audit", self.copies, "--seal")
        self.write(os.path.join(self.copies, "ascmhl", "ascmhl_chain.xml"), chain)
        result = self.audit()
        self.assertEqual((result["damaged"], result["unfinished"]), ([], ["ascmhl/" + self.manifests()[1]]))
        self.assertIn("Never finished: ascmhl/0002_", self.run_command("audit", self.copies)[0])

        os.remove(os.path.join(self.copies, "ascmhl", self.manifests()[1]))
        os.remove(os.path.join(self.copies, "ascmhl", "ascmhl_chain.xml"))
        # It was begun in another second.
        os.rename(os.path.join(self.copies, "ascmhl", self.manifests()[0]), os.path.join(self.copies, "ascmhl", "0001_earlier.mhl"))
        self.assertIn("never finished", self.run_command("audit", self.copies, code=command.NOT_CHECKED)[1])
        self.assertEqual(self.seal()["sealed"], 4)
        self.audit()

    def test_five_thousand_files(self):
        for number in range(5000):
            for folder in (self.card, self.copies):
                self.write(os.path.join(folder, "DCIM", "{}.JPG".format(number)), b"%d" % number)
        self.assertEqual(self.seal()["sealed"], 5004)
        schemas = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "data", "asc-mhl")
        environment = dict(os.environ, XML_CATALOG_FILES=os.path.join(schemas, "catalog.xml"))
        for name, schema in ((self.manifests()[0], "ASCMHL.xsd"), ("ascmhl_chain.xml", "ASCMHLDirectory.xsd")):
            subprocess.run(["xmllint", "--nonet", "--noout", "--schema", os.path.join(schemas, schema),
                            os.path.join(self.copies, "ascmhl", name)], env=environment, check=True)
        result = self.audit()
        self.assertEqual(result["unchanged"], 5004)

    def test_bad_input(self):
        for title, arguments, code, error in (
                ("no seal", [self.copies], command.NOT_CHECKED, "has no seal"),
                ("no such folder", [self.path("nowhere")], command.NOT_CHECKED, "is no folder"),
                ("a file", [os.path.join(self.copies, "f.JPG")], command.NOT_CHECKED, "is no folder"),
                ("two folders", [self.copies, self.card], command.USAGE, "audit takes")):
            with self.subTest(title):
                out, errors = self.run_command("audit", *arguments, code=code)
                self.assertEqual(out, "")
                self.assertIn(error, errors)

    def test_link_is_not_followed(self):
        self.seal()
        os.rename(os.path.join(self.copies, "f.JPG"), self.path("elsewhere.JPG"))
        os.symlink(self.path("elsewhere.JPG"), os.path.join(self.copies, "f.JPG"))
        result = self.audit(code=command.NOT_CHECKED)
        self.assertEqual([one["path"] for one in result["notChecked"]], ["f.JPG"])


if __name__ == "__main__":
    command.main()
