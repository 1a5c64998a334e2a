#!/usr/bin/python3
"""Connects, saves and downloads a thousand times while the cable is pulled at random. Memory and descriptors must stay
what they were after the first hundred rounds. Draws both into a picture."""

import argparse
import pathlib
import random
import subprocess
import sys
import tempfile
import threading
import signal
import time

import bench
import controller

WARM_UP = 100
GROWTH_KIB = 2048
# Seconds between two pulls of the cable, and until it is plugged in again.
PULLS = (0.05, 0.6)
REPLUG = 0.05
WIDTH, HEIGHT, MARGIN = 1000, 300, 60


def measure(build, rounds, seed):
    """For each round: how many of the three jobs succeeded, memory in KiB, descriptors."""
    dice = random.Random(seed)
    with tempfile.TemporaryDirectory(prefix="soak-", dir=build) as scratch:
        own = bench.Bench(build, pathlib.Path(scratch) / "bench")
        line, kit = controller.equip(own, "soak", f"--replug-after {REPLUG}")
        line = [*line[:-2], "soak", kit.port, str(own.destination), str(rounds)]
        with open(pathlib.Path(scratch) / "messages", "wb") as messages:
            rig = subprocess.Popen(line, env=own.environment(), stdout=subprocess.PIPE, stderr=messages, text=True)
        ended = threading.Event()

        def pull():
            while not ended.wait(dice.uniform(*PULLS)):
                rig.send_signal(signal.SIGUSR1)

        puller = threading.Thread(target=pull)
        # Until it handles the signal.
        time.sleep(1)
        puller.start()
        values = [tuple(map(int, line.split())) for line in rig.stdout]
        ended.set()
        puller.join()
        pulls = kit.events().count("cable pulled")
        if rig.wait() != 0 or len(values) != rounds:
            sys.exit(f"{len(values)} rounds of {rounds}, ends with {rig.returncode}")
    return values, pulls


def draw(path, curves):
    """Writes a picture of the curves (title, values), one below the other."""
    commands = []
    for number, (title, values) in enumerate(curves):
        top = number * HEIGHT + MARGIN / 2
        low, high = min(values), max(values)
        span = max(high - low, 1)
        points = " ".join(f"{MARGIN + i * (WIDTH - 2 * MARGIN) / len(values):.1f},"
                          f"{top + (HEIGHT - MARGIN) * (high - value) / span:.1f}" for i, value in enumerate(values))
        commands += ["-fill", "none", "-stroke", "#1565c0", "-draw", f"polyline {points}", "-stroke", "none", "-fill", "black",
                     "-draw", f"text {MARGIN},{top - 8} '{title}'", "-draw", f"text 4,{top + 6} '{high}'",
                     "-draw", f"text 4,{top + HEIGHT - MARGIN} '{low}'"]
    subprocess.run(["convert", "-size", f"{WIDTH}x{len(curves) * HEIGHT}", "xc:white", *commands, str(path)], check=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=pathlib.Path, default=bench.ROOT / "build" / "release")
    parser.add_argument("--rounds", type=int, default=1000)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--picture", type=pathlib.Path, help="a PNG file for the curves")
    options = parser.parse_args()
    start = time.monotonic()
    values, pulls = measure(options.build.resolve(), options.rounds, options.seed)
    succeeded, memory, descriptors = map(list, zip(*values))
    if options.picture:
        draw(options.picture, [("Resident memory, KiB", memory), ("Open descriptors", descriptors)])
    warm = min(WARM_UP, len(values) // 2)
    growth = max(memory[warm:]) - memory[warm]
    print(f"{len(values)} rounds in {time.monotonic() - start:.0f} s, the cable pulled {pulls} times: {sum(succeeded)} of "
          f"{3 * len(values)} jobs succeeded")
    print(f"memory {memory[warm]} KiB after {warm} rounds, {growth} KiB more at most (limit {GROWTH_KIB}); "
          f"descriptors {min(descriptors[warm:])} to {max(descriptors[warm:])}")
    met = growth <= GROWTH_KIB and min(descriptors[warm:]) == max(descriptors[warm:]) and pulls > 0 and sum(succeeded) > 0
    print("met" if met else "MISSED")
    sys.exit(0 if met else 1)


if __name__ == "__main__":
    main()
