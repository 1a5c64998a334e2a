#include "app/appcontroller.h"
#include "app/paths.h"
#include "controller/firmwareupdate.h"
#include "controller/shellcommand.h"
#include "tests/support/messagelog.h"
#include "tests/support/testmain.h"
#include "tests/support/workspace.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QMetaMethod>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QThread>

#include <stdexcept>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

namespace {

const QString started = QStringLiteral("Firmware update started");
const QString notStarted = QStringLiteral("Firmware update failed to start");
const QString endReport = QStringLiteral("0 2 2 Error updating firmware.");
constexpr int hangMilliseconds = 120000;

/// Puts a flashing tool into the utilities folder: a shell script.
QString installTool(const QByteArray &script)
{
    const MessageLog log;
    for (const char *folder : {"/utilities", "/firmware"})
        QDir().mkpath(appPath + QLatin1String(folder));
    const QString folder = getUtilitiesDir();
    if (QDir(folder).dirName() != QLatin1String("utilities"))
        qFatal("The utilities folder is %s", qPrintable(folder));
    const QString path = folder + QStringLiteral("/bootloader");
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write("#!/bin/sh\n" + script + '\n') < 0)
        qFatal("The test can't write %s", qPrintable(path));
    file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    return path;
}

QString a(int count)
{
    return {count, QLatin1Char('a')};
}

QString line(const Progress &progress)
{
    return QStringLiteral("%1 %2 %3 ").arg(progress.from).arg(progress.to).arg(progress.value) +
           progress.text;
}

/// A shell command that waits for a file, for at most 20 s.
QByteArray waitFor(const char *file)
{
    return QByteArray("for i in $(seq 400); do [ -e FILE ] && break; sleep 0.05; done; ")
        .replace("FILE", file);
}

/// Runs the job; returns what it told and, in between, what the tool printed.
QStringList flash(const QString &port = QStringLiteral("tty"), const QString &image = QStringLiteral("x.hex"),
                  const StopFlag *stop = nullptr)
{
    QStringList said;
    FirmwareUpdate({port, image, getUtilitiesDir(), getFirmwareDir(),
                    [&](const Progress &progress) { said.append(line(progress)); },
                    [&](const QString &message) { said.append(message); }, stop})
        .run();
    return said;
}

/// No file can be opened while it lives.
class NoMoreFiles
{
    Q_DISABLE_COPY(NoMoreFiles)

public:
    NoMoreFiles()
    {
        ::getrlimit(RLIMIT_NOFILE, &before_);
        const int next = ::dup(0);
        ::close(next);
        rlimit none = before_;
        none.rlim_cur = static_cast<rlim_t>(next);
        ::setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoMoreFiles() { ::setrlimit(RLIMIT_NOFILE, &before_); }

private:
    rlimit before_ = {};
};

} // namespace

class TestShellCommand : public QObject
{
    Q_OBJECT

private slots:
    void metaObject();
    void aNewOne();
    void output_data();
    void output();
    void messagesComeWhileTheToolRuns();
    void noPipe();
    void runningIsSetWhileTheToolRuns();
    void processOutput_data();
    void processOutput();
    void processEvents();
    void processGoesWithTheCommand();
    void withoutProcess();
    void commandLine_data();
    void commandLine();
    void whatTheToolIsGiven_data();
    void whatTheToolIsGiven();
    void reports_data();
    void reports();
    void aMissingTool_data();
    void aMissingTool();
    void anErrorInTheMiddleEndsInAReport();
    void theController();
    void theControllerStaysUsable();
    void closingWaitsForTheTool();
    void noToolIsStartedWhenTheProgramCloses();
};

void TestShellCommand::metaObject()
{
    const QMetaObject &meta = ShellCommand::staticMetaObject;
    QCOMPARE(meta.superClass(), &QObject::staticMetaObject);
    QStringList methods;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        const QMetaMethod method = meta.method(i);
        methods.append(QString::fromLatin1(method.methodType() == QMetaMethod::Signal ? "signal " : "slot ") +
                       QString::fromLatin1(method.methodSignature()) + QLatin1Char(' ') +
                       QString::fromLatin1(method.parameterNames().join(' ')));
    }
    QCOMPARE(methods, (QStringList{"signal newMessage(QString) message", "slot onStdoutAvailable() ",
                                   "slot onStderrAvailable() ", "slot onError(QProcess::ProcessError) error",
                                   "slot onFinished(int,QProcess::ExitStatus) exitCode exitStatus",
                                   "slot onStateChanged(QProcess::ProcessState) state"}));
}

void TestShellCommand::aNewOne()
{
    QObject parent;
    const ShellCommand command(&parent);
    QCOMPARE(command.parent(), &parent);
    QCOMPARE(command.running, false);
    QCOMPARE(command.success, false);
    QVERIFY(command.process.isNull());
    QVERIFY(ShellCommand().parent() == nullptr);
}

void TestShellCommand::output_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<QStringList>("messages");
    const QString broken = QString(QChar::ReplacementCharacter);
    QTest::newRow("nothing") << QByteArray("true") << QStringList();
    QTest::newRow("nothing, and failed") << QByteArray("exit 3") << QStringList();
    QTest::newRow("killed after a line") << QByteArray("echo one; kill -9 $$") << QStringList{"one\n"};
    QTest::newRow("two lines, and failed")
        << QByteArray("echo one; echo two; exit 1") << QStringList{"one\n", "one\ntwo\n"};
    QTest::newRow("a line in pieces")
        << QByteArray("printf ab; sleep 0.1; printf cd; sleep 0.1; printf 'e\\nf'")
        << QStringList{"abcde\n", "abcde\nf"};
    QTest::newRow("empty lines") << QByteArray("printf '\\n\\n'") << QStringList{"\n", "\n\n"};
    QTest::newRow("39 characters") << QByteArray("printf %039d 0 | tr 0 a") << QStringList{a(39)};
    QTest::newRow("40 characters") << QByteArray("printf %040d 0 | tr 0 a")
                                   << QStringList{a(39), a(40) + "\n"};
    QTest::newRow("38 characters and a line end")
        << QByteArray("printf '%038d\\nb' 0 | tr 0 a") << QStringList{a(38) + "\n", a(38) + "\nb"};
    QTest::newRow("39 characters and a line end")
        << QByteArray("printf '%039d\\nb' 0 | tr 0 a") << QStringList{a(39), a(39) + "\n", a(39) + "\nb"};
    QTest::newRow("100 characters in one line")
        << QByteArray("printf %0100d 0 | tr 0 a") << QStringList{a(39), a(78) + "\n", a(78) + "\n" + a(22)};
    QTest::newRow("100 characters and a line end")
        << QByteArray("printf '%0100d\\n' 0 | tr 0 a")
        << QStringList{a(39), a(78) + "\n", a(78) + "\n" + a(22) + "\n"};
    QTest::newRow("a short line before a long one")
        << QByteArray("printf '0\\n%050d' 0 | tr 0 a")
        << QStringList{"a\n", "a\n" + a(39), "a\n" + a(50) + "\n"};
    QTest::newRow("a character split across two pieces")
        << QByteArray("printf '%038d\\303\\244b' 0 | tr 0 a")
        << QStringList{a(38) + broken, a(38) + broken + broken + "b\n"};
    QTest::newRow("a character whole in the second piece")
        << QByteArray("printf '%039d\\303\\244' 0 | tr 0 a")
        << QStringList{a(39), a(39) + QString::fromUtf8("\303\244") + "\n"};
    QTest::newRow("characters, not bytes, make the length")
        << QByteArray("for i in 1 2 3 4 5; do printf '\\344\\275\\240\\345\\245\\275\\346\\265\\267'; done; "
                      "printf %04d 0")
        << QStringList{QString::fromUtf8(
                           "\u4f60\u597d\u6d77\u4f60\u597d\u6d77\u4f60\u597d\u6d77\u4f60\u597d\u6d77\u4f60"),
                       QString::fromUtf8(
                           "\u4f60\u597d\u6d77\u4f60\u597d\u6d77\u4f60\u597d\u6d77\u4f60\u597d\u6d77\u4f60"
                           "\u597d\u6d77"
                           "0000")};
    QTest::newRow("not UTF-8") << QByteArray("printf 'x\\377y\\n'") << QStringList{"x" + broken + "y\n"};
    QTest::newRow("a carriage return")
        << QByteArray("printf '10%%\\r20%%\\r\\n'") << QStringList{"10%\r20%\r\n"};
    QTest::newRow("placeholders") << QByteArray("echo '%1 %s'") << QStringList{"%1 %s\n"};
    QTest::newRow("errors aren't read") << QByteArray("echo lost >&2; echo kept") << QStringList{"kept\n"};
}

void TestShellCommand::output()
{
    QFETCH(QByteArray, script);
    QFETCH(QStringList, messages);
    const Workspace workspace;
    const QString tool = installTool(script);
    ShellCommand command;
    command.success = true;
    QStringList said;
    connect(&command, &ShellCommand::newMessage, this, [&](const QString &message) { said.append(message); });
    const MessageLog log;
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(command.run(tool, {}), false);
    QVERIFY(timer.elapsed() >= 1000);
    QCOMPARE(said, QStringList{started} + messages);
    QCOMPARE(MessageLog::lines(),
             QStringList{"info: Firmware update command line: " + tool} +
                 (QStringList{started} + messages)
                     .replaceInStrings(QRegularExpression(QStringLiteral("\\A")), QStringLiteral("info: ")));
    QCOMPARE(command.running, false);
    QCOMPARE(command.success, false);
    QVERIFY(command.process.isNull());
}

void TestShellCommand::messagesComeWhileTheToolRuns()
{
    const Workspace workspace;
    // It goes on when its line has come.
    const QString tool = installTool("cd '" + workspace.path().toLocal8Bit() + "'; echo 1; " + waitFor("1") +
                                     "echo 2; " + waitFor("2") + "echo 3");
    ShellCommand command;
    QStringList said;
    connect(&command, &ShellCommand::newMessage, this, [&](const QString &message) {
        said.append(message);
        workspace.write(QString::number(said.size() - 1), {});
    });
    const MessageLog log;
    QElapsedTimer timer;
    timer.start();
    command.run(tool, {});
    QVERIFY2(timer.elapsed() < 15000, qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(said, (QStringList{started, "1\n", "1\n2\n", "1\n2\n3\n"}));
}

void TestShellCommand::noPipe()
{
    const Workspace workspace;
    const QString tool = installTool("echo reached");
    ShellCommand command;
    QStringList said;
    connect(&command, &ShellCommand::newMessage, this, [&](const QString &message) { said.append(message); });
    const MessageLog log;
    QElapsedTimer timer;
    timer.start();
    {
        const NoMoreFiles none;
        QCOMPARE(command.run(tool, {"x"}), false);
    }
    QVERIFY(timer.elapsed() >= 1000);
    QCOMPARE(said, QStringList{notStarted});
    QCOMPARE(MessageLog::lines(),
             (QStringList{"info: Firmware update command line: " + tool + " x", "warning: " + notStarted}));
    QCOMPARE(command.running, false);
}

void TestShellCommand::runningIsSetWhileTheToolRuns()
{
    const Workspace workspace;
    const QString tool = installTool("echo 1");
    ShellCommand command;
    QList<bool> running;
    connect(&command, &ShellCommand::newMessage, this, [&] { running.append(command.running); });
    const MessageLog log;
    command.run(tool, {});
    QCOMPARE(running.last(), true);
    QCOMPARE(command.running, false);
}

void TestShellCommand::processOutput_data()
{
    QTest::addColumn<QString>("script");
    QTest::addColumn<QString>("logged");
    const auto row = [](const char *name, const QString &script, const QString &logged) {
        QTest::newRow(name) << script << logged;
    };
    row("one line", "printf 'one'", R"(("one"))");
    row("empty parts are kept", "printf 'one\\n\\ntwo\\n'", R"(("one", "", "two", ""))");
    row("up to a zero byte", "printf 'one\\ntw\\000o\\nthree'", R"(("one", "tw"))");
    row("nothing", "true", R"((""))");
}

void TestShellCommand::processOutput()
{
    QFETCH(QString, script);
    QFETCH(QString, logged);
    ShellCommand command;
    command.process = new QProcess;
    for (const bool error : {false, true}) {
        command.process->start(QStringLiteral("sh"), {"-c", error ? "{ " + script + "; } >&2; echo other"
                                                                  : script + "; echo other >&2"});
        QVERIFY(command.process->waitForFinished());
        const MessageLog log;
        if (error)
            command.onStderrAvailable();
        else
            command.onStdoutAvailable();
        QCOMPARE(MessageLog::lines(), QStringList{(error ? "warning: " : "info: ") + logged});
    }
    delete command.process;
}

void TestShellCommand::processEvents()
{
    ShellCommand command;
    const QPointer<QProcess> process = new QProcess;
    command.process = process;
    command.running = true;
    const MessageLog log;
    command.onStateChanged(QProcess::Starting);
    command.onStateChanged(QProcess::Running);
    command.onStateChanged(QProcess::NotRunning);
    command.onError(QProcess::FailedToStart);
    command.onError(QProcess::Crashed);
    command.onFinished(3, QProcess::CrashExit);
    QCOMPARE(MessageLog::lines(),
             (QStringList{"info: QProcess::Starting", "info: QProcess::Running", "info: QProcess::NotRunning",
                          "warning: QProcess::FailedToStart", "warning: QProcess::Crashed",
                          "info: Firmware update completed with code 3 and status 1"}));
    QCOMPARE(command.running, false);
    QCOMPARE(command.success, false);
    QVERIFY(!process.isNull());
    QCoreApplication::sendPostedEvents(process, QEvent::DeferredDelete);
    QVERIFY(process.isNull());
    command.onFinished(0, QProcess::NormalExit);
    QCOMPARE(MessageLog::lines().last(),
             QStringLiteral("info: Firmware update completed with code 0 and status 0"));
    QCOMPARE(command.success, false);
}

void TestShellCommand::processGoesWithTheCommand()
{
    const QPointer<QProcess> process = new QProcess;
    {
        ShellCommand command;
        command.process = process;
    }
    QVERIFY(!process.isNull());
    QCoreApplication::sendPostedEvents(process, QEvent::DeferredDelete);
    QVERIFY(process.isNull());
}

void TestShellCommand::withoutProcess()
{
    ShellCommand command;
    const MessageLog log;
    command.onStdoutAvailable();
    command.onStderrAvailable();
    QCOMPARE(MessageLog::lines(), QStringList());
}

void TestShellCommand::commandLine_data()
{
    QTest::addColumn<QString>("port");
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("arguments");
    const auto row = [](const char *name, const QString &port, const QString &file,
                        const QString &arguments) { QTest::newRow(name) << port << file << arguments; };
    // FW stands for the firmware folder.
    row("a port and an absolute image", "cu.usbserial-A1", "/fw/new.hex",
        "-p /dev/cu.usbserial-A1 /fw/new.hex");
    row("a bare image is in the firmware folder", "ttyUSB0", "new.hex", "-p /dev/ttyUSB0 FW/new.hex");
    row("an image in a folder of it", "ttyUSB0", "old/1.hex", "-p /dev/ttyUSB0 FW/old/1.hex");
    row("nothing is quoted", "tty U$B", "/f w/\u00fc%1.hex", "-p /dev/tty U$B /f w/\u00fc%1.hex");
    row("no port", "", "/fw/new.hex", "-p /dev/ /fw/new.hex");
}

void TestShellCommand::commandLine()
{
    QFETCH(QString, port);
    QFETCH(QString, file);
    QFETCH(QString, arguments);
    const Workspace workspace;
    const QString tool = installTool("true");
    const MessageLog log;
    flash(port, file);
    // Not in the tool's path: that of a temporary folder may hold any letters.
    arguments.replace(QStringLiteral("FW"), getFirmwareDir());
    QVERIFY2(MessageLog::lines().contains("info: Firmware update command line: " + tool + ' ' + arguments),
             qPrintable(MessageLog::lines().join(QLatin1Char('\n'))));
}

void TestShellCommand::whatTheToolIsGiven_data()
{
    QTest::addColumn<QString>("port");
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("words");
    const auto row = [](const char *name, const QString &port, const QString &file, const QString &words) {
        QTest::newRow(name) << port << file << words;
    };
    row("the port in two words", "ttyUSB0", "/fw/new.hex", "[-p]\n[/dev/ttyUSB0]\n[/fw/new.hex]\n");
    row("blanks split", "tty USB", "/f w/n  x.hex", "[-p]\n[/dev/tty]\n[USB]\n[/f]\n[w/n]\n[x.hex]\n");
    row("the shell reads it", "tty$((1+1))", "/fw/'a b'.hex", "[-p]\n[/dev/tty2]\n[/fw/a b.hex]\n");
    row("UTF-8", "tty", "/fw/\u00fc\u6d77.hex", "[-p]\n[/dev/tty]\n[/fw/\u00fc\u6d77.hex]\n");
}

void TestShellCommand::whatTheToolIsGiven()
{
    QFETCH(QString, port);
    QFETCH(QString, file);
    QFETCH(QString, words);
    const Workspace workspace;
    installTool("for word in \"$@\"; do echo \"[$word]\"; done");
    const MessageLog log;
    const QStringList said = flash(port, file);
    QCOMPARE(said.value(said.size() - 2), words);
}

void TestShellCommand::reports_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<QStringList>("relayed");
    QTest::newRow("flashed") << QByteArray("echo Done; exit 0") << QStringList{started, "Done\n"};
    QTest::newRow("failed") << QByteArray("echo Verify error; exit 1")
                            << QStringList{started, "Verify error\n"};
    QTest::newRow("silent") << QByteArray("exit 0") << QStringList{started};
}

void TestShellCommand::reports()
{
    QFETCH(QByteArray, script);
    QFETCH(QStringList, relayed);
    const Workspace workspace;
    installTool(script);
    const MessageLog log;
    QCOMPARE(flash(), relayed + QStringList{endReport});
}

void TestShellCommand::aMissingTool_data()
{
    QTest::addColumn<bool>("installed");
    QTest::newRow("not there") << false;
    QTest::newRow("may not be started") << true;
}

void TestShellCommand::aMissingTool()
{
    QFETCH(bool, installed);
    const Workspace workspace;
    if (installed)
        QFile::setPermissions(installTool("echo reached"), QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    const MessageLog log;
    QCOMPARE(flash(), (QStringList{started, endReport}));
}

void TestShellCommand::anErrorInTheMiddleEndsInAReport()
{
    const Workspace workspace;
    installTool("echo Writing");
    QStringList said;
    const MessageLog log;
    FirmwareUpdate({QStringLiteral("tty"), QStringLiteral("x.hex"), getUtilitiesDir(), getFirmwareDir(),
                    [&](const Progress &progress) { said.append(line(progress)); },
                    [](const QString &message) {
                        if (message != started)
                            throw std::runtime_error("no memory left");
                    }})
        .run();
    QCOMPARE(said, QStringList{endReport});
    QCOMPARE(MessageLog::lines(QStringLiteral("warning")),
             QStringList{"The firmware update failed: no memory left"});
}

void TestShellCommand::theController()
{
    const Workspace workspace;
    installTool("echo \"$@\"; echo two");
    AppController controller;
    controller.setPort(QStringLiteral("ttyOld"));
    // As the view gets it: on the main thread, in order.
    QStringList said;
    QList<QThread *> threads;
    connect(&controller, &AppController::updateFirmwareProgress, this,
            [&](const QVariant &from, const QVariant &to, const QVariant &value, const QVariant &text) {
                said.append(line({from.toInt(), to.toInt(), value.toInt(), text.toString()}));
                threads.append(QThread::currentThread());
            });
    const MessageLog log;
    QElapsedTimer timer;
    timer.start();
    controller.updateFirmware(QStringLiteral("ttyUSB7"), QStringLiteral("/fw/new.hex"));
    QVERIFY(timer.elapsed() < 900);
    QCOMPARE(controller.port(), QStringLiteral("ttyUSB7"));
    QTRY_COMPARE_WITH_TIMEOUT(said.isEmpty() ? QString() : said.last(), endReport, hangMilliseconds);
    const QString words = QStringLiteral("-p /dev/ttyUSB7 /fw/new.hex\n");
    QCOMPARE(said,
             (QStringList{"0 2 1 " + started, "0 2 1 " + words, "0 2 1 " + words + "two\n", endReport}));
    QCOMPARE(threads.count(thread()), threads.size());
    QVERIFY(AppController::waitForJobs(hangMilliseconds));
}

void TestShellCommand::theControllerStaysUsable()
{
    const Workspace workspace;
    installTool("echo 1; sleep 3; echo 2");
    AppController controller;
    QSignalSpy reports(&controller, &AppController::updateFirmwareProgress);
    const MessageLog log;
    controller.updateFirmware(QStringLiteral("tty"), QStringLiteral("/fw/new.hex"));
    int turns = 0;
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < 2000) {
        QTest::qWait(20);
        ++turns;
    }
    QVERIFY2(turns > 10, qPrintable(QString::number(turns)));
    QVERIFY(AppController::waitForJobs(hangMilliseconds));
    QCoreApplication::processEvents();
    QCOMPARE(reports.last().at(3).toString(), QStringLiteral("Error updating firmware."));
    QCOMPARE(reports.size(), 4);
}

void TestShellCommand::closingWaitsForTheTool()
{
    const Workspace workspace;
    installTool("cd '" + workspace.path().toLocal8Bit() + "'; echo 1; " + waitFor("go") + "touch flashed");
    AppController controller;
    QSignalSpy reports(&controller, &AppController::updateFirmwareProgress);
    const MessageLog log;
    controller.updateFirmware(QStringLiteral("tty"), QStringLiteral("/fw/new.hex"));
    QTRY_VERIFY(reports.size() >= 2);
    controller.stopJobs();
    QVERIFY(!AppController::waitForJobs(300));
    std::thread operation([&] {
        QThread::msleep(300);
        workspace.write(QStringLiteral("go"), {});
    });
    QVERIFY(controller.endJobs(hangMilliseconds));
    QVERIFY(QFile::exists(workspace.path(QStringLiteral("flashed"))));
    operation.join();
}

void TestShellCommand::noToolIsStartedWhenTheProgramCloses()
{
    const Workspace workspace;
    installTool("echo reached");
    const MessageLog log;
    StopFlag stop;
    stop.raise();
    QCOMPARE(flash(QStringLiteral("tty"), QStringLiteral("x.hex"), &stop), QStringList{endReport});
}

KELPORA_TEST_MAIN(TestShellCommand)
#include "tst_shellcommand.moc"
