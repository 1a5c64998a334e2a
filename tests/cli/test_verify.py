#!/usr/bin/python3
"""Verifies copies on real volumes: bits flipped beneath them, readers that fail, cards that are pulled."""

import mmap
import os
import random
import signal
import subprocess
import time

import command
import reader
from kit import disks, recordings

CLIP = "DCIM/100MEDIA/CLIP0001.MOV"


class Verify(disks.Volumes, command.CommandTest):
    def setUp(self):
        super().setUp()
        self.need_mounts()

    def serve(self, *arguments):
        try:
            server = reader.Server(*arguments)
        except OSError as error:
            self.skipTest(str(error))
        self.addCleanup(server.close)
        return server

    def cards(self, disk, count=3):
        cards = []
        for card in range(1, count + 1):
            folder = os.path.join(disk, "KELPORA360_{}".format(card))
            recordings.write(folder, CLIP, recordings.content(card, CLIP, 300000 + card))
            cards.append(folder)
        return cards

    def verdicts(self, result):
        return [card["verdict"] for card in result["cards"]]

    def findings(self, result):
        return sorted(finding["path"] for card in result["cards"] for finding in card["findings"])

    def test_flipped_bits_are_found_on_ext4(self):
        self.flip_bits("ext4")

    def test_flipped_bits_are_found_on_exfat(self):
        self.flip_bits("exfat")

    def flip_bits(self, kind):
        source = self.volume("ext4", "cards")
        disk = self.volume(kind)
        cards = [os.path.join(source, "card{}".format(card)) for card in (1, 2, 3)]
        files = {}
        for card, folder in enumerate(cards, 1):
            for number in range(60):
                name = "DCIM/IMG{:04}.JPG".format(number)
                files[card, name] = recordings.content(card, name, 20000 + number)
                recordings.write(folder, name, files[card, name])
        self.run_command("import", *cards, "--to", disk)
        self.assertEqual(self.verdicts(self.run_json("verify", *cards, "--in", disk)), ["safe"] * 3)
        for _, data in recordings.tree(disk).items():
            self.assertTrue(data)  # in memory by now

        dice = random.Random(360)
        chosen = dice.sample(sorted(files), 100)
        with open(disk + ".image", "r+b") as image, mmap.mmap(image.fileno(), 0) as whole:
            for key in chosen:
                place = whole.find(files[key])
                self.assertGreaterEqual(place, 0, "the copy is in one piece")
                place += dice.randrange(len(files[key]))
                whole[place] ^= 1 << dice.randrange(8)
        copies = recordings.tree(disk)
        for card, name in chosen:
            copy = name.replace(".JPG", "_cam{}.JPG".format(card))
            self.assertEqual(copies[copy], files[card, name], "memory still says what was written")

        result = self.run_json("verify", *cards, "--in", disk, code=command.FINDING)
        self.assertEqual(self.verdicts(result), ["finding"] * 3)
        found = sorted((card["card"], finding["path"]) for card in result["cards"] for finding in card["findings"])
        self.assertEqual(found, sorted(chosen))
        self.assertEqual({finding["reason"].split(" ")[-3:][0] for card in result["cards"]
                          for finding in card["findings"]}, {"differs"})

    def test_journaled_copy_that_stays_in_memory(self):
        self.flip_in_memory(100000, mapped=True, mounting=["-o", "data=journal"])

    def test_copy_within_its_inode(self):
        self.flip_in_memory(400, mapped=False, making=["-O", "inline_data", "-I", "1024"])

    def flip_in_memory(self, size, mapped, **options):
        """A bit flips beneath a copy that can only be read from memory."""
        data = recordings.content(1, "A.MOV", size)
        card = self.volume("ext4", "cards")
        os.rmdir(os.path.join(card, "lost+found"))
        recordings.write(card, "A.MOV", data)
        disk = self.volume("ext4", **options)
        copy = os.path.join(disk, "A.MOV")
        recordings.write(disk, "A.MOV", data)
        subprocess.run(["sync", "--file-system", disk], check=True)
        with open(copy, "rb") as file, mmap.mmap(file.fileno(), 0, prot=mmap.PROT_READ) as pages:
            self.assertEqual(pages[:], data)
            if not mapped:
                pages.close()
            with open(disk + ".image", "r+b") as image, mmap.mmap(image.fileno(), 0) as whole:
                place = whole.find(data[100:150])
                self.assertGreaterEqual(place, 0, "the copy is in the image")
                while place >= 0:  # the journal may have one too
                    whole[place] ^= 1
                    place = whole.find(data[100:150], place + 1)
            result = self.run_json("verify", card, "--in", disk, code=command.NOT_CHECKED)
        self.assertEqual(self.verdicts(result), ["not checked"])
        self.assertEqual(result["cards"][0]["notChecked"][0]["reason"],
                         "its copy A.MOV was not read from the disk: the system keeps it in memory")

    def test_reader_without_a_wrong_bit(self):
        self.read_through_reader(0, "safe", command.GOOD)

    def test_reader_with_a_wrong_bit_at_the_first_read(self):
        self.read_through_reader(1, "finding", command.FINDING)

    def test_reader_with_a_wrong_bit_at_a_later_read(self):
        self.read_through_reader(2, "finding", command.FINDING)

    def read_through_reader(self, nth, verdict, code):
        """Imports and verifies a card of which every read reaches the reader; the `nth` is wrong."""
        name = "reader{}".format(nth)
        source = self.path(name)
        data = recordings.content(1, CLIP, 300000)
        os.makedirs(source)
        with open(os.path.join(source, "disk"), "wb") as file:
            file.truncate(32 << 20)
        card = self.volume("ext4", name + "-card", os.path.join(source, "disk"))
        recordings.write(card, CLIP, data)
        subprocess.run(["umount", card], check=True)
        with open(os.path.join(source, "disk"), "rb") as file:
            place = file.read().find(data) + 70000
        self.serve(self.path(name + "-served"), source, "--direct", "--wrong", "disk", str(place), str(nth))
        card = self.mount("ext4", card, self.path(name + "-served/disk"))
        disk = self.volume("ext4", name + "-dive")
        result = self.run_json("import", card, "--to", disk, "--verify", code=code)
        self.assertEqual([one["text"] for one in result["imported"]], ["Copied 1/1 videos and 0/0 photos."])
        self.assertEqual(self.verdicts(result), [verdict])
        self.assertEqual(self.findings(result), [] if nth == 0 else [CLIP])

    def test_card_behind_a_program(self):
        # Nobody knows what the program keeps in memory.
        self.read_through_program(0, "not checked", command.NOT_CHECKED)

    def test_card_behind_a_program_with_a_wrong_bit_at_the_first_read(self):
        self.read_through_program(1, "finding", command.FINDING)

    def test_card_behind_a_program_with_a_wrong_bit_at_a_later_read(self):
        self.read_through_program(2, "finding", command.FINDING)

    def read_through_program(self, nth, verdict, code):
        recordings.write(self.path("source"), CLIP, recordings.content(1, CLIP, 300000))
        card = self.path("card")
        self.serve(card, self.path("source"), "--wrong", CLIP, "70000", str(nth))
        result = self.run_json("import", card, "--to", self.volume("ext4"), "--verify", code=code)
        self.assertEqual(self.verdicts(result), [verdict])
        self.assertEqual(self.findings(result), [] if nth == 0 else [CLIP])

    def test_lines(self):
        disk = self.volume("ext4")
        cards = self.cards(disk)
        dive = os.path.join(disk, "dive")
        self.run_command("import", *cards, "--to", dive)
        recordings.write(cards[1], "clip.mov", b"lower case")
        recordings.write(cards[2], "AutoRun.inf", b"")
        os.unlink(os.path.join(dive, CLIP.replace(".", "_cam3.")))
        out, errors = self.run_command("verify", *cards, "--in", dive, code=command.FINDING)
        self.assertEqual(errors, "")
        self.assertEqual(out.splitlines(), [
            "Card 1: 1 of 1 files are in {}, both read from disk. Safe to erase.".format(dive),
            "Card 2: do NOT erase: 1 of 2 files are in {}, both read from disk.".format(dive),
            "  clip.mov: no copy of it is there",
            "Card 3: do NOT erase: 0 of 2 files are in {}, both read from disk.".format(dive),
            "  AutoRun.inf: no copy of it is there",
            "  {}: no copy of it is there".format(CLIP)])

    def test_card_numbers_follow_the_places(self):
        disk = self.volume("ext4")
        card = self.cards(disk, 1)[0]
        os.mkdir(self.path("empty"))
        result = self.run_json("verify", "-", card, self.path("empty"), "--in", self.volume("ext4", "dive"),
                               code=command.FINDING)
        self.assertEqual([(one["card"], one["verdict"]) for one in result["cards"]], [(2, "finding"), (3, "empty")])

    def test_empty_card_is_not_called_safe(self):
        disk = self.volume("ext4")
        for folder in ("card", "dive"):
            os.mkdir(os.path.join(disk, folder))
        out = self.run_command("verify", os.path.join(disk, "card"), "--in", os.path.join(disk, "dive"),
                               code=command.NOT_CHECKED)[0]
        self.assertEqual(out, "Card 1: there is nothing on it.\n")

    def test_wrong_usage(self):
        disk = self.volume("ext4")
        card = self.cards(disk, 1)[0]
        other = self.path("other")
        os.mkdir(other)
        for name in ("verify", "import"):
            option = "--in" if name == "verify" else "--to"
            for arguments in ([card], [], [card] * 4 + [option, disk], [card, option, card], [card, card, option, "new"],
                              [card, option, os.path.join(card, "DCIM")], [card, option, disk], ["/", option, disk],
                              ["-", option, disk], [card, "", option, other], ["", option, other],
                              [card + "x", option, disk], [card, option, "/dev/null"]):
                with self.subTest(name, arguments=arguments):
                    self.assertEqual(self.run_command(name, *arguments, code=command.USAGE)[0], "")
        self.run_command("verify", card, "--in", os.path.join(disk, "new"), code=command.USAGE)
        self.run_command("import", card, "--to", os.path.join(card, "new"), code=command.USAGE)
        self.run_command("import", card, "--to", self.path("x"), "--template", self.path("no.kava"), code=command.USAGE)
        self.assertEqual(os.listdir(card), ["DCIM"])

    def held(self, which, *arguments, name="A", **options):
        """A verification during which a file of the card or the destination is being read."""
        disk = self.volume("ext4")
        source = self.path("source")
        served, other = ("{}.MOV", "{}_cam1.MOV") if which == "card" else ("{}_cam1.MOV", "{}.MOV")
        for clip in "AB":
            recordings.write(source, served.format(clip), recordings.content(1, clip, 300000))
            recordings.write(os.path.join(disk, "other"), other.format(clip), recordings.content(1, clip, 300000))
        server = self.serve(self.path("served"), source, "--hold", served.format(name))
        folders = [server.folder, os.path.join(disk, "other")]
        card, destination = folders if which == "card" else reversed(folders)
        process = self.start("verify", card, "--in", destination, *arguments, **options)
        server.wait_held()
        return server, process

    def test_card_that_is_pulled(self):
        server, process = self.held("card")
        subprocess.run(["umount", "--lazy", server.folder], check=True)
        server.release()
        out, errors = process.communicate(timeout=60)
        self.assertEqual(process.returncode, command.NOT_CHECKED, out + errors)
        self.assertIn("Card 1: not checked, do NOT erase: ", out)
        self.assertIn("  the card was pulled, or another one put in, while it was read\n", out)

    def test_card_that_is_pulled_and_stays_mounted(self):
        server, process = self.held("card", name="B")
        with open(self.path("source.pulled"), "w", encoding="ascii"):
            server.release()
        out, errors = process.communicate(timeout=60)
        self.assertEqual(process.returncode, command.NOT_CHECKED, out + errors)
        self.assertIn("  the card was pulled, or another one put in, while it was read\n", out)

    def test_file_that_is_unreadable(self):
        disk = self.volume("ext4")
        source = self.path("source")
        for clip in "ABC":
            recordings.write(source, clip + ".MOV", recordings.content(1, clip, 300000))
            recordings.write(disk, clip + "_cam1.MOV", recordings.content(1, clip, 300000))
        server = self.serve(self.path("served"), source, "--broken", "B.MOV")
        out = self.run_command("verify", server.folder, "--in", disk, code=command.FINDING)[0]
        self.assertIn("Card 1: do NOT erase: ", out)
        self.assertIn("  B.MOV: can't be read: Input/output error\n", out)
        self.assertNotIn("C.MOV: can't be read", out)

    def test_file_that_has_no_end(self):
        disk = self.volume("ext4")
        source = self.path("source")
        recordings.write(source, "A.MOV", recordings.content(1, "A", 3000))
        recordings.write(disk, "A_cam1.MOV", recordings.content(1, "A", 3000))
        server = self.serve(self.path("served"), source, "--endless", "A.MOV", "--direct")
        out = self.run_command("verify", server.folder, "--in", disk, code=command.NOT_CHECKED)[0]
        self.assertIn("  A.MOV: changed while it was read\n", out)

    def test_file_that_is_not_as_it_was_sealed(self):
        disk = self.volume("ext4")
        card, = self.cards(disk, 1)
        dive = os.path.join(disk, "dive")
        recordings.write(dive, "A.MOV", recordings.content(1, CLIP, 300001))
        self.assertIn("Safe to erase.", self.run_command("verify", card, "--in", dive, "--seal")[0])
        recordings.write(card, CLIP, b"another")
        recordings.write(dive, "A.MOV", b"another")
        out = self.run_command("verify", card, "--in", dive, "--seal", code=command.FINDING)[0]
        self.assertNotIn("Safe to erase", out)
        self.assertIn("  {}: its copy A.MOV is not as it was sealed\n".format(CLIP), out)

    def test_seal_that_leaves_out_every_file(self):
        disk = self.volume("ext4")
        for folder in ("card", "dive"):
            recordings.write(os.path.join(disk, folder), "Rig.kava", b"project" * 1000)
        out, errors = self.run_command("verify", os.path.join(disk, "card"), "--in", os.path.join(disk, "dive"), "--seal",
                                       code=command.NOT_CHECKED)
        self.assertIn("Safe to erase.", out)
        self.assertIn("nothing was sealed: the patterns of the seal leave out every file", errors)

    def test_names_that_would_move_the_cursor(self):
        disk = self.volume("ext4")
        card = os.path.join(disk, "card")
        recordings.write(card, "A\x1b[31m\nB\u009b\u202e.MOV", b"content")
        os.mkdir(os.path.join(disk, "dive"))
        out = self.run_command("verify", card, "--in", os.path.join(disk, "dive"), code=command.FINDING)[0]
        self.assertIn("  A\\x1b[31m\\x0aB\\xc2\\x9b\\xe2\\x80\\xae.MOV: no copy of it is there\n", out)

    def test_destination_that_fails(self):
        server, process = self.held("destination")
        subprocess.run(["umount", "--lazy", server.folder], check=True)
        server.release()
        out, errors = process.communicate(timeout=60)
        self.assertEqual(process.returncode, command.NOT_CHECKED, out + errors)
        self.assertIn("  the destination was removed while it was read\n", out)

    def test_card_that_changes(self):
        server, process = self.held("card")
        recordings.write(self.path("source"), "NEW.MOV", b"new")
        server.release()
        out, errors = process.communicate(timeout=60)
        self.assertEqual(process.returncode, command.NOT_CHECKED, out + errors)
        self.assertIn("  the card was changed while it was read\n", out)

    def test_copy_that_is_deleted_after_it_was_read(self):
        self.change_copy(os.unlink)

    def test_copy_that_is_moved_after_it_was_read(self):
        self.change_copy(lambda path: os.rename(path, path + "x"))

    def test_copy_that_is_rewritten_after_it_was_read(self):
        def rewrite(path):
            status = os.stat(path)
            with open(path, "r+b") as file:
                file.write(b"other")
            # As a program that keeps the times.
            os.utime(path, ns=(status.st_atime_ns, status.st_mtime_ns))
        self.change_copy(rewrite)

    def change_copy(self, change):
        out = self.change_while_held(change)[0]
        self.assertIn("  B.MOV: its copy B_cam1.MOV was changed after it was read\n", out)
        self.assertIn("Sealed: 0 new, 0 before.\n", out)

    def test_names_that_no_manifest_carries_are_not_sealed(self):
        disk = self.volume("ext4")
        names = {b"\xfc.MOV": "\\xfc.MOV", b"tab\t.MOV": "tab\\x09.MOV", b"\\x41.MOV": "\\x41.MOV"}
        for folder in ("card", "dive"):
            os.mkdir(os.path.join(disk, folder))
            for name in names:
                with open(os.path.join(os.fsencode(disk), folder.encode(), name), "wb") as file:
                    file.write(name)
        result = self.run_json("verify", os.path.join(disk, "card"), "--in", os.path.join(disk, "dive"), "--seal",
                               code=command.NOT_CHECKED)
        self.assertEqual(self.verdicts(result), ["safe"])
        self.assertEqual((result["sealed"], sorted(result["notSealed"])), (1, ["\\xfc.MOV", "tab\\x09.MOV"]))

    def test_destination_that_is_pulled_is_not_sealed(self):
        out, errors = self.change_while_held(
            lambda _: subprocess.run(["umount", "--lazy", self.path("disk")], check=True))
        self.assertIn("  the destination was removed while it was read\n", out)
        self.assertRegex(errors, r"nothing was sealed: .*/disk/other was removed\.\n$")
        self.assertEqual(os.listdir(self.path("disk")), [], "the mount point stays bare")

    def change_while_held(self, change):
        """Changes the copy of a file of card 2 while card 1 is being read; returns what is written."""
        second = self.volume("ext4", "second")
        os.rmdir(os.path.join(second, "lost+found"))
        recordings.write(second, "B.MOV", recordings.content(1, "B", 300000))
        server, process = self.held("card", second, "--seal")
        copy = self.path("disk/other/B_cam1.MOV")
        self.wait_read(copy, process)
        change(copy)
        server.release()
        out, errors = process.communicate(timeout=60)
        self.assertEqual(process.returncode, command.NOT_CHECKED, out + errors)
        self.assertIn("Card 2: not checked, do NOT erase: 0 of 1 files ", out)
        return out, errors

    def wait_read(self, path, process):
        """Waits until the process has opened the file, which nobody has read before, and closed it again."""
        def is_open():
            folder = "/proc/{}/fd".format(process.pid)
            for name in os.listdir(folder):
                try:
                    if os.readlink(os.path.join(folder, name)) == path:
                        return True
                except FileNotFoundError:
                    pass
            return False
        for _ in range(3000):
            if os.stat(path).st_atime_ns > os.stat(path).st_mtime_ns and not is_open():
                return
            time.sleep(0.01)
        self.fail("Nobody reads " + path)

    def test_progress_on_a_terminal(self):
        near, far = os.openpty()
        server, process = self.held("card", stderr=far)
        os.close(far)
        text = ""
        while not text.endswith("\x1b[K"):
            text += os.read(near, 1000).decode()
        self.assertRegex(text, r"^(\r +\d+ %  \d+ MB/s  \d+:\d\d left \x1b\[K)+$")
        server.release()
        self.assertEqual(process.communicate(timeout=60)[0].splitlines()[0][:7], "Card 1:")
        os.close(near)

    def test_interrupt_ends_it_while_a_disk_hangs(self):
        self.interrupt(signal.SIGINT)

    def test_termination_ends_it_while_a_disk_hangs(self):
        self.interrupt(signal.SIGTERM)

    def interrupt(self, sign):
        _, process = self.held("card")
        start = time.monotonic()
        process.send_signal(sign)
        # Standard error is no terminal: there is no progress on it.
        self.assertEqual(process.communicate(timeout=60), ("", ""))
        self.assertLess(time.monotonic() - start, 1 + os.getloadavg()[0] / os.cpu_count())
        self.assertEqual(process.returncode, command.STOPPED)


if __name__ == "__main__":
    command.main()
