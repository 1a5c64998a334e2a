"""Power cuts in the middle of a job, on one file system after the other.

A job runs once, on a disk that notes what it is told; a cut is worked out of the notes. Half of the cuts lose all
that was not flushed, the others half of it.
"""

import os
import pathlib
import random
import shutil
import subprocess
import threading
import time

import bench as benches
import controller
import forgetful
from kit import recordings

# Where the tools of administrators lie, which not every root looks for.
os.environ["PATH"] += os.pathsep + "/usr/sbin" + os.pathsep + "/sbin"
# File system, size of its disk in MiB.
KINDS = {"ext4": 96, "xfs": 320, "btrfs": 160, "exfat": 96}
# What is done on which of them; whether another program flushes its own file all the while.
RUNS = [(kind, "import", beside) for kind in KINDS for beside in (False, True)] + [
    ("exfat", "prepare", False), ("exfat", "download", False), ("ext4", "download", False),
    ("ext4", "settings", True), ("xfs", "settings", True), ("ext4", "log", False)]
CUTS = 120
# Cuts after the last word, at most.
AFTER = 5


class Flusher:
    """Another program: appends to its file on the volume and flushes it, again and again."""

    def __init__(self, folder):
        self.path = os.path.join(folder, "other")
        self.stopped = threading.Event()
        self.thread = threading.Thread(target=self.run)
        self.thread.start()

    def run(self):
        with open(self.path, "wb", buffering=0) as file:
            while not self.stopped.is_set():
                file.write(b"x" * 5000)
                os.fsync(file.fileno())
                time.sleep(0.02)

    def stop(self):
        self.stopped.set()
        self.thread.join()


def why_not():
    """Why the power can't be cut here; empty if it can."""
    if os.geteuid() != 0:
        return "Only root can mount a loop device"
    tools = ["losetup", "mount.exfat-fuse", *(f"mkfs.{kind}" for kind in KINDS)]
    lacking = [tool for tool in tools if not shutil.which(tool)]
    if lacking:
        return f"This machine lacks {', '.join(lacking)}"
    if not os.path.exists("/dev/fuse"):
        return "This machine has no FUSE"
    found = subprocess.run(["losetup", "--find"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False)
    return "This machine has no loop device left" if found.returncode else ""


def attempts(make_bench, cuts, wanted):
    """Does each job for whose name wanted() is true and cuts the power `cuts` times. Yields the name and the complaints
    of each cut; the reason instead of complaints where this machine has no such volume."""
    for kind, job, beside in RUNS:
        name = f"power/{kind}/{job}{' beside' if beside else ''}"
        if wanted(name):
            for cut, complaints in _attempt(make_bench(name.replace("/", "-")), name, kind, JOBS[job], beside, cuts):
                yield f"{name}/{cut}", complaints


def _attempt(bench, name, kind, job, beside, cuts):
    dice = random.Random(name)
    folder = bench.folder.with_name(bench.folder.name + "-disk")
    try:
        disk = forgetful.Disk(kind, KINDS[kind], str(folder))
    except OSError as error:
        yield "none", str(error)
        return
    try:
        command, judge = job(bench, pathlib.Path(disk.mount_point))
        disk.flush()
        before = disk.moment()
        flusher = Flusher(disk.mount_point) if beside else None
        outcome = bench.run(command)
        told = disk.moment()
        if flusher:
            flusher.stop()
        complaints = benches.ending(outcome) + judge(outcome, pathlib.Path(disk.mount_point), True)
    finally:
        disk.close()
    if complaints:
        yield "none", complaints
        return
    places = [place for place, _, _ in disk.read_notes()]
    moments = range(sum(place <= before for place in places), len(places) + 1)
    # After the last word, nothing may be lost any more.
    last = sum(place <= told for place in places)
    chosen = {*dice.sample(moments, min(cuts, len(moments))), *range(last, min(last + AFTER, len(places) + 1))}
    place = folder / "after"
    place.mkdir()
    # All that was not flushed is lost, or some of it, in no order.
    planned = [(cut, number % 2 / 2) for number, cut in enumerate(sorted(chosen))]
    for cut, share, image in disk.after_cuts(planned, dice):
        try:
            forgetful.mount(kind, image, str(place))
        except subprocess.CalledProcessError as error:
            # What is written in no order may be too much for the file system itself.
            yield cut, [] if share else [f"wrong: it can't be mounted, {error.stderr}"]
            continue
        try:
            yield cut, judge(outcome, place, cut >= last)
        finally:
            forgetful.unmount(str(place), image)


def _import(bench, volume):
    def fill(card, number):
        recordings.fill(card, number, scale=20)
        recordings.fill_photos(card, number, 40, 40000)

    bench.destination = volume / "dive"
    arguments, oracle = bench.equip_import(fill)
    return [bench.driver(), *arguments], lambda outcome, place, ended: oracle.judge(
        outcome.texts, outcome.log, place / "dive", "complete" if ended else "killed")


def _prepare(bench, volume):
    """Of a card that keeps its recordings."""
    bench.cards = volume / "cards"
    arguments, oracle = bench.equip_preparation(erase=False)

    def judge(outcome, place, ended):
        oracle.card = str(place / "cards" / "1")
        return oracle.judge(outcome.texts, outcome.log, None, "complete" if ended else "killed")

    return [bench.driver(), *arguments], judge


def _download(bench, volume):
    bench.destination = volume / "logs"
    line, _ = controller.equip(bench, "download")

    def judge(outcome, place, ended):
        complaints = controller.judge_files(place / "logs", outcome.texts.get(0) if ended else None)
        # Until it has its name, a file's ends differently.
        return complaints if ended else [complaint for complaint in complaints if ".csv " in complaint]

    return line, judge


def _settings(bench, volume):
    """Stores one value after the other."""
    bench.clear()
    wanted, judge = _home(bench, volume)
    old, = wanted
    for value in range(11, 17):
        wanted.append(old.replace(b"Camera1Yaw=10\n", b"Camera1Yaw=%d\n" % value))
    return ["sh", "-c", f"for value in 11 12 13 14 15 16; do '{bench.driver()}' settings Camera1Yaw $value; done"], judge


def _log(bench, volume):
    """Writes a download into the log."""
    line, _ = controller.equip(bench, "download")
    return line, _home(bench, volume)[1]


def _home(bench, volume):
    """Has log and settings stand on the volume. Returns the contents that the settings file may have, to which more can
    be added, and what judges them."""
    name = os.path.join("home", "Kelpora 360", "Kelpora360.ini")
    bench.home = volume / "home"
    (volume / name).parent.mkdir(parents=True)
    bench.run([bench.driver(), "settings", "Camera1Yaw", "10"])
    wanted = [(volume / name).read_bytes()]

    def judge(_outcome, place, _ended):
        found = (place / name).read_bytes() if (place / name).exists() else None
        if found not in wanted:
            return [f"half: settings {found!r}"]
        if place == volume:
            return [] if found == wanted[-1] else [f"untrue: settings {found!r}"]
        # The next start takes them as they are, whatever became of the log.
        after = benches.Bench(bench.build, bench.folder)
        after.home = place / "home"
        complaints = benches.ending(after.run([bench.driver(), "settings", "Camera2Yaw", "20"]))
        if (place / name).read_bytes() != found.replace(b"Camera2Yaw=-0\n", b"Camera2Yaw=20\n"):
            complaints.append("wrong: the next start doesn't keep the settings")
        return complaints

    return wanted, judge


JOBS = {"import": _import, "prepare": _prepare, "download": _download, "settings": _settings, "log": _log}
