#include "app/appcontroller.h"
#include "app/log.h"
#include "app/paths.h"
#include "cards/drives.h"
#include "tests/cards/cardreports.h"
#include "tests/cards/recordings.h"
#include "tests/support/messagelog.h"
#include "tests/support/testmain.h"
#include "tests/support/workspace.h"

#include <QElapsedTimer>
#include <QLocale>
#include <QMetaMethod>
#include <QMutex>
#include <QRegularExpression>
#include <QStorageInfo>
#include <QThread>
#include <QThreadPool>
#include <QTimer>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>

#ifdef Q_OS_LINUX
#include <sys/resource.h>
#endif

namespace {

constexpr int mebibyte = 1 << 20;
constexpr int hangMilliseconds = 240000;
constexpr int closingMilliseconds = 2000;

const QString logName = QStringLiteral("Kelpora360.log");

/// Three cards with one video each.
QStringList writeCards(const Workspace &workspace)
{
    QStringList cards;
    for (int card = 1; card <= 3; ++card) {
        workspace.write(QStringLiteral("card%1/DCIM/A.MOV").arg(card),
                        recording(5000, static_cast<quint32>(card)));
        cards.append(workspace.path(QStringLiteral("card%1").arg(card)));
    }
    return cards;
}

void import(AppController &controller, const QStringList &cards, const QString &target)
{
    controller.copyFiles(cards.at(0), cards.at(1), cards.at(2), target, {}, {});
    QVERIFY(AppController::waitForJobs(hangMilliseconds));
}

/// Cards that end in the same moment may each tell of the end.
int doneLines()
{
    return MessageLog::lines(QStringLiteral("info")).count(QStringLiteral("Done."));
}

/// Lets `threads` threads go on only when all of them have come here.
class Gate
{
public:
    explicit Gate(int threads)
        : missing_(threads)
    {
    }

    /// False when the others don't come.
    bool pass()
    {
        std::unique_lock<std::mutex> lock(mutex_);
        if (--missing_ == 0)
            all_.notify_all();
        return all_.wait_for(lock, std::chrono::seconds(20), [this] { return missing_ <= 0; });
    }

private:
    std::mutex mutex_;
    std::condition_variable all_;
    int missing_;
};

qint64 unfinishedBytes(const QString &folder)
{
    qint64 bytes = 0;
    for (const QString &file : unfinishedBelow(folder))
        bytes += QFileInfo(folder + QLatin1Char('/') + file).size();
    return bytes;
}

} // namespace

namespace {

/// Calls a function, on the logging thread, when a message that starts with a text is logged.
class LogWatch
{
    Q_DISABLE_COPY(LogWatch)

public:
    LogWatch(const QString &start, std::function<void()> call)
    {
        start_ = start;
        call_ = std::move(call);
        previous_ = qInstallMessageHandler(handle);
    }
    ~LogWatch() { qInstallMessageHandler(previous_); }

private:
    static void handle(QtMsgType /*type*/, const QMessageLogContext & /*context*/, const QString &text)
    {
        if (text.startsWith(start_))
            call_();
    }

    static inline QString start_;
    static inline std::function<void()> call_;
    static inline QtMessageHandler previous_ = nullptr;
};

/// "public void name(Type argument, ...)" as the meta-object has it.
QString declaration(const QMetaMethod &method)
{
    QString kind = QStringLiteral("public");
    if (method.methodType() == QMetaMethod::Signal)
        kind = QStringLiteral("signal");
    else if (method.access() == QMetaMethod::Private)
        kind = QStringLiteral("private");
    QStringList arguments;
    for (int i = 0; i < method.parameterCount(); ++i)
        arguments.append(
            QString::fromLatin1(method.parameterTypes().at(i) + ' ' + method.parameterNames().at(i)));
    return kind + QLatin1Char(' ') + QString::fromLatin1(method.typeName()) + QLatin1Char(' ') +
           QString::fromLatin1(method.name()) + QLatin1Char('(') + arguments.join(QStringLiteral(", ")) +
           QLatin1Char(')');
}

} // namespace

Q_DECLARE_METATYPE(std::function<void(AppController &, const QString &)>)

class TestAppController : public QObject
{
    Q_OBJECT

private slots:
    void signalsAndSlotsInTheirOrder();
    void version();
    void port_data();
    void port();
    void portsOfTheJobs_data();
    void portsOfTheJobs();
    void relayedMessages_data();
    void relayedMessages();
    void quickQueries();
    void aListMadeAheadServesOnce();
    void settingsAreStored();
    void exitAppLeavesTheEventLoop();
    void roomForFourJobs();
    void threeImportsRunAtTheSameTime();
    void reportsReachTheMainThreadInOrder();
    void importsGiveWayToTheWindow();
    void anImportThatThrows();
    void argumentsOfAReport();
    void theFirstImportStartsInTheLog();
    void theLogNamesTheFolderCopiedTo_data();
    void theLogNamesTheFolderCopiedTo();
    void theLogTellsTheRoomBeforeAndAfter();
    void theLogTellsOfARelativeDataFolder();
    void aDestinationWithALineFeed();
    void aDataFolderOfLineEndsAlone();
    void slotsThatAreLeftEmpty_data();
    void slotsThatAreLeftEmpty();
    void theFirstFullImportCopiesTheLog();
    void aSecondImportCopiesNoLog();
    void anExistingLogIsLeftAsItIs();
    void cardsOfTwoImportsAreCountedTogether();
    void anImportThatRunsPastThreeCopiesTheLog();
    void aTakeOfThreeCamerasLiesSideBySide();
    void copyOneFile_data();
    void copyOneFile();
    void onePhotoWithItsProject();
    void closingDuringALargeImport();
    void closingWhileCopiesWaitForTheDisk();
    void afterClosingNothingIsCopied();
    void aControllerThatIsGoneIsNotTouched();
};

void TestAppController::signalsAndSlotsInTheirOrder()
{
    const char *const expected[] = {
        "signal void updateCardProgress(QVariant cardNumber, QVariant progressFrom, QVariant progressTo, "
        "QVariant progressValue, QVariant progressText)",
        "signal void updateDataProgress(QVariant progressFrom, QVariant progressTo, QVariant progressValue, "
        "QVariant progressText)",
        "signal void updateCameraSettingsProgress(QVariant progressFrom, QVariant progressTo, QVariant "
        "progressValue, QVariant progressText)",
        "signal void updateFirmwareProgress(QVariant progressFrom, QVariant progressTo, QVariant "
        "progressValue, QVariant progressText)",
        "signal void updateCameraSettings(QVariant firmware, QVariant battery, QVariant date, QVariant "
        "recLedOn, QVariant videoLoggingInterval, QVariant timelapseInterval, QVariant timelapseTimeout, "
        "QVariant e1FirmwareVersion)",
        "public QVariantList getDrives()",
        "public QVariantList getDevices()",
        "public QVariantList getTemplates()",
        "public QVariantMap getSettings()",
        "public void updateSettings(QVariantMap settings)",
        "public QVariant getMoviesLocation()",
        "public QVariant getVersion()",
        "public void setPort(QVariant port)",
        "public void copyFiles(QString card1, QString card2, QString card3, QString targetDir, QString "
        "templatePath, QString projectName)",
        "public void copyData(QString port, QString targetDir, QString projectName)",
        "public void readCameraSettings(QString port)",
        "public void resetCameraSettings(QString port)",
        "public void turnOff(QString port)",
        "public void updateFirmware(QString port, QString filePath)",
        "public void saveCameraSettings(QString port, QString date, int recLedOn, double "
        "videoLoggingIntervalSeconds, double timelapseIntervalSeconds, double timelapseTimeoutMinutes, int "
        "e1FirmwareVersion)",
        "public void eraseCards(QString card1, QString card2, QString card3, bool eraseCards, bool "
        "createSyncConfig)",
        "public void eraseMemory(QString port)",
        "public void exitApp()",
        "public void recvDataMessage(QString message)",
        "public void recvSettingsMessage(QString message)",
        "public void recvFirmwareMessage(QString message)",
        "public void init(QQuickWindow* appWindow)",
        "public void turnOffWorker(QString port)",
        "private QString getTemplateJpg()",
        "private void copyDataWorker(QString port, QString targetDir, QString projectName)",
        "private void readSettingsWorker(QString port)",
        "private void resetCameraSettingsWorker(QString port)",
        "private void eraseMemoryWorker(QString port)",
        "private void saveCameraSettingsWorker(QString port, QString date, PSEAConfig cfg)",
        "private void copyFilesWorker(int cardIndex, QString sourceDir, QString targetDir, QString "
        "templatePath, QString projectName)",
        "private void updateFirmwareWorker(QString port, QString filePath)",
        "private int copyVideoFile(QString sourcePath, int cardIndex, int fileIndex, int totalFiles, QDir "
        "sourceDirectory, QDir targetDirectory, QString templatePath, QString projectName)",
        "private int copyPhotoFile(QString sourcePath, int cardIndex, int fileIndex, int totalFiles, QDir "
        "sourceDirectory, QDir targetDirectory, QString templatePath, QString projectName)",
    };
    const QMetaObject &meta = AppController::staticMetaObject;
    QCOMPARE(meta.methodCount() - meta.methodOffset(), static_cast<int>(std::size(expected)));
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        QCOMPARE(declaration(meta.method(i)), QString::fromLatin1(expected[i - meta.methodOffset()]));
}

void TestAppController::version()
{
    AppController controller;
    QCOMPARE(controller.getVersion(), QVariant(QString()));
    controller.setVersion(QStringLiteral("1.8.0"));
    QCOMPARE(controller.getVersion(), QVariant(QStringLiteral("1.8.0")));
    QCOMPARE(controller.getVersion().userType(), static_cast<int>(QMetaType::QString));
}

void TestAppController::port_data()
{
    QTest::addColumn<QVariant>("chosen");
    QTest::addColumn<QString>("stored");
    QTest::newRow("a name") << QVariant(QStringLiteral("ttyUSB0")) << QStringLiteral("ttyUSB0");
    QTest::newRow("none") << QVariant(QString()) << QString();
    QTest::newRow("nothing at all") << QVariant() << QString();
    QTest::newRow("a number") << QVariant(7) << QStringLiteral("7");
    QTest::newRow("one that isn't there")
        << QVariant(QStringLiteral(" no such port ")) << QStringLiteral(" no such port ");
}

void TestAppController::port()
{
    QFETCH(QVariant, chosen);
    QFETCH(QString, stored);
    AppController controller;
    QCOMPARE(controller.port(), QString());
    controller.setPort(QStringLiteral("before"));
    controller.setPort(chosen);
    QCOMPARE(controller.port(), stored);
}

void TestAppController::portsOfTheJobs_data()
{
    using Job = std::function<void(AppController &, const QString &)>;
    QTest::addColumn<Job>("job");
    QTest::addColumn<bool>("kept");
    QTest::newRow("read") << Job([](AppController &c, const QString &p) { c.readCameraSettings(p); }) << true;
    QTest::newRow("save") << Job([](AppController &c, const QString &p) {
        c.saveCameraSettings(p, QString(), 1, 0.5, 2.25, 1.9, 29);
    }) << false;
    QTest::newRow("reset") << Job([](AppController &c, const QString &p) { c.resetCameraSettings(p); })
                           << true;
    QTest::newRow("download") << Job([](AppController &c, const QString &p) {
        c.copyData(p, QStringLiteral("/nowhere"), QString());
    }) << true;
    QTest::newRow("erase") << Job([](AppController &c, const QString &p) { c.eraseMemory(p); }) << true;
    QTest::newRow("turn off") << Job([](AppController &c, const QString &p) { c.turnOff(p); }) << true;
}

void TestAppController::portsOfTheJobs()
{
    using Job = std::function<void(AppController &, const QString &)>;
    QFETCH(Job, job);
    QFETCH(bool, kept);
    const MessageLog log;
    AppController controller;
    QStringList told;
    for (const auto progress :
         {&AppController::updateDataProgress, &AppController::updateCameraSettingsProgress})
        connect(&controller, progress, this,
                [&](const QVariant &from, const QVariant &to, const QVariant &value, const QVariant &text) {
                    told.append(reportLine(from.toInt(), to.toInt(), value.toInt(), text.toString()));
                });
    controller.setPort(QStringLiteral("chosen"));
    for (const char *port : {"tty of the job", ""}) {
        const QString name = QString::fromLatin1(port);
        job(controller, name);
        QCOMPARE(controller.port(), kept ? name : QStringLiteral("chosen"));
        QVERIFY(AppController::waitForJobs(hangMilliseconds));
        QCoreApplication::processEvents();
        QCOMPARE(told, QStringList{QStringLiteral("0 1 1 Error: Could not open port %1.").arg(name)});
        told.clear();
    }
}

void TestAppController::relayedMessages_data()
{
    QTest::addColumn<QByteArray>("slot");
    QTest::addColumn<QString>("signal");
    QTest::newRow("data") << QByteArray("recvDataMessage") << "data";
    QTest::newRow("settings") << QByteArray("recvSettingsMessage") << "settings";
    QTest::newRow("firmware") << QByteArray("recvFirmwareMessage") << "firmware";
}

void TestAppController::relayedMessages()
{
    QFETCH(QByteArray, slot);
    QFETCH(QString, signal);
    AppController controller;
    QStringList told;
    const auto listen = [&](const QString &name, auto progress) {
        connect(&controller, progress, this,
                [&told, name](const QVariant &from, const QVariant &to, const QVariant &value,
                              const QVariant &text) {
                    told.append(name + QLatin1Char(' ') +
                                reportLine(from.toInt(), to.toInt(), value.toInt(), text.toString()));
                });
    };
    listen(QStringLiteral("data"), &AppController::updateDataProgress);
    listen(QStringLiteral("settings"), &AppController::updateCameraSettingsProgress);
    listen(QStringLiteral("firmware"), &AppController::updateFirmwareProgress);
    QVERIFY(QMetaObject::invokeMethod(&controller, slot.constData(),
                                      Q_ARG(QString, QStringLiteral("Reading dataset 1 of 4"))));
    QCOMPARE(told, QStringList{signal + QStringLiteral(" 0 2 1 Reading dataset 1 of 4")});
}

void TestAppController::quickQueries()
{
    const Workspace workspace;
    const MessageLog log;
    AppController controller;
    // As the view calls them.
    QVariantList drives;
    QVERIFY(QMetaObject::invokeMethod(&controller, "getDrives", Q_RETURN_ARG(QVariantList, drives)));
    QCOMPARE(drives, Drives().list());
    QVariant movies;
    QVERIFY(QMetaObject::invokeMethod(&controller, "getMoviesLocation", Q_RETURN_ARG(QVariant, movies)));
    QCOMPARE(movies, QVariant(moviesLocation()));
    QCOMPARE(controller.getTemplates(), QVariantList());
    QCOMPARE(MessageLog::lines(QStringLiteral("warning")), QStringList{QStringLiteral("No templates found")});

    QDir().mkpath(getTemplateDir());
    QFile file(QDir(getTemplateDir()).filePath(QStringLiteral("rig.kava")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    const QVariantList templates = controller.getTemplates();
    QCOMPARE(templates.size(), 1);
    QCOMPARE(templates.constFirst().toJsonObject().value(QStringLiteral("value")).toString(),
             QStringLiteral("rig"));
}

void TestAppController::aListMadeAheadServesOnce()
{
    // Each look at the ports logs what it finds, also that there are none.
    AppController controller;
    QStringList looked;
    {
        const MessageLog log;
        controller.listDevicesAhead();
        QVERIFY(AppController::waitForJobs(10000));
        looked = MessageLog::lines();
    }
    QVERIFY(!looked.isEmpty());
    const MessageLog log;
    const QVariantList ahead = controller.getDevices();
    QCOMPARE(MessageLog::lines(), QStringList());
    QCOMPARE(controller.getDevices(), ahead);
    QCOMPARE(MessageLog::lines(), looked);
}

void TestAppController::settingsAreStored()
{
    const Workspace workspace;
    AppController controller;
    controller.updateSettings({{QStringLiteral("Camera1Yaw"), QStringLiteral("12.5")}});
    QCOMPARE(controller.getSettings().value(QStringLiteral("Camera1Yaw")).toString(), QStringLiteral("12.5"));
    QVERIFY(QFileInfo::exists(getIniFilePath()));
}

void TestAppController::exitAppLeavesTheEventLoop()
{
    AppController controller;
    QTimer::singleShot(0, &controller, &AppController::exitApp);
    bool late = false;
    QTimer::singleShot(5000, &controller, [&] {
        late = true;
        QCoreApplication::exit(1);
    });
    QCOMPARE(QCoreApplication::exec(), 0);
    QVERIFY(!late);
}

void TestAppController::roomForFourJobs()
{
    QThreadPool::globalInstance()->setMaxThreadCount(1);
    {
        const AppController controller;
        QVERIFY(QThreadPool::globalInstance()->maxThreadCount() >= 4);
    }
    QThreadPool::globalInstance()->setMaxThreadCount(9);
    const AppController controller;
    QCOMPARE(QThreadPool::globalInstance()->maxThreadCount(), 9);
}

void TestAppController::threeImportsRunAtTheSameTime()
{
    const Workspace workspace;
    const QStringList cards = writeCards(workspace);
    // As on a machine with one core.
    QThreadPool::globalInstance()->setMaxThreadCount(1);
    AppController controller;
    CardReports reports(controller);
    Gate gate(3);
    std::atomic<int> passed{0};
    reports.onReport = [&](int, const QString &text) {
        if (text.startsWith(QStringLiteral("Copying")) && gate.pass())
            ++passed;
    };
    import(controller, cards, workspace.path(QStringLiteral("dst")));
    // Each card waited in the middle of its import until the two others were in theirs.
    QCOMPARE(passed.load(), 3);
    for (int card = 1; card <= 3; ++card)
        QCOMPARE(reports.finalOf(card),
                 QStringList{QStringLiteral("0 1 1 Copied 1/1 videos and 0/0 photos.")});
}

void TestAppController::reportsReachTheMainThreadInOrder()
{
    const Workspace workspace;
    const QStringList cards = writeCards(workspace);
    AppController controller;
    const CardReports direct(controller);
    QMap<int, QStringList> queued;
    bool elsewhere = false;
    QObject receiver;
    connect(&controller, &AppController::updateCardProgress, &receiver,
            [&](const QVariant &card, const QVariant &from, const QVariant &to, const QVariant &value,
                const QVariant &text) {
                elsewhere = elsewhere || QThread::currentThread() != QCoreApplication::instance()->thread();
                queued[card.toInt()].append(
                    reportLine(from.toInt(), to.toInt(), value.toInt(), text.toString()));
            });
    controller.copyFiles(cards.at(0), {}, cards.at(2), workspace.path(QStringLiteral("dst")), {}, {});
    QVERIFY(queued.isEmpty());
    QVERIFY(AppController::waitForJobs(hangMilliseconds));
    QCoreApplication::processEvents();
    QVERIFY(!elsewhere);
    for (int card = 1; card <= 3; ++card)
        QCOMPARE(queued.value(card), direct.of(card));
    const QString path = cards.at(2) + QStringLiteral("/DCIM/A.MOV");
    QCOMPARE(queued.value(3),
             (QStringList{QStringLiteral("0 2 1 Copying ") + path,
                          QStringLiteral("0 1 2 Copied ") + path + QStringLiteral(" correctly."),
                          QStringLiteral("0 1 1 Copied 1/1 videos and 0/0 photos.")}));
    QCOMPARE(queued.value(2), QStringList{QStringLiteral("0 0 0 Error: Please choose source")});
}

void TestAppController::importsGiveWayToTheWindow()
{
#ifdef Q_OS_LINUX
    const Workspace workspace;
    AppController controller;
    QList<int> niceness;
    QMutex mutex;
    connect(
        &controller, &AppController::updateCardProgress, this,
        [&] {
            const QMutexLocker lock(&mutex);
            niceness.append(::getpriority(PRIO_PROCESS, 0));
        },
        Qt::DirectConnection);
    import(controller, {QString(), QString(), QString()}, workspace.path(QStringLiteral("dst")));
    const int lowest = 19;
    const int expected = std::min(::getpriority(PRIO_PROCESS, 0) + 10, lowest);
    QCOMPARE(niceness, (QList<int>{expected, expected, expected}));
#else
    QSKIP("Read from the system as Linux tells it");
#endif
}

void TestAppController::anImportThatThrows()
{
    const Workspace workspace;
    const QStringList cards = writeCards(workspace);
    const MessageLog log;
    AppController controller;
    const CardReports reports(controller);
    std::atomic<bool> thrown{false};
    connect(
        &controller, &AppController::updateCardProgress, this,
        [&](const QVariant &card) {
            if (card.toInt() == 2 && !thrown.exchange(true))
                throw std::runtime_error("no memory");
        },
        Qt::DirectConnection);
    import(controller, cards, workspace.path(QStringLiteral("dst")));
    QVERIFY(thrown);
    QCOMPARE(reports.finalOf(2), QStringList{QStringLiteral("0 1 1 Error: no memory")});
    QCOMPARE(reports.finalOf(1), QStringList{QStringLiteral("0 1 1 Copied 1/1 videos and 0/0 photos.")});
    QVERIFY(MessageLog::lines().contains(QStringLiteral("warning: Card 2: no memory")));
}

void TestAppController::argumentsOfAReport()
{
    const Workspace workspace;
    AppController controller;
    QList<int> types;
    connect(
        &controller, &AppController::updateCardProgress, this,
        [&](const QVariant &card, const QVariant &from, const QVariant &to, const QVariant &value,
            const QVariant &text) {
            if (card.toInt() == 3)
                types = {card.userType(), from.userType(), to.userType(), value.userType(), text.userType()};
        });
    import(controller, {QString(), QString(), workspace.makeFolder(QStringLiteral("card"))},
           workspace.path(QStringLiteral("dst")));
    QCoreApplication::processEvents();
    QCOMPARE(types, (QList<int>{QMetaType::Int, QMetaType::Int, QMetaType::Int, QMetaType::Int,
                                QMetaType::QString}));
}

void TestAppController::theFirstImportStartsInTheLog()
{
    const MessageLog log;
    AppController controller;
    import(controller, {QString(), QString(), QString()}, {});
    QStringList lines = MessageLog::lines();
    QCOMPARE(lines.takeFirst(), QStringLiteral("info: Start."));
    lines.sort();
    QCOMPARE(lines, (QStringList{QStringLiteral("warning: Card 1: Please choose source"),
                                 QStringLiteral("warning: Card 2: Please choose source"),
                                 QStringLiteral("warning: Card 3: Please choose source")}));
}

void TestAppController::theLogNamesTheFolderCopiedTo_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("folder"); // relative to the current one
    QTest::addColumn<bool>("warned");
    QTest::newRow("an absolute folder")
        << QStringLiteral("/tmp/Dive1") << QStringLiteral("/tmp/Dive1") << false;
    QTest::newRow("a name alone") << QStringLiteral("Dive1") << QStringLiteral("Dive1") << true;
    QTest::newRow("a tilde") << QStringLiteral("~/Dive1") << QStringLiteral("~/Dive1") << true;
    QTest::newRow("pasted with line ends")
        << QStringLiteral("/tmp/\r\nDive1\n") << QStringLiteral("/tmp/Dive1") << false;
    QTest::newRow("a way up") << QStringLiteral("x/../Dive1/") << QStringLiteral("Dive1") << true;
}

void TestAppController::theLogNamesTheFolderCopiedTo()
{
    QFETCH(QString, typed);
    QFETCH(QString, folder);
    QFETCH(bool, warned);
    const Workspace workspace;
    QVERIFY(QDir::setCurrent(workspace.path()));
    const MessageLog log;
    AppController controller;
    import(controller, {QString(), QString(), QString()}, typed);
    const QString path = QDir::current().absoluteFilePath(folder);
    QCOMPARE(MessageLog::lines(QStringLiteral("info")).mid(0, 2),
             (QStringList{QStringLiteral("Copying to ") + path, QStringLiteral("Start.")}));
    QCOMPARE(MessageLog::lines(QStringLiteral("warning")).filter(QStringLiteral("The folder")),
             warned ? QStringList{QStringLiteral("The folder %1 has no full path; it is %2").arg(typed, path)}
                    : QStringList());
}

void TestAppController::theLogTellsTheRoomBeforeAndAfter()
{
    const Workspace workspace;
    const QString disk = workspace.path(QStringLiteral("disk"));
    const TestVolume volume(disk, 10 * 1024);
    SKIP_UNLESS_MOUNTED(volume);
    const QString target = disk + QStringLiteral("/still/to be made");
    const auto room = [&](const char *when) {
        return QStringLiteral("info: %1 the import: %2 free on %3")
            .arg(QLatin1String(when),
                 QLocale::c().formattedDataSize(QStorageInfo(disk).bytesAvailable(), 2,
                                                QLocale::DataSizeSIFormat),
                 disk);
    };
    const MessageLog log;
    AppController controller;
    QStringList roomLines;
    for (int imports = 0; imports < 2; ++imports) {
        roomLines.append(room("Before"));
        import(controller, writeCards(workspace), target);
        roomLines.append(room("After"));
    }
    QVERIFY(roomLines.at(0).mid(14) != roomLines.at(1).mid(13));
    QCOMPARE(MessageLog::lines().filter(QStringLiteral(" free on ")), roomLines);
    // The copy of the log in the destination has it too.
    QVERIFY(MessageLog::lines().indexOf(roomLines.at(1)) <
            MessageLog::lines().indexOf(QStringLiteral("info: Done.")));
}

void TestAppController::theLogTellsOfARelativeDataFolder()
{
    const MessageLog log;
    AppController controller;
    for (const char *folder : {"~/Dive1", "/tmp/Dive1", ""})
        controller.copyData(QStringLiteral("nowhere"), QString::fromLatin1(folder), {});
    QVERIFY(AppController::waitForJobs(hangMilliseconds));
    QCOMPARE(MessageLog::lines().filter(QStringLiteral("The folder")),
             QStringList{QStringLiteral("warning: The folder ~/Dive1 has no full path; it is ") +
                         QDir::current().absoluteFilePath(QStringLiteral("~/Dive1"))});
}

void TestAppController::aDestinationWithALineFeed()
{
    const Workspace workspace;
    AppController controller;
    const CardReports reports(controller);
    import(controller, writeCards(workspace),
           workspace.makeFolder(QStringLiteral("dst")) + QLatin1Char('\n'));
    for (int card = 1; card <= 3; ++card) {
        QCOMPARE(reports.finalOf(card), QStringList{"0 1 1 Copied 1/1 videos and 0/0 photos."});
        QVERIFY(QFileInfo::exists(workspace.path(QStringLiteral("dst/DCIM/A_cam%1.MOV").arg(card))));
    }
}

void TestAppController::aDataFolderOfLineEndsAlone()
{
    AppController controller;
    QStringList told;
    connect(&controller, &AppController::updateDataProgress, this,
            [&](const QVariant & /*from*/, const QVariant & /*to*/, const QVariant & /*value*/,
                const QVariant &text) { told.append(text.toString()); });
    controller.copyData(QStringLiteral("chosen"), QStringLiteral("\r\n"), {});
    QVERIFY(AppController::waitForJobs(hangMilliseconds));
    QCoreApplication::processEvents();
    QCOMPARE(told.size(), 1);
    QVERIFY2(told.constFirst().endsWith(QStringLiteral("Please choose destination")),
             qPrintable(told.constFirst()));
}

void TestAppController::slotsThatAreLeftEmpty_data()
{
    QTest::addColumn<int>("empty");
    for (int card = 1; card <= 3; ++card)
        QTest::addRow("card %d", card) << card;
}

void TestAppController::slotsThatAreLeftEmpty()
{
    QFETCH(int, empty);
    const Workspace workspace;
    QStringList cards = writeCards(workspace);
    cards[empty - 1].clear();
    const MessageLog log;
    AppController controller;
    const CardReports reports(controller);
    import(controller, cards, workspace.path(QStringLiteral("dst")));
    for (int card = 1; card <= 3; ++card) {
        QCOMPARE(reports.finalOf(card),
                 QStringList{card == empty ? QStringLiteral("0 0 0 Error: Please choose source")
                                           : QStringLiteral("0 1 1 Copied 1/1 videos and 0/0 photos.")});
    }
    QCOMPARE(visibleBelow(workspace.path(QStringLiteral("dst"))).size(), 2);
    QVERIFY(!QFileInfo::exists(workspace.path(QStringLiteral("dst/") + logName)));
    QCOMPARE(doneLines(), 0);
}

void TestAppController::theFirstFullImportCopiesTheLog()
{
    const Workspace workspace;
    const QStringList cards = writeCards(workspace);
    const QtMessageHandler before = qInstallMessageHandler(AppMessageHandler);
    AppController controller;
    import(controller, cards, workspace.path(QStringLiteral("dst")));
    qInstallMessageHandler(before);

    const QByteArray copy = workspace.read(QStringLiteral("dst/") + logName);
    for (const char *line : {" Info: Start.", " Info: Card 1: copied 1/1 videos and 0/0 photos.",
                             " Info: Card 2: copied 1/1 videos and 0/0 photos.",
                             " Info: Card 3: copied 1/1 videos and 0/0 photos.", " Info: Done."})
        QVERIFY2(copy.contains(line), line);
    QFile file(getLogFilePath());
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(file.readAll().startsWith(copy));
}

void TestAppController::aSecondImportCopiesNoLog()
{
    const Workspace workspace;
    const QStringList cards = writeCards(workspace);
    const MessageLog log;
    AppController controller;
    import(controller, cards, workspace.path(QStringLiteral("first")));
    const int afterTheFirst = doneLines();
    QVERIFY(afterTheFirst >= 1);
    QVERIFY(QFileInfo::exists(workspace.path(QStringLiteral("first/") + logName)));
    const QByteArray firstLog = workspace.read(QStringLiteral("first/") + logName);

    import(controller, cards, workspace.path(QStringLiteral("second")));
    import(controller, cards, workspace.path(QStringLiteral("first")));
    QCOMPARE(doneLines(), afterTheFirst);
    QCOMPARE(filesBelow(workspace.path(QStringLiteral("second"))),
             (QStringList{QStringLiteral("DCIM/A_cam1.MOV"), QStringLiteral("DCIM/A_cam2.MOV"),
                          QStringLiteral("DCIM/A_cam3.MOV")}));
    QCOMPARE(workspace.read(QStringLiteral("first/") + logName), firstLog);
    QCOMPARE(filesBelow(workspace.path(QStringLiteral("first"))).size(), 7);
}

void TestAppController::anExistingLogIsLeftAsItIs()
{
    const Workspace workspace;
    const QStringList cards = writeCards(workspace);
    workspace.write(QStringLiteral("dst/") + logName, "of last year");
    const MessageLog log;
    AppController controller;
    import(controller, cards, workspace.path(QStringLiteral("dst")));
    QVERIFY(doneLines() >= 1);
    QCOMPARE(workspace.read(QStringLiteral("dst/") + logName), QByteArray("of last year"));
    QCOMPARE(filesBelow(workspace.path(QStringLiteral("dst"))).size(), 4);
}

void TestAppController::cardsOfTwoImportsAreCountedTogether()
{
    const Workspace workspace;
    const QStringList cards = writeCards(workspace);
    const MessageLog log;
    AppController controller;
    import(controller, {cards.at(0), QString(), cards.at(2)}, workspace.path(QStringLiteral("first")));
    QCOMPARE(doneLines(), 0);
    import(controller, {QString(), cards.at(1), QString()}, workspace.path(QStringLiteral("second")));
    QCOMPARE(doneLines(), 1);
    QVERIFY(!QFileInfo::exists(workspace.path(QStringLiteral("first/") + logName)));
    QVERIFY(QFileInfo::exists(workspace.path(QStringLiteral("second/") + logName)));
}

void TestAppController::anImportThatRunsPastThreeCopiesTheLog()
{
    const Workspace workspace;
    const QStringList cards = writeCards(workspace);
    AppController controller;
    CardReports reports(controller);
    import(controller, {cards.at(0), QString(), QString()}, workspace.path(QStringLiteral("first")));
    // The fourth card to end waits until one of the others was the third.
    const MessageLog log;
    bool counted = false;
    reports.onReport = [&](int card, const QString &text) {
        if (card == 3 && text.startsWith(QStringLiteral("Copied 1/1")))
            counted = QTest::qWaitFor([] { return doneLines() == 1; }, hangMilliseconds);
    };
    import(controller, cards, workspace.path(QStringLiteral("second")));
    QVERIFY(counted);
    QVERIFY(QFileInfo::exists(workspace.path(QStringLiteral("second/") + logName)));
}

void TestAppController::aTakeOfThreeCamerasLiesSideBySide()
{
    const Workspace workspace;
    const QStringList cards = writeCards(workspace);
    AppController controller;
    controller.copyFiles(cards.at(0), cards.at(1), cards.at(2), workspace.path(QStringLiteral("dst")), {},
                         QStringLiteral("reef"));
    QVERIFY(AppController::waitForJobs(hangMilliseconds));
    QMap<QString, QByteArray> expected;
    for (int card = 1; card <= 3; ++card) {
        expected.insert(QStringLiteral("DCIM/A_reef_cam%1.MOV").arg(card),
                        recording(5000, static_cast<quint32>(card)));
    }
    QMap<QString, QByteArray> found = workspace.tree(QStringLiteral("dst"));
    QVERIFY(found.remove(logName) == 1);
    QCOMPARE(found, expected);
}

void TestAppController::copyOneFile_data()
{
    QTest::addColumn<QString>("slot");
    QTest::addColumn<QString>("file");
    QTest::addColumn<bool>("there");
    QTest::addColumn<QString>("copy");
    QTest::newRow("a video") << "copyVideoFile"
                             << "DCIM/A.MOV" << true << "DCIM/A_reef_cam2.MOV";
    QTest::newRow("a photo") << "copyPhotoFile"
                             << "DCIM/A.JPG" << true << "DCIM/A_reef_cam2.JPG";
    QTest::newRow("a raw photo") << "copyPhotoFile"
                                 << "DCIM/A.DNG" << true << "DCIM/A_reef_cam2.DNG";
    QTest::newRow("a video that is gone") << "copyVideoFile"
                                          << "DCIM/A.MOV" << false << "";
    QTest::newRow("a photo that is gone") << "copyPhotoFile"
                                          << "DCIM/A.JPG" << false << "";
}

void TestAppController::copyOneFile()
{
    QFETCH(QString, slot);
    QFETCH(QString, file);
    QFETCH(bool, there);
    QFETCH(QString, copy);
    const Workspace workspace;
    const QString path = workspace.path(QStringLiteral("card/") + file);
    if (there)
        workspace.write(QStringLiteral("card/") + file, "content");
    workspace.makeFolder(QStringLiteral("dst"));
    AppController controller;
    const CardReports reports(controller);
    int copied = -1;
    QVERIFY(QMetaObject::invokeMethod(&controller, slot.toLatin1().constData(), Qt::DirectConnection,
                                      Q_RETURN_ARG(int, copied), Q_ARG(QString, path), Q_ARG(int, 2),
                                      Q_ARG(int, 5), Q_ARG(int, 9),
                                      Q_ARG(QDir, QDir(workspace.path(QStringLiteral("card")))),
                                      Q_ARG(QDir, QDir(workspace.path(QStringLiteral("dst")))),
                                      Q_ARG(QString, QString()), Q_ARG(QString, QStringLiteral("reef"))));
    QCOMPARE(copied, there ? 1 : 0);
    QCOMPARE(reports.of(2),
             there ? QStringList{QStringLiteral("0 9 5 Copied ") + path + QStringLiteral(" correctly.")}
                   : QStringList());
    QCOMPARE(filesBelow(workspace.path(QStringLiteral("dst"))), there ? QStringList{copy} : QStringList());
}

void TestAppController::onePhotoWithItsProject()
{
    const Workspace workspace;
    const QString photo = workspace.write(QStringLiteral("card/A.JPG"), "content");
    const QString rig = workspace.write(QStringLiteral("templates/Rig.kava"), "<kava><pano a='1'/></kava>");
    AppController controller;
    int copied = -1;
    QVERIFY(QMetaObject::invokeMethod(&controller, "copyPhotoFile", Qt::DirectConnection,
                                      Q_RETURN_ARG(int, copied), Q_ARG(QString, photo), Q_ARG(int, 1),
                                      Q_ARG(int, 1), Q_ARG(int, 1),
                                      Q_ARG(QDir, QDir(workspace.path(QStringLiteral("card")))),
                                      Q_ARG(QDir, QDir(workspace.path(QStringLiteral("dst")))),
                                      Q_ARG(QString, rig), Q_ARG(QString, QString())));
    QCOMPARE(copied, 1);
    QCOMPARE(filesBelow(workspace.path(QStringLiteral("dst"))),
             (QStringList{QStringLiteral("A_cam1.JPG"), QStringLiteral("A_giga.JPG.pano")}));
}

void TestAppController::closingDuringALargeImport()
{
    const Workspace workspace;
    constexpr int pieces = 128;
    {
        QFile large(workspace.path(QStringLiteral("large")));
        QVERIFY(large.open(QIODevice::WriteOnly));
        const QByteArray piece = recording(mebibyte, 4);
        for (int i = 0; i < pieces; ++i)
            QCOMPARE(large.write(piece), static_cast<qint64>(piece.size()));
    }
    QStringList cards;
    for (int card = 1; card <= 3; ++card) {
        const QString folder = workspace.makeFolder(QStringLiteral("card%1").arg(card));
        for (int i = 0; i < 3; ++i)
            workspace.write(QStringLiteral("card%1/SMALL%2.MOV").arg(card).arg(i), recording(9000, 1));
        QVERIFY(QFile::link(workspace.path(QStringLiteral("large")), folder + QStringLiteral("/LARGE1.MOV")));
        QVERIFY(QFile::link(workspace.path(QStringLiteral("large")), folder + QStringLiteral("/LARGE2.MOV")));
        cards.append(folder);
    }
    const QString target = workspace.path(QStringLiteral("dst"));

    AppController controller;
    CardReports reports(controller);
    // Each card waits before its second large file, so that none has ended when the others are stopped.
    std::atomic<int> begun[3] = {};
    std::atomic<int> waiting{0};
    std::atomic<bool> stopped{false};
    reports.onReport = [&](int card, const QString &text) {
        if (!text.startsWith(QStringLiteral("Copying")) || !text.contains(QStringLiteral("LARGE")) ||
            ++begun[card - 1] != 2)
            return;
        ++waiting;
        while (!stopped)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    };
    controller.copyFiles(cards.at(0), cards.at(1), cards.at(2), target, {}, {});
    QElapsedTimer timer;
    timer.start();
    // Until something stands whole and something else is in the middle.
    while ((visibleBelow(target).isEmpty() || unfinishedBytes(target) < 8 * mebibyte) && waiting < 3 &&
           timer.elapsed() < hangMilliseconds)
        std::this_thread::yield();
    controller.stopJobs();
    // From here on no more than one piece of a file is copied; only what lacks less may still become whole.
    int nearlyWhole = 0;
    for (const QString &file : unfinishedBelow(target))
        nearlyWhole += QFileInfo(target + QLatin1Char('/') + file).size() > (pieces - 8) * mebibyte ? 1 : 0;
    const int large = visibleBelow(target).filter(QStringLiteral("LARGE")).size();
    stopped = true;
    QVERIFY(AppController::waitForJobs(hangMilliseconds));
    QVERIFY(visibleBelow(target).filter(QStringLiteral("LARGE")).size() <= large + nearlyWhole);

    QCOMPARE(unfinishedBelow(target), QStringList());
    int whole = 0;
    for (const QString &file : filesBelow(target)) {
        ++whole;
        const QString source = QString(file).remove(QRegularExpression(QStringLiteral("_cam[123]")));
        const QString card = cards.at(QString(file).remove(QStringLiteral(".MOV")).right(1).toInt() - 1);
        QVERIFY2(sameContent(card + QLatin1Char('/') + source, target + QLatin1Char('/') + file),
                 qPrintable(file));
    }
    QVERIFY2(whole > 0 && whole < 15, qPrintable(QString::number(whole)));
    for (int card = 1; card <= 3; ++card) {
        const QStringList final = reports.finalOf(card);
        QCOMPARE(final.size(), 1);
        QVERIFY2(final.constFirst().startsWith(QStringLiteral("0 1 1 Error: Stopped after ")),
                 qPrintable(final.constFirst()));
    }
    QVERIFY(!QFileInfo::exists(target + QLatin1Char('/') + logName));
}

void TestAppController::closingWhileCopiesWaitForTheDisk()
{
    const Workspace workspace;
    const QString card = workspace.makeFolder(QStringLiteral("card"));
    workspace.write(QStringLiteral("card/A.MOV"), recording(48 * mebibyte, 1));
    AppController controller;
    CardReports reports(controller);
    QElapsedTimer timer;
    // A report of the last file would say that the card has ended; it waits for the disk, the log doesn't.
    std::atomic<bool> told{false};
    reports.onReport = [&](int, const QString &text) {
        if (text.endsWith(QStringLiteral(" correctly.")))
            told = true;
    };
    const LogWatch watch(QStringLiteral("Card 1: copied file "), [&] {
        timer.start();
        controller.stopJobs();
    });
    import(controller, {card, QString(), QString()}, workspace.path(QStringLiteral("dst")));
    QVERIFY(timer.isValid());
    QVERIFY2(timer.elapsed() < closingMilliseconds, qPrintable(QString::number(timer.elapsed())));
    QVERIFY(!told);
    QCOMPARE(reports.finalOf(1),
             QStringList{QStringLiteral("0 1 1 Error: Stopped after 1/1 videos and 0/0 photos.")});
    QCOMPARE(filesBelow(workspace.path(QStringLiteral("dst"))), QStringList{QStringLiteral("A_cam1.MOV")});
    QVERIFY(sameContent(card + QStringLiteral("/A.MOV"), workspace.path(QStringLiteral("dst/A_cam1.MOV"))));
}

void TestAppController::afterClosingNothingIsCopied()
{
    const Workspace workspace;
    const QStringList cards = writeCards(workspace);
    AppController controller;
    const CardReports reports(controller);
    controller.stopJobs();
    import(controller, cards, workspace.path(QStringLiteral("dst")));
    QCOMPARE(filesBelow(workspace.path(QStringLiteral("dst"))), QStringList());
    for (int card = 1; card <= 3; ++card)
        QCOMPARE(reports.finalOf(card).size(), 1);
}

void TestAppController::aControllerThatIsGoneIsNotTouched()
{
    const Workspace workspace;
    for (int card = 1; card <= 3; ++card) {
        for (int i = 0; i < 40; ++i)
            workspace.write(QStringLiteral("card%1/%2.MOV").arg(card).arg(i), recording(200000, 1));
    }
    int delivered = 0;
    for (int round = 0; round < 5; ++round) {
        auto controller = std::make_unique<AppController>();
        connect(controller.get(), &AppController::updateCardProgress, this, [&] { ++delivered; });
        CardReports reports(*controller);
        controller->copyFiles(workspace.path(QStringLiteral("card1")),
                              workspace.path(QStringLiteral("card2")),
                              workspace.path(QStringLiteral("card3")),
                              workspace.path(QStringLiteral("dst%1").arg(round)), {}, {});
        while (reports.count() < 20 * (round + 1))
            std::this_thread::yield();
        controller->stopJobs();
        QVERIFY(AppController::waitForJobs(hangMilliseconds));
        const int said = reports.count();
        controller.reset();
        QCOMPARE(QThreadPool::globalInstance()->activeThreadCount(), 0);
        QCoreApplication::processEvents();
        QCOMPARE(reports.count(), said);
        QCOMPARE(unfinishedBelow(workspace.path(QStringLiteral("dst%1").arg(round))), QStringList());
    }
    // What was still on its way to the view went with the controller or came before; none came later.
    const int early = delivered;
    QTest::qWait(50);
    QCOMPARE(delivered, early);
}

KELPORA_TEST_MAIN(TestAppController)
#include "tst_appcontroller.moc"
