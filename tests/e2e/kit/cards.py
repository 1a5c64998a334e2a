"""Memory cards: volumes that the program lists and copies from."""

import os
import shutil
import subprocess

from . import session


def card_reader(folder, mounted=None):
    """A reader below `folder`: real volumes where the session can mount, else mocked ones."""
    return MountedReader(folder) if (session.mounted() if mounted is None else mounted) else MockedReader(folder)


class MountedReader:
    """Cards are tmpfs volumes."""

    def __init__(self, folder):
        self.folder = folder
        self.cards = []

    def insert(self, label, size_mib=64):
        """Puts in an empty card; returns the path of its volume."""
        path = os.path.join(self.folder, label)
        os.makedirs(path)
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size={}m".format(size_mib), label, path], check=True)
        self.cards.append(path)
        return path

    def pull(self, path):
        """Pulls the card out, whatever is being read from it; its folder goes, as the desktops do it."""
        subprocess.run(["umount", "--lazy", path], check=True)
        self.cards.remove(path)
        os.rmdir(path)

    def protect(self, path):
        subprocess.run(["mount", "--options-mode", "ignore", "-o", "remount,ro", path], check=True)

    def environment(self):
        return {}

    def command(self, program):
        return [program]

    def close(self):
        for path in list(self.cards):
            self.pull(path)


class MockedReader:
    """Cards are folders, and the program is shown a table of mounts in which they stand as volumes."""

    def __init__(self, folder):
        self.folder = folder
        self.cards = []
        self.bed = os.path.join(folder, "testbed")
        os.makedirs(os.path.join(self.bed, "sys"))
        os.makedirs(os.path.join(self.bed, "proc", "self"))
        with open("/proc/self/mountinfo") as file:
            # In a chroot, the root need not be a mount.
            self.root = next((line for line in file if line.split()[4] == "/"), "1 0 8:1 / / rw - ext4 /dev/root rw\n")
        self._write()

    def insert(self, label, size_mib=64):
        path = os.path.join(self.folder, label)
        os.makedirs(path)
        self.cards.append(path)
        self._write()
        return path

    def pull(self, path):
        self.cards.remove(path)
        self._write()
        shutil.rmtree(path)

    def environment(self):
        # The wrapper's library comes before the address sanitizer's, which doesn't like that.
        options = os.environ.get("ASAN_OPTIONS", "")
        return {"UMOCKDEV_DIR": self.bed,
                "ASAN_OPTIONS": ":".join(filter(None, [options, "verify_asan_link_order=0"]))}

    def command(self, program):
        return ["umockdev-wrapper", program]

    def close(self):
        for path in list(self.cards):
            self.pull(path)

    def _write(self):
        table = os.path.join(self.bed, "proc", "self", "mountinfo")
        with open(table + ".new", "w") as file:
            file.write(self.root)
            for number, path in enumerate(self.cards):
                file.write("{} 27 0:{} / {} rw,relatime - tmpfs {} rw\n".format(
                    900 + number, 90 + number, path, os.path.basename(path)))
        os.replace(table + ".new", table)
