#!/usr/bin/python3
"""Starts the program on three sample cards and a simulated controller, for a rig whose angles were entered before.

With a display the window opens there, for you to press. Without one it is shown on a virtual screen: "Copy Files",
"Connect" and "Copy Data" are pressed, and what came of them is printed; the exit code is 0 only if all three cards
reported everything copied, every project has the rig's angles, the settings were read, the dive log was written whole
and the controller was turned off. --hold leaves that window open until you press Enter. Nothing is left behind but
build/demo.

Where this machine forbids mounts, cards and controller can't be had in one program; it is then started once with the
cards and once with the controller.
"""

import contextlib
import os
import re
import shutil
import signal
import sys
import tempfile
import time
import xml.etree.ElementTree as ET

sys.dont_write_bytecode = True
from kit import expected, recordings, rig, session  # noqa: E402

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))

SAMPLES = os.path.join(ROOT, "tests", "data", "sample")
DATASETS = 120
ROWS = ("Firmware:", "Battery:", "Video interval", "Photo interval", "Photo timeout")
END = re.compile("Error|Success|Wrote|No records")
USAGE = "usage: tools/demo [--hold] [--program EXECUTABLE]"
# The rig's own angles in degrees, as its operator entered them; the sample's template has radians.
SETTINGS = {"Camera{}{}".format(camera, key): value
            for camera, values in ((1, ("0.4", "-0.3", "-90.2")), (2, ("120.7", "0.5", "-89.6")), (3, ("-119.2", "0.1", "-90.4")))
            for key, value in zip(("Yaw", "Pitch", "Roll", "OffsetX", "OffsetY"), (*values, "-20", "0"))}
SETTINGS.update(OverwriteAngles="1", RadiansAngles="1")


def has_display():
    return bool(os.environ.get("DISPLAY") or os.environ.get("WAYLAND_DISPLAY"))


def output_folder():
    """build/demo, or a temporary folder where the sources can't be written."""
    folder = os.path.join(ROOT, "build", "demo")
    try:
        os.makedirs(folder, exist_ok=True)
        if os.access(folder, os.W_OK):
            return folder
    except OSError:
        pass
    return tempfile.mkdtemp(prefix="kelpora-demo-")


def prepare(folder):
    """Cards with recordings, a template, and the program on them."""
    from kit import cards, window
    reader = cards.card_reader(folder)
    program = window.Program(os.environ["KELPORA_PROGRAM"], folder, reader)
    for card in (1, 2, 3):
        recordings.fill(reader.insert("KELPORA360_{}".format(card)), card, scale=10)
    for name in ("Rig.kava", "Rig.jpg"):
        shutil.copy(os.path.join(SAMPLES, name), program.templates)
    lines = ["[General]"] + ["{}={}".format(*entry) for entry in SETTINGS.items()]
    recordings.write(program.support, "Kelpora360.ini", "\n".join(lines + [""]).encode())
    os.makedirs(os.path.join(program.home, "Videos"))
    return reader, program


def copy_files(window, screenshots):
    """Presses the button as an operator would; returns what the three cards said."""
    from kit.window import wait_until
    window.type("Project Name", "reef")
    window.press("Copy Files")

    def ended():
        texts = [window.progress(card) for card in (1, 2, 3)]
        return texts if all(text.startswith(("Error", "Copied")) and " correctly" not in text
                            for text in texts) else None
    texts = wait_until(ended, 120, "the end of the import")
    window.wait_bright("Exit")
    screenshots.take(window, "copied.png")
    return texts


def run_job(window, row, button):
    """Presses a controller job's button; returns its last word."""
    from kit.window import wait_until
    window.press(button)
    text = wait_until(lambda: END.match(window.progress(row)) and window.progress(row), 60, "the end of the job")
    wait_until(lambda: not window.shows("Please wait ..."), 5, "the end of the popup")
    window.wait_bright("Exit")
    # The popup fades, and a pressed button's ripple with it.
    time.sleep(0.5)
    return text


def use_controller(window, screenshots):
    """Reads the settings and downloads the dive log; returns the settings page's rows and the jobs' last words."""
    if window.text("Project Name") != "reef":
        window.turn_to("Copy Files")
        window.type("Project Name", "reef")
    window.turn_to("Settings")
    settings = run_job(window, "Settings", "Connect")
    rows = {row: window.beside(row) for row in ROWS}
    rows["Date/Time"] = window.text("Date/Time")
    rows["Record LED"] = "on" if window.is_checked("LED is on while recording") else "off"
    screenshots.take(window, "settings.png")
    window.turn_to("Copy Data")
    data = run_job(window, "Data", "Copy Data")
    screenshots.take(window, "data.png")
    return rows, settings, data


class Screenshots:
    def __init__(self):
        self.folder = output_folder()
        self.paths = []

    def take(self, window, name):
        self.paths.append(os.path.join(self.folder, name))
        window.screenshot(self.paths[-1])


def leave(program, hold):
    """The exit code."""
    if hold:
        with contextlib.suppress(EOFError):
            input("The window stays on {} until you press Enter. ".format(os.environ["DISPLAY"]))
    program.window.press("Exit")
    return program.wait(30)


def show_log(program, title):
    heading(title)
    show_start([line for line in program.log() if line != "Logfile path:"], 40)


def show_start(lines, count):
    """The first lines, and how many follow: the verdict must not be far."""
    print("\n".join(lines[:count]))
    if len(lines) > count:
        print("... and {} more lines".format(len(lines) - count))


def files_of(program):
    return sorted(recordings.tree(os.path.join(program.home, "Videos")).items())


def show_import(program, texts):
    heading("Copied")
    files = files_of(program)
    for name, data in files:
        print("{:>9}  {}".format(len(data), name))
    for ending in (".kava", ".pano"):
        name, data = next((file for file in files if file[0].endswith(ending)), ("No " + ending, b""))
        heading(name)
        print(data.decode())
    heading("Cards")
    for card, text in enumerate(texts, 1):
        print("Card {}: {}".format(card, text))


def show_controller(program, rows, settings, data):
    for name, content in files_of(program):
        if name.endswith(".csv"):
            heading(name)
            show_start(content.decode().splitlines(), 4)
    heading("Settings")
    for row, text in rows.items():
        print("{:15} {}".format(row, text))
    heading("Controller")
    print("Settings: " + settings)
    print("Data: " + data)


def heading(text):
    print("\n== {} ==".format(text))


def is_whole(text):
    counts = re.match(r"Copied (\d+)/(\d+) videos and (\d+)/(\d+) photos\.$", text)
    return bool(counts) and counts.group(1) == counts.group(2) and counts.group(3) == counts.group(4) \
        and int(counts.group(2)) > 0 and int(counts.group(4)) > 0


def have_own_angles(program, reader):
    """Whether the projects are those of the sample's template, with the angles that were entered."""
    with open(os.path.join(SAMPLES, "Rig.kava"), encoding="utf-8") as file:
        wanted = expected.Destination(file.read(), angles=expected.angles_of(SETTINGS))
    wanted.add_import(dict(enumerate(reader.cards, 1)), "reef")
    found = {name: expected.canonical(ET.fromstring(data)) for name, data in files_of(program)
             if name.endswith((".kava", ".pano"))}
    return bool(found) and found == {name: expected.canonical(project) for name, project in wanted.projects.items()}


def is_served(program, controller, rows, settings, data):
    """Whether the controller's jobs did all that they should, the power-off at the exit included."""
    csv = [content.decode().splitlines() for name, content in files_of(program) if name.endswith(".csv")]
    wrote = re.match(r"Wrote (\d+) records to 2 files in ", data)
    return settings == "Success. Settings read." and rows["Firmware:"] not in ("", "-") and bool(wrote) \
        and [len(lines) - 1 for lines in csv] == [DATASETS] * 2 and int(wrote.group(1)) == 2 * (DATASETS + 1) \
        and any("POWER OFF" in line for line in controller.answered())


def main():
    arguments = sys.argv[1:]
    hold = "--hold" in arguments
    if hold:
        arguments.remove("--hold")
    if arguments[:1] == ["--program"] and len(arguments) == 2:
        os.environ["KELPORA_PROGRAM"] = os.path.abspath(arguments[1])
    elif arguments or "KELPORA_PROGRAM" not in os.environ:
        sys.exit(USAGE)
    if "KELPORA_DISPLAY" not in os.environ:
        os.environ["KELPORA_DISPLAY"] = "own" if has_display() else "virtual"
        sys.argv[0] = os.path.abspath(sys.argv[0])
    virtual = os.environ["KELPORA_DISPLAY"] == "virtual"
    session.enter(screen=virtual)
    if session.why_not():
        sys.exit(session.why_not())

    folder = tempfile.mkdtemp(prefix="kelpora-demo-")
    programs = []
    reader = None
    try:
        reader, program = prepare(folder)
        programs.append(program)
        controller = rig.Rig(folder, "--datasets", str(DATASETS))
        if session.mounted() and not rig.why_not():
            program.reader = controller
        if not virtual:
            program.launch()
            print("The window is open; close it to end the demo.", flush=True)
            return program.process.wait()
        if rig.why_not():
            sys.exit(rig.why_not())
        return demonstrate(folder, programs, reader, controller, hold)
    except KeyboardInterrupt:
        return 128 + signal.SIGINT
    finally:
        for program in programs:
            program.end()
        if reader:
            reader.close()
        shutil.rmtree(folder, ignore_errors=True)


def demonstrate(folder, programs, reader, controller, hold):
    """The whole tour; returns the exit code."""
    from kit import window
    screenshots = Screenshots()
    program = programs[0]
    texts = copy_files(program.start(), screenshots)
    codes = []
    second = program
    if program.reader is not controller:
        codes.append(leave(program, hold))
        own = os.path.join(folder, "controller")
        second = window.Program(program.path, own, controller)
        programs.append(second)
        os.makedirs(os.path.join(second.home, "Videos"))
        second.start()
    served = use_controller(second.window, screenshots)
    codes.append(leave(second, hold))
    show_import(program, texts)
    show_log(program, "Log")
    if second is not program:
        show_log(second, "Log of the controller's jobs")
    show_controller(second, *served)
    print("\nScreenshots: " + " ".join(screenshots.paths))
    verdict = {"Every file was copied": all(is_whole(text) for text in texts),
               "Every project has the rig's own angles": have_own_angles(program, reader),
               "The controller was read and turned off": is_served(second, controller, *served),
               "The program ended as it should": not any(codes)}
    for what, holds in verdict.items():
        print("{}: {}".format(what, "yes" if holds else "NO"))
    return 0 if all(verdict.values()) else 1


if __name__ == "__main__":
    sys.exit(main())
