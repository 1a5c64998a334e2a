"""Cards, destination and home in a folder, and the driver that does one job with them."""

import collections
import os
import pathlib
import re
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tests" / "e2e"))

# pylint: disable=wrong-import-position
import oracle
from kit import recordings

SAMPLES = ROOT / "tests" / "data" / "sample"
TEMPLATE = (SAMPLES / "Rig.kava").read_bytes()
PICTURE = (SAMPLES / "Rig.jpg").read_bytes()
# A mute controller is asked ten times, 8 s each.
HANG_SECONDS = 120

# A name, and the function that is given a Bench and returns the complaints.
Case = collections.namedtuple("Case", "name attempt")
# How a job ended: the exit code (None: it hung), the last text of each card (0: of the controller), the log.
Outcome = collections.namedtuple("Outcome", "code texts log")


class Bench:
    """Made anew for each case by one of the equip functions."""

    def __init__(self, build, folder):
        self.build = build
        self.folder = folder
        self.home = folder / "home"
        self.cards = folder / "cards"
        self.destination = folder / "destination"
        self.template = self.home / "Kelpora 360" / "templates" / "Rig.kava"
        self.settings = self.home / "Kelpora 360" / "Kelpora360.ini"

    def card(self, number):
        return str(self.cards / str(number))

    def clear(self):
        shutil.rmtree(self.folder, ignore_errors=True)
        self.template.parent.mkdir(parents=True)
        self.template.write_bytes(TEMPLATE)
        self.template.with_suffix(".jpg").write_bytes(PICTURE)
        self.destination.mkdir(exist_ok=True)

    def equip_import(self, fill, cards=(1,), project=""):
        """Fills `cards` with fill(folder, number). Returns the driver's arguments and the oracle."""
        self.clear()
        for number in cards:
            os.makedirs(self.card(number))
            fill(self.card(number), number)
        if project:
            recordings.write(self.destination, f"DCIM/100MEDIA/CLIP0001_{project}_cam1.MOV", b"another dive's")
            recordings.write(self.destination, "notes.txt", b"the operator's")
        places = [self.card(number) if number in cards else "" for number in (1, 2, 3)]
        judge = oracle.Import({number: self.card(number) for number in cards}, recordings.tree(self.destination),
                              project, TEMPLATE.decode(), PICTURE)
        return ["import", *places, str(self.destination), str(self.template), project], judge

    def equip_preparation(self, erase):
        """The same for a card that is prepared."""
        self.clear()
        recordings.fill(self.card(1), 1)
        return (["prepare", self.card(1), "", "", "erase" if erase else "keep", "sync"],
                oracle.Preparation(self.card(1), 1, erase, True))

    def environment(self):
        return dict(os.environ, HOME=str(self.home), XDG_DATA_HOME=str(self.home), XDG_CONFIG_HOME=str(self.home),
                    TZ="UTC", LC_ALL="C.UTF-8")

    def driver(self):
        return str(self.build / "tests" / "faults" / "kelpora_faultdriver")

    def run(self, command, environment=None):
        """Runs a command, which has the driver print its last texts."""
        try:
            done = subprocess.run(command, env=environment or self.environment(), stdout=subprocess.PIPE,
                                  stderr=subprocess.PIPE, timeout=HANG_SECONDS, check=False)
        except subprocess.TimeoutExpired:
            return Outcome(None, {}, "")
        told = re.findall(r"^(\d) (.*)$", done.stdout.decode(errors="replace"), re.MULTILINE)
        return Outcome(done.returncode, {int(card): text for card, text in told},
                       done.stderr.decode(errors="replace"))

    def spoiled(self, spoil):
        """The environment of a process whose calls are counted, and one of them spoiled."""
        areas = {"card": self.card(1), "destination": self.destination, "home": self.home}
        return dict(self.environment(), KELPORA_SPOIL=spoil, KELPORA_SPOIL_COUNTS=str(self.folder / "counts"),
                    KELPORA_SPOIL_AREAS=":".join(f"{name}={folder}" for name, folder in areas.items()),
                    LD_PRELOAD=str(self.build / "tests" / "faults" / "kelpora_spoil.so"))

    def spoil(self, arguments, spoil=""):
        """Runs the driver with its calls counted and one of them spoiled."""
        return self.run([self.driver(), *arguments], self.spoiled(spoil))

    def counts(self):
        """How many calls of each kind the last run made in each area."""
        lines = [line.split() for line in (self.folder / "counts").read_text().splitlines()]
        return {(call, area): int(number) for call, area, number in lines}


def ending(outcome, killed=False):
    """The complaints about the way in which a process ended."""
    if outcome.code is None:
        return ["hang: it doesn't end"]
    if outcome.code == 0 or (killed and outcome.code == -9):
        return []
    return [f"crash: it ends with {outcome.code}, {outcome.log[-200:]!r}"]
