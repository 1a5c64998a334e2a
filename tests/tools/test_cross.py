#!/usr/bin/python3
"""tools/cross finds a mistake in every source that only another system's build compiles."""

import glob
import os
import re
import shutil
import subprocess
import sys
import tempfile

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
NOT_CHECKED = 77

# The end of a file's name, and the systems whose builds compile it.
MACOS = ["aarch64-macos", "x86_64-macos"]
WINDOWS = ["x86_64-windows-gnu"]
COMPILED = {"macos": MACOS, "posix": MACOS, "windows": WINDOWS, "linux": []}
GENERIC = [WINDOWS, MACOS + WINDOWS]


def plant(root):
    """Adds what is only worth a warning to every source of platform/; the files."""
    paths = sorted(glob.glob(os.path.join(root, "platform", "*.cpp")))
    for path in paths:
        with open(path, "a", encoding="utf-8") as file:
            file.write("static int planted;\n")
    return [os.path.relpath(path, root) for path in paths]


def check(root, compiler):
    """What tools/cross ends with, and what it says of each system."""
    result = subprocess.run([os.path.join(root, "tools", "cross"), "kelpora_platform", "kelpora_desktop"], stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, text=True, env=dict(os.environ, KELPORA_ZIG=compiler))
    said = re.split(r"^-- (\S+)$", result.stdout, flags=re.MULTILINE)
    return result.returncode, dict(zip(said[1::2], said[2::2])), result.stdout


def failures(files, said):
    """What is wrong with what tools/cross said of the planted files."""
    if sorted(said) != sorted(MACOS + WINDOWS):
        yield "it looks at " + (", ".join(sorted(said)) or "no system")
    for path in files:
        kind = os.path.splitext(path)[0].rpartition("_")[2]
        found = [system for system in said if re.search("/{}:[0-9]+:.*planted".format(re.escape(path)), said[system])]
        if sorted(found) not in ([COMPILED[kind]] if kind in COMPILED else GENERIC):
            yield "{} is compiled for {}".format(path, ", ".join(found) or "no system")


def main():
    compiler = os.environ.get("KELPORA_ZIG", os.path.join(ROOT, "build", "zig"))
    if not os.path.isdir(compiler):
        print("Skipped: tools/cross has not fetched the compiler yet")
        sys.exit(NOT_CHECKED)
    with tempfile.TemporaryDirectory() as folder:
        root = os.path.join(folder, "sources")
        shutil.copytree(ROOT, root, ignore=shutil.ignore_patterns("build", ".*", "docs", "corpus", "data"))
        files = plant(root)
        code, said, output = check(root, compiler)
    found = list(failures(files, said))
    if code != 1:
        found.append("it ends with {}".format(code))
    for failure in found:
        print("FAIL   : " + failure)
    if found:
        print(output)
    print("Totals: {} passed, {} failed, 0 skipped".format(len(files) + 2 - len(found), len(found)))
    sys.exit(1 if found else 0)


if __name__ == "__main__":
    main()
