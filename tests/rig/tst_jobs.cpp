#include "app/appcontroller.h"
#include "app/job.h"
#include "controller/datadownload.h"
#include "controller/erasememory.h"
#include "controller/settingsjobs.h"
#include "controller/turnoff.h"
#include "rig/sentence.h"
#include "tests/rig/rigtest.h"
#include "tests/support/messagelog.h"
#include "tests/support/volumes.h"
#include "tests/support/workspace.h"

#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QSignalSpy>
#include <QtTest>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <thread>

namespace {

/// Far below the 10 s that the wait would last otherwise.
constexpr int endsWithinMs = 1500;

QString portName()
{
    return QString::fromStdString(ownPort());
}

Faults make(const std::function<void(Faults &)> &change)
{
    Faults faults;
    change(faults);
    return faults;
}

/// Where jobs run: a folder for the data, what they told and what they showed.
struct Desk
{
    explicit Desk() = default;

    const Workspace workspace;
    QString folder = workspace.makeFolder(QStringLiteral("logs"));
    const MessageLog log;
    QStringList told;  ///< "from,to,value text", and "> text" for what the link says meanwhile
    QStringList shown; ///< the settings, one by one

    ControllerRequest request(const StopFlag *stop = nullptr, int answerMs = 10000)
    {
        ControllerRequest request;
        request.port = portName();
        request.report = [this](const Progress &p) {
            told.append(QStringLiteral("%1,%2,%3 %4").arg(p.from).arg(p.to).arg(p.value).arg(p.text));
        };
        request.relay = [this](const QString &text) { told.append(QStringLiteral("> ") + text); };
        request.stop = stop;
        request.timeouts = {answerMs, answerMs == 10000 ? answerMs : 300};
        return request;
    }

    /// Runs the job of that name; returns what it told last.
    QString run(const QString &job, ControllerRequest request);
    QString run(const QString &job, const StopFlag *stop = nullptr, int answerMs = 10000)
    {
        return run(job, request(stop, answerMs));
    }
    /// The rows of each file in the folder; -1 if it isn't a whole file.
    [[nodiscard]] QMap<QString, int> rows() const;
};

using JobPointer = std::unique_ptr<ControllerJob>;

struct Job
{
    std::function<JobPointer(ControllerRequest, Desk &)> make;
    QStringList success; ///< its reports when all goes well, with the sample log: one run of three entries
    QStringList failure; ///< its reports when its commands get no answer
};

const QMap<QString, Job> &jobs()
{
    static const QString error = QStringLiteral("Communication error. Please try again.");
    static const QMap<QString, Job> all{
        {"read",
         {[](ControllerRequest request, Desk &desk) -> JobPointer {
              return std::make_unique<ReadSettings>(std::move(request), [&desk](const CameraSettings &s) {
                  desk.shown = QStringList{s.firmware, s.battery, s.date};
                  for (const double number :
                       {double(s.recLedOn), s.loggingIntervalSeconds, double(s.timelapseIntervalSeconds),
                        double(s.timelapseTimeoutMinutes), double(s.e1FirmwareVersion)})
                      desk.shown.append(QString::number(number));
              });
          },
          {"0,2,1 Reading settings ...", "0,2,2 Success. Settings read."},
          {"0,2,1 Reading settings ...", "0,2,2 Error getting settings: " + error}}},
        {"save",
         {[](ControllerRequest request, Desk &) -> JobPointer {
              return std::make_unique<SaveSettings>(std::move(request), QStringLiteral("2019-02-21 22:46:44"),
                                                    PSEAConfig::fromUser(0, 0.5, 2.25, 30.9, 26));
          },
          {"0,2,2 Success. Settings saved."},
          {"0,2,2 Error saving settings: " + error}}},
        {"reset",
         {[](ControllerRequest request, Desk &) -> JobPointer {
              return std::make_unique<ResetSettings>(std::move(request));
          },
          {"0,2,1 Resetting controller ...", "0,2,2 Success. Controller reset."},
          {"0,2,1 Resetting controller ...", "0,2,2 Error resetting controller: " + error}}},
        {"erase",
         {[](ControllerRequest request, Desk &) -> JobPointer {
              return std::make_unique<EraseMemory>(std::move(request));
          },
          {"0,2,1 Erasing memory ...", "0,2,2 Success. Memory erased."},
          {"0,2,1 Erasing memory ...", "0,2,2 Error erasing memory: " + error}}},
        {"off",
         {[](ControllerRequest request, Desk &) -> JobPointer {
              return std::make_unique<TurnOff>(std::move(request));
          },
          {"0,2,1 Turning off ...", "0,2,2 Success. Controller is off"},
          {"0,2,1 Turning off ...", "0,2,2 Error turning off: " + error}}},
        {"download",
         {[](ControllerRequest request, Desk &desk) -> JobPointer {
              return std::make_unique<DataDownload>(std::move(request), desk.folder, QStringLiteral("dive"));
          },
          {"0,2,1 Counting datasets ...", "0,2,1 Reading 4 datasets ...", "> Reading dataset 1 of 4",
           "> Reading dataset 2 of 4", "> Reading dataset 3 of 4", "> Reading dataset 4 of 4",
           "0,2,2 Wrote 4 records to 1 files in FOLDER"},
          {"0,2,1 Counting datasets ...", "0,2,1 Error: Could not read available data.",
           "0,2,2 Error: Could not read available data."}}}};
    return all;
}

QString Desk::run(const QString &job, ControllerRequest request)
{
    told.clear();
    jobs()[job].make(std::move(request), *this)->run();
    return told.last();
}

QStringList successOf(const QString &job, const Desk &desk)
{
    return QStringList(jobs()[job].success).replaceInStrings(QStringLiteral("FOLDER"), desk.folder);
}

QStringList failureOf(const QString &job)
{
    return jobs()[job].failure;
}

/// A row for each job.
void addJobs()
{
    QTest::addColumn<QString>("job");
    for (const QString &job : jobs().keys())
        QTest::newRow(qPrintable(job)) << job;
}

const QByteArray heading =
    "Number,Id,Datetime,Timestamp,Runtime,Type,Depth,Temperature,Heading,Roll,Pitch\r\n";

QMap<QString, int> Desk::rows() const
{
    QMap<QString, int> rows;
    const QMap<QString, QByteArray> files = workspace.tree(QStringLiteral("logs"));
    for (auto file = files.begin(); file != files.end(); ++file)
        rows[file.key()] = file->startsWith(heading) && file->endsWith("\r\n") ? file->count("\r\n") - 1 : -1;
    return rows;
}

} // namespace

Q_DECLARE_METATYPE(RigOptions)

class TestJobs : public QObject
{
    Q_OBJECT

private slots:
    void overEveryCable_data();
    void overEveryCable();
    void withoutAnswers_data();
    void withoutAnswers();
    void withoutThePort_data();
    void withoutThePort();
    void whatIsShown_data();
    void whatIsShown();
    void whatIsKept();
    void whatTheOperatorSetReachesTheController();
    void aRigThatTookTheChosenOnesPlace();
    void anEraseThatFails();
    void whatRealControllersDo_data();
    void whatRealControllersDo();
    void theVersionButNoSettings();
    void aSilentController();
    void aStop_data();
    void aStop();
    void anEraseThatHasBegunGoesOn();
    void aStopBeforeTheStart_data();
    void aStopBeforeTheStart();
    void turningOffInTheMiddleOfADump_data();
    void turningOffInTheMiddleOfADump();
    void turningOffADeviceThatNeverFallsSilent();
    void onePortForOneJob();
    void aJobThatThrows();
    void tryingAgain();
    void downloads_data();
    void downloads();
    void noDestination();
    void cutOffDumps_data();
    void cutOffDumps();
    void anExistingFileIsReplaced();
    void anUnwritableFolder();
    void aDamagedDatasetIsMissed();
    void whatCountsAsAllData_data();
    void whatCountsAsAllData();
    void anOlderFileStays();
    void aFullDisk();
    void noReaderMeetsAHalfWrittenFile();
};

void TestJobs::overEveryCable_data()
{
    QTest::addColumn<QString>("job");
    QTest::addColumn<int>("cable");
    const char *const cables[] = {"whole", "burst", "bytewise", "pieces", "noise", "slow"};
    for (const QString &job : jobs().keys()) {
        for (int cable = 0; cable < 6; ++cable)
            QTest::addRow("%s, %s", qPrintable(job), cables[cable]) << job << cable;
    }
}

void TestJobs::overEveryCable()
{
    QFETCH(QString, job);
    QFETCH(int, cable);
    Desk desk;
    Faults faults;
    faults.burst = cable == 1;
    faults.bytewise = cable == 2;
    faults.pieces = cable == 3 ? 3 : 0;
    faults.noise = cable == 4;
    faults.slow = cable == 5;
    SimulatedRig rig(rigWith(faults));
    desk.run(job);
    QCOMPARE(desk.told, successOf(job, desk));
    QCOMPARE(desk.shown.isEmpty(), job != QLatin1String("read"));
    QCOMPARE(rig.beeps(), 1);
    if (job == QLatin1String("download"))
        QCOMPARE(desk.workspace.tree(QStringLiteral("logs")),
                 (QMap<QString, QByteArray>{
                     {"kelpora360_dive_20190221-224600.csv",
                      heading + "1,2,2019-02-21 22:46:45,1550782005,1,v,15.59,16.8,119.7,4.3,3\r\n"
                                "2,3,2019-02-21 22:46:46,1550782006,2,v,15.59,16.8,239.3,-4.3,3\r\n"
                                "3,4,2019-02-21 22:46:47,1550782007,3,v,0,22,359,0,3\r\n"}}));
}

void TestJobs::withoutAnswers_data()
{
    QTest::addColumn<QString>("job");
    QTest::addColumn<int>("cause");
    const char *const causes[] = {"mute", "bad checksums", "pulled"};
    for (const QString &job : jobs().keys()) {
        for (int cause = 0; cause < 3; ++cause)
            QTest::addRow("%s, %s", qPrintable(job), causes[cause]) << job << cause;
    }
}

void TestJobs::withoutAnswers()
{
    QFETCH(QString, job);
    QFETCH(int, cause);
    Desk desk;
    Faults faults;
    faults.mute = cause == 0;
    faults.badChecksumEvery = cause == 1 ? 1 : 0;
    faults.unplugAfter = cause == 2 ? 0 : -1;
    SimulatedRig rig(rigWith(faults));
    QElapsedTimer timer;
    timer.start();
    desk.run(job, nullptr, cause == 2 ? 10000 : 40);
    if (cause == 2)
        QVERIFY2(timer.elapsed() < endsWithinMs, qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(desk.told, failureOf(job));
    QVERIFY(desk.shown.isEmpty());
    QVERIFY(desk.workspace.tree(QString()).isEmpty());
}

void TestJobs::withoutThePort_data()
{
    addJobs();
}

void TestJobs::withoutThePort()
{
    QFETCH(QString, job);
    Desk desk;
    ControllerRequest request = desk.request();
    request.port = QStringLiteral("ttyNone");
    desk.run(job, std::move(request));
    QCOMPARE(desk.told, QStringList{"0,1,1 Error: Could not open port ttyNone."});
}

void TestJobs::whatIsShown_data()
{
    QTest::addColumn<QList<int>>("words");
    QTest::addColumn<double>("volts");
    QTest::addColumn<bool>("oldFirmware");
    QTest::addColumn<QStringList>("shown"); // all but firmware and date
    using Words = QList<int>;
    using Shown = QStringList;
    QTest::newRow("factory settings")
        << Words{1, 1000, 10000, 30, 29} << 3.95 << false << Shown{"70 %", "1", "1", "10", "30", "29"};
    QTest::newRow("logging keeps its fraction, time-lapse drops it")
        << Words{0, 500, 2500, 1, 26} << 3.5 << false << Shown{"10 %", "0", "0.5", "2", "1", "26"};
    QTest::newRow("generation 0 is 29")
        << Words{1, 0, 0, 0, 0} << 0.0 << false << Shown{"-", "1", "0", "0", "0", "29"};
    QTest::newRow("four words are generation 29")
        << Words{1, 1, 999, 2, 26} << 4.13 << true << Shown{"100 %", "1", "0.001", "0", "2", "29"};
}

void TestJobs::whatIsShown()
{
    QFETCH(QList<int>, words);
    QFETCH(double, volts);
    QFETCH(bool, oldFirmware);
    QFETCH(QStringList, shown);
    Desk desk;
    RigOptions options = rigWith({});
    std::copy(words.begin(), words.end(), options.controller.settings.begin());
    options.controller.volts = volts;
    options.controller.oldFirmware = oldFirmware;
    options.controller.version = "9.81";
    SimulatedRig rig(options);
    const QDateTime before = QDateTime::currentDateTime();
    desk.run(QStringLiteral("read"));
    QStringList all = desk.shown;
    QCOMPARE(all.size(), 8);
    QCOMPARE(all.takeFirst(), QStringLiteral("9.81"));
    const QDateTime date = QDateTime::fromString(all.takeAt(1), QStringLiteral("yyyy-MM-dd hh:mm:ss"));
    QVERIFY(date.isValid() && before.secsTo(date) >= -1 && date <= QDateTime::currentDateTime());
    QCOMPARE(all, shown);
}

void TestJobs::whatIsKept()
{
    Desk desk;
    SimulatedRig rig(rigWith({}));
    desk.run(QStringLiteral("save"));
    QCOMPARE(rig.state().settings, (std::array<std::int32_t, 5>{0, 500, 2250, 30, 26}));
    QVERIFY(qAbs(rig.clock() - 1550782004) < 30);
    desk.run(QStringLiteral("read"));
    QCOMPARE(desk.shown.mid(3), (QStringList{"0", "0.5", "2", "30", "26"}));
    QVERIFY(desk.shown[2].startsWith(QStringLiteral("2019-02-21 22:4")));
    desk.run(QStringLiteral("reset"));
    QCOMPARE(rig.state().settings, ControllerState::factorySettings);
    desk.run(QStringLiteral("erase"));
    QVERIFY(rig.state().log.empty());
    desk.told.clear();
    desk.run(QStringLiteral("download"));
    QCOMPARE(desk.told, (QStringList{"0,2,1 Counting datasets ...", "0,2,2 No records available."}));
    desk.run(QStringLiteral("off"));
    QVERIFY(!rig.state().on);
    desk.told.clear();
    desk.run(QStringLiteral("off"), nullptr, 40);
    QCOMPARE(desk.told, failureOf(QStringLiteral("off")));
}

void TestJobs::whatTheOperatorSetReachesTheController()
{
    SimulatedRig rig(rigWith({}));
    const MessageLog log;
    AppController controller;
    QSignalSpy told(&controller, &AppController::updateCameraSettingsProgress);
    controller.saveCameraSettings(portName(), QStringLiteral("2019-02-21 22:46:44"), 0, 0.5, 2.25, 1.9, 26);
    QVERIFY(AppController::waitForJobs(30000));
    QTRY_VERIFY(!told.isEmpty());
    QCOMPARE(told.last().last().toString(), QStringLiteral("Success. Settings saved."));
    QCOMPARE(rig.state().settings, (std::array<std::int32_t, 5>{0, 500, 2250, 1, 26}));
}

void TestJobs::aRigThatTookTheChosenOnesPlace()
{
    RigOptions options = rigWith({});
    options.usb.serial = "KELPORA0001";
    const MessageLog log;
    AppController controller;
    QSignalSpy told(&controller, &AppController::updateDataProgress);
    const auto erase = [&] {
        told.clear();
        controller.eraseMemory(portName());
        if (!AppController::waitForJobs(30000) || !QTest::qWaitFor([&] { return !told.isEmpty(); }))
            return QString();
        QCoreApplication::processEvents();
        return told.last().last().toString();
    };
    {
        const SimulatedRig first(options);
        QCOMPARE(controller.getDevices().size(), 1);
    }
    options.usb.serial = "KELPORA0002";
    SimulatedRig second(options);
    QCOMPARE(erase(), QStringLiteral("Error: Another device is connected now. Nothing was erased."));
    QVERIFY(!second.state().log.empty());
    QVERIFY(!QByteArray::fromStdString(second.received()).contains("$PSEAFORMAT"));
    // The operator has looked again.
    QCOMPARE(controller.getDevices().size(), 1);
    QCOMPARE(erase(), QStringLiteral("Success. Memory erased."));
    QVERIFY(second.state().log.empty());
}

void TestJobs::anEraseThatFails()
{
    Desk desk;
    SimulatedRig rig(rigWith({}));
    rig.answerInstead("PSEAFORMAT", {makeSentence("PSEAMSG,1,PSEAFORMAT,MEMORY,FAILED") + "\r\n"});
    desk.run(QStringLiteral("erase"), nullptr, 60);
    QCOMPARE(desk.told, failureOf(QStringLiteral("erase")));
    QCOMPARE(QByteArray::fromStdString(rig.received()).count("$PSEAFORMAT"), 1);
}

void TestJobs::whatRealControllersDo_data()
{
    QTest::addColumn<QString>("job");
    QTest::addColumn<RigOptions>("options");
    QTest::addColumn<int>("answerMs");
    QTest::addColumn<QString>("told"); // last; empty: as when all goes well
    using std::chrono::milliseconds;
    const auto row = [](const char *job, const char *name, const std::function<void(RigOptions &)> &change,
                        const QString &told = {}, int answerMs = 10000) {
        RigOptions options = rigWith({});
        change(options);
        QTest::addRow("%s, %s", job, name) << job << options << answerMs << told;
    };
    const QString notAll =
        QStringLiteral("Error: The controller did not send all data. Wrote %1 records to 1 files in FOLDER");
    for (const QString &name : jobs().keys()) {
        const QByteArray job = name.toLatin1();
        const QString failure = failureOf(name).last().mid(6);
        const QString noPort = "Error: Could not open port " + portName() + '.';
        row(
            job, "a port that another program uses", [](RigOptions &o) { o.usb.busy = true; }, noPort);
        row(
            job, "a port that may not be opened", [](RigOptions &o) { o.usb.forbidden = true; }, noPort);
        row(
            job, "a device that nobody reads", [](RigOptions &o) { o.faults.halfOpen = true; }, failure, 40);
        row(job, "slow answers", [](RigOptions &o) { o.faults.delay = milliseconds(300); });
        row(job, "a boot at each opening", [](RigOptions &o) { o.controller.boots = true; });
        row(job, "the end of an earlier dump", [](RigOptions &o) { o.controller.leftovers = 2; });
        row(job, "other devices", [](RigOptions &o) { o.usb.beside = {"KELPORA0009", "ACME1"}; });
    }
    row("erase", "an erase that takes a while",
        [](RigOptions &o) { o.faults.eraseTime = milliseconds(700); });
    row(
        "erase", "an erase that takes too long",
        [](RigOptions &o) { o.faults.eraseTime = milliseconds(1500); },
        failureOf(QStringLiteral("erase")).last().mid(6), 100);
    row("download", "fewer announced than sent", [](RigOptions &o) { o.controller.announced = 3; });
    row(
        "download", "more announced than sent", [](RigOptions &o) { o.controller.announced = 5; },
        notAll.arg(4));
    row(
        "download", "none announced", [](RigOptions &o) { o.controller.announced = 0; },
        QStringLiteral("No records available."));
    row(
        "download", "a lost line end", [](RigOptions &o) { o.faults.loseEndEvery = 4; }, notAll.arg(2));
    row(
        "download", "a lost byte", [](RigOptions &o) { o.faults.loseByteEvery = 4; }, notAll.arg(3));
    row(
        "save", "a lost byte", [](RigOptions &o) { o.faults.loseByteEvery = 1; },
        failureOf(QStringLiteral("save")).last().mid(6), 40);
}

void TestJobs::whatRealControllersDo()
{
    QFETCH(QString, job);
    QFETCH(RigOptions, options);
    QFETCH(int, answerMs);
    QFETCH(QString, told);
    Desk desk;
    const SimulatedRig rig(options);
    const QString last = desk.run(job, nullptr, answerMs);
    if (told.isEmpty())
        QCOMPARE(last, successOf(job, desk).last());
    else
        QCOMPARE(last.mid(6), told.replace(QLatin1String("FOLDER"), desk.folder));
    // Nothing is told that isn't so, and nothing changes but by the job's own command.
    const bool isErased = rig.state().log.empty();
    QVERIFY(job == QLatin1String("erase") ? isErased || last.contains(QLatin1String("Error")) : !isErased);
    const bool isSet = rig.state().settings != ControllerState::factorySettings;
    QVERIFY(job == QLatin1String("save") ? isSet || last.contains(QLatin1String("Error")) : !isSet);
}

void TestJobs::theVersionButNoSettings()
{
    Desk desk;
    SimulatedRig rig(rigWith(make([](Faults &f) { f.muteAfter = 2; })));
    desk.run(QStringLiteral("read"), nullptr, 200);
    QCOMPARE(desk.told, failureOf(QStringLiteral("read")));
    const QByteArray sent = QByteArray::fromStdString(rig.received());
    QCOMPARE(sent.count("$PSEAVER*46\r\n"), 1);
    QCOMPARE(sent.count("$PSEAGETSETTINGS*54\r\n"), 5);
    QVERIFY(desk.shown.isEmpty());
}

/// With the waits that the program itself uses.
void TestJobs::aSilentController()
{
    Desk desk;
    RigOptions options = rigWith({});
    options.controller.on = false;
    SimulatedRig rig(options);
    ControllerRequest request = desk.request();
    request.timeouts = {};
    QElapsedTimer timer;
    timer.start();
    desk.run(QStringLiteral("off"), std::move(request));
    QVERIFY2(timer.elapsed() >= 7900 && timer.elapsed() < 10500,
             qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(desk.told, failureOf(QStringLiteral("off")));
}

void TestJobs::aStop_data()
{
    QTest::addColumn<QString>("job");
    for (const QString &job : jobs().keys()) {
        if (job != QLatin1String("erase"))
            QTest::newRow(qPrintable(job)) << job;
    }
}

void TestJobs::aStop()
{
    QFETCH(QString, job);
    Desk desk;
    SimulatedRig rig(rigWith(make([](Faults &f) { f.mute = true; })));
    StopFlag stop;
    QElapsedTimer sinceStop;
    std::thread closing([&] {
        // The greeting and a command.
        awaitLines(rig, 2);
        sinceStop.start();
        stop.raise();
    });
    desk.run(job, &stop);
    closing.join();
    QVERIFY2(sinceStop.elapsed() < endsWithinMs, qPrintable(QString::number(sinceStop.elapsed())));
    QCOMPARE(desk.told, failureOf(job));
}

void TestJobs::anEraseThatHasBegunGoesOn()
{
    Desk desk;
    SimulatedRig rig(rigWith(make([](Faults &f) { f.mute = true; })));
    StopFlag stop;
    QElapsedTimer timer;
    timer.start();
    std::thread closing([&] {
        awaitLines(rig, 2);
        stop.raise();
    });
    EraseMemory(desk.request(&stop, 300)).run();
    closing.join();
    QVERIFY2(timer.elapsed() >= 4 * 300 - 50, qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(desk.told, failureOf(QStringLiteral("erase")));
}

void TestJobs::aStopBeforeTheStart_data()
{
    withoutThePort_data();
}

void TestJobs::aStopBeforeTheStart()
{
    QFETCH(QString, job);
    Desk desk;
    SimulatedRig rig(rigWith({}));
    StopFlag stop;
    stop.raise();
    desk.run(job, &stop);
    QCOMPARE(desk.told, QStringList{"0,1,1 Error: The program is closing."});
    QCOMPARE(rig.received(), std::string());
}

void TestJobs::turningOffInTheMiddleOfADump_data()
{
    QTest::addColumn<int>("datasets");
    QTest::addColumn<int>("quietLimitMs");
    QTest::addColumn<bool>("deaf");
    QTest::addColumn<bool>("off");
    // 115,200 baud carry 190 data sets a second.
    QTest::newRow("which ends") << 800 << 60000 << false << true;
    QTest::newRow("which goes on for too long") << 800 << 300 << false << false;
    QTest::newRow("of deaf firmware, which ends") << 800 << 60000 << true << true;
    QTest::newRow("of deaf firmware, which goes on for too long") << 800 << 300 << true << false;
}

void TestJobs::turningOffInTheMiddleOfADump()
{
    QFETCH(int, datasets);
    QFETCH(int, quietLimitMs);
    QFETCH(bool, deaf);
    QFETCH(bool, off);
    Desk desk;
    SimulatedRig rig(rigWith(make([deaf](Faults &f) { f.slow = true, f.deafInDump = deaf; }), 1, datasets));
    {
        PSEAComms dump;
        QVERIFY(dump.open(portName()));
        QVERIFY(dump.writeLine(QStringLiteral("$PSEADUMP*0B")));
        QVERIFY(dump.readLine(5000, 3).startsWith(QStringLiteral("$PSEADATA,1,")));
    }
    ControllerRequest request = desk.request(nullptr, 500);
    request.timeouts.quietLimit = quietLimitMs;
    TurnOff(std::move(request)).run();
    QCOMPARE(desk.told, off ? successOf(QStringLiteral("off"), desk) : failureOf(QStringLiteral("off")));
    if (deaf && !off)
        QVERIFY(rig.state().on);
    else
        QTRY_VERIFY(!rig.state().on);
    QCOMPARE(MessageLog::lines(QStringLiteral("info")).filter(QStringLiteral("Skipped ")).size(), 1);
}

void TestJobs::turningOffADeviceThatNeverFallsSilent()
{
    Desk desk;
    StopFlag late;
    const Chatter device("hello\r\n", "hello\r\n", 20, &late);
    ControllerRequest request = desk.request(&late, 500);
    request.timeouts.quietLimit = 1000;
    QElapsedTimer timer;
    timer.start();
    TurnOff(std::move(request)).run();
    QCOMPARE(desk.told, failureOf(QStringLiteral("off")));
    QVERIFY2(timer.elapsed() >= 1000 && !late.isRaised(), qPrintable(QString::number(timer.elapsed())));
}

void TestJobs::onePortForOneJob()
{
    Desk desk;
    SimulatedRig rig(rigWith({}));
    {
        PSEAComms first;
        QVERIFY(first.open(portName()));
        TurnOff(desk.request()).run();
        QCOMPARE(desk.told, QStringList{"0,1,1 Error: Could not open port " + portName() + '.'});
        QVERIFY(first.beep());
    }
    TurnOff(desk.request()).run();
    QCOMPARE(desk.told.last(), QString("0,2,2 Success. Controller is off"));
}

void TestJobs::aJobThatThrows()
{
    Desk desk;
    class Throwing : public ControllerJob
    {
    public:
        using ControllerJob::ControllerJob;

    protected:
        void work(PSEAComms & /*link*/) override { throw std::runtime_error("no memory"); }
    };
    SimulatedRig rig(rigWith({}));
    Throwing(desk.request()).run();
    QCOMPARE(desk.told, QStringList{"0,1,1 Error: no memory"});
}

void TestJobs::tryingAgain()
{
    Desk desk;
    SimulatedRig rig(rigWith(make([](Faults &f) { f.unplugAfter = 3; })));
    desk.run(QStringLiteral("download"));
    QCOMPARE(desk.told.last(),
             "0,2,2 Error: The controller did not send all data. Wrote 2 records to 1 files in " +
                 desk.folder);
    desk.run(QStringLiteral("download"));
    QCOMPARE(desk.told, QStringList{"0,1,1 Error: Could not open port " + portName() + "."});
    rig.plug();
    desk.run(QStringLiteral("download"));
    QCOMPARE(desk.told, successOf(QStringLiteral("download"), desk));
    QCOMPARE(desk.rows(), (QMap<QString, int>{{"kelpora360_dive_20190221-224600.csv", 3},
                                              {"kelpora360_dive_20190221-224600_incomplete.csv", 1}}));
}

void TestJobs::downloads_data()
{
    QTest::addColumn<QStringList>("entries");
    QTest::addColumn<QString>("project");
    QTest::addColumn<int>("filesReported");
    using Files = QMap<QString, QByteArray>;
    QTest::addColumn<Files>("files");
    using List = QStringList;

    QTest::newRow("a run's file holds its ordinary entries")
        << List{"1,1,1550782004,0,20,0,0,0,0", "2,10,3637,1.5,20.5,90,-1,1,0"} << "" << 1
        << Files{{"kelpora360_20190221-224600.csv",
                  heading + "1,2,2019-02-21 22:46:45,1550782005,1,v,1.5,20.5,90,-1,1\r\n"}};
    QTest::newRow("a project's name stands in the file's")
        << List{"1,1,1550782004,0,20,0,0,0,0"} << "reef 7" << 1
        << Files{{"kelpora360_reef 7_20190221-224600.csv", heading}};
    QTest::newRow("two runs, numbered from their starts")
        << List{"5,1,1550782004,0,20,0,0,0,0", "6,10,3637,1,20,0,0,0,0", "7,3,1550785604,0,20,0,0,0,0",
                "8,18,7237,1,20,0,0,0,0", "9,18,7238,2,20,0,0,0,0"}
        << "" << 2
        << Files{{"kelpora360_20190221-224600.csv",
                  heading + "1,6,2019-02-21 22:46:45,1550782005,1,v,1,20,0,0,0\r\n"},
                 {"kelpora360_20190221-234600.csv",
                  heading + "1,8,2019-02-21 23:46:45,1550785605,1,p,1,20,0,0,0\r\n"
                            "2,9,2019-02-21 23:46:46,1550785606,2,p,2,20,0,0,0\r\n"}};
    QTest::newRow("two runs in a minute: the second replaces the first")
        << List{"1,1,1550782004,0,20,0,0,0,0", "2,10,3637,1,20,0,0,0,0", "3,1,1550782010,0,20,0,0,0,0",
                "4,10,3643,7,20,0,0,0,0"}
        << "" << 2
        << Files{{"kelpora360_20190221-224600.csv",
                  heading + "1,4,2019-02-21 22:46:51,1550782011,1,v,7,20,0,0,0\r\n"}};
    QTest::newRow("16-bit times that wrap within a run don't carry")
        << List{"1,1,1550782004,0,20,0,0,0,0", "2,10,65535,1,20,0,0,0,0", "3,10,16,1,20,0,0,0,0"} << "" << 1
        << Files{{"kelpora360_20190221-224600.csv",
                  heading + "1,2,2019-02-22 15:58:23,1550843903,61899,v,1,20,0,0,0\r\n"
                            "2,3,2019-02-21 21:46:24,1550778384,-3620,v,1,20,0,0,0\r\n"}};
    QTest::newRow("entries before the first start are dropped")
        << List{"1,10,5,1,20,0,0,0,0", "2,1,1550782004,0,20,0,0,0,0", "3,10,3637,1,20,0,0,0,0"} << "" << 1
        << Files{{"kelpora360_20190221-224600.csv",
                  heading + "1,3,2019-02-21 22:46:45,1550782005,1,v,1,20,0,0,0\r\n"}};
    QTest::newRow("no start, no file")
        << List{"1,10,5,1,20,0,0,0,0", "2,18,6,1,20,0,0,0,0"} << "" << 0 << Files{};
    QTest::newRow("a start alone gives an empty file")
        << List{"1,1,0,0,20,0,0,0,0"} << "" << 1 << Files{{"kelpora360_19700101-020000.csv", heading}};
    QTest::newRow("the last time that 32 bits hold")
        << List{"1,1,2147483647,0,20,0,0,0,0", "2,10,65535,1,20,0,0,0,0"} << "" << 1
        << Files{{"kelpora360_20380119-051400.csv",
                  heading + "1,2,2038-01-19 05:14:07,2147483647,0,v,1,20,0,0,0\r\n"}};
    QTest::newRow("a time before 1970")
        << List{"1,1,-86400,0,20,0,0,0,0"} << "" << 1 << Files{{"kelpora360_19691231-020000.csv", heading}};
    QTest::newRow("six significant digits")
        << List{"1,1,1550782004,0,20,0,0,0,0", "2,10,3637,12.345678,20,359.99999,-0.0000125,1e7,9"} << "" << 1
        << Files{{"kelpora360_20190221-224600.csv",
                  heading + "1,2,2019-02-21 22:46:45,1550782005,1,v,12.3457,20,360,-1.25e-05,1e+07\r\n"}};
}

void TestJobs::downloads()
{
    QFETCH(QStringList, entries);
    QFETCH(QString, project);
    QFETCH(int, filesReported);
    using Files = QMap<QString, QByteArray>;
    QFETCH(Files, files);
    Desk desk;
    RigOptions options = rigWith({});
    options.controller.log.clear();
    for (const QString &entry : entries)
        options.controller.log.push_back("PSEADATA," + entry.toStdString());
    SimulatedRig rig(options);
    DataDownload(desk.request(), desk.folder, project).run();
    QCOMPARE(desk.workspace.tree(QStringLiteral("logs")), files);
    QCOMPARE(desk.told.last(), QStringLiteral("0,2,2 Wrote %1 records to %2 files in %3")
                                   .arg(entries.size())
                                   .arg(filesReported)
                                   .arg(desk.folder));
}

void TestJobs::noDestination()
{
    Desk desk;
    SimulatedRig rig(rigWith({}));
    DataDownload(desk.request(), QString(), QString()).run();
    QCOMPARE(desk.told, QStringList{"0,1,1 Error: Please choose destination"});
    QVERIFY(MessageLog::lines().contains(QStringLiteral("info: Data: Please choose destination")));
    QCOMPARE(rig.received(), std::string());
}

void TestJobs::cutOffDumps_data()
{
    QTest::addColumn<int>("cause");
    QTest::addColumn<int>("kept");
    QTest::newRow("the cable is pulled after the third line") << 0 << 3;
    QTest::newRow("the controller falls silent after the third line") << 1 << 3;
    QTest::newRow("all but the end message came") << 2 << 8;
    QTest::newRow("all but the end message came when the program closes") << 3 << 8;
}

void TestJobs::cutOffDumps()
{
    QFETCH(int, cause);
    QFETCH(int, kept);
    Desk desk;
    // One answer line goes to the count.
    Faults faults;
    faults.unplugAfter = cause == 0 ? 4 : -1;
    faults.muteAfter = cause == 1 ? 4 : -1;
    faults.noEnd = cause >= 2;
    SimulatedRig rig(rigWith(faults, 2, 3));
    StopFlag stop;
    QElapsedTimer timer;
    timer.start();
    std::thread closing([&] {
        if (cause == 3) {
            await([&] { return dataLinesRead() >= kept; });
            stop.raise();
        }
    });
    desk.run(QStringLiteral("download"), &stop, cause == 0 || cause == 3 ? 10000 : 1000);
    closing.join();
    // A single read would take 10 s.
    if (cause == 0 || cause == 3)
        QVERIFY2(timer.elapsed() < 5000, qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(desk.told.filter(QStringLiteral("> Reading dataset")).size(), kept);
    QCOMPARE(desk.told.last(),
             QStringLiteral("0,2,2 %1Wrote %2 records to %3 files in %4")
                 .arg(kept == 8 ? QString() : QStringLiteral("Error: The controller did not send all data. "))
                 .arg(kept)
                 .arg(kept == 8 ? 2 : 1)
                 .arg(desk.folder));
    using Rows = QMap<QString, int>;
    QCOMPARE(desk.rows(), kept == 8 ? (Rows{{"kelpora360_dive_20190221-224600.csv", 3},
                                            {"kelpora360_dive_20190221-231600.csv", 3}})
                                    : (Rows{{"kelpora360_dive_20190221-224600_incomplete.csv", 2}}));
}

void TestJobs::anExistingFileIsReplaced()
{
    Desk desk;
    SimulatedRig rig(rigWith({}));
    const QString name = QStringLiteral("logs/kelpora360_dive_20190221-224600.csv");
    desk.workspace.write(name, QByteArray("old ").repeated(10000));
    desk.run(QStringLiteral("download"));
    QVERIFY(desk.workspace.read(name).startsWith(heading));
    QVERIFY(!desk.workspace.read(name).contains("old"));
    QCOMPARE(desk.workspace.tree(QStringLiteral("logs")).size(), 1);
}

void TestJobs::anUnwritableFolder()
{
    Desk desk;
    SimulatedRig rig(rigWith({}));
    desk.folder = desk.workspace.write(QStringLiteral("file"), "kept");
    desk.run(QStringLiteral("download"));
    QCOMPARE(desk.told.last(),
             "0,2,2 Error: Not every file could be written. Wrote 4 records to 0 files in " + desk.folder);
    QCOMPARE(desk.workspace.read(QStringLiteral("file")), QByteArray("kept"));
    QCOMPARE(
        MessageLog::lines(QStringLiteral("warning")).filter(QStringLiteral("Data: Could not write")).size(),
        1);
}

void TestJobs::aDamagedDatasetIsMissed()
{
    Desk desk;
    Faults faults;
    // The third answer of a run is a dataset: the greeting has none, the count has one.
    faults.badChecksumEvery = 3;
    SimulatedRig rig(rigWith(faults));
    constexpr int shortAnswerMs = 1000;
    desk.run(QStringLiteral("download"), nullptr, shortAnswerMs);
    QVERIFY2(desk.told.last().startsWith("0,2,2 Error: The controller did not send all data. Wrote "),
             qPrintable(desk.told.last()));
    QVERIFY(!MessageLog::lines(QStringLiteral("warning"))
                 .filter(QStringLiteral("Damaged line skipped: $PSEA"))
                 .isEmpty());
}

void TestJobs::whatCountsAsAllData_data()
{
    QTest::addColumn<int>("announced");
    QTest::addColumn<QStringList>("dump");
    QTest::addColumn<bool>("complete");
    QTest::addColumn<QString>("wrote");
    using List = QStringList;
    const auto start = [](int number, int time = 1550782004) {
        return QStringLiteral("PSEADATA,%1,1,%2,0,20,0,0,0,0").arg(number).arg(time);
    };
    const auto entry = [](int number) {
        return QStringLiteral("PSEADATA,%1,10,3637,1,20,0,0,0,0").arg(number);
    };
    const QString none = entry(0);
    const QString end = QStringLiteral("PSEAMSG,1,PSEADUMP,MEMORY,DATA END");
    const List two{start(1), entry(2)};
    const List three = two + List{entry(3)};
    const auto row = [](const char *name, int announced, const List &dump, bool complete, int records,
                        int files) {
        QTest::newRow(name) << announced << dump << complete
                            << QStringLiteral("Wrote %1 records to %2 files").arg(records).arg(files);
    };

    row("as many as announced", 2, two + List{end}, true, 2, 1);
    row("more than announced", 1, two + List{end}, true, 2, 1);
    row("the end comes too early", 3, two + List{end}, false, 2, 1);
    row("all of them without the end", 2, two, true, 2, 1);
    row("one is too short", 3, two + List{"PSEADATA,3,10,3638,1", end}, false, 3, 1);
    row("a short one above what was announced", 2, two + List{"PSEADATA,3,10,3638,1", end}, false, 3, 1);
    row("one came twice, another is missing", 3, two + List{entry(2), end}, false, 3, 1);
    row("one came twice and none is missing", 3, two + List{entry(2), entry(3), end}, true, 4, 1);
    row("nothing but the end", 3, {end}, false, 0, 0);
    row("a count that is none, and silence", -5, {}, false, 0, 0);
    row("a count that is none, and no end", -5, two, false, 2, 1);

    row("one without a number is counted", 3, two + List{none, end}, true, 2, 1);
    row("those without a number are counted, and alike", 5, two + List{none, none, none, end}, true, 2, 1);
    row("one without a number is counted, and short", 3, two + List{"PSEADATA,0", end}, true, 2, 1);
    row("those without a number are not counted", 2, two + List{none, none, none, end}, true, 2, 1);
    row("neither counted nor not counted", 4, two + List{none, none, none, end}, false, 2, 1);
    row("six without a number come first", 3, List{none, none, none, none, none, none} + three + List{end},
        true, 3, 1);
    row("six without a number come first, and the end is missing", 3,
        List{none, none, none, none, none, none} + three, true, 3, 1);
    row("one without a number, not counted, and cut before the last", 5, List{none} + three + List{entry(4)},
        false, 4, 1);
    row("a start is sent again amid its run", 4, three + List{start(1), entry(4), end}, true, 5, 1);
    row("the first start lost its first bytes, more than announced", 2,
        {"=EADATA,1,1,1550782004,0,20,0,0,0,0*00", entry(2), entry(3), end}, false, 2, 0);
    row("one not counted, last lost its first bytes, end", 5,
        List{none} + three + List{entry(4), "=EADATA,5,10,3637,1,20,0,0,0,0*00", end}, false, 4, 1);
    row("none has a number", 3, {none, none, none, end}, true, 0, 0);
    row("none has a number, and the end is missing", 3, {none, none, none}, false, 0, 0);

    row("a start is damaged, and more than announced came", 5,
        three + List{entry(4), '!' + start(5), entry(6), entry(7), end}, false, 6, 1);
    row("the last is damaged, and as many as announced came", 3, three + List{'!' + entry(4), end}, false, 3,
        1);
    row("another line is damaged", 3, three + List{"!PSEAMSG,1,PSEADUMP,MEMORY,BUSY", end}, true, 3, 1);
    row("a start got lost, and more than announced came", 5, three + List{entry(4), entry(6), entry(7), end},
        false, 6, 1);
    row("a start got lost where numbers begin anew", 4, three + List{entry(2) + '0', end}, false, 4, 1);
    row("a log that begins amid a run", 3, {entry(8), start(9), entry(10), end}, true, 3, 1);
    row("entries before the first start", 3, {entry(1), start(2), entry(3), end}, true, 3, 1);
    row("numbers begin anew with each run", 4, two + List{start(1, 1550789984), entry(2) + '0', end}, true, 4,
        2);
    row("a run begins with any number", 4, two + List{start(9, 1550789984), entry(10), end}, true, 4, 2);
    row("one without a number that can be read", 3,
        {start(1), "PSEADATA,,10,3637,1,20,0,0,0,0", entry(2), end}, false, 3, 1);
}

void TestJobs::whatCountsAsAllData()
{
    QFETCH(int, announced);
    QFETCH(QStringList, dump);
    QFETCH(bool, complete);
    QFETCH(QString, wrote);
    Desk desk;
    SimulatedRig rig(rigWith({}));
    rig.answerInstead("PSEANUMDUMP", linesOf({QStringLiteral("PSEANUMDATA,%1").arg(announced)}));
    rig.answerInstead("PSEADUMP", linesOf(dump));
    DataDownload(desk.request(nullptr, 300), desk.folder, {}).run();
    const QString missing = QStringLiteral("Error: The controller did not send all data. ");
    QCOMPARE(desk.told.last(), "0,2,2 " + (complete ? QString() : missing) + wrote + " in " + desk.folder);
}

void TestJobs::anOlderFileStays()
{
    Desk desk;
    const QString name = QStringLiteral("logs/kelpora360_20190221-224600.csv");
    const auto download = [&desk](int unplugAfter) {
        SimulatedRig rig(rigWith(make([unplugAfter](Faults &f) { f.unplugAfter = unplugAfter; }), 1, 20));
        DataDownload(desk.request(), desk.folder, {}).run();
        return desk.told.last();
    };
    desk.workspace.makeFolder(QStringLiteral("logs"));
    QVERIFY(download(-1).startsWith(QStringLiteral("0,2,2 Wrote 21 records to 1 files")));
    const QByteArray whole = desk.workspace.read(name);
    QCOMPARE(download(5), "0,2,2 Error: The controller did not send all data. Older files were kept. "
                          "Wrote 4 records to 1 files in " +
                              desk.folder);
    QCOMPARE(desk.workspace.read(name), whole);
    QCOMPARE(
        desk.workspace.read(QStringLiteral("logs/kelpora360_20190221-224600_incomplete.csv")).count('\n'), 4);
}

void TestJobs::aFullDisk()
{
    Desk desk;
    const TestVolume disk(desk.workspace.path(QStringLiteral("disk")), 64);
    SKIP_UNLESS_MOUNTED(disk);
    const QString name = QStringLiteral("disk/kelpora360_dive_20190221-224600.csv");
    const QByteArray old = QByteArray("old").repeated(10000);
    desk.workspace.write(name, old);
    SimulatedRig rig(rigWith({}, 1, 2000));
    desk.folder = desk.workspace.path(QStringLiteral("disk"));
    desk.run(QStringLiteral("download"));
    QCOMPARE(desk.told.last(),
             "0,2,2 Error: Not every file could be written. Wrote 2001 records to 0 files in " + desk.folder);
    QCOMPARE(desk.workspace.tree(QStringLiteral("disk")).size(), 1);
    QCOMPARE(desk.workspace.read(name), old);
}

void TestJobs::noReaderMeetsAHalfWrittenFile()
{
    Desk desk;
    SimulatedRig rig(rigWith({}, 2, 4000));
    std::atomic<bool> done{false};
    std::atomic<int> halves{0};
    std::atomic<int> wholes{0};
    std::thread reader([&] {
        while (!done) {
            const QDir logs(desk.folder);
            for (const QString &name : logs.entryList({QStringLiteral("*.csv")}, QDir::Files)) {
                QFile file(logs.filePath(name));
                if (file.open(QIODevice::ReadOnly))
                    ++(file.readAll().count('\n') == 4001 ? wholes : halves);
            }
        }
    });
    desk.run(QStringLiteral("download"));
    await([&] { return wholes > 0; });
    done = true;
    reader.join();
    QCOMPARE(halves.load(), 0);
    QVERIFY(wholes > 0);
    QCOMPARE(desk.told.last(), "0,2,2 Wrote 8002 records to 2 files in " + desk.folder);
}

RIG_TEST_MAIN(TestJobs)
#include "tst_jobs.moc"
