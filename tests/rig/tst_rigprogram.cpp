#include "tests/support/workspace.h"

#include <QProcess>
#include <QtTest>

#include <cerrno>
#include <csignal>
#include <unistd.h>

namespace {

/// Sends a command, with its checksum, to the port and prints what is answered within a moment.
const QString ask = QStringLiteral(R"(
    exec 3<>/dev/%1
    for line in '$PSEANUMDUMP*5D' '$PSEAGETSETTINGS*54'; do
        printf '%s\r\n' "$line" >&3
        read -r answer <&3
        echo "$answer"
    done
)");

bool hasEnded(pid_t process)
{
    return ::kill(process, 0) == -1 && errno == ESRCH;
}

} // namespace

/// The program kelpora360-rig, from outside.
class TestRigProgram : public QObject
{
    Q_OBJECT

private slots:
    void exitCodes_data();
    void exitCodes();
    void theProgramFindsAController();
    void whatTheControllerKeptIsWritten();
    void aDevicePluggedInLater();
    void devices_data();
    void devices();
    void itTakesTheProgramWithIt_data();
    void itTakesTheProgramWithIt();
    void aSignalPullsTheCable();
    void nothingIsLeftBehind();

private:
    QString port_ = QStringLiteral("ttyUSB%1").arg(getpid());
};

void TestRigProgram::exitCodes_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("code");
    QTest::newRow("the program's own") << QStringList{"--", "sh", "-c", "exit 7"} << 7;
    QTest::newRow("success") << QStringList{"--", "true"} << 0;
    QTest::newRow("without the dashes") << QStringList{"false"} << 1;
    QTest::newRow("ended by a signal") << QStringList{"--", "sh", "-c", "kill -9 $$"} << 137;
    QTest::newRow("not found") << QStringList{"--", "/no/such/program"} << 127;
    QTest::newRow("no program") << QStringList{"--burst"} << 2;
    QTest::newRow("an unknown option") << QStringList{"--bursts", "--", "true"} << 2;
    QTest::newRow("no number") << QStringList{"--runs", "two", "--", "true"} << 2;
    QTest::newRow("a number too many") << QStringList{"--settings", "1,2,3,4,5,6", "--", "true"} << 2;
    QTest::newRow("a log that isn't there") << QStringList{"--log", "/no/such/log", "--", "true"} << 2;
    QTest::newRow("a transcript that can't be written")
        << QStringList{"--transcript", "/no/such/folder/t", "--", "true"} << 1;
    QTest::newRow("a state that can't be written")
        << QStringList{"--state", "/no/such/folder/s", "--", "true"} << 1;
    QTest::newRow("help") << QStringList{"--help"} << 0;
}

void TestRigProgram::exitCodes()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, code);
    QProcess rig;
    rig.start(QStringLiteral(RIG), arguments);
    QVERIFY(rig.waitForFinished());
    QCOMPARE(rig.exitStatus(), QProcess::NormalExit);
    QCOMPARE(rig.exitCode(), code);
}

void TestRigProgram::theProgramFindsAController()
{
    const Workspace workspace;
    const QString transcript = workspace.path(QStringLiteral("transcript"));
    QProcess rig;
    rig.start(QStringLiteral(RIG),
              {"--port", port_, "--runs", "3", "--datasets", "4", "--settings", "0,500,2250,7,26",
               "--transcript", transcript, "--", "bash", "-c", ask.arg(port_)});
    QVERIFY(rig.waitForFinished());
    QCOMPARE(rig.readAllStandardOutput(),
             QByteArray("$PSEANUMDATA,15*69\r\n$PSEASETTINGS,0,500,2250,7,26*1D\r\n"));
    QCOMPARE(rig.exitCode(), 0);

    QByteArray written = workspace.read(QStringLiteral("transcript"));
    QStringList lines = QString::fromLatin1(written).split('\n', Qt::SkipEmptyParts);
    const QRegularExpression stamp(QStringLiteral("^ *[0-9]+\\.[0-9]{3} "));
    for (QString &line : lines) {
        QVERIFY2(line.contains(stamp), qPrintable(line));
        line.remove(stamp);
    }
    QCOMPARE(lines.mid(0, 6),
             (QStringList{"- plugged in", "- port opened", "> $PSEANUMDUMP*5D", "< $PSEANUMDATA,15*69",
                          "> $PSEAGETSETTINGS*54", "< $PSEASETTINGS,0,500,2250,7,26*1D"}));
}

void TestRigProgram::whatTheControllerKeptIsWritten()
{
    const Workspace workspace;
    const QString script =
        QStringLiteral("exec 3<>/dev/%1; printf '$PSEABEEP*15\\r\\n$PSEAOFF*48\\r\\n' >&3; read -r _ <&3");
    QProcess rig;
    rig.start(QStringLiteral(RIG),
              {"--port", port_, "--runs", "1", "--datasets", "4", "--settings", "0,500,2250,7,26", "--state",
               workspace.path(QStringLiteral("state")), "--", "bash", "-c", script.arg(port_)});
    QVERIFY(rig.waitForFinished());
    QCOMPARE(workspace.read(QStringLiteral("state")),
             QByteArray("on 0\ndatasets 5\nbeeps 1\nsettings 0 500 2250 7 26\n"));
}

void TestRigProgram::aDevicePluggedInLater()
{
    QProcess rig;
    rig.start(
        QStringLiteral(RIG),
        {"--port", port_, "--plug-after", "3", "--", "bash", "-c",
         QStringLiteral("ls /sys/class/tty /dev/%1; until ls /dev/%1; do sleep 0.1; done; ls /sys/class/tty")
             .arg(port_)});
    QVERIFY(rig.waitForFinished());
    QCOMPARE(rig.readAllStandardOutput(),
             QStringLiteral("/sys/class/tty:\n/dev/%1\n%1\n").arg(port_).toLatin1());
}

void TestRigProgram::devices_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QString>("script");
    QTest::addColumn<QString>("output");
    const QString write =
        QStringLiteral("2>/dev/null exec 3<>/dev/$0 && echo open; [ -e /dev/$0 ] && echo there");
    QTest::newRow("a plain one") << QStringList() << write << "open\nthere\n";
    QTest::newRow("one that may not be opened") << QStringList{"--forbidden"} << write << "there\n";
    QTest::newRow("one that nobody reads") << QStringList{"--half-open"}
                                           << "exec 3<>/dev/$0; printf '$PSEANUMDUMP*5D\\r\\n' >&3; read -t "
                                              "0.5 -r answer <&3; echo \"<$answer>\""
                                           << "<>\n";
    QTest::newRow("one that another program uses")
        << QStringList{"--busy"} << "head -n 1 /var/lock/LCK..$0 | grep -qx $PPID && echo locked"
        << "locked\n";
    QTest::newRow("one among others")
        << QStringList{"--beside", "ACME1", "--beside", "KELPORA9"}
        << "for i in /sys/class/tty/*; do grep -o 'ID_SERIAL_SHORT.*' $i/uevent; done"
        << "ID_SERIAL_SHORT=KELPORA0001\nID_SERIAL_SHORT=ACME1\nID_SERIAL_SHORT=KELPORA9\n";
    QTest::newRow("another one after the cable was pulled")
        << QStringList{"--replug-after", "0", "--replug-serial", "KELPORA2"}
        << "until grep -q KELPORA2 /sys/class/tty/$0/uevent; do kill -USR1 $PPID; sleep 0.05; done; echo new"
        << "new\n";
}

void TestRigProgram::devices()
{
    QFETCH(QStringList, options);
    QFETCH(QString, script);
    QProcess rig;
    rig.start(QStringLiteral(RIG),
              QStringList{"--port", port_} + options + QStringList{"--", "bash", "-c", script, port_});
    QVERIFY(rig.waitForFinished());
    QTEST(QString::fromLatin1(rig.readAllStandardOutput()), "output");
    QVERIFY(!QFile::exists(QStringLiteral("/var/lock/LCK..") + port_));
}

void TestRigProgram::itTakesTheProgramWithIt_data()
{
    QTest::addColumn<int>("signal");
    QTest::addColumn<QString>("script");
    QTest::addColumn<int>("code");
    QTest::newRow("SIGTERM") << SIGTERM << "" << 128 + SIGTERM;
    QTest::newRow("SIGINT") << SIGINT << "" << 128 + SIGINT;
    QTest::newRow("a program that takes leave itself") << SIGTERM << "trap 'kill %1; exit 3' TERM; " << 3;
}

void TestRigProgram::itTakesTheProgramWithIt()
{
    QFETCH(int, signal);
    QFETCH(QString, script);
    QFETCH(int, code);
    QProcess rig;
    rig.start(QStringLiteral(RIG),
              {"--port", port_, "--", "bash", "-c", script + "sleep 60 & echo $! $$; wait"});
    QVERIFY(rig.waitForReadyRead());
    const QList<QByteArray> ids = rig.readLine().trimmed().split(' ');
    QCOMPARE(ids.size(), 2);
    ::kill(static_cast<pid_t>(rig.processId()), signal);
    QVERIFY(rig.waitForFinished());
    QCOMPARE(rig.exitCode(), code);
    for (const QByteArray &id : ids)
        QTRY_VERIFY(hasEnded(id.toInt()));
}

void TestRigProgram::aSignalPullsTheCable()
{
    const QString script = QStringLiteral("device=/dev/$0; echo ready; while [ -e $device ]; do :; done; "
                                          "echo gone; until [ -e $device ]; do :; done; echo back");
    QProcess rig;
    rig.start(QStringLiteral(RIG),
              {"--port", port_, "--replug-after", "0.2", "--", "bash", "-c", script, port_});
    QVERIFY(rig.waitForReadyRead());
    QCOMPARE(rig.readLine(), QByteArray("ready\n"));
    ::kill(static_cast<pid_t>(rig.processId()), SIGUSR1);
    QVERIFY(rig.waitForFinished());
    QCOMPARE(rig.readAll(), QByteArray("gone\nback\n"));
    QCOMPARE(rig.exitCode(), 0);
}

void TestRigProgram::nothingIsLeftBehind()
{
    QProcess rig;
    // It ignores being asked.
    rig.start(QStringLiteral(RIG), {"--port", port_, "--", "bash", "-c",
                                    "(trap '' TERM; exec sleep 60 >/dev/null) & echo $!; sleep 0.3; exit 5"});
    QVERIFY(rig.waitForReadyRead());
    const int left = rig.readLine().trimmed().toInt();
    QVERIFY(left > 0);
    QVERIFY(rig.waitForFinished());
    QCOMPARE(rig.exitCode(), 5);
    QTRY_VERIFY(hasEnded(left));
}

QTEST_GUILESS_MAIN(TestRigProgram)
#include "tst_rigprogram.moc"
