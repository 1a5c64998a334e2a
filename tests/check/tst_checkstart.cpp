#include "app/version.h"
#include "tests/support/workspace.h"

#include <QDir>
#include <QFileInfo>
#include <QLibraryInfo>
#include <QProcess>
#include <QtTest>

namespace {

constexpr int runTimeoutMs = 60000;

struct Run
{
    int code = -1;
    QString output;
    QString errors;
};

/// Runs kelpora360-check without a display, with `variables` ("NAME=value") in its environment.
Run run(const QStringList &arguments, const QStringList &variables = {},
        const QString &executable = QString::fromLocal8Bit(KELPORA360_CHECK))
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const char *name :
         {"QT_QPA_PLATFORM", "DISPLAY", "WAYLAND_DISPLAY", "WAYLAND_SOCKET", "XDG_SESSION_TYPE"})
        environment.remove(QString::fromLatin1(name));
    // Qt's offscreen platform keeps its screen until exit.
    environment.insert(QStringLiteral("ASAN_OPTIONS"),
                       environment.value(QStringLiteral("ASAN_OPTIONS")) + QStringLiteral(":detect_leaks=0"));
    for (const QString &variable : variables)
        environment.insert(variable.section(QLatin1Char('='), 0, 0), variable.section(QLatin1Char('='), 1));
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(executable, arguments);
    if (!process.waitForFinished(runTimeoutMs)) {
        process.kill();
        process.waitForFinished();
    }
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

/// What has the program open a window that a plugin of the tests closes, once it is shown.
QStringList onNoScreen(const Workspace &workspace)
{
    return {QStringLiteral("QT_QPA_PLATFORM=offscreen"), QStringLiteral("QT_QUICK_BACKEND=software"),
            QStringLiteral("QT_PLUGIN_PATH=") + QStringLiteral(PROBE_PLUGINS),
            QStringLiteral("QT_QPA_GENERIC_PLUGINS=startupprobe"),
            QStringLiteral("STARTUP_REPORT=") + workspace.path(QStringLiteral("report"))};
}

} // namespace

class CheckStartTest : public QObject
{
    Q_OBJECT

private slots:
    void commandLine_data();
    void commandLine();
    void leavesNothingBehind();
    void missingModule();
    void missingFonts();
};

void CheckStartTest::commandLine_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QStringList>("variables");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("output"); // how it begins
    QTest::addColumn<QString>("error");  // how its last line begins

    QTest::newRow("--help") << QStringList{"--help"} << QStringList() << 0
                            << "Usage: kelpora360-check [OPTION]\n\nOpens " << QString();
    QTest::newRow("--version") << QStringList{"--version"} << QStringList() << 0
                               << QStringLiteral("Kelpora 360 %1\n").arg(app_version) << QString();
    QTest::newRow("an option that isn't")
        << QStringList{"--helpp"} << QStringList() << 2 << QString()
        << "kelpora360-check: can't make anything of \"--helpp\"; see kelpora360-check --help.\n";
    QTest::newRow("no display") << QStringList() << QStringList() << 1 << QString()
                                << "kelpora360-check: there is no display to open a window on.\n";
    QTest::newRow("a display that doesn't answer")
        << QStringList() << QStringList{"DISPLAY=:12345"} << 1 << QString()
        << "kelpora360-check: No window can be opened. This application failed to start ";
}

void CheckStartTest::commandLine()
{
    QFETCH(QStringList, arguments);
    QFETCH(QStringList, variables);
    QFETCH(int, code);
    QFETCH(QString, output);
    QFETCH(QString, error);
    const Run found = run(arguments, variables);
    QVERIFY2(found.code == code, qPrintable(found.errors));
    QVERIFY2(output.isEmpty() ? found.output.isEmpty() : found.output.startsWith(output),
             qPrintable(found.output));
    QVERIFY2(error.isEmpty() ? found.errors.isEmpty()
                             : found.errors.section(QLatin1Char('\n'), -2).startsWith(error),
             qPrintable(found.errors));
}

void CheckStartTest::leavesNothingBehind()
{
    const Workspace workspace;
    const Run found = run({}, onNoScreen(workspace));
    QVERIFY2(found.code == 0, qPrintable(found.errors));
    const QByteArray report = workspace.read(QStringLiteral("report"));
    QVERIFY2(report.contains("QT_SCALE_FACTOR=unset\n") && report.contains("highDpi=1\n"),
             report.constData());
    // The log and the settings are those of the main window.
    QCOMPARE(workspace.tree(QStringLiteral("data")).keys(), QStringList());
}

void CheckStartTest::missingModule()
{
    const Workspace workspace;
    const QString executable =
        workspace.makeFolder(QStringLiteral("bin")) + QStringLiteral("/kelpora360-check");
    QVERIFY(QFile::copy(QString::fromLocal8Bit(KELPORA360_CHECK), executable));
    workspace.makeFolder(QStringLiteral("qml"));
    workspace.write(QStringLiteral("bin/qt.conf"),
                    "[Paths]\nQml2Imports=" + workspace.path(QStringLiteral("qml")).toUtf8() +
                        "\nPlugins=" + QLibraryInfo::location(QLibraryInfo::PluginsPath).toUtf8() + '\n');
    const Run found = run({}, onNoScreen(workspace), executable);
    QCOMPARE(found.code, 1);
    QVERIFY2(
        found.errors.contains(QStringLiteral("kelpora360-check: The window can't be made: module \"QtQuick")),
        qPrintable(found.errors));
}

void CheckStartTest::missingFonts()
{
    const Workspace workspace;
    const QString config = workspace.write(QStringLiteral("fonts.conf"), "<fontconfig></fontconfig>");
    const Run found =
        run({}, onNoScreen(workspace) + QStringList{QStringLiteral("FONTCONFIG_FILE=") + config});
    QCOMPARE(found.code, 1);
    QVERIFY2(found.errors.endsWith(
                 QStringLiteral("kelpora360-check: The window can't be drawn: no font is installed.\n")),
             qPrintable(found.errors));
}

QTEST_GUILESS_MAIN(CheckStartTest)
#include "tst_checkstart.moc"
