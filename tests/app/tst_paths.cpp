#include "app/paths.h"
#include "tests/support/messagelog.h"
#include "tests/support/testmain.h"
#include "tests/support/workspace.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <atomic>
#include <thread>
#include <vector>

class TestPaths : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void appPathFromExecutable_data();
    void appPathFromExecutable();
    void relativeExecutable();
    void aFolderThatIsNotThereIsStoredAllTheSame();
    void appPathIsDerivedWhileEmpty();
    void supportPath_data();
    void supportPath();
    void supportFolderIsMadeAgain();
    void supportFolderThatCannotBeMade();
    void supportPathKeptWhenTheNextCannotBeMade();
    void settingsPathIsComputedOnce();
    void templates_data();
    void templates();
    void templatesOfBoth();
    void templatesAreLookedUpAtEveryCall();
    void logPathTellsEachCallInTheFile();
    void logPathOfAFileThatCannotBeOpened();
    void logPathFollowsTheSupportFolder();
    void siblingFolders_data();
    void siblingFolders();
    void workersAskWhileOthersDo();
};

void TestPaths::init()
{
    QCoreApplication::setApplicationName(QStringLiteral("Kelpora 360"));
}

void TestPaths::cleanup()
{
    QCoreApplication::setApplicationName({});
}

void TestPaths::appPathFromExecutable_data()
{
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QString>("executable");
    QTest::addColumn<QString>("expected");

    QTest::newRow("a bundle's application folder holds the bundle") << "Apps/Kelpora 360.app/Contents/MacOS"
                                                                    << "Kelpora 360"
                                                                    << "Apps";
    QTest::newRow("a plain folder is the application folder") << "opt/kelpora"
                                                              << "kelpora360"
                                                              << "opt/kelpora";
    QTest::newRow("the bundle's folder may stand anywhere in the path") << "Contents/a/b/c/d"
                                                                        << "kelpora360"
                                                                        << "Contents/a";
    QTest::newRow("the bundle's mark is case-sensitive") << "x.app/contents/MacOS"
                                                         << "kelpora360"
                                                         << "x.app/contents/MacOS";
    QTest::newRow("an executable right in Contents is in no bundle") << "x.app/Contents"
                                                                     << "kelpora360"
                                                                     << "x.app/Contents";
    QTest::newRow("a folder whose name only ends in Contents is no bundle") << "MyContents/MacOS"
                                                                            << "kelpora360"
                                                                            << "MyContents/MacOS";
    QTest::newRow("dots in the path are resolved") << "opt/kelpora/bin/.."
                                                   << "kelpora360"
                                                   << "opt/kelpora";
    QTest::newRow("blanks and letters beyond ASCII")
        << QString::fromUtf8("Über uns/ä") << "k" << QString::fromUtf8("Über uns/ä");
}

void TestPaths::appPathFromExecutable()
{
    QFETCH(QString, folder);
    QFETCH(QString, executable);
    QFETCH(QString, expected);

    const Workspace workspace;
    workspace.makeFolder(folder);
    {
        const MessageLog log;
        setAppPathFromExecutable(workspace.path(folder) + QLatin1Char('/') + executable);
        QCOMPARE(MessageLog::lines(), QStringList{QStringLiteral("info: Updating App path")});
    }
    QCOMPARE(appPath, workspace.path(expected));
    QCOMPARE(getAppPath(), workspace.path(expected));
    QCOMPARE(QDir::currentPath(), workspace.path(expected));
}

void TestPaths::relativeExecutable()
{
    const Workspace workspace;
    QDir::setCurrent(workspace.makeFolder("opt/kelpora"));
    setAppPathFromExecutable(QStringLiteral("../kelpora/kelpora360"));
    QCOMPARE(getAppPath(), workspace.path("opt/kelpora"));
    setAppPathFromExecutable(QStringLiteral("kelpora360"));
    QCOMPARE(getAppPath(), workspace.path("opt/kelpora"));
}

void TestPaths::aFolderThatIsNotThereIsStoredAllTheSame()
{
    const Workspace workspace;
    const QString current = QDir::currentPath();
    setAppPathFromExecutable(workspace.path("gone/Kelpora 360.app/Contents/MacOS/Kelpora 360"));
    QCOMPARE(getAppPath(), workspace.path("gone"));
    QCOMPARE(QDir::currentPath(), current);
}

void TestPaths::appPathIsDerivedWhileEmpty()
{
    const Workspace workspace;
    appPath.clear();
    QCOMPARE(getAppPath(), QCoreApplication::applicationDirPath());
    QCOMPARE(QDir::currentPath(), QCoreApplication::applicationDirPath());

    appPath = workspace.path();
    const MessageLog log;
    QCOMPARE(getAppPath(), workspace.path());
    QCOMPARE(QDir::currentPath(), QCoreApplication::applicationDirPath());
    QCOMPARE(MessageLog::lines(), QStringList());
}

void TestPaths::supportPath_data()
{
    QTest::addColumn<QString>("dataFolder");
    QTest::addColumn<QString>("applicationName");
    QTest::addColumn<QString>("expected");

    const auto row = [](const char *title, const char *dataFolder, const char *name, const char *expected) {
        QTest::newRow(title) << QString(dataFolder) << QString(name) << QString(expected);
    };
    row("a folder named after the executable is dropped", "data", "Kelpora360", "data/Kelpora 360");
    row("a folder of the application's name is kept", "data", "Kelpora 360", "data/Kelpora 360");
    row("any other folder gets the application's folder", "data", "other", "data/other/Kelpora 360");
    row("the executable's name is case-sensitive", "data", "kelpora360", "data/kelpora360/Kelpora 360");
    row("the executable's name anywhere in the path drops a level", "Kelpora360 data", "other",
        "Kelpora360 data/Kelpora 360");
    row("the application's name anywhere in the path will do", "Kelpora 360 data", "other",
        "Kelpora 360 data/other");
    row("missing parents are made", "a/b/c", "Kelpora 360", "a/b/c/Kelpora 360");
}

void TestPaths::supportPath()
{
    QFETCH(QString, dataFolder);
    QFETCH(QString, applicationName);
    QFETCH(QString, expected);

    const Workspace workspace;
    qputenv("XDG_DATA_HOME", QFile::encodeName(workspace.path(dataFolder)));
    QCoreApplication::setApplicationName(applicationName);
    applicationSupportPath.clear();
    QCOMPARE(getApplicationSupportPath(), workspace.path(expected));
    QCOMPARE(applicationSupportPath, workspace.path(expected));
    QVERIFY(QDir(workspace.path(expected)).exists());
    QCOMPARE(getApplicationSupportPath(), workspace.path(expected));
}

void TestPaths::supportFolderIsMadeAgain()
{
    const Workspace workspace;
    const QString folder = getApplicationSupportPath();
    QVERIFY(QDir(folder).removeRecursively());
    QCOMPARE(getApplicationSupportPath(), folder);
    QVERIFY(QDir(folder).exists());
}

void TestPaths::supportFolderThatCannotBeMade()
{
    const Workspace workspace;
    qputenv("XDG_DATA_HOME", QFile::encodeName(workspace.write("a file", "x")));
    applicationSupportPath.clear();
    QDir::setCurrent(workspace.path("app"));

    QCOMPARE(getApplicationSupportPath(), QString());
    QCOMPARE(applicationSupportPath, QString());
    QCOMPARE(getIniFilePath(), workspace.path("app/Kelpora360.ini"));
    QCOMPARE(getLogFilePath(), workspace.path("app/Kelpora360.log"));
    QCOMPARE(workspace.read("app/Kelpora360.log"), QByteArray("Logfile path:\n"));
    QCOMPARE(workspace.read("a file"), QByteArray("x"));
}

void TestPaths::supportPathKeptWhenTheNextCannotBeMade()
{
    const Workspace workspace;
    const QString before = getApplicationSupportPath();
    QVERIFY(!before.isEmpty());
    qputenv("XDG_DATA_HOME", QFile::encodeName(workspace.write("a file", "x")));
    QCOMPARE(getApplicationSupportPath(), before);
}

void TestPaths::settingsPathIsComputedOnce()
{
    const Workspace workspace;
    const QString folder = getApplicationSupportPath();
    const QString first = getIniFilePath();
    QCOMPARE(first, folder + QStringLiteral("/Kelpora360.ini"));
    QCOMPARE(iniFilePath, first);

    QVERIFY(QDir(folder).removeRecursively());
    QCOMPARE(getIniFilePath(), first);
    QVERIFY2(!QDir(folder).exists(), "the second call looked the support folder up again");
    qputenv("XDG_DATA_HOME", QFile::encodeName(workspace.path("elsewhere")));
    QCOMPARE(getIniFilePath(), first);
}

void TestPaths::templates_data()
{
    QTest::addColumn<QString>("made");
    QTest::addColumn<bool>("asFile");
    QTest::addColumn<QString>("expected");

    QTest::newRow("the folder beside the application comes first")
        << "app/templates" << false << "app/templates";
    QTest::newRow("none beside the application: the user's")
        << QString() << false << "data/Kelpora 360/templates";
    QTest::newRow("a file beside the application is no folder")
        << "app/templates" << true << "data/Kelpora 360/templates";
    QTest::newRow("the name is case-sensitive") << "app/Templates" << false << "data/Kelpora 360/templates";
}

void TestPaths::templates()
{
    QFETCH(QString, made);
    QFETCH(bool, asFile);
    QFETCH(QString, expected);

    const Workspace workspace;
    if (asFile)
        workspace.write(made, "x");
    else if (!made.isEmpty())
        workspace.makeFolder(made);

    const MessageLog log;
    QCOMPARE(getTemplateDir(), workspace.path(expected));
    QCOMPARE(templatesPath, workspace.path(expected));
    QCOMPARE(MessageLog::lines(),
             QStringList{QStringLiteral("info: Template dir: \"%1\"").arg(workspace.path(expected))});
    QCOMPARE(QFileInfo(workspace.path("data/Kelpora 360/templates")).exists(), false);
}

void TestPaths::templatesOfBoth()
{
    const Workspace workspace;
    workspace.makeFolder("data/Kelpora 360/templates");
    const QString beside = workspace.makeFolder("app/templates");
    QCOMPARE(getTemplateDir(), beside);
}

void TestPaths::templatesAreLookedUpAtEveryCall()
{
    const Workspace workspace;
    QCOMPARE(getTemplateDir(), workspace.path("data/Kelpora 360/templates"));
    const QString beside = workspace.makeFolder("app/templates");
    QCOMPARE(getTemplateDir(), beside);
    QVERIFY(QDir().rmdir(beside));
    QCOMPARE(getTemplateDir(), workspace.path("data/Kelpora 360/templates"));
}

void TestPaths::logPathTellsEachCallInTheFile()
{
    const Workspace workspace;
    const QString relative = QStringLiteral("data/Kelpora 360/Kelpora360.log");
    QCOMPARE(getLogFilePath(), workspace.path(relative));
    QCOMPARE(logFilePath, workspace.path(relative));
    QCOMPARE(workspace.read(relative), QByteArray("Logfile path:\n"));
    QCOMPARE(getLogFilePath(), workspace.path(relative));
    QCOMPARE(workspace.read(relative), QByteArray("Logfile path:\nLogfile path:\n"));

    workspace.write(relative, "kept\n");
    getLogFilePath();
    QCOMPARE(workspace.read(relative), QByteArray("kept\nLogfile path:\n"));
}

void TestPaths::logPathOfAFileThatCannotBeOpened()
{
    const Workspace workspace;
    const QString folder = workspace.makeFolder("data/Kelpora 360/Kelpora360.log");
    QCOMPARE(getLogFilePath(), folder);
    QVERIFY(QFileInfo(folder).isDir());
}

void TestPaths::logPathFollowsTheSupportFolder()
{
    const Workspace workspace;
    getLogFilePath();
    qputenv("XDG_DATA_HOME", QFile::encodeName(workspace.path("elsewhere")));
    QCOMPARE(getLogFilePath(), workspace.path("elsewhere/Kelpora 360/Kelpora360.log"));
}

void TestPaths::siblingFolders_data()
{
    QTest::addColumn<bool>("firmware");
    QTest::addColumn<QString>("made");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<QString>("logText");

    const auto row = [](const char *title, bool firmware, const char *made, const char *expected) {
        QTest::newRow(title) << firmware << QString(made) << QString(expected)
                             << QString(firmware ? "Firmware dir:" : "Utilities dir:");
    };
    row("utilities beside the application", false, "app/utilities", "app/utilities");
    row("firmware beside the application", true, "app/firmware", "app/firmware");
    row("no utilities: the application folder", false, "app/firmware", "app");
    row("no firmware: the application folder", true, "app/utilities", "app");
}

void TestPaths::siblingFolders()
{
    QFETCH(bool, firmware);
    QFETCH(QString, made);
    QFETCH(QString, expected);
    QFETCH(QString, logText);

    const Workspace workspace;
    workspace.makeFolder(made);
    const MessageLog log;
    QCOMPARE(firmware ? getFirmwareDir() : getUtilitiesDir(), workspace.path(expected));
    QCOMPARE(MessageLog::lines(),
             QStringList{QStringLiteral("info: %1 \"%2\"").arg(logText, workspace.path(expected))});
}

void TestPaths::workersAskWhileOthersDo()
{
    const Workspace workspace;
    workspace.makeFolder("app/templates");
    const MessageLog log;
    const QString templatesBeside = workspace.path("app/templates");
    const QString logPath = workspace.path("data/Kelpora 360/Kelpora360.log");
    const QString iniPath = workspace.path("data/Kelpora 360/Kelpora360.ini");
    std::atomic<int> wrong{0};
    std::vector<std::thread> workers;
    constexpr int threads = 4;
    constexpr int calls = 50;
    for (int i = 0; i < threads; ++i) {
        workers.emplace_back([&] {
            for (int call = 0; call < calls; ++call) {
                if (getTemplateDir() != templatesBeside || getLogFilePath() != logPath ||
                    getIniFilePath() != iniPath)
                    ++wrong;
            }
        });
    }
    for (std::thread &worker : workers)
        worker.join();
    QCOMPARE(wrong.load(), 0);
    QCOMPARE(workspace.read("data/Kelpora 360/Kelpora360.log"),
             QByteArray("Logfile path:\n").repeated(threads * calls));
}

KELPORA_TEST_MAIN(TestPaths)
#include "tst_paths.moc"
