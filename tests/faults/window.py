#!/usr/bin/python3
"""Command, failure and moment through the window: the real program, whose buttons are pressed over the accessibility bus.

window.py BUILD NAME...   tries the cases of these names, and prints a line of JSON for each: its name and its complaints
"""

import collections
import concurrent.futures
import json
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile

import bench as benches
import controller
import oracle
import table
from kit import rig, session

# What is pressed, one after the other; the row that tells of it; how it tells of success, and the answer that must have
# come by then. "exit" turns the controller off.
COMMANDS = {
    "connect": (["Connect"], "Settings", "Success. Settings read.", r"\$PSEASETTINGS,"),
    "save": (["Save Settings"], "Settings", "Success. Settings saved.", r"\$PSEACLOCK,|\$PSEAMSG,\d+,PSEASETRTC,"),
    "reset": (["Reset Settings"], "Settings", "Success. Controller reset.", r"\$PSEASETTINGS,1,1000,10000,30(,29)?\*"),
    "download": (["Copy Data"], "Data", "Wrote ", r"\$PSEAMSG,\d+,PSEADUMP,MEMORY,DATA END\*"),
    "erase": (["Erase Memory", "Erase"], "Data", "Success. Memory erased.", r"\$PSEAMSG,\d+,PSEAFORMAT,MEMORY,COMPLETE\*"),
    "exit": ([], None, "Success", ""),
}
PAGES = {"Settings": ("Settings", ["Connect", "Save Settings", "Reset Settings"]),
         "Data": ("Copy Data", ["Copy Data", "Erase Memory"])}
WAIT = "Please wait ..."
STOPS = "A job with the controller is running. Closing the window again stops it."
END = re.compile("Error|Success|Wrote|No records")
# A mute controller is asked ten times, 8 s each.
JOB_SECONDS = 60
CLOSING_SECONDS = 20

# LED, intervals, time-out, generation: what the controller holds, what the page would save, what a reset brings.
HELD, SAVED, FACTORY = "0 500 12500 30 30", "1 1000 5000 90 26", "1 1000 10000 30 29"
UNREAD = ("-", "-", "1.0 seconds", "5 seconds", "90 minutes")
READ = ("1.24", "50 %", "0.5 seconds", "12 seconds", "30 minutes")
ROWS = ("Firmware:", "Battery:", "Video interval", "Photo interval", "Photo timeout")

# What a case left. texts: the last text after each press, None if none came; free: whether the buttons came back; shown: the
# settings page's rows; code: of the exit, None if it never came; folder: of the data; memory: what the controller keeps;
# answered: what it said.
Seen = collections.namedtuple("Seen", "texts free shown code folder memory answered")


def cases():
    """Name, command, options of the controller, what must hold."""
    for options, commands, holds in table.WINDOW:
        for command in commands.split():
            name = f"window/{command}/{options or 'no failure'}"
            yield name + (", closed" if holds == "closed" else ""), command, options, holds


def why_not():
    """Why there can be no window with a controller here; empty if there can."""
    return rig.why_not()


def attempts(build, names, workers):
    """Tries the cases of these names, in a few sessions at once. Yields the name and the complaints of each, a reason
    instead of them where this machine can have no window."""
    def share(number):
        mine = names[number::workers]
        if not mine:
            return []
        done = subprocess.run([sys.executable, __file__, str(build), *mine], stdout=subprocess.PIPE, check=False)
        told = dict(json.loads(line) for line in done.stdout.splitlines())
        return [(name, told.get(name, [f"crash: nothing is told, exit code {done.returncode}"])) for name in mine]

    with concurrent.futures.ThreadPoolExecutor(workers) as pool:
        for part in pool.map(share, range(workers)):
            yield from part


def judge(command, holds, seen):
    """The complaints about what was told and what became of the files and the controller."""
    complaints = []
    if seen.code is None:
        complaints.append("hang: it doesn't end")
    elif seen.code != 0:
        complaints.append(f"crash: it ends with {seen.code}")
    if None in seen.texts:
        return [*complaints, "hang: the job doesn't end"]
    if not seen.free:
        complaints.append("hang: the buttons don't come back")
    _, _, success, answer = COMMANDS[command]
    succeeded = [text.startswith(success) for text in seen.texts]
    told_of = any(succeeded)
    if holds == "done" and not all(succeeded) or holds in ("fails", "other") and told_of \
            or holds == "again" and not succeeded[-1]:
        complaints.append(f"wrong: not {holds}, {seen.texts}")
    if told_of and command != "download" and not controller.has_answered(answer, seen.answered):
        complaints.append(f"untrue: {seen.texts} without {answer}")

    # Settings and datasets change by what was pressed alone, and have changed once that is told.
    for what, before, changes in (("settings", HELD, {"save": SAVED, "reset": FACTORY}),
                                  ("datasets", str(len(controller.LOG)), {"erase": "0"})):
        after = changes.get(command) if holds != "other" else None
        if seen.memory[what] not in (before, after):
            complaints.append(f"lost: {what} {seen.memory[what]}")
        elif after and told_of and seen.memory[what] != after:
            complaints.append(f"untrue: {seen.texts}, {what} {seen.memory[what]}")
    if seen.shown != (READ if command == "connect" and told_of else UNREAD):
        complaints.append(f"untrue: {seen.texts}, the page shows {seen.shown}")
    if holds == "done" and seen.memory["on"] != "0":
        complaints.append("wrong: the controller was not turned off")
    # What is stopped may have left the beginning of a run, under a name that says so.
    text = "Error" if holds == "closed" else seen.texts[-1] if seen.texts else None
    return complaints + controller.judge_files(seen.folder, text if command == "download" else None)


class Operator:
    """One case: the program, its controller, and who presses the buttons."""

    def __init__(self, build, folder, command, options):
        from kit import window
        self.wait_until = window.wait_until
        self.command = command
        self.buttons, self.row, self.success, _ = COMMANDS[command]
        memory = folder / "memory"
        memory.write_text("".join(",".join(map(str, entry)) + "\n" for entry in controller.LOG))
        self.state = folder / "state"
        self.rig = rig.Rig(str(folder), "--log", str(memory), "--battery", "3.8", "--settings", HELD.replace(" ", ","),
                           "--state", str(self.state), *options.split())
        self.program = window.Program(str(build / "kelpora360"), str(folder), self.rig)
        # Where the data goes, unless the operator chooses another folder.
        self.folder = pathlib.Path(self.program.home) / "Videos"
        self.folder.mkdir(parents=True)

    def run(self, holds):
        window = self.program.start()
        try:
            if holds == "other":
                self.program.process.send_signal(signal.SIGUSR1)
                self.wait_replugged()
            if self.row:
                window.turn_to(PAGES[self.row][0])
            if holds == "closed":
                texts, shown = [], UNREAD
                self.close_amid(window)
            else:
                texts = [self.press(window)] if self.row else []
                if holds == "again" and texts[-1] is not None:
                    self.wait_replugged()
                    texts.append(self.press(window))
                shown = self.shown(window, texts)
            free = holds == "closed" or None not in texts and self.is_free(window)
            if holds != "closed":
                window.press("Exit")
            code = self.end()
        finally:
            self.program.end()
        memory = dict(line.split(" ", 1) for line in self.state.read_text().splitlines())
        return Seen(texts, free, shown, code, self.folder, memory, self.rig.answered())

    def wait_replugged(self):
        self.wait_until(lambda: self.rig.events().count("plugged in") == 2, 10, "the cable")

    def press(self, window):
        """Returns the job's last text; None if it never comes."""
        was = window.progress(self.row)
        closings = self.rig.events().count("port closed")
        for button in self.buttons:
            window.press(button)

        def ended():
            # The same job may end with the same words. Looked at first: the last text comes before the port is closed.
            has_closed = self.rig.events().count("port closed") > closings
            text = window.progress(self.row)
            return text if (has_closed or text != was) and END.match(text) and not window.shows(WAIT) else None
        try:
            return self.wait_until(ended, JOB_SECONDS, "the end of the job")
        except TimeoutError:
            return None

    def close_amid(self, window):
        """Closes the window while the job runs; the first attempt is only answered."""
        sent = len(self.rig.sent())
        for button in self.buttons:
            window.press(button)
        self.wait_until(lambda: len(self.rig.sent()) >= sent + 2, 10, "a running job")
        window.close()
        self.wait_until(lambda: window.shows(STOPS) or not self.program.is_running(), 5, "the answer to closing")
        if self.program.is_running():
            window.close()

    def shown(self, window, texts):
        def rows():
            return tuple(window.beside(row) for row in ROWS)
        if self.row != "Settings":
            return UNREAD
        if self.command == "connect" and any(text and text.startswith(self.success) for text in texts):
            # The rows are filled just after the last word.
            self.wait_until(lambda: rows()[0] != UNREAD[0], 5, "the firmware")
        return rows()

    def is_free(self, window):
        try:
            for button in [*(PAGES[self.row][1] if self.row else []), "Exit"]:
                window.wait_bright(button)
        except TimeoutError:
            return False
        return True

    def end(self):
        try:
            return self.program.wait(CLOSING_SECONDS * self.slowness())
        except subprocess.TimeoutExpired:
            return None

    @staticmethod
    def slowness():
        return max(1, os.getloadavg()[0] / (os.cpu_count() or 1))


def _attempt(build, command, options, holds):
    with tempfile.TemporaryDirectory(prefix="window-", dir=build) as folder:
        try:
            operator = Operator(build, pathlib.Path(folder), command, options)
            return judge(command, holds, operator.run(holds))
        except TimeoutError as error:
            return [f"hang: {error}"]
        except (OSError, RuntimeError) as error:
            return [f"crash: {error}"]


def main():
    build = pathlib.Path(sys.argv[1])
    os.environ.setdefault("QT_QUICK_BACKEND", "software")
    sys.argv[0] = os.path.abspath(sys.argv[0])
    session.enter()
    os.environ.update(TZ="UTC", KELPORA_RIG=str(build / "kelpora360-rig"))
    for name, *case in cases():
        if name in sys.argv[2:]:
            complaints = session.why_not() or _attempt(build, *case)
            print(json.dumps([name, complaints]), flush=True)


if __name__ == "__main__":
    main()
