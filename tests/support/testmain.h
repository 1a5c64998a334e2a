#pragma once

#include "tests/support/volumes.h"

#include <QCoreApplication>
#include <QtTest>

/// Like QTEST_GUILESS_MAIN, but first gives the process mounts of its own, so that a test can mount volumes
/// that nobody else sees and that end with it.
#define KELPORA_TEST_MAIN(TestClass)                                                                         \
    int main(int argc, char *argv[])                                                                         \
    {                                                                                                        \
        enterMountNamespace();                                                                               \
        QCoreApplication app(argc, argv);                                                                    \
        TestClass test;                                                                                      \
        return QTest::qExec(&test, argc, argv);                                                              \
    }
