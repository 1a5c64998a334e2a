"""Calls that fail, come late, or are a process's last."""

import errno
import os
import re

import bench as benches
import table
from kit import recordings


def _equip(bench, scenario):
    if scenario in ("prepare", "sync"):
        return bench.equip_preparation(erase=scenario == "prepare")
    if scenario == "photos":
        return bench.equip_import(lambda card, number: recordings.fill_photos(card, number, 20, 30000))
    return bench.equip_import(recordings.fill, (1, 2, 3) if scenario == "three" else (1,),
                              "reef" if scenario == "card" else "")


def cases(bench):
    """As many as a run without a fault makes calls."""
    result = []
    for scenario in table.SCENARIOS:
        arguments, judge = _equip(bench, scenario)
        outcome = bench.spoil(arguments)
        complaints = benches.ending(outcome) + judge.judge(outcome.texts, outcome.log, bench.destination, "complete")
        if complaints:
            raise OSError(f"{scenario} fails without a fault: {complaints} {outcome}")
        counts = bench.counts()
        for group, rows in (("calls", table.CALLS), ("moments", table.MOMENTS)):
            for calls, areas, faults, holds in rows:
                for call in calls.split():
                    for area in areas.split():
                        number = 0 if (area, scenario) in table.EXCEPT else counts.get((call, area), 0)
                        result += [_case(group, scenario, f"{call} {area} {position}", fault, holds)
                                   for fault in faults.split() for position in _positions(number, fault)]
    return result


def _positions(number, fault):
    """Which of `number` calls are spoiled."""
    chosen = range(1, number + 1)
    if number > table.MOST:
        chosen = sorted({1 + i * (number - 1) // (table.MOST - 1) for i in range(table.MOST)})
    repeats = ("",) if fault in ("EINTR", "late", "kill", "killed") else ("", "+")
    return [f"{position}{repeat}" for position in chosen for repeat in repeats]


def _case(group, scenario, call, fault, holds):
    name = f"{group}/{scenario}/{call.replace(' ', '/')}/{fault}"
    spoil = f"{call} {getattr(errno, fault, fault)}"
    return benches.Case(name, lambda bench: _attempt(bench, scenario, spoil, holds))


def _attempt(bench, scenario, spoil, holds):
    arguments, judge = _equip(bench, scenario)
    outcome = bench.spoil(arguments, spoil)
    again = holds == "again"
    complaints = benches.ending(outcome, again)
    if complaints:
        return complaints
    # What can't be removed stays.
    call, area, _, _ = spoil.split()
    stuck = again or call == "unlink"
    complaints = judge.judge(outcome.texts, outcome.log, bench.destination, "killed" if outcome.code != 0 else holds,
                             any_project=area == "home", leftovers=stuck)
    return complaints + (_second_run(bench, scenario, arguments, judge) if again else [])


def _second_run(bench, scenario, arguments, judge):
    outcome = bench.spoil(arguments)
    complaints = benches.ending(outcome)
    if scenario in ("prepare", "sync"):
        return complaints + judge.judge(outcome.texts, outcome.log, bench.destination, "complete")
    found = {os.path.basename(path): content for path, content in recordings.tree(bench.destination).items()}
    for number in judge.cards:
        own = judge.recordings(number)
        told = outcome.texts.get(number, "")
        if not told.startswith("Copied") or sum(map(int, re.findall(r"(\d+)/", told))) != len(own):
            complaints.append(f"wrong: the second run says {told!r}")
        complaints += [f"lost: {stem}{extension}" for stem, extension, content in own if content not in found.values()]
    return complaints
