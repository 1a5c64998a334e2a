#include "rig/divelog.h"
#include "rig/faults.h"
#include "rig/sentence.h"
#include "rig/simulatedcontroller.h"
#include "tests/support/workspace.h"

#include <QtTest>

#include <functional>

Q_DECLARE_METATYPE(Faults)

using Lines = std::vector<std::string>;

namespace {

QString shown(const Lines &lines)
{
    QStringList all;
    for (const std::string &line : lines)
        all.append(QString::fromLatin1(line.data(), static_cast<int>(line.size())));
    return all.join('|').replace(QStringLiteral("\r\n"), QStringLiteral("~"));
}

QString shown(const std::vector<Step> &steps)
{
    Lines lines;
    for (const Step &step : steps)
        lines.push_back(step.unplug ? "PULLED" : step.bytes);
    return shown(lines);
}

} // namespace

/// The controller and its cable as state machines, without a device.
class TestSimulatedController : public QObject
{
    Q_OBJECT

private slots:
    void answers_data();
    void answers();
    void keepsItsSettings();
    void keepsItsTime();
    void takesBytesAsTheyCome();
    void isMuteOnceOff();
    void cables_data();
    void cables();
    void pauses();
    void answersThatTakeTheirTime();
    void whatItSendsByItself_data();
    void whatItSendsByItself();
    void aCountOfItsOwn();
    void diveLogs_data();
    void diveLogs();
    void diveLogFiles();
};

void TestSimulatedController::answers_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<bool>("oldFirmware");
    QTest::addColumn<QString>("answer");
    QTest::newRow("beep") << "PSEABEEP" << false << "";
    QTest::newRow("version") << "PSEAVER" << false
                             << "$PSEAMSG,1550782004,PSEAVER,KELPORA 360,1.24*52~|$PSEABATTERY,3.95*77~";
    QTest::newRow("settings") << "PSEAGETSETTINGS" << false << "$PSEASETTINGS,1,1000,10000,30,29*27~";
    QTest::newRow("settings of four words")
        << "PSEAGETSETTINGS" << true << "$PSEASETTINGS,1,1000,10000,30*00~";
    QTest::newRow("set") << "PSEASETSETTINGS,0,500,2250,7,26" << false << "$PSEASETTINGS,0,500,2250,7,26*1D~";
    QTest::newRow("set with too few words") << "PSEASETSETTINGS,0,500,2250,7" << false << "";
    QTest::newRow("factory settings")
        << "PSEAFACTORYSETTINGS" << false << "$PSEASETTINGS,1,1000,10000,30,29*27~";
    QTest::newRow("clock") << "PSEASETRTC,1550782004" << false << "$PSEACLOCK,2019,02,21,20,46,44,4,A*31~";
    QTest::newRow("clock of old firmware")
        << "PSEASETRTC,5" << true << "$PSEAMSG,5,PSEASETRTC,CLOCK,TIME SET*54~";
    QTest::newRow("erase") << "PSEAFORMAT" << false
                           << "$PSEAMSG,1550782004,PSEAFORMAT,MEMORY,ERASING*16~|"
                              "$PSEAMSG,1550782004,PSEAFORMAT,MEMORY,COMPLETE*5A~";
    QTest::newRow("count") << "PSEANUMDUMP" << false << "$PSEANUMDATA,2*5F~";
    QTest::newRow("dump") << "PSEADUMP" << false
                          << "$PSEADATA,1,1,9*02~|$PSEADATA,2,10,9*31~|"
                             "$PSEAMSG,1550782004,PSEADUMP,MEMORY,DATA END*23~";
    QTest::newRow("reboot") << "PSEAREBOOT" << false << "$PSEAMSG,1550782004,PSEAREBOOT,BOOT,1.24*5F~";
    QTest::newRow("off") << "PSEAOFF" << false << "$PSEAMSG,1550782004,PSEAOFF,POWER OFF,GOODBYE*73~";
    QTest::newRow("not a command") << "PSEAWHAT" << false << "";
}

void TestSimulatedController::answers()
{
    QFETCH(QString, command);
    QFETCH(bool, oldFirmware);
    QFETCH(QString, answer);
    ControllerState state;
    state.oldFirmware = oldFirmware;
    state.log = {"PSEADATA,1,1,9", "PSEADATA,2,10,9"};
    SimulatedController controller(state, [] { return 1550782004; });
    QCOMPARE(shown(controller.receive(makeSentence(command.toStdString()) + "\r\n")), answer);
    QCOMPARE(controller.beeps(), command == QLatin1String("PSEABEEP") ? 1 : 0);

    std::string damaged = makeSentence(command.toStdString()) + "\r\n";
    damaged[2] ^= 1;
    SimulatedController other(state, [] { return 1550782004; });
    QCOMPARE(shown(other.receive(damaged)), QString());
    QCOMPARE(other.beeps(), 0);
}

void TestSimulatedController::keepsItsSettings()
{
    SimulatedController controller({});
    (void)controller.receive(makeSentence("PSEASETSETTINGS,0,500,2250,7,26") + "\r\n");
    QCOMPARE(shown(controller.receive(makeSentence("PSEAGETSETTINGS") + "\r\n")),
             QStringLiteral("$PSEASETTINGS,0,500,2250,7,26*1D~"));
    (void)controller.receive(makeSentence("PSEAFACTORYSETTINGS") + "\r\n");
    QCOMPARE(controller.state().settings, ControllerState::factorySettings);
}

void TestSimulatedController::keepsItsTime()
{
    std::int64_t host = 1000;
    SimulatedController controller({}, [&] { return host; });
    QCOMPARE(controller.clock(), std::int64_t{1000});
    (void)controller.receive(makeSentence("PSEASETRTC,50") + "\r\n");
    host += 7;
    QCOMPARE(controller.clock(), std::int64_t{57});
}

void TestSimulatedController::takesBytesAsTheyCome()
{
    SimulatedController controller({});
    QString answers;
    for (const char byte : makeSentence("PSEANUMDUMP") + "\r\n" + makeSentence("PSEANUMDUMP") + "\r\n")
        answers += shown(controller.receive(std::string(1, byte)));
    QCOMPARE(answers, QStringLiteral("$PSEANUMDATA,0*5D~$PSEANUMDATA,0*5D~"));
}

void TestSimulatedController::isMuteOnceOff()
{
    SimulatedController controller({});
    QVERIFY(!controller.receive(makeSentence("PSEAOFF") + "\r\n").empty());
    QVERIFY(controller.receive(makeSentence("PSEAOFF") + "\r\n").empty());
    QVERIFY(controller.receive(makeSentence("PSEAVER") + "\r\n").empty());
}

void TestSimulatedController::cables_data()
{
    QTest::addColumn<Faults>("faults");
    QTest::addColumn<QString>("steps");
    const auto row = [](const char *name, const std::function<void(Faults &)> &change, const char *steps) {
        Faults faults;
        change(faults);
        QTest::newRow(name) << faults << steps;
    };
    row(
        "whole lines", [](Faults &) {}, "$A,1*6C~|$B,2*6C~|$C,DATA END*4C~");
    row(
        "a burst", [](Faults &f) { f.burst = true; }, "$A,1*6C~$B,2*6C~$C,DATA END*4C~");
    row(
        "pieces", [](Faults &f) { f.pieces = 3; }, "$A,|1*6|C~|$B,|2*6|C~|$C,DA|TA EN|D*4C~");
    row(
        "mute after one", [](Faults &f) { f.muteAfter = 1; }, "$A,1*6C~");
    row(
        "mute at once", [](Faults &f) { f.muteAfter = 0; }, "");
    row(
        "every second bad", [](Faults &f) { f.badChecksumEvery = 2; }, "$A,1*6C~|$B,2*0C~|$C,DATA END*4C~");
    row(
        "every second without its end", [](Faults &f) { f.loseEndEvery = 2; },
        "$A,1*6C~|$B,2*6C|$C,DATA END*4C~");
    row(
        "every second without a byte", [](Faults &f) { f.loseByteEvery = 2; },
        "$A,1*6C~|$B,26C~|$C,DATA END*4C~");
    row(
        "pulled after one", [](Faults &f) { f.unplugAfter = 1; }, "$A,1*6C~|PULLED");
    row(
        "pulled at once", [](Faults &f) { f.unplugAfter = 0; }, "PULLED");
    row(
        "pulled in a burst", [](Faults &f) { f.burst = true, f.unplugAfter = 2; }, "$A,1*6C~$B,2*6C~|PULLED");
    row(
        "without end", [](Faults &f) { f.noEnd = true; }, "$A,1*6C~|$B,2*6C~");
}

void TestSimulatedController::cables()
{
    QFETCH(Faults, faults);
    QFETCH(QString, steps);
    FaultyCable cable(faults);
    const Lines lines{"$A,1*6C\r\n", "$B,2*6C\r\n", "$C,DATA END*4C\r\n"};
    QCOMPARE(shown(cable.deliver(lines)), steps);
}

void TestSimulatedController::pauses()
{
    const std::string line(1152, 'x');
    Faults slow;
    slow.slow = true;
    std::chrono::microseconds total{0};
    for (const Step &step : FaultyCable(slow).deliver({line}))
        total += step.wait;
    // Ten bits a byte at 115,200 a second.
    QVERIFY2(qAbs(total.count() - 100000) < 1000, qPrintable(QString::number(total.count())));

    Faults noise;
    noise.noise = true;
    FaultyCable cable(noise);
    for (int i = 0; i < 8; ++i) {
        const std::vector<Step> steps = cable.deliver({"$PSEANUMDATA,2*5F\r\n"});
        QCOMPARE(steps.size(), std::size_t{2});
        std::vector<std::string> fields;
        QVERIFY(!parseSentence(steps[0].bytes, &fields) || fields[0] == "GPGLL");
        QVERIFY(steps[0].bytes.size() > 2 && steps[0].bytes.back() == '\n');
        QCOMPARE(steps[1].bytes, std::string("$PSEANUMDATA,2*5F\r\n"));
    }
}

void TestSimulatedController::answersThatTakeTheirTime()
{
    using std::chrono::milliseconds;
    Faults faults;
    faults.delay = milliseconds(200);
    faults.eraseTime = milliseconds(3000);
    SimulatedController controller({});
    for (const bool burst : {false, true}) {
        faults.burst = burst;
        FaultyCable cable(faults);
        const std::vector<Step> erase =
            cable.deliver(controller.receive(makeSentence("PSEAFORMAT") + "\r\n"));
        QCOMPARE(erase.size(), std::size_t{2});
        QVERIFY(erase[0].wait == faults.delay && erase[1].wait == faults.eraseTime);
        const std::vector<Step> version = cable.deliver(controller.receive(makeSentence("PSEAVER") + "\r\n"));
        QCOMPARE(version.size(), burst ? std::size_t{1} : std::size_t{2});
        QVERIFY(version[0].wait == faults.delay);
        QVERIFY(burst || version[1].wait.count() == 0);
    }
}

void TestSimulatedController::whatItSendsByItself_data()
{
    QTest::addColumn<bool>("on");
    QTest::addColumn<bool>("boots");
    QTest::addColumn<int>("leftovers");
    QTest::addColumn<QString>("greeting");
    const QString end = QStringLiteral("$PSEAMSG,1550782004,PSEADUMP,MEMORY,DATA END*23~");
    const QString boot =
        QString::fromLatin1("\xff\xfe\x80\x01KELPORA 360~|$PSEAMSG,1550782004,PSEAREBOOT,BOOT,1.24*5F~");
    QTest::newRow("nothing") << true << false << 0 << "";
    QTest::newRow("a boot") << true << true << 0 << boot;
    QTest::newRow("the end of a dump") << true << false << 2 << "$PSEADATA,2,10,9*31~|" + end;
    QTest::newRow("no more than the whole dump")
        << true << false << 9 << "$PSEADATA,1,1,9*02~|$PSEADATA,2,10,9*31~|" + end;
    QTest::newRow("both") << true << true << 1 << end + '|' + boot;
    QTest::newRow("switched off") << false << true << 2 << "";
}

void TestSimulatedController::whatItSendsByItself()
{
    QFETCH(bool, on);
    QFETCH(bool, boots);
    QFETCH(int, leftovers);
    QFETCH(QString, greeting);
    ControllerState state;
    state.log = {"PSEADATA,1,1,9", "PSEADATA,2,10,9"};
    state.on = on;
    state.boots = boots;
    state.leftovers = leftovers;
    QCOMPARE(shown(SimulatedController(state, [] { return 1550782004; }).greeting()), greeting);
}

void TestSimulatedController::aCountOfItsOwn()
{
    ControllerState state;
    state.log = {"PSEADATA,1,1,9"};
    state.announced = 0;
    SimulatedController controller(state);
    QCOMPARE(shown(controller.receive(makeSentence("PSEANUMDUMP") + "\r\n")),
             QStringLiteral("$PSEANUMDATA,0*5D~"));
}

void TestSimulatedController::diveLogs_data()
{
    QTest::addColumn<bool>("wrap");
    QTest::addColumn<bool>("sameMinute");
    QTest::newRow("plain") << false << false;
    QTest::newRow("wrapping") << true << false;
    QTest::newRow("in a minute") << false << true;
}

void TestSimulatedController::diveLogs()
{
    QFETCH(bool, wrap);
    QFETCH(bool, sameMinute);
    DiveLog log;
    log.datasets = 10;
    log.wrap = wrap;
    log.twoRunsAMinute = sameMinute;
    const Lines entries = makeDiveLog(log);
    QCOMPARE(entries.size(), std::size_t{22});
    std::vector<qlonglong> starts;
    int wraps = 0;
    qlonglong before = 0;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const QStringList fields = QString::fromStdString(entries[i]).split(',');
        QCOMPARE(fields.size(), 10);
        QCOMPARE(fields[0], QStringLiteral("PSEADATA"));
        QCOMPARE(fields[1].toInt(), static_cast<int>(i) + 1);
        const bool start = i % 11 == 0;
        QCOMPARE(fields[2], start    ? QStringLiteral("1")
                            : i < 11 ? QStringLiteral("10")
                                     : QStringLiteral("18"));
        const qlonglong time = fields[3].toLongLong();
        QCOMPARE(time > 65535, start);
        if (start)
            starts.push_back(time);
        else if (time < before)
            ++wraps;
        before = time & 0xffff;
    }
    QCOMPARE(wraps, wrap ? 2 : 0);
    QCOMPARE(starts[0] / 60 == starts[1] / 60, sameMinute);
}

void TestSimulatedController::diveLogFiles()
{
    const Workspace workspace;
    const QString path = workspace.write(QStringLiteral("log"), "# dive 1\n\n1,1,5,0\r\n2,10,6,1 \n");
    Lines entries;
    QVERIFY(readDiveLog(path.toStdString(), &entries));
    QCOMPARE(entries, (Lines{"PSEADATA,1,1,5,0", "PSEADATA,2,10,6,1"}));
    QVERIFY(!readDiveLog(workspace.path(QStringLiteral("none")).toStdString(), &entries));
}

QTEST_GUILESS_MAIN(TestSimulatedController)
#include "tst_simulatedcontroller.moc"
