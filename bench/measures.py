"""What a benchmark measured: printed beside its limit, and kept for tools/bench."""

import json
import os
import sys


class Measures:
    """The measures of one benchmark; its options hold the argument that add_argument() adds."""

    def __init__(self, options):
        self._path = options.json
        self._measures = []

    @staticmethod
    def add_argument(parser):
        parser.add_argument("--json", metavar="FILE", help="write the measures there too")

    def add(self, name, value, unit="", most=None, digits=2, least=None):
        """Prints a value and whether it is `most` at most or `least` at least, where one is given."""
        limit, met = "", True
        if most is not None:
            limit, met = f"at most {most}", value <= most
        elif least is not None:
            limit, met = f"at least {least}", value >= least
        self._measures.append({"name": name, "value": round(value, digits), "unit": unit, "limit": limit, "met": met})
        verdict = f", {limit}: {'met' if met else 'MISSED'}" if limit else ""
        print(f"{name}: {value:.{digits}f}{' ' if unit else ''}{unit}{verdict}", flush=True)

    def finish(self):
        """Writes the file that was asked for, and ends the process: 1 if a limit was missed."""
        if self._path:
            with open(self._path, "w") as file:
                json.dump({"load": os.getloadavg()[0], "measures": self._measures}, file, indent=1)
        sys.exit(0 if all(measure["met"] for measure in self._measures) else 1)
