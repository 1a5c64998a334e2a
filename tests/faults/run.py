#!/usr/bin/python3
"""Runs the table of faults and prints what came of it. Exits with 1 if anything that must hold didn't."""

import argparse
import collections
import concurrent.futures
import os
import pathlib
import subprocess
import sys
import tempfile
import threading
import time

import bench
import calls
import controller
import inputs
import power
import window

KINDS = ("lost", "half", "hang", "crash", "leftover", "untrue", "wrong")


class Table:
    """What came of the cases, a row for each sort of them."""

    def __init__(self):
        self.cases = collections.Counter()
        self.failed = collections.Counter()
        self.kinds = collections.Counter()

    def add(self, name, complaints):
        row = "/".join(name.split("/")[:2])
        self.cases[row] += 1
        self.failed[row] += bool(complaints)
        for kind in {complaint.split(":")[0] for complaint in complaints}:
            self.kinds[row, kind] += 1
        if complaints:
            print(f"{name}: {'; '.join(complaints)}", flush=True)

    def print(self):
        print(f"{'':20}{'cases':>9}{'failed':>9}" + "".join(f"{kind:>9}" for kind in KINDS))
        for row in [*self.cases, None]:
            def total(counter, row=row):
                return counter[row] if row else sum(counter.values())
            kinds = [sum(number for (place, other), number in self.kinds.items()
                         if other == kind and row in (place, None)) for kind in KINDS]
            print(f"{row or 'all':20}" + "".join(f"{number:>9}" for number in (total(self.cases), total(self.failed),
                                                                               *kinds)))


def hide_mounts():
    """Returns in a process whose mounts nobody else sees, and that end with it; without, if it may have none."""
    if os.environ.setdefault("KELPORA_FAULTS", "outside") == "outside" and os.geteuid() == 0:
        os.environ["KELPORA_FAULTS"] = "inside"
        if subprocess.run(["unshare", "--mount", "true"], stderr=subprocess.DEVNULL, check=False).returncode == 0:
            os.execvp("unshare", ["unshare", "--mount", sys.executable, *sys.argv])


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=pathlib.Path, default=bench.ROOT / "build" / "release")
    parser.add_argument("--jobs", type=int, default=2 * (os.cpu_count() or 1))
    parser.add_argument("--sample", type=int, metavar="N", help="N cases, evenly spread over all but those of window and power")
    parser.add_argument("--cuts", type=int, default=power.CUTS, metavar="N",
                        help="how often the power is cut in an import (default: %(default)s)")
    parser.add_argument("--list", action="store_true", help="print the names only; cuts have theirs afterwards")
    parser.add_argument("names", nargs="*", metavar="NAME", help="a group, or the beginning of a case's name")
    options = parser.parse_args()
    hide_mounts()
    build = options.build.resolve()
    start = time.monotonic()
    table = Table()
    skipped = 0
    with tempfile.TemporaryDirectory(prefix="faults-", dir=build) as scratch:
        scratch = pathlib.Path(scratch)

        def is_wanted(name):
            return not options.names or any(name.startswith(wanted) or wanted.startswith(f"{name}/")
                                            for wanted in options.names)

        groups = [calls, inputs, controller]
        if controller.why_not() and is_wanted("controller"):
            print(f"SKIP   : controller {controller.why_not()}")
            skipped += 1
            groups.remove(controller)
        cases = [case for group in groups for case in group.cases(bench.Bench(build, scratch / "dry"))
                 if is_wanted(case.name)]
        if options.sample:
            cases = [cases[i * len(cases) // options.sample] for i in range(min(options.sample, len(cases)))]
        windows = [name for name, *_ in window.cases() if is_wanted(name)]
        if options.list:
            print("\n".join([case.name for case in cases] + windows))
            return
        own = threading.local()

        def attempt(case):
            if not hasattr(own, "bench"):
                own.bench = bench.Bench(build, scratch / str(threading.get_ident()))
            return case.name, case.attempt(own.bench)

        with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
            for name, complaints in pool.map(attempt, cases):
                table.add(name, complaints)
        results = [("window", window.why_not())] if windows and window.why_not() else \
            window.attempts(build, windows, options.jobs)
        for name, complaints in results:
            if isinstance(complaints, str):
                print(f"SKIP   : {name} {complaints}")
                skipped += 1
            else:
                table.add(name, complaints)
        # One after the other: they look at what happens when.
        reason = power.why_not()
        if reason and any(is_wanted(f"power/{kind}") for kind in power.KINDS):
            print(f"SKIP   : power {reason}")
            skipped += 1
        if not reason:
            for name, complaints in power.attempts(lambda name: bench.Bench(build, scratch / name), options.cuts, is_wanted):
                if isinstance(complaints, str):
                    print(f"SKIP   : {name} {complaints}")
                    skipped += 1
                else:
                    table.add(name, complaints)
    table.print()
    failed = sum(table.failed.values())
    print(f"{time.monotonic() - start:.0f} s")
    print(f"Totals: {sum(table.cases.values()) - failed} passed, {failed} failed, {skipped} skipped")
    sys.exit(0 if table.cases and not failed else 1)


if __name__ == "__main__":
    main()
