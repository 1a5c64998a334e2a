"""A disk that forgets what was not flushed when its power is cut.

The disk is a file in a FUSE file system, beneath a loop device. What the system writes to it, and when it asks for a
flush, is noted in order; what the disk would hold after a cut at any of these moments is made of the notes afterwards.

forgetful.py FOLDER IMAGE NOTES   serves IMAGE as FOLDER/disk until FOLDER is unmounted
"""

import os
import shutil
import struct
import subprocess
import sys
import time

_NOTE = struct.Struct("<qq")
_FLUSH = -1


def serve(folder, image, notes):
    # Only here: what reads the notes does without it.
    import errno
    import stat

    import fusepy

    class Disk(fusepy.Operations):
        def __init__(self):
            self.image = os.open(image, os.O_RDWR)
            self.notes = open(notes, "ab", buffering=0)
            self.size = os.fstat(self.image).st_size

        def getattr(self, path, _handle=None):
            if path == "/":
                return {"st_mode": stat.S_IFDIR | 0o700, "st_nlink": 2}
            if path == "/disk":
                return {"st_mode": stat.S_IFREG | 0o600, "st_nlink": 1, "st_size": self.size}
            raise fusepy.FuseOSError(errno.ENOENT)

        def readdir(self, _path, _handle):
            return [".", "..", "disk"]

        def read(self, _path, size, offset, _handle):
            return os.pread(self.image, size, offset)

        def write(self, _path, data, offset, _handle):
            self.notes.write(_NOTE.pack(offset, len(data)) + data)
            return os.pwrite(self.image, data, offset)

        def fsync(self, _path, _data_only, _handle):
            self.notes.write(_NOTE.pack(_FLUSH, 0))
            return 0

    fusepy.FUSE(Disk(), folder, foreground=True, nothreads=True, big_writes=True, nonempty=True)


class Disk:
    """The file system `kind` on such a disk of `size_mib`, all of it below `folder`; mounted at `mount_point`. OSError
    if this machine can't."""

    def __init__(self, kind, size_mib, folder):
        self.kind = kind
        self.folder = folder
        self.image = os.path.join(folder, "image")
        self.notes = os.path.join(folder, "notes")
        self.served = os.path.join(folder, "served")
        self.mount_point = os.path.join(folder, "volume")
        os.makedirs(self.served)
        os.makedirs(self.mount_point)
        with open(self.image, "wb") as file:
            file.truncate(size_mib << 20)
        make(kind, self.image)
        self.start = os.path.join(folder, "start")
        shutil.copyfile(self.image, self.start)
        self.server = subprocess.Popen([sys.executable, __file__, self.served, self.image, self.notes])
        disk = os.path.join(self.served, "disk")
        while not os.path.exists(disk):
            if self.server.poll() is not None:
                raise OSError("the disk can't be served")
            time.sleep(0.02)
        try:
            mount(kind, disk, self.mount_point)
        except subprocess.CalledProcessError as error:
            subprocess.run(["umount", self.served], check=False)
            raise OSError(f"{kind} can't be mounted: {error.stderr}") from error

    def flush(self):
        """Has all that was written reach the disk."""
        os.sync()
        # Which doesn't reach what runs a volume of FUSE.
        folder = os.open(self.mount_point, os.O_RDONLY)
        os.fsync(folder)
        os.close(folder)

    def moment(self):
        """How many notes there are by now, in bytes."""
        return os.path.getsize(self.notes) if os.path.exists(self.notes) else 0

    def close(self):
        unmount(self.mount_point, os.path.join(self.served, "disk"))
        subprocess.run(["umount", self.served], check=True)
        self.server.wait(30)

    def read_notes(self):
        """All notes: the place in the notes behind it, and offset and bytes of a write; None for both of a flush."""
        notes = []
        with open(self.notes, "rb") as file:
            while True:
                head = file.read(_NOTE.size)
                if len(head) < _NOTE.size:
                    return notes
                offset, size = _NOTE.unpack(head)
                data = file.read(size)
                notes.append((file.tell(), None, None) if offset == _FLUSH else (file.tell(), offset, data))

    def after_cuts(self, cuts, dice):
        """For each of `cuts`, ascending numbers of notes with the share of what was not flushed that survives, an image
        as the disk would hold it then. Yields cut, share and image, whose path is the same each time."""
        notes = self.read_notes()
        durable = os.path.join(self.folder, "durable")
        shutil.copyfile(self.start, durable)
        image = os.path.join(self.folder, "cut")
        flushed = 0
        for cut, share in cuts:
            last = max((i for i in range(flushed, cut) if notes[i][1] is None), default=flushed)
            _write(durable, notes[flushed:last])
            flushed = last
            subprocess.run(["cp", "--sparse=always", durable, image], check=True)
            _write(image, [note for note in notes[flushed:cut] if dice.random() < share])
            yield cut, share, image


def make(kind, image):
    command = {"ext4": ["mkfs.ext4", "-q", "-F"], "xfs": ["mkfs.xfs", "-q", "-f"],
               "btrfs": ["mkfs.btrfs", "-q", "-f"], "exfat": ["mkfs.exfat"]}[kind]
    subprocess.run([*command, image], check=True, stdout=subprocess.DEVNULL)


def mount(kind, image, folder):
    device = subprocess.run(["losetup", "--find", "--show", image], check=True, stdout=subprocess.PIPE,
                            text=True).stdout.strip()
    try:
        command = ["mount.exfat-fuse"] if kind == "exfat" else ["mount", "-t", kind]
        subprocess.run([*command, device, folder], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    finally:
        # It goes by itself once the volume is unmounted.
        subprocess.run(["losetup", "--detach", device], check=False)


def unmount(folder, image):
    """Returns when nobody writes to the image any more: what runs a volume of FUSE ends after its volume."""
    for _ in range(600):
        subprocess.run(["umount", folder], stderr=subprocess.DEVNULL, check=False)
        if not os.path.ismount(folder) and not subprocess.run(
                ["losetup", "--associated", image], check=True, stdout=subprocess.PIPE).stdout:
            return
        time.sleep(0.02)
    raise OSError(f"{folder} stays mounted")


def _write(image, notes):
    with open(image, "r+b") as file:
        for _, offset, data in notes:
            if offset is not None:
                file.seek(offset)
                file.write(data)


if __name__ == "__main__":
    serve(*sys.argv[1:])
