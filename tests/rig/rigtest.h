#pragma once

#include "rig/divelog.h"
#include "rig/simulatedrig.h"
#include "tests/support/volumes.h"

#include <QCoreApplication>
#include <QtTest>

#include <unistd.h>

/// Like QTEST_GUILESS_MAIN, for a test with a rig of its own: the program runs under the mocking library, in
/// a time zone two hours east of Greenwich.
#define RIG_TEST_MAIN(TestClass)                                                                             \
    int main(int argc, char *argv[])                                                                         \
    {                                                                                                        \
        if (!enterMockedWorld(argv))                                                                         \
            return EXIT_FAILURE;                                                                             \
        enterMountNamespace();                                                                               \
        qputenv("TZ", "EET-2");                                                                              \
        QCoreApplication app(argc, argv);                                                                    \
        TestClass test;                                                                                      \
        return QTest::qExec(&test, argc, argv);                                                              \
    }

/// A name that no other test running on this machine uses: the lock files of ports are the machine's.
inline std::string ownPort()
{
    return "ttyUSB" + std::to_string(getpid());
}

/// A rig whose memory holds `runs` runs of `datasets` entries each.
inline RigOptions rigWith(const Faults &faults, int runs = 1, int datasets = 3)
{
    DiveLog log;
    log.runs = runs;
    log.datasets = datasets;
    RigOptions options;
    options.usb.port = ownPort();
    options.faults = faults;
    options.controller.log = makeDiveLog(log);
    return options;
}
