"""A simulated controller on a mocked serial port, and what a correct program says to it and makes of its answers."""

import datetime
import functools
import operator
import os
import re
import secrets
import shutil

_DUMP_COLUMNS = "Number,Id,Datetime,Timestamp,Runtime,Type,Depth,Temperature,Heading,Roll,Pitch\r\n"
_START, _VIDEO = 1, 8


def why_not():
    """Why there can be no simulated controller here; empty if there can."""
    return "" if shutil.which("umockdev-wrapper") else "This machine lacks umockdev"


class Rig:
    """Starts a program with a controller; stands where a card reader does. Cards that are really mounted are seen
    beside it; mocked ones aren't, because one mocked world can't hold another."""

    def __init__(self, folder, *options):
        self.transcript = os.path.join(folder, "transcript")
        # Whoever holds a port locks its name for the whole machine, whichever world it is mocked in.
        self.port = "ttyUSB" + secrets.token_hex(4)
        self.options = ["--port", self.port, *options]

    def environment(self):
        return {}

    def command(self, program):
        executable = os.environ.get("KELPORA_RIG") or os.path.join(os.path.dirname(program), "kelpora360-rig")
        return [executable, "--transcript", self.transcript, *self.options, "--", program]

    def sent(self):
        """The lines that came from the program."""
        return self._lines(">")

    def answered(self):
        return self._lines("<")

    def events(self):
        return self._lines("-")

    def _lines(self, direction):
        with open(self.transcript, encoding="ascii") as file:
            lines = [re.match(r" *[\d.]+ (.) (.*)$", line).groups() for line in file]
        return [text for kind, text in lines if kind == direction]


def sentence(body):
    return "${}*{:02X}".format(body, functools.reduce(operator.xor, body.encode()))


def csv_files(entries, zone, project=""):
    """What a download must leave: name, content. `entries` are number, flags, time, and six measured values;
    `zone` is the local time's distance from UTC in seconds."""
    files = {}
    name = None
    for number, flags, time, *values in entries:
        if flags & _START:
            start, start_number = time, number
            local = _local(time, zone)
            parts = ["kelpora360"] + ([project] if project else []) + [local.strftime("%Y%m%d-%H%M00")]
            name = "_".join(parts) + ".csv"
            files[name] = _DUMP_COLUMNS
        elif name:
            time = start - start % 65536 + time
            files[name] += ",".join([
                str(number - start_number), str(number), _local(time, zone).strftime("%Y-%m-%d %H:%M:%S"), str(time),
                str(time - start), "v" if flags & _VIDEO else "p"] + ["%g" % value for value in values[:5]]) + "\r\n"
    return {name: text.encode() for name, text in files.items()}


def _local(time, zone):
    return datetime.datetime(1970, 1, 1) + datetime.timedelta(seconds=time + zone)
