#!/usr/bin/python3
"""tools/includes finds every forbidden #include: each is planted alone in a copy of the sources."""

import os
import shutil
import subprocess
import sys
import tempfile

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))

# A line added to a file, which may be new.
FORBIDDEN = [
    ("controller/record.cpp", '#include "rig/faults.h"'),
    ("controller/record.cpp", '#include "cards/drives.h"'),
    ("controller/record.cpp", '#include "app/appcontroller.h"'),
    ("controller/record.cpp", '#include "drives.h"'),
    ("controller/record.cpp", '#include "record.h"'),
    ("controller/record.cpp", '#include "../cards/drives.h"'),
    ("controller/record.cpp", '#include "controller/../cards/drives.h"'),
    ("controller/record.cpp", '#include "controller/nosuchheader.h"'),
    ("controller/record.cpp", "#include <cards/drives.h>"),
    ("controller/record.cpp", "#include HEADER"),
    ("controller/record.cpp", "#include <QQmlEngine>"),
    ("controller/record.cpp", "#include <QDomDocument>"),
    ("controller/record.cpp", "#include <unistd.h>"),
    ("controller/nmea0183.cpp", "#include <QString>"),
    ("controller/nmea0183.cpp", '#include "app/paths.h"'),
    ("cards/drives.cpp", '#include "controller/record.h"'),
    ("cards/drives.cpp", '#include "stitching/templates.h"'),
    ("cards/drives.cpp", '#include "tests/support/volumes.h"'),
    ("cards/drives.cpp", "  #  include <QtGui/QImage>"),
    ("cards/drives.h", "#import <QtConcurrent>"),
    ("cards/parts/new.h", '#pragma once\n#include "controller/record.h"'),
    ("stitching/templates.cpp", '#include "cards/drives.h"'),
    ("stitching/templates.cpp", "#include <QQuickItem>"),
    ("app/settings.cpp", "#include <QQuickWindow>"),
    ("app/settings.cpp", "#include <qguiapplication.h>"),
    ("app/settings.cpp", '#include "cards/drives.h"'),
    ("app/paths.h", '#include "app/appcontroller.h"'),
    ("app/appcontroller.cpp", '#include "rig/faults.h"'),
    ("app/appcontroller.cpp", "#include <QSerialPort>"),
    ("app/main.cpp", '#include "cards/drives.h"'),
    ("app/main.cpp", '/* for tests */ #include "tests/support/volumes.h"'),
    ("app/new.cpp", "#include <QString>"),
    ("new/new.cpp", "#include <string>"),
    ("new.cpp", "#include <string>"),
    ("platform/newfile.cpp", '#include "app/paths.h"'),
    ("platform/newfile.cpp", "#include <QGuiApplication>"),
    ("platform/newfile.cpp", "#include <QtCore/5.15.8/QtCore/private/qfile_p.h>"),
    ("platform/newfile.cpp", "#include <QDBusConnection>"),
    ("platform/desktop_macos.cpp", "#include <QDBusConnection>"),
    ("app/jobwatch.cpp", "#include <QDBusConnection>"),
    ("app/jobwatch.cpp", '#include "app/appcontroller.h"'),
    ("rig/faults.cpp", '#include "controller/record.h"'),
    ("rig/faults.cpp", "#include <QString>"),
    ("checks/hash.cpp", '#include "cards/drives.h"'),
    ("cli/main.cpp", '#include "app/appcontroller.h"'),
    ("cli/main.cpp", "#include <QGuiApplication>"),
    ("check/main.cpp", '#include "cli/commands.h"'),
    ("fuzz/nmea.cpp", '#include "app/appcontroller.h"'),
    ("bench/nmea.cpp", '#include "tests/support/volumes.h"'),
    ("tests/cards/tst_drives.cpp", '#include "recordings.h"'),
]
ALLOWED = [
    ("platform/newfile.cpp", '#include "platform/stopflag.h"\n#include <QString>\n#include <unistd.h>'),
    ("app/settings.cpp", '#include "app/paths.h"\n#include "platform/newfile.h"\n#include <optional>'),
    ("app/appcontroller.cpp", '#include "cards/drives.h"\n#include "controller/record.h"\n#include "app/log.h"'),
    ("app/main.cpp", '#include "app/appcontroller.h"\n#include <QQmlContext>'),
    ("controller/record.cpp", '#include "app/job.h"\n#include <QSerialPort>'),
    ("stitching/templates.cpp", "#include <QtXml/QDomDocument>"),
    ("checks/hash.cpp", '#include "platform/stopflag.h"\n#include "app/job.h"'),
    ("cli/main.cpp", '#include "cards/drives.h"\n#include "stitching/templates.h"'),
    ("check/main.cpp", '#include "cards/drives.h"\n#include <QQmlEngine>'),
    ("tests/cards/tst_drives.cpp", '#include "rig/faults.h"\n#include <QSignalSpy>\n#include <sys/mount.h>'),
]


def check(root):
    result = subprocess.run([os.path.join(ROOT, "tools", "includes"), root], stdout=subprocess.PIPE, text=True)
    return result.returncode, result.stdout


def plant(root, path, text):
    """What tools/includes says of the sources with that text at the end of the file, and the last line's number."""
    path = os.path.join(root, path)
    before = None
    os.makedirs(os.path.dirname(path), exist_ok=True)
    if os.path.exists(path):
        with open(path, encoding="utf-8") as file:
            before = file.read()
    with open(path, "w", encoding="utf-8") as file:
        file.write((before or "") + text + "\n")
    try:
        return check(root), ((before or "") + text).count("\n") + 1
    finally:
        if before is None:
            os.unlink(path)
        else:
            with open(path, "w", encoding="utf-8") as file:
                file.write(before)


def failures(root):
    if check(root)[0] != 0:
        yield "the sources as they are: " + check(root)[1]
    for path, text in FORBIDDEN:
        (code, output), line = plant(root, path, text)
        unlisted = "{}:1: no rule".format(path)
        if code != 1 or "{}:{}: may not include ".format(path, line) not in output and unlisted not in output:
            yield "{} may include {}".format(path, text)
    for path, text in ALLOWED:
        (code, output), _ = plant(root, path, text)
        if code != 0:
            yield "{} may not include {}: {}".format(path, text, output)
    code, output = plant(root, "cards/new.h", "#include <string>")[0]
    if code != 1 or "cards/new.h:1: no #pragma once" not in output:
        yield "a header without #pragma once passes"


def main():
    with tempfile.TemporaryDirectory() as folder:
        root = os.path.join(folder, "sources")
        shutil.copytree(ROOT, root, ignore=shutil.ignore_patterns("build", ".*", "docs", "corpus", "data"))
        found = list(failures(root))
    for failure in found:
        print("FAIL   : " + failure)
    total = len(FORBIDDEN) + len(ALLOWED) + 2
    print("{} planted includes, {} of them forbidden".format(len(FORBIDDEN) + len(ALLOWED), len(FORBIDDEN)))
    print("Totals: {} passed, {} failed, 0 skipped".format(total - len(found), len(found)))
    sys.exit(1 if found else 0)


if __name__ == "__main__":
    main()
