#include "app/log.h"
#include "app/screen.h"
#include "tests/support/messagelog.h"
#include "tests/support/testmain.h"
#include "tests/support/volumes.h"
#include "tests/support/workspace.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSysInfo>

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

const QString logFile = QStringLiteral("data/Kelpora 360/Kelpora360.log");
const QString echoFile = QStringLiteral("stderr");
constexpr int stampLength = 23;

/// Sends the process's standard error into a file of the workspace while it lives.
class StandardError
{
    Q_DISABLE_COPY(StandardError)

public:
    explicit StandardError(const Workspace &workspace)
        : kept_(::dup(STDERR_FILENO))
    {
        const int file = ::open(QFile::encodeName(workspace.path(echoFile)).constData(),
                                O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        ::dup2(file, STDERR_FILENO);
        ::close(file);
    }
    ~StandardError()
    {
        std::fflush(stderr);
        ::dup2(kept_, STDERR_FILENO);
        ::close(kept_);
    }

private:
    int kept_;
};

void handle(const Workspace &workspace, QtMsgType type, const QString &text,
            const QMessageLogContext &context = {})
{
    const StandardError captured(workspace);
    AppMessageHandler(type, context, text);
}

bool stampedBetween(const QByteArray &line, const QDateTime &before, const QDateTime &after)
{
    const QDateTime time = QDateTime::fromString(QString::fromLatin1(line.left(stampLength)),
                                                 QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz"));
    return time.isValid() && time >= before && time <= after;
}

} // namespace

class TestLog : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void levels_data();
    void levels();
    void worker();
    void texts_data();
    void texts();
    void contextNamesAFile();
    void everyMessageIsAppended();
    void aLogThatAnotherProcessTakesAway();
    void anotherSupportFolder();
    void fatalLeavesNoTrace();
    void logThatCannotBeOpened();
    void reset_data();
    void reset();
    void environment();
    void threadsLeaveEachLineWhole();
    void aLogThatGrowsTooLong_data();
    void aLogThatGrowsTooLong();
};

void TestLog::init()
{
    QCoreApplication::setApplicationName(QStringLiteral("Kelpora 360"));
}

void TestLog::levels_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QByteArray>("level");

    QTest::newRow("debug") << int(QtDebugMsg) << QByteArray("Debug");
    QTest::newRow("info") << int(QtInfoMsg) << QByteArray("Info");
    QTest::newRow("warning") << int(QtWarningMsg) << QByteArray("Warning");
    QTest::newRow("critical") << int(QtCriticalMsg) << QByteArray("Critical");
}

void TestLog::levels()
{
    QFETCH(int, type);
    QFETCH(QByteArray, level);

    const Workspace workspace;
    const QDateTime before = QDateTime::currentDateTime();
    handle(workspace, QtMsgType(type), QStringLiteral("abc"));

    const QByteArray echo = workspace.read(echoFile);
    QVERIFY2(stampedBetween(echo, before, QDateTime::currentDateTime()), echo.constData());
    QCOMPARE(echo.mid(stampLength), " " + level + ": abc\n");
    QCOMPARE(workspace.read(logFile), "Logfile path:\n" + echo);
}

void TestLog::worker()
{
    const Workspace workspace;
    const QDateTime before = QDateTime::currentDateTime();
    {
        const StandardError captured(workspace);
        const QtMessageHandler previous = qInstallMessageHandler(AppMessageHandler);
        std::thread([] { qWarning("abc"); }).join();
        qInstallMessageHandler(previous);
    }
    const QByteArray echo = workspace.read(echoFile);
    QVERIFY2(stampedBetween(echo, before, QDateTime::currentDateTime()), echo.constData());
    QCOMPARE(echo.mid(stampLength), QByteArray(" Warning: abc\n"));
    QCOMPARE(workspace.read(logFile), "Logfile path:\n" + echo);
}

void TestLog::texts_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QByteArray>("echo");

    QTest::newRow("a letter of Latin-1 is one byte on standard error")
        << QString::fromUtf8("\u00dc") << QByteArray("\xdc");
    QTest::newRow("a letter outside Latin-1 is a substitute on standard error")
        << QString::fromUtf8("a\u4e2db") << QByteArray("a?b");
    QTest::newRow("a placeholder in the text is text")
        << QStringLiteral("%1 of %2, %3") << QByteArray("%1 of %2, %3");
    QTest::newRow("a printf directive in the text is text")
        << QStringLiteral("100%s%n") << QByteArray("100%s%n");
    QTest::newRow("no text") << QString() << QByteArray();
    QTest::newRow("lines within a text") << QStringLiteral("a\nb") << QByteArray("a\nb");
    QTest::newRow("a long text") << QString(100000, QLatin1Char('x')) << QByteArray(100000, 'x');
}

void TestLog::texts()
{
    QFETCH(QString, text);
    QFETCH(QByteArray, echo);

    if (QString::fromUtf8(text.toLocal8Bit()) != text)
        QSKIP("The locale is not a UTF-8 one.");
    const Workspace workspace;
    handle(workspace, QtInfoMsg, text);
    QCOMPARE(workspace.read(echoFile).mid(stampLength), " Info: " + echo + "\n");
    QCOMPARE(workspace.read(logFile).mid(int(qstrlen("Logfile path:\n")) + stampLength),
             " Info: " + text.toUtf8() + "\n");
}

void TestLog::contextNamesAFile()
{
    const Workspace workspace;
    handle(workspace, QtInfoMsg, QStringLiteral("abc"), QMessageLogContext("lib.cpp", 42, "f()", "default"));
    const QByteArray echo = workspace.read(echoFile);
    QCOMPARE(echo.mid(stampLength), QByteArray(" Info: abc\t(lib.cpp:42)\n"));
    QCOMPARE(workspace.read(logFile), "Logfile path:\n" + echo.left(stampLength) + " Info: abc\n");
}

void TestLog::everyMessageIsAppended()
{
    const Workspace workspace;
    workspace.write(logFile, "kept\n");
    handle(workspace, QtInfoMsg, QStringLiteral("one"));
    const QByteArray afterOne = workspace.read(logFile);
    handle(workspace, QtInfoMsg, QStringLiteral("two"));
    const QByteArray afterTwo = workspace.read(logFile);
    QVERIFY(afterOne.startsWith("kept\nLogfile path:\n"));
    QVERIFY(afterOne.endsWith(" Info: one\n"));
    QVERIFY(afterTwo.startsWith(afterOne + "Logfile path:\n"));
    QVERIFY(afterTwo.endsWith(" Info: two\n"));
    QCOMPARE(afterTwo.count('\n'), 5);
}

void TestLog::aLogThatAnotherProcessTakesAway()
{
    const Workspace workspace;
    handle(workspace, QtInfoMsg, QStringLiteral("one"));
    QVERIFY(QFile::remove(workspace.path(logFile)));
    handle(workspace, QtInfoMsg, QStringLiteral("two"));
    QVERIFY(workspace.read(logFile).startsWith("Logfile path:\n"));
    QVERIFY(workspace.read(logFile).endsWith(" Info: two\n"));
    QVERIFY(QFile::remove(workspace.path(logFile)));
    workspace.write(logFile, "its own\n");
    handle(workspace, QtInfoMsg, QStringLiteral("three"));
    QVERIFY(workspace.read(logFile).startsWith("its own\n"));
    QVERIFY(workspace.read(logFile).endsWith(" Info: three\n"));
    const QByteArray sent = workspace.read(logFile);
    QVERIFY(QFile::rename(workspace.path(logFile), workspace.path(QStringLiteral("sent"))));
    handle(workspace, QtInfoMsg, QStringLiteral("four"));
    QCOMPARE(workspace.read(QStringLiteral("sent")), sent);
    QVERIFY(workspace.read(logFile).endsWith(" Info: four\n"));
}

void TestLog::anotherSupportFolder()
{
    const Workspace workspace;
    handle(workspace, QtInfoMsg, QStringLiteral("first"));
    qputenv("XDG_DATA_HOME", QFile::encodeName(workspace.makeFolder(QStringLiteral("moved"))));
    handle(workspace, QtInfoMsg, QStringLiteral("second"));
    QVERIFY(workspace.read(logFile).endsWith(" Info: first\n"));
    QVERIFY(workspace.read(QStringLiteral("moved/Kelpora 360/Kelpora360.log")).endsWith(" Info: second\n"));
}

void TestLog::fatalLeavesNoTrace()
{
    const Workspace workspace;
    const pid_t child = ::fork();
    QVERIFY(child >= 0);
    if (child == 0) {
        const struct rlimit noCore = {0, 0};
        ::setrlimit(RLIMIT_CORE, &noCore);
        std::signal(SIGABRT, SIG_DFL);
        const StandardError captured(workspace);
        AppMessageHandler(QtFatalMsg, {}, QStringLiteral("the end"));
        ::_exit(0);
    }
    int status = 0;
    QCOMPARE(::waitpid(child, &status, 0), child);
    QVERIFY2(WIFSIGNALED(status), "the process survived");
    QCOMPARE(WTERMSIG(status), SIGABRT);
    QCOMPARE(workspace.read(echoFile), QByteArray());
    QCOMPARE(QFileInfo::exists(workspace.path(logFile)), false);
}

void TestLog::logThatCannotBeOpened()
{
    const Workspace workspace;
    workspace.makeFolder(logFile);
    handle(workspace, QtWarningMsg, QStringLiteral("abc"));
    QCOMPARE(workspace.read(echoFile).mid(stampLength), QByteArray(" Warning: abc\n"));
    QVERIFY(QFileInfo(workspace.path(logFile)).isDir());
}

void TestLog::reset_data()
{
    QTest::addColumn<bool>("present");

    QTest::newRow("an earlier run's log is deleted") << true;
    QTest::newRow("the first run has none to delete") << false;
}

void TestLog::reset()
{
    QFETCH(bool, present);

    const Workspace workspace;
    if (present)
        workspace.write(logFile, "an earlier run\n");
    resetLog();
    QCOMPARE(QFileInfo::exists(workspace.path(logFile)), false);
    handle(workspace, QtInfoMsg, QStringLiteral("Application start"));
    QCOMPARE(workspace.read(logFile), "Logfile path:\n" + workspace.read(echoFile));
}

void TestLog::environment()
{
    const Workspace workspace;
    AppScreen screen(2.5);
    screen.executablePath = QStringLiteral("/opt/kelpora360");
    screen.applicationDirectory = QStringLiteral("/opt");
    screen.physicalSizeHeight = 1.5;
    screen.physicalDpi = 2.25;
    screen.logicalDpi = 3.75;
    screen.sizeHeight = 4;
    screen.geometryHeight = 5;
    screen.availableSizeHeight = 6;
    screen.availableGeometryHeight = 7;
    screen.availableVirtualGeometryHeight = 8;
    screen.availableVirtualSizeHeight = 9;
    screen.virtualGeometryHeight = 10;
    screen.virtualSizeHeight = 11;
    screen.calculatedScaleFactor = 0.0;
    screen.scaleFactor = 1.0;

    const MessageLog log;
    logEnvironment(QStringLiteral("Kelpora 360"), QStringLiteral("1.8.0"), screen);
    const QStringList expected = {
        "info: AppName: \"Kelpora 360\"",
        "info: AppVersion: \"1.8.0\"",
        "info: AppExecutable: \"/opt/kelpora360\"",
        "info: AppDirectory: \"/opt\"",
        QStringLiteral("info: WorkingDirectory: \"%1\"").arg(QDir::currentPath()),
        QStringLiteral("info: CpuArchitecture: \"%1\"").arg(QSysInfo::currentCpuArchitecture()),
        QStringLiteral("info: KernelType: \"%1\"").arg(QSysInfo::kernelType()),
        QStringLiteral("info: KernelVersion: \"%1\"").arg(QSysInfo::kernelVersion()),
        QStringLiteral("info: OperatingSystem: \"%1\" \"%2\"")
            .arg(QSysInfo::productType(), QSysInfo::productVersion()),
        "info: PhysicalSizeHeight: 1.5",
        "info: PhysicalDpi: 2.25",
        "info: LogicalDpi: 3.75",
        "info: SizeHeight: 4",
        "info: GeometryHeight: 5",
        "info: AvailableSizeHeight: 6",
        "info: AvailableGeometryHeight: 7",
        "info: AvailableVirtualGeometryHeight: 8",
        "info: AvailableVirtualSizeHeight: 9",
        "info: VirtualGeometryHeight: 10",
        "info: VirtualSizeHeight: 11",
        "info: CalculatedScaleFactor: 0",
        "info: SettingsScaleFactor: 2.5",
        "info: ScaleFactor: 1",
    };
    QCOMPARE(MessageLog::lines(), expected);
}

void TestLog::threadsLeaveEachLineWhole()
{
    const Workspace workspace;
    constexpr int threads = 4;
    constexpr int messages = 50;
    {
        const StandardError captured(workspace);
        std::vector<std::thread> workers;
        for (int number = 0; number < threads; ++number) {
            workers.emplace_back([number] {
                for (int i = 0; i < messages; ++i)
                    AppMessageHandler(QtInfoMsg, {},
                                      QStringLiteral("thread %1 message %2").arg(number).arg(i));
            });
        }
        for (std::thread &thread : workers)
            thread.join();
    }

    QMap<QByteArray, int> texts;
    const QList<QByteArray> lines = workspace.read(logFile).split('\n');
    for (const QByteArray &line : lines)
        ++texts[line == "Logfile path:" || line.isEmpty() ? line : line.mid(stampLength)];
    QCOMPARE(texts.take("Logfile path:"), threads * messages);
    QCOMPARE(texts.take(""), 1);
    QCOMPARE(texts.size(), threads * messages);
    for (int number = 0; number < threads; ++number) {
        for (int i = 0; i < messages; ++i)
            QCOMPARE(texts.value(QStringLiteral(" Info: thread %1 message %2").arg(number).arg(i).toLatin1()),
                     1);
    }
    QCOMPARE(workspace.read(echoFile).count('\n'), threads * messages);
}

void TestLog::aLogThatGrowsTooLong_data()
{
    QTest::addColumn<int>("diskMiB"); // 0: as large as it needs
    QTest::addColumn<int>("mostMiB");
    QTest::addColumn<int>("length"); // of a message
    QTest::newRow("a large disk") << 0 << 33 << 100000;
    QTest::newRow("a disk that is full") << 8 << 8 << 100000;
    QTest::newRow("a disk that is full, short lines") << 4 << 4 << 1000;
}

void TestLog::aLogThatGrowsTooLong()
{
    QFETCH(int, diskMiB);
    QFETCH(int, mostMiB);
    QFETCH(int, length);
    constexpr int mebibyte = 1 << 20;
    constexpr int threads = 3;
    const int messages = 80 * mebibyte / (length < 10000 ? 8 : 1) / length / threads;
    const Workspace workspace;
    const QFileInfo log(workspace.path(logFile));
    std::unique_ptr<TestVolume> disk;
    if (diskMiB > 0) {
        disk = std::make_unique<TestVolume>(log.path(), diskMiB * 1024);
        SKIP_UNLESS_MOUNTED(*disk);
    }
    {
        const StandardError captured(workspace);
        AppMessageHandler(QtInfoMsg, {}, QStringLiteral("the first"));
        std::vector<std::thread> workers;
        for (int number = 0; number < threads; ++number) {
            workers.emplace_back([=] {
                for (int i = 0; i < messages; ++i)
                    AppMessageHandler(QtInfoMsg, {}, QString(length, QLatin1Char('x')));
            });
        }
        for (std::thread &thread : workers)
            thread.join();
        AppMessageHandler(QtInfoMsg, {}, QStringLiteral("the last"));
    }
    QVERIFY(QFile::remove(workspace.path(echoFile)));

    const QByteArray text = workspace.read(logFile);
    QVERIFY2(text.size() <= mostMiB * mebibyte, qPrintable(QString::number(text.size())));
    QVERIFY2(text.size() >= mostMiB * mebibyte / 4, qPrintable(QString::number(text.size())));
    QVERIFY(text.endsWith(" Info: the last\n"));
    const QList<QByteArray> lines = text.split('\n');
    QCOMPARE(lines.at(0), QByteArray("Logfile path:"));
    QVERIFY(lines.at(1).endsWith(" Info: the first"));
    int told = 0;
    for (const QByteArray &line : lines)
        told +=
            line.contains(" Warning: The log is too long, ") && line.endsWith(" bytes are left out here.");
    QVERIFY(told > 0);
    if (diskMiB > 0)
        return;
    for (int i = 0; i + 1 < lines.size(); i += 2) {
        QCOMPARE(lines.at(i), QByteArray("Logfile path:"));
        QVERIFY(lines.at(i + 1).size() > stampLength && lines.at(i + 1) != "Logfile path:");
    }
}

KELPORA_TEST_MAIN(TestLog)
#include "tst_log.moc"
