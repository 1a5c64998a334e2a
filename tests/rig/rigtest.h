#pragma once

#include "platform/stopflag.h"
#include "rig/divelog.h"
#include "rig/mockedport.h"
#include "rig/sentence.h"
#include "rig/simulatedrig.h"
#include "tests/support/messagelog.h"
#include "tests/support/volumes.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QStringList>
#include <QThread>
#include <QtTest>

#include <atomic>
#include <functional>
#include <thread>
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

/// The lines of these sentences, given without "$" and checksum. "=text" is sent as it stands, "!sentence"
/// with a wrong checksum.
inline std::vector<std::string> linesOf(const QStringList &bodies)
{
    std::vector<std::string> lines;
    for (const QString &body : bodies) {
        const bool asItStands = body.startsWith(QLatin1Char('='));
        const bool damaged = body.startsWith(QLatin1Char('!'));
        std::string line = body.mid(asItStands || damaged ? 1 : 0).toStdString();
        if (!asItStands)
            line = makeSentence(line);
        if (damaged)
            line.back() = line.back() == '0' ? '1' : '0';
        lines.push_back(line + "\r\n");
    }
    return lines;
}

/// A device that isn't a controller and never falls silent.
class Chatter
{
public:
    /// Sends `first` once, then `again` every `pauseMs` milliseconds; raises `late` when that has gone on for
    /// longer than any test should take.
    Chatter(const QByteArray &first, const QByteArray &again, int pauseMs, StopFlag *late)
        : port_([] {
            UsbIdentity identity;
            identity.port = ownPort();
            return identity;
        }())
    {
        port_.plug();
        thread_ = std::thread([this, first, again, pauseMs, late] {
            QElapsedTimer timer;
            timer.start();
            for (QByteArray bytes = first; !done_; bytes = again) {
                static_cast<void>(
                    ::write(port_.farEnd(), bytes.constData(), static_cast<size_t>(bytes.size())));
                std::this_thread::sleep_for(std::chrono::milliseconds(pauseMs));
                if (timer.elapsed() > 10000)
                    late->raise();
            }
        });
    }
    ~Chatter()
    {
        done_ = true;
        thread_.join();
    }
    Chatter(const Chatter &) = delete;
    Chatter &operator=(const Chatter &) = delete;

private:
    MockedPort port_;
    std::atomic<bool> done_{false};
    std::thread thread_;
};

/// How many lines of a dump have been read.
inline int dataLinesRead()
{
    return MessageLog::lines().filter(QStringLiteral("readLine: \"$PSEADATA")).size();
}

/// Waits on any thread, for at most 10 s, until the condition holds.
inline void await(const std::function<bool()> &condition)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition() && !timer.hasExpired(10000))
        QThread::msleep(1);
}

/// Waits until that many lines have come from the program, and a little longer: it waits for an answer then.
inline void awaitLines(const SimulatedRig &rig, int lines)
{
    constexpr unsigned long littleMs = 100;
    await([&] { return QByteArray::fromStdString(rig.received()).count('\n') >= lines; });
    QThread::msleep(littleMs);
}
