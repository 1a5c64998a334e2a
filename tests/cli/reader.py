"""A card reader or disk that fails, through FUSE.

reader.py FOLDER SOURCE [--wrong NAME PLACE NTH] [--hold NAME] [--broken NAME] [--endless NAME]

Serves the files below the folder SOURCE at FOLDER, read-only but for their content, until FOLDER is unmounted. `--wrong`:
a bit of the byte PLACE of the file NAME is wrong the NTH time that it is read. `--hold`: the first read of the file NAME
creates SOURCE.held and is answered once that file is gone. `--broken`: the file NAME can't be read. `--endless`:
what is read of the file NAME has no end. While there is a file
SOURCE.pulled, nothing can be read, but the system still knows names and sizes.
"""

import argparse
import errno
import os
import subprocess
import sys
import time


def serve(options):
    # Only here: what starts a reader does without it.
    import fusepy

    class Reader(fusepy.Operations):
        def __init__(self):
            self.reads = 0
            self.held = False

        def _path(self, path):
            return os.path.join(options.source, path.lstrip("/"))

        def getattr(self, path, _handle=None):
            try:
                status = os.lstat(self._path(path))
            except OSError as error:
                raise fusepy.FuseOSError(error.errno) from error
            return {key: getattr(status, key) for key in ("st_mode", "st_nlink", "st_size", "st_mtime", "st_ctime",
                                                          "st_uid", "st_gid")}

        def readdir(self, path, _handle):
            return [".", "..", *os.listdir(self._path(path))]

        def open(self, path, _flags):
            return os.open(self._path(path), os.O_RDWR)

        def release(self, _path, handle):
            os.close(handle)

        def fsync(self, _path, _data_only, handle):
            os.fsync(handle)
            return 0

        def write(self, _path, data, offset, handle):
            return os.pwrite(handle, data, offset)

        def read(self, path, size, offset, handle):
            data = b"x" * size if path.lstrip("/") == options.endless else os.pread(handle, size, offset)
            if path.lstrip("/") == options.hold and not self.held:
                self.held = True
                held = options.source + ".held"
                open(held, "w").close()
                while os.path.exists(held):
                    time.sleep(0.01)
            if path.lstrip("/") == options.broken or os.path.exists(options.source + ".pulled"):
                raise fusepy.FuseOSError(errno.EIO)
            name, place, nth = options.wrong or ("", 0, 0)
            place = int(place) - offset
            if path.lstrip("/") == name and 0 <= place < len(data):
                self.reads += 1
                if self.reads == int(nth):
                    data = data[:place] + bytes([data[place] ^ 4]) + data[place + 1:]
            return data

    fusepy.FUSE(Reader(), options.folder, foreground=True, direct_io=options.direct, nonempty=True, big_writes=True)


class Server:
    """Serves `source` at `folder`, which is created; OSError if this machine can't."""

    def __init__(self, folder, source, *options):
        self.folder = folder
        self.held = source + ".held"
        os.makedirs(folder)
        self.process = subprocess.Popen([sys.executable, __file__, folder, source, *options])
        for _ in range(3000):
            if os.path.ismount(folder):
                return
            if self.process.poll() is not None:
                break
            time.sleep(0.01)
        raise OSError(errno.ENOSYS, "FUSE does not work here")

    def wait_held(self):
        for _ in range(3000):
            if os.path.exists(self.held):
                return
            time.sleep(0.01)
        raise TimeoutError("Nobody reads the file that is held")

    def release(self):
        if os.path.exists(self.held):
            os.unlink(self.held)

    def close(self):
        self.release()
        subprocess.run(["umount", "--lazy", self.folder], stderr=subprocess.DEVNULL, check=False)
        self.release()
        self.process.wait(30)


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("folder")
    parser.add_argument("source")
    parser.add_argument("--wrong", nargs=3)
    parser.add_argument("--hold")
    parser.add_argument("--broken")
    parser.add_argument("--endless")
    parser.add_argument("--direct", action="store_true", help="the system keeps nothing in memory")
    serve(parser.parse_args())
