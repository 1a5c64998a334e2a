#include "app/version.h"
#include "platform/graphics.h"
#include "tests/support/testmain.h"
#include "tests/support/workspace.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QLibraryInfo>
#include <QProcess>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QStandardPaths>

#include <algorithm>
#include <array>
#include <csignal>
#include <sys/stat.h>

namespace {

using Texts = QMap<QString, QString>;

const QString settingsFile = QStringLiteral("data/Kelpora 360/Kelpora360.ini");
const QString logFile = QStringLiteral("data/Kelpora 360/Kelpora360.log");
const QString socketFile = QStringLiteral("data/Kelpora 360/Kelpora360.socket");
const QString reportFile = QStringLiteral("report");
constexpr int runTimeoutMs = 60000;

QString program()
{
    return QString::fromLocal8Bit(KELPORA360);
}

/// Runs the program on a screen that nobody sees until its window is closed, without the variables `unset`,
/// drawn by `renderer`. Null, or what went wrong.
QString run(const Workspace &workspace, const QString &executable = program(), const QStringList &unset = {},
            const QString &renderer = QStringLiteral("software"))
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const char *name : {"QT_SCALE_FACTOR", "QT_AUTO_SCREEN_SCALE_FACTOR", "QT_LOGGING_RULES"})
        environment.remove(QString::fromLatin1(name));
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    environment.insert(QStringLiteral("QT_QUICK_BACKEND"), renderer);
    environment.insert(QStringLiteral("QT_PLUGIN_PATH"), QStringLiteral(PROBE_PLUGINS));
    environment.insert(QStringLiteral("QT_QPA_GENERIC_PLUGINS"), QStringLiteral("startupprobe"));
    environment.insert(QStringLiteral("STARTUP_REPORT"), workspace.path(reportFile));
    // Qt's offscreen platform keeps its screen until exit.
    environment.insert(QStringLiteral("ASAN_OPTIONS"),
                       environment.value(QStringLiteral("ASAN_OPTIONS")) + QStringLiteral(":detect_leaks=0"));
    // Qt warns of one that is missing or open to others.
    const QString runtime = workspace.makeFolder(QStringLiteral("runtime"));
    QFile::setPermissions(runtime, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime);
    for (const QString &name : unset)
        environment.remove(name);
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(executable, QStringList());
    const bool ended = process.waitForFinished(runTimeoutMs);
    if (!ended) {
        process.kill();
        process.waitForFinished();
    }
    const QString lastWords = QString::fromLocal8Bit(process.readAll()).right(200);
    if (!ended)
        return QStringLiteral("It did not end: ") + lastWords;
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0)
        return QStringLiteral("It ended with %1: ").arg(process.exitCode()) + lastWords;
    return {};
}

/// The program in a window that nobody sees and nobody closes.
struct RunningProgram
{
    RunningProgram() = default;
    ~RunningProgram()
    {
        process.kill();
        process.waitForFinished();
    }
    Q_DISABLE_COPY(RunningProgram)

    bool start()
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        environment.insert(QStringLiteral("QT_QUICK_BACKEND"), QStringLiteral("software"));
        process.setProcessEnvironment(environment);
        process.start(program(), QStringList());
        return process.waitForStarted();
    }

    QProcess process;
};

Texts pairs(const QByteArray &content)
{
    Texts result;
    const QList<QByteArray> lines = content.split('\n');
    for (const QByteArray &line : lines) {
        const int mark = line.indexOf('=');
        if (mark > 0)
            result.insert(QString::fromUtf8(line.left(mark)), QString::fromUtf8(line.mid(mark + 1)));
    }
    return result;
}

/// The log's messages without their times; an empty list if it isn't made of pairs of lines.
QStringList messages(const Workspace &workspace)
{
    static const QRegularExpression stamped(
        QStringLiteral("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} (.*)$"));
    QStringList lines = QString::fromUtf8(workspace.read(logFile)).split(QLatin1Char('\n'));
    if (lines.takeLast() != QString() || lines.size() % 2 != 0)
        return {};
    QStringList result;
    for (int i = 0; i < lines.size(); i += 2) {
        const QRegularExpressionMatch match = stamped.match(lines.at(i + 1));
        if (lines.at(i) != QLatin1String("Logfile path:") || !match.hasMatch())
            return {};
        result.append(match.captured(1));
    }
    return result;
}

} // namespace

Q_DECLARE_METATYPE(Texts)

class TestStartup : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void switches_data();
    void switches();
    void logOfOneRun();
    void secondRunReplacesTheLog();
    void otherSettingsAreLeftAlone();
    void settingsThatCannotBeWritten();
    void staleSettingsLock();
    void noRegularSettingsFile_data();
    void noRegularSettingsFile();
    void aBundleFindsItsFolder();
    void noOpenGl();
    void noGraphicsProcessor();
    void openGlThatFails();
    void missingModule_data();
    void missingModule();
    void missingFonts();
    void commandLine_data();
    void commandLine();
    void aSecondStartShowsTheFirst();
    void ofSeveralStartsAtOnceOneRuns();
    void noDeadOneIsInTheWay_data();
    void noDeadOneIsInTheWay();
    void standardErrorIsClosed();
};

void TestStartup::init()
{
    if (!QFileInfo(program()).isExecutable())
        QSKIP("The program is not built.");
    QCoreApplication::setApplicationName(QStringLiteral("Kelpora 360"));
}

void TestStartup::switches_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QString>("autoScale");
    QTest::addColumn<QString>("scaleFactor");
    QTest::addColumn<QString>("highDpi");
    QTest::addColumn<QString>("loggedFactor");

    const auto row = [](const char *title, const char *before, const char *autoScale, const char *scaleFactor,
                        const char *highDpi, const char *loggedFactor) {
        QTest::newRow(title) << QByteArray(before) << QString(autoScale) << QString(scaleFactor)
                             << QString(highDpi) << QString(loggedFactor);
    };
    row("a first run has the defaults", "", "0", "1", "1", "1");
    row("a factor of the settings is only logged", "[General]\nScaleFactor=2\nEnableScaleFactor=1\n", "0",
        "1", "1", "2");
    row("automatic scaling and the factor together", "[General]\nEnableAutoScale=true\n", "1", "1", "1", "1");
    row("automatic scaling alone", "[General]\nEnableAutoScale=1\nEnableScaleFactor=0\n", "1", "0", "1", "1");
    row("everything off", "[General]\nEnableAutoScale=0\nEnableScaleFactor=false\nEnableHighDpiScaling=0\n",
        "0", "0", "0", "1");
    row("another version's identity is replaced", "[General]\nAppVersion=1.2.3\nAppName=Other\n", "0", "1",
        "1", "1");
}

void TestStartup::switches()
{
    QFETCH(QByteArray, before);
    QFETCH(QString, autoScale);
    QFETCH(QString, scaleFactor);
    QFETCH(QString, highDpi);
    QFETCH(QString, loggedFactor);

    const Workspace workspace;
    if (!before.isEmpty())
        workspace.write(settingsFile, before);
    QCOMPARE(run(workspace), QString());

    const Texts settings = pairs(workspace.read(settingsFile));
    QCOMPARE(settings.value("EnableAutoScale"), autoScale);
    QCOMPARE(settings.value("EnableScaleFactor"), scaleFactor);
    QCOMPARE(settings.value("EnableHighDpiScaling"), highDpi);
    QCOMPARE(settings.value("AppVersion"), QString("1.8.0"));
    QCOMPARE(settings.value("AppName"), QString("Kelpora 360"));
    QCOMPARE(settings.value("ScaleFactor"), before.contains("\nScaleFactor=") ? loggedFactor : QString());

    const auto variable = [](const QString &flag) { return QString(flag == "1" ? "1" : "unset"); };
    const Texts facts = {{"QT_AUTO_SCREEN_SCALE_FACTOR", variable(autoScale)},
                         {"QT_SCALE_FACTOR", variable(scaleFactor)},
                         {"highDpi", highDpi},
                         {"name", "Kelpora 360"},
                         {"version", "1.8.0"}};
    QCOMPARE(pairs(workspace.read(reportFile)), facts);

    const QStringList log = messages(workspace);
    QVERIFY(log.contains("Info: SettingsScaleFactor: " + loggedFactor));
    QVERIFY(log.contains("Info: ScaleFactor: 1"));
    QVERIFY(log.contains("Info: CalculatedScaleFactor: 0"));
}

void TestStartup::logOfOneRun()
{
    const Workspace workspace;
    QCOMPARE(run(workspace), QString());
    const QStringList log = messages(workspace);
    QVERIFY2(log.size() > 28, workspace.read(logFile).constData());

    const QString folder = QFileInfo(program()).absolutePath();
    const QStringList beginning = {
        "Application start",
        "AppName: \"Kelpora 360\"",
        "AppVersion: \"1.8.0\"",
        "AppExecutable: \"" + program() + '"',
        "AppDirectory: \"" + folder + '"',
        "WorkingDirectory: \"" + folder + '"',
        "CpuArchitecture:",
        "KernelType:",
        "KernelVersion:",
        "OperatingSystem:",
        "PhysicalSizeHeight: 0",
        "PhysicalDpi: 0",
        "LogicalDpi: 0",
        "SizeHeight: 0",
        "GeometryHeight: 0",
        "AvailableSizeHeight: 0",
        "AvailableGeometryHeight: 0",
        "AvailableVirtualGeometryHeight: 0",
        "AvailableVirtualSizeHeight: 0",
        "VirtualGeometryHeight: 0",
        "VirtualSizeHeight: 0",
        "CalculatedScaleFactor: 0",
        "SettingsScaleFactor: 1",
        "ScaleFactor: 1",
        "Updating App path",
    };
    for (int i = 0; i < beginning.size(); ++i) {
        const QString line = "Info: " + beginning.at(i);
        // What depends on the machine ends in a colon here.
        QVERIFY2(line.endsWith(':') ? log.at(i).startsWith(line + ' ') : log.at(i) == line,
                 qPrintable(log.at(i)));
    }
    const QStringList end = {"Info: Shutting down camera ...", "Info: No camera connected",
                             "Info: Application end"};
    QCOMPARE(log.mid(log.size() - end.size()), end);
}

void TestStartup::secondRunReplacesTheLog()
{
    const Workspace workspace;
    workspace.write(logFile, "left by an earlier run\n");
    QCOMPARE(run(workspace), QString());
    QVERIFY(!workspace.read(logFile).contains("left by an earlier run"));

    QCOMPARE(run(workspace), QString());
    const QStringList second = messages(workspace);
    QCOMPARE(second.value(0), QString("Info: Application start"));
    QCOMPARE(second.count("Info: Application start"), 1);
    QCOMPARE(second.count("Info: Application end"), 1);
}

void TestStartup::otherSettingsAreLeftAlone()
{
    const Workspace workspace;
    workspace.write(settingsFile, "[General]\nByHand=yes\nCamera1Yaw=15\nSerialnumber=123456\n");
    QCOMPARE(run(workspace), QString());
    const Texts settings = pairs(workspace.read(settingsFile));
    QCOMPARE(settings.value("ByHand"), QString("yes"));
    QCOMPARE(settings.value("Camera1Yaw"), QString("15"));
    QCOMPARE(settings.value("Serialnumber"), QString("123456"));
}

void TestStartup::settingsThatCannotBeWritten()
{
    const Workspace workspace;
    workspace.makeFolder(settingsFile);
    QCOMPARE(run(workspace), QString());
    const Texts facts = pairs(workspace.read(reportFile));
    QCOMPARE(facts.value("QT_SCALE_FACTOR"), QString("1"));
    QCOMPARE(facts.value("highDpi"), QString("1"));
    QCOMPARE(messages(workspace).last(), QString("Info: Application end"));
}

void TestStartup::staleSettingsLock()
{
    const Workspace workspace;
    workspace.write(settingsFile, "[General]\nByHand=yes\n");
    // A process that lives, but has nothing to do with it, as after a start of the machine.
    const QString lock = workspace.write(settingsFile + ".lock", "1\ninit\nelsewhere\n");
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(run(workspace), QString());
    // Qt itself removes such a lock after half a minute.
    QVERIFY2(timer.elapsed() < 28000, qPrintable(QString::number(timer.elapsed())));
    QVERIFY(!QFileInfo::exists(lock));
    const Texts settings = pairs(workspace.read(settingsFile));
    QCOMPARE(settings.value("ByHand"), QString("yes"));
    QCOMPARE(settings.value("EnableScaleFactor"), QString("1"));
}

void TestStartup::noRegularSettingsFile_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("pipe");
    QTest::addColumn<bool>("used");
    QTest::newRow("a pipe") << settingsFile << true << false;
    QTest::newRow("a folder") << settingsFile + "/x" << false << false;
    QTest::newRow("a pipe as its lock") << settingsFile + ".lock" << true << true;
    QTest::newRow("a folder as its lock") << settingsFile + ".lock/x" << false << false;
}

void TestStartup::noRegularSettingsFile()
{
    QFETCH(QString, path);
    QFETCH(bool, pipe);
    QFETCH(bool, used);
    const Workspace workspace;
    workspace.makeFolder(QFileInfo(path).path());
    if (pipe)
        QCOMPARE(::mkfifo(QFile::encodeName(workspace.path(path)).constData(), 0600), 0);
    else
        workspace.write(path, "x");
    QCOMPARE(run(workspace), QString());
    const QStringList told = messages(workspace).filter(QStringLiteral("The settings file "));
    QCOMPARE(told.size(), used ? 0 : 1);
    QCOMPARE(QFileInfo(workspace.path(settingsFile)).isFile(), used);
}

void TestStartup::aBundleFindsItsFolder()
{
    const Workspace workspace;
    const QString folder = workspace.makeFolder(QStringLiteral("Apps/Kelpora 360.app/Contents/MacOS"));
    const QString executable = folder + QStringLiteral("/kelpora360");
    QVERIFY(QFile::copy(program(), executable));
    QCOMPARE(run(workspace, executable), QString());
    const QStringList log = messages(workspace);
    QVERIFY(log.contains(QStringLiteral("Info: AppExecutable: \"%1\"").arg(executable)));
    QVERIFY(log.contains(
        QStringLiteral("Info: AppDirectory: \"%1\"").arg(workspace.path(QStringLiteral("Apps")))));
    QVERIFY(log.contains(
        QStringLiteral("Info: WorkingDirectory: \"%1\"").arg(workspace.path(QStringLiteral("Apps")))));
}

void TestStartup::noOpenGl()
{
    // Without a display this platform has no OpenGL.
    const Workspace workspace;
    const QString end = run(workspace, program(), {"DISPLAY", "QT_QPA_GENERIC_PLUGINS"}, QStringLiteral(""));
    QVERIFY2(end.startsWith(QStringLiteral("It ended with 1: ")), qPrintable(end));
    const QStringList log = messages(workspace);
    QCOMPARE(log.filter(QStringLiteral("Critical: The window can't be drawn: ")).size(), 1);
    QCOMPARE(log.last(), QString("Info: Application end"));
}

void TestStartup::noGraphicsProcessor()
{
    if (hasGraphicsProcessor())
        QSKIP("This machine has a graphics processor.");
    const Workspace workspace;
    QCOMPARE(run(workspace, program(), {"DISPLAY", "QT_QUICK_BACKEND"}), QString());
    const QStringList log = messages(workspace);
    QCOMPARE(log.filter(QStringLiteral("Info: No graphics processor found")).size(), 1);
    QCOMPARE(log.last(), QString("Info: Application end"));
}

void TestStartup::openGlThatFails()
{
    if (QStandardPaths::findExecutable(QStringLiteral("umockdev-wrapper")).isEmpty())
        QSKIP("This machine lacks umockdev.");
    const Workspace workspace;
    // A graphics processor that this platform makes nothing of.
    workspace.makeFolder(QStringLiteral("bed/sys"));
    workspace.makeFolder(QStringLiteral("bed/dev/dri"));
    QCOMPARE(::mkfifo(QFile::encodeName(workspace.path(QStringLiteral("bed/dev/dri/renderD128"))).constData(),
                      0600),
             0);
    const QString script = workspace.write(QStringLiteral("start"),
                                           "#!/bin/sh\nASAN_OPTIONS=$ASAN_OPTIONS:verify_asan_link_order=0 "
                                           "UMOCKDEV_DIR='" +
                                               workspace.path(QStringLiteral("bed")).toUtf8() +
                                               "' exec umockdev-wrapper '" + program().toUtf8() + "'\n");
    QVERIFY(QFile::setPermissions(script,
                                  QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner));
    QCOMPARE(run(workspace, script, {"DISPLAY", "QT_QUICK_BACKEND"}), QString());
    const QStringList log = messages(workspace);
    QCOMPARE(log.filter(QStringLiteral("OpenGL")), QStringList{"Info: OpenGL fails, drawing without it"});
    QCOMPARE(log.last(), QString("Info: Application end"));
}

void TestStartup::missingModule_data()
{
    QTest::addColumn<QString>("missing"); // folder among the modules'
    QTest::addColumn<QString>("module");
    QTest::newRow("the layouts") << "QtQuick/Layouts"
                                 << "QtQuick.Layouts";
    QTest::newRow("one that only another needs") << "QtQuick/Window.2"
                                                 << "QtQuick.Window";
    QTest::newRow("most of them") << "QtQuick"
                                  << "QtQuick.Controls";
}

void TestStartup::missingModule()
{
    QFETCH(QString, missing);
    QFETCH(QString, module);
    const Workspace workspace;
    // A program finds its modules by the file "qt.conf" beside it.
    const QString executable = workspace.makeFolder(QStringLiteral("bin")) + QStringLiteral("/kelpora360");
    QVERIFY(QFile::copy(program(), executable));
    workspace.write(QStringLiteral("bin/qt.conf"),
                    "[Paths]\nQml2Imports=" + workspace.path(QStringLiteral("qml")).toUtf8() +
                        "\nPlugins=" + QLibraryInfo::location(QLibraryInfo::PluginsPath).toUtf8() + '\n');
    QCOMPARE(
        QProcess::execute(QStringLiteral("cp"), {"-r", QLibraryInfo::location(QLibraryInfo::Qml2ImportsPath),
                                                 workspace.path(QStringLiteral("qml"))}),
        0);
    QCOMPARE(run(workspace, executable), QString());
    QVERIFY(QDir(workspace.path(QStringLiteral("qml/") + missing)).removeRecursively());
    const QString end = run(workspace, executable);
    QVERIFY2(end.startsWith(QStringLiteral("It ended with 1: ")), qPrintable(end));
    const QStringList log = messages(workspace);
    QCOMPARE(log.filter(QStringLiteral("Critical: ")),
             QStringList{QStringLiteral("Critical: The window can't be made: module \"%1\" is not installed")
                             .arg(module)});
    QCOMPARE(log.last(), QString("Info: Application end"));
}

void TestStartup::missingFonts()
{
    const Workspace workspace;
    const QString config = workspace.write(QStringLiteral("fonts.conf"), "<fontconfig></fontconfig>");
    const QString script =
        workspace.write(QStringLiteral("start"), "#!/bin/sh\nFONTCONFIG_FILE='" + config.toUtf8() +
                                                     "' exec '" + program().toUtf8() + "'\n");
    QVERIFY(QFile::setPermissions(script,
                                  QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner));
    const QString end = run(workspace, script);
    QVERIFY2(end.startsWith(QStringLiteral("It ended with 1: ")), qPrintable(end));
    QCOMPARE(messages(workspace).last(),
             QString("Critical: The window can't be drawn: no font is installed."));
}

void TestStartup::commandLine_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("display");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("output");
    QTest::addColumn<QString>("error"); // how its last line begins
    QTest::addColumn<bool>("started");

    const QString noWindow =
        QStringLiteral("kelpora360: No window can be opened. This application failed to start "
                       "because no Qt platform plugin could be initialized.");
    QTest::newRow("--help") << QStringList{"--help"} << QString() << 0 << "Usage: kelpora360 [OPTION]"
                            << QString() << false;
    QTest::newRow("--version") << QStringList{"--version"} << QString() << 0
                               << QStringLiteral("Kelpora 360 %1\n").arg(app_version) << QString() << false;
    QTest::newRow("an option that isn't")
        << QStringList{"--helpp"} << ":0" << 2 << QString()
        << "kelpora360: can't make anything of \"--helpp\"; see kelpora360 --help.\n"
        << false;
    QTest::newRow("a file") << QStringList{"/tmp"} << ":0" << 2 << QString()
                            << "kelpora360: can't make anything of \"/tmp\"; see kelpora360 --help.\n"
                            << false;
    QTest::newRow("a value is missing")
        << QStringList{"-platform"} << ":0" << 2 << QString()
        << "kelpora360: can't make anything of \"-platform\"; see kelpora360 --help.\n"
        << false;
    QTest::newRow("no display") << QStringList() << QString() << 1 << QString()
                                << "kelpora360: there is no display to open a window on.\n"
                                << false;
    QTest::newRow("a display that doesn't answer")
        << QStringList() << ":12345" << 1 << QString() << noWindow << true;
    QTest::newRow("the toolkit's option")
        << QStringList{"-platform", "nonsense"} << QString() << 1 << QString() << noWindow << true;
}

void TestStartup::commandLine()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, display);
    QFETCH(int, code);
    QFETCH(QString, output);
    QFETCH(QString, error);
    QFETCH(bool, started);

    const Workspace workspace;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const char *name :
         {"QT_QPA_PLATFORM", "DISPLAY", "WAYLAND_DISPLAY", "WAYLAND_SOCKET", "XDG_SESSION_TYPE"})
        environment.remove(QString::fromLatin1(name));
    if (!display.isEmpty())
        environment.insert(QStringLiteral("DISPLAY"), display);
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(program(), arguments);
    QVERIFY(process.waitForFinished(runTimeoutMs));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), code);
    const QString told = QString::fromUtf8(process.readAllStandardOutput());
    QVERIFY2(output.isEmpty() ? told.isEmpty() : told.startsWith(output), qPrintable(told));
    const QString complained = QString::fromUtf8(process.readAllStandardError());
    const QString lastLine = complained.section(QLatin1Char('\n'), -2);
    QVERIFY2(started ? lastLine.startsWith(error) : complained == error, qPrintable(complained));
    QCOMPARE(QFileInfo::exists(workspace.path(settingsFile)), started);
    QCOMPARE(QFileInfo::exists(workspace.path(logFile)), started);
}

void TestStartup::aSecondStartShowsTheFirst()
{
    const Workspace workspace;
    const auto logged = [&](const char *text) {
        return messages(workspace).filter(QString::fromLatin1(text)).size();
    };
    RunningProgram first;
    QVERIFY(first.start());
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(workspace.path(socketFile)), runTimeoutMs);
    for (int starts = 1; starts <= 2; ++starts) {
        RunningProgram second;
        QVERIFY(second.start());
        QVERIFY(second.process.waitForFinished(runTimeoutMs));
        QCOMPARE(second.process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(second.process.exitCode(), 0);
        QCOMPARE(second.process.readAllStandardOutput(),
                 QByteArray("Kelpora 360 is already running; its window was asked to come to the front.\n"));
        QCOMPARE(logged("The program was started again"), starts);
    }
    QCOMPARE(first.process.state(), QProcess::Running);
    QCOMPARE(logged("Application start"), 1);
    QCOMPARE(logged("Shutting down"), 0);
    QCOMPARE(QDir(workspace.path(QStringLiteral("data"))).entryList(QDir::Dirs | QDir::NoDotAndDotDot),
             QStringList{"Kelpora 360"});
}

void TestStartup::ofSeveralStartsAtOnceOneRuns()
{
    const Workspace workspace;
    // The first start of all makes the folder.
    QCOMPARE(run(workspace), QString());
    std::array<RunningProgram, 3> programs;
    for (RunningProgram &program : programs)
        QVERIFY(program.start());
    const auto running = [&] {
        return std::count_if(programs.begin(), programs.end(), [](const RunningProgram &program) {
            return program.process.state() == QProcess::Running;
        });
    };
    QTRY_COMPARE_WITH_TIMEOUT(running(), 1, runTimeoutMs);
    QTRY_COMPARE_WITH_TIMEOUT(
        messages(workspace).filter(QStringLiteral("The program was started again")).size(), 2, runTimeoutMs);
    QCOMPARE(messages(workspace).filter(QStringLiteral("Application start")).size(), 1);
}

void TestStartup::noDeadOneIsInTheWay_data()
{
    QTest::addColumn<int>("signal");
    QTest::addColumn<bool>("closing");
    QTest::newRow("one that was killed") << SIGKILL << false;
    QTest::newRow("one that hangs") << SIGSTOP << false;
    QTest::newRow("one that was killed while it was closing") << SIGKILL << true;
    QTest::newRow("one that hangs while it is closing") << SIGSTOP << true;
}

void TestStartup::noDeadOneIsInTheWay()
{
    QFETCH(int, signal);
    QFETCH(bool, closing);
    const Workspace workspace;
    RunningProgram first;
    QVERIFY(first.start());
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(workspace.path(socketFile)), runTimeoutMs);
    QVERIFY(::kill(static_cast<pid_t>(first.process.processId()), signal) == 0);
    if (closing)
        QVERIFY(QFile::remove(workspace.path(socketFile)));
    QCOMPARE(run(workspace), QString());
    // In its own folders, with a log of its own.
    const QStringList log = messages(workspace);
    QCOMPARE(log.filter(QStringLiteral("Application start")).size(), 1);
    QCOMPARE(log.value(0), QStringLiteral("Info: Application start"));
    QCOMPARE(log.last(), QString("Info: Application end"));
    QCOMPARE(QDir(workspace.path(QStringLiteral("data"))).entryList(QDir::Dirs | QDir::NoDotAndDotDot),
             QStringList{"Kelpora 360"});
}

void TestStartup::standardErrorIsClosed()
{
    const Workspace workspace;
    const QString script =
        workspace.write(QStringLiteral("start"), "#!/bin/sh\n{ '" + program().toUtf8() + "'; echo $? >'" +
                                                     workspace.path().toUtf8() + "/code'; } 2>&1 | :\n");
    QVERIFY(QFile::setPermissions(script,
                                  QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner));
    QCOMPARE(run(workspace, script), QString());
    QCOMPARE(workspace.read(QStringLiteral("code")), QByteArray("0\n"));
    QCOMPARE(messages(workspace).last(), QString("Info: Application end"));
}

KELPORA_TEST_MAIN(TestStartup)
#include "tst_startup.moc"
