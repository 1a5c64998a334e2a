"""Command, failure and moment: the jobs with a controller whose cable or memory lets it down."""

import os
import re

import bench as benches
import oracle
from kit import rig

# Number, flags, time, depth, temperature, heading, roll, pitch, battery: two runs.
LOG = [(1, 1, 1550782004, 0, 22, 0, 0, 3, 3.95), (2, 10, 3637, 15.5, 16.75, 119.5, 4.25, 3, 3.95),
       (3, 10, 3638, 14.5, 16.25, 239.5, -4.25, 3, 3.95), (4, 10, 3639, 0, 22, 359, 0, 3, 3.95),
       (5, 1, 1550783807, 0, 22, 0, 0, 3, 3.95), (6, 18, 5440, 15.5, 16.75, 119.5, 4.25, 3, 3.95),
       (7, 18, 5441, 15.25, 16.5, 239.5, -4.25, 3, 3.95), (8, 18, 5442, 0, 22, 359, 0, 3, 3.95)]

# Command; the answer without which it must not be told as done, and what is told then.
COMMANDS = {
    "connect": (r"\$PSEASETTINGS,1,1000,10000,30(,29)?\*", "Success. Settings read."),
    "save": (r"\$PSEACLOCK,|\$PSEAMSG,\d+,PSEASETRTC,", "Success. Settings saved."),
    "reset": (r"\$PSEASETTINGS,1,1000,10000,30(,29)?\*", "Success. Controller reset."),
    "erase": (r"\$PSEAMSG,\d+,PSEAFORMAT,MEMORY,COMPLETE\*", "Success. Memory erased."),
    "off": (r"\$PSEAMSG,\d+,PSEAOFF,POWER OFF,GOODBYE\*", "Success. Controller is off"),
    "download": (r"\$PSEAMSG,\d+,PSEADUMP,MEMORY,DATA END\*", "Wrote "),
}
# Failure, moments, what must hold: "done", "fails", or "told" (nothing is told as done that isn't).
FAILURES = [
    ("", [""], "done"),
    ("--burst", [""], "done"),
    ("--bytewise", [""], "done"),
    ("--pieces={}", [2, 3], "done"),
    # So slow a line takes longer than some answers may.
    ("--pieces={}", range(4, 8), "told"),
    ("--noise", [""], "told"),
    ("--noise --burst", [""], "told"),
    ("--noise --bytewise", [""], "told"),
    ("--mute", [""], "fails"),
    ("--off", [""], "fails"),
    ("--half-open", [""], "fails"),
    ("--busy", [""], "fails"),
    ("--forbidden", [""], "fails"),
    ("--old-firmware", [""], "told"),
    ("--boots", [""], "done"),
    ("--leftovers {}", range(1, 10), "told"),
    ("--delay {}", [1, 3], "told"),
    ("--no-end", [""], "told"),
    ("--mute-after {}", range(13), "told"),
    ("--unplug-after {}", range(13), "told"),
    ("--unplug-after {} --pieces=2", range(0, 12, 2), "told"),
    ("--unplug-after {} --replug-after 1", range(0, 12, 3), "told"),
    ("--bad-checksum-every {}", range(1, 8), "told"),
    ("--bad-checksum-every {} --noise", range(2, 5), "told"),
    ("--lose-end-every {}", range(1, 8), "told"),
    ("--lose-byte-every {}", range(1, 8), "told"),
]


def why_not():
    """Why there can be no controller here; empty if there can."""
    return rig.why_not()


def cases(_bench):
    for command in COMMANDS:
        for failure, moments, holds in FAILURES:
            for moment in moments:
                options = failure.format(moment)
                yield benches.Case(f"controller/{command}/{options or 'no failure'}",
                                   lambda bench, row=(command, options, holds): _attempt(bench, *row))


def equip(bench, command, options=""):
    """Returns the command line of a job with a controller that holds LOG, and its rig."""
    bench.clear()
    memory = bench.folder / "memory"
    memory.write_text("".join(",".join(map(str, entry)) + "\n" for entry in LOG))
    kit = rig.Rig(str(bench.folder), "--log", str(memory), *options.split())
    more = [str(bench.destination), ""] if command == "download" else []
    os.environ["KELPORA_RIG"] = str(bench.build / "kelpora360-rig")
    return [*kit.command(bench.driver()), command, kit.port, *more], kit


def _attempt(bench, command, options, holds):
    line, kit = equip(bench, command, options)
    outcome = bench.run(line)
    complaints = benches.ending(outcome)
    if complaints:
        return complaints
    text = outcome.texts.get(0, "")
    answer, success = COMMANDS[command]
    succeeded = text.startswith(success)
    answered = has_answered(answer, kit.answered())
    if not re.match(r"Success|Error|Wrote|No records", text):
        complaints.append(f"wrong: it ends with {text!r}")
    if (holds == "done" and not succeeded) or (holds == "fails" and succeeded):
        complaints.append(f"wrong: not {holds}, {text!r}")
    if succeeded and not answered and command != "download":
        complaints.append(f"untrue: {text!r} without {answer}")
    return complaints + (judge_files(bench.destination, text) if command == "download" else [])


def has_answered(pattern, lines):
    """Whether a whole sentence among the lines matches; of some the line end was lost."""
    sentences = [found for line in lines for found in re.findall(r"\$[^$*]*\*[0-9A-F]{2}", line)]
    return any(re.match(pattern, found) and found == rig.sentence(found[1:-3]) for found in sentences)


def judge_files(folder, text):
    """The complaints about the CSV files and what is told of them; None if nothing was told."""
    found = oracle.tree(folder)
    wanted = rig.csv_files(LOG, 0)
    complaints = []
    measured = {_measured(row) for content in wanted.values() for row in content.splitlines()}
    for name, content in found.items():
        # What is damaged on its way is missing, which is told; after a lost start its run's rows stand in the file before.
        told = (text or "").startswith("Error") and {_measured(row) for row in content.splitlines()} <= measured
        if content != wanted.get(name) and not told:
            complaints.append(f"half: {name} after {text!r}")
    match = re.fullmatch(r"Wrote (\d+) records to (\d+) files in .*", text or "")
    if match and ((int(match[1]), int(match[2])) != (len(LOG), len(wanted)) or found != wanted):
        complaints.append(f"untrue: {text!r}, {sorted(found)}")
    return complaints


def _measured(row):
    """What the controller said of a row, without what is counted from the start of its run."""
    fields = row.split(b",")
    return (fields[1], *fields[6:])
