#include "app/paths.h"
#include "app/settings.h"
#include "app/settingsfile.h"
#include "tests/support/messagelog.h"
#include "tests/support/plainuser.h"
#include "tests/support/testmain.h"
#include "tests/support/volumes.h"
#include "tests/support/workspace.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJSEngine>
#include <QSettings>
#include <QSize>

#include <atomic>
#include <sys/stat.h>
#include <thread>
#include <vector>

namespace {

using Texts = QMap<QString, QString>;

const QString settingsFile = QStringLiteral("data/Kelpora 360/Kelpora360.ini");

Texts defaults()
{
    Texts texts = {{"Serialnumber", "000000"}, {"OverwriteAngles", "1"},      {"RadiansAngles", "0"},
                   {"EnableAutoScale", "0"},   {"EnableHighDpiScaling", "1"}, {"EnableScaleFactor", "1"}};
    const Texts angles = {
        {"Pitch", "0"}, {"Roll", "-90"}, {"Yaw", "-0"}, {"OffsetX", "-20"}, {"OffsetY", "0"}};
    for (int camera = 1; camera <= 3; ++camera) {
        for (auto angle = angles.cbegin(); angle != angles.cend(); ++angle)
            texts.insert(QStringLiteral("Camera%1%2").arg(camera).arg(angle.key()), angle.value());
    }
    return texts;
}

/// The map as text; a value that is not text shows as its type.
Texts texts(const QVariantMap &map)
{
    Texts result;
    for (auto entry = map.cbegin(); entry != map.cend(); ++entry) {
        const bool isText = entry.value().userType() == QMetaType::QString;
        result.insert(entry.key(),
                      isText ? entry.value().toString() : QString::fromLatin1(entry.value().typeName()));
    }
    return result;
}

/// The file read line by line, without Qt's own reader.
Texts stored(const Workspace &workspace)
{
    Texts result;
    const QList<QByteArray> lines = workspace.read(settingsFile).split('\n');
    for (const QByteArray &line : lines) {
        if (line.isEmpty() || line == "[General]")
            continue;
        const int mark = line.indexOf('=');
        result.insert(QString::fromLatin1(line.left(mark)), QString::fromLatin1(line.mid(mark + 1)));
    }
    return result;
}

/// Stands for the object that the view calls.
class SettingsForView : public QObject
{
    Q_OBJECT

public:
    Q_INVOKABLE QVariantMap getSettings() { return loadSettings(); }
    Q_INVOKABLE void updateSettings(const QVariantMap &settings) { storeSettings(settings); }
};

} // namespace

Q_DECLARE_METATYPE(Texts)

class TestSettings : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void load_data();
    void load();
    void ownValuesBecomeText_data();
    void ownValuesBecomeText();
    void store_data();
    void store();
    void textsSurvive_data();
    void textsSurvive();
    void otherKeysSurviveTheView_data();
    void otherKeysSurviveTheView();
    void objectsAreNotBuilt_data();
    void objectsAreNotBuilt();
    void noRoomForTheFile();
    void noRoomForTheCopy();
    void whatWasSetAtTheStartIsNotWrittenAtTheEnd();
    void noRegularFile_data();
    void noRegularFile();
    void theViewChangesAnotherKey_data();
    void theViewChangesAnotherKey();
    void handMadeKeyGoesRoundTrip();
    void fileThatCannotBeWritten();
    void theFileIsReadAfresh();
    void aFileOfTheSameSizeIsReadAgain();
    void aFileThatCouldNotBeReadIsReadAgain();
    void workersReadWhileTheViewStores();
    void aLoadSeesAWholeStore();
};

void TestSettings::init()
{
    QCoreApplication::setApplicationName("Kelpora 360");
}

void TestSettings::load_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<Texts>("changed");

    const auto row = [](const char *title, const QByteArray &before, const Texts &changed) {
        QTest::newRow(title) << before << changed;
    };
    row("a missing file gets every default", "", {});
    row("start-up's keys come along", "[General]\nAppVersion=1.8.0\nAppName=Kelpora 360\nScaleFactor=2\n",
        {{"AppVersion", "1.8.0"}, {"AppName", "Kelpora 360"}, {"ScaleFactor", "2"}});
    row("a key that is there keeps its value", "[General]\nCamera1Yaw=15\n", {{"Camera1Yaw", "15"}});
    row("a key that is there but empty stays empty", "[General]\nCamera2Roll=\n", {{"Camera2Roll", ""}});
    row("keys are told apart by case", "[General]\nserialnumber=5\n", {{"serialnumber", "5"}});
    row("an unknown key comes along", "[General]\nByHand=yes\n", {{"ByHand", "yes"}});
}

void TestSettings::load()
{
    QFETCH(QByteArray, before);
    QFETCH(Texts, changed);

    const Workspace workspace;
    if (!before.isEmpty())
        workspace.write(settingsFile, before);
    Texts expected = defaults();
    for (auto entry = changed.cbegin(); entry != changed.cend(); ++entry)
        expected.insert(entry.key(), entry.value());

    QCOMPARE(texts(loadSettings()), expected);
    QCOMPARE(stored(workspace), expected);
}

void TestSettings::ownValuesBecomeText_data()
{
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<QString>("text");

    QTest::newRow("a comma typed into the file") << QByteArray("1,5") << "1,5";
    QTest::newRow("no value") << QByteArray("@Invalid()") << "";
    QTest::newRow("a size") << QByteArray("@Size(1 2)") << "";
}

void TestSettings::ownValuesBecomeText()
{
    QFETCH(QByteArray, value);
    QFETCH(QString, text);

    const Workspace workspace;
    workspace.write(settingsFile, "[General]\nCamera1Yaw=" + value + "\n");
    const QVariant yaw = loadSettings().value("Camera1Yaw");
    QCOMPARE(yaw.userType(), int{QMetaType::QString});
    QCOMPARE(yaw.toString(), text);
}

void TestSettings::store_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<Texts>("map");
    QTest::addColumn<Texts>("after");

    const auto row = [](const char *title, const QByteArray &before, const Texts &map, const Texts &after) {
        QTest::newRow(title) << before << map << after;
    };
    row("a key that the map lacks stays as it was", "[General]\nSerialnumber=123456\nCamera1Yaw=1\n",
        {{"Camera1Yaw", "2"}}, {{"Serialnumber", "123456"}, {"Camera1Yaw", "2"}});
    row("a key that the file lacks is added", "[General]\nSerialnumber=123456\n", {{"Camera1Yaw", "2"}},
        {{"Serialnumber", "123456"}, {"Camera1Yaw", "2"}});
    row("an empty map changes nothing", "[General]\nSerialnumber=123456\n", {}, {{"Serialnumber", "123456"}});
    row("a missing file is made", "", {{"Serialnumber", "7"}}, {{"Serialnumber", "7"}});
}

void TestSettings::store()
{
    QFETCH(QByteArray, before);
    QFETCH(Texts, map);
    QFETCH(Texts, after);

    const Workspace workspace;
    if (!before.isEmpty())
        workspace.write(settingsFile, before);
    QVariantMap settings;
    for (auto entry = map.cbegin(); entry != map.cend(); ++entry)
        settings.insert(entry.key(), entry.value());
    storeSettings(settings);
    QCOMPARE(stored(workspace), after);
}

void TestSettings::textsSurvive_data()
{
    QTest::addColumn<QString>("text");

    QTest::newRow("a comma") << "1,5";
    QTest::newRow("a semicolon") << "a;b";
    QTest::newRow("blanks at both ends") << " a ";
    QTest::newRow("quotes and a backslash") << QStringLiteral("\"a\\b\"");
    QTest::newRow("an equals sign") << "a=b";
    QTest::newRow("an at sign") << "@Invalid()";
    QTest::newRow("an at sign after a blank") << " @x";
    QTest::newRow("letters beyond ASCII") << QString::fromUtf8("äöü 中");
    QTest::newRow("lines") << "a\nb";
    QTest::newRow("minus zero") << "-0";
    QTest::newRow("no text") << QString();
}

void TestSettings::textsSurvive()
{
    QFETCH(QString, text);

    const Workspace workspace;
    storeSettings({{"Serialnumber", text}});
    QCOMPARE(loadSettings().value("Serialnumber"), QVariant(text));
}

void TestSettings::otherKeysSurviveTheView_data()
{
    QTest::addColumn<QByteArray>("line");

    const auto row = [](const char *title, const QByteArray &line) { QTest::newRow(title) << line; };
    row("a list", "Mine=a, b");
    row("a list of numbers", "Mine=1, 2, 3");
    row("a list with an empty text", R"(Mine=a, "", b)");
    row("a list of quoted texts", R"(Mine="a, b", "c;d")");
    row("a text with a comma", R"(Mine="a, b")");
    row("quotes", R"(Mine="\"a\" \\ b")");
    row("letters beyond ASCII", R"(Mine=\xe4\x4e2d)");
    row("a key with letters beyond ASCII", "%C3%A4%U4E2D=1");
    row("an empty text", "Mine=");
    row("a text that looks like a number", "Mine=007.10");
    row("a text that begins with an at sign", "Mine=@@Size");
    row("no value", "Mine=@Invalid()");
    row("bytes", R"(Mine=@ByteArray(a\0\xff))");
    row("a size", "Mine=@Size(700 920)");
    row("a rectangle", "Mine=@Rect(1 2 3 4)");
    row("an integer of 64 bits", R"(Mine=@Variant(\0\0\0\x4\0\0\0\0\0\0\0*))");
    row("a float", R"(Mine=@Variant(\0\0\0\x87?\x80\0\0))");
    row("a list of one text", R"(Mine=@Variant(\0\0\0\t\0\0\0\x1\0\0\0\n\0\0\0\x2\0\x61))");
    row("a date", R"(Mine=@DateTime(\0\0\0\x10\0\0\0\0\0\0%\x8b\x8a\0\0\0\0\x1))");
    row("a group", "\n[Other]\nMine=a, b\nYours=1");
}

void TestSettings::otherKeysSurviveTheView()
{
    QFETCH(QByteArray, line);

    const Workspace workspace;
    storeSettings(loadSettings());
    workspace.write(settingsFile, workspace.read(settingsFile) + line + '\n');
    // Qt writes the keys in an order of its own.
    QSettings(getIniFilePath(), QSettings::IniFormat).setValue("AppVersion", 1);
    const QByteArray before = workspace.read(settingsFile);

    QJSEngine engine;
    engine.globalObject().setProperty("app", engine.newQObject(new SettingsForView));
    const QJSValue result = engine.evaluate(QStringLiteral(
        "var settings = app.getSettings(); settings.Camera1Yaw = '-0'; app.updateSettings(settings)"));
    QVERIFY2(!result.isError(), qPrintable(result.toString()));
    QCOMPARE(workspace.read(settingsFile), before);
}

void TestSettings::objectsAreNotBuilt_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("value");

    // A list of two thousand million texts, which the toolkit would make room for.
    const QByteArray list = R"(Variant(\0\0\0\t\x7f\xff\xff\xff))";
    const auto row = [](const char *title, const QByteArray &key, const QByteArray &value) {
        QTest::newRow(title) << key + "=" + value << QString::fromLatin1(key) << QString::fromLatin1(value);
    };
    row("a list", "Mine", "@" + list);
    row("quoted", "Mine", "\"@" + list + "\"");
    row("with a line in quotes", "Mine", "\"@" + list + "\n[Other]\nThis=1\"");
    row("that goes on in the next line", "Mine", "a, \\\n@" + list);
    row("one of several", "Mine", "a, @" + list);
    row("an at sign in hexadecimal", "Mine", "\\x40" + list);
    row("an at sign in octal", "Mine", "\\100" + list);
    row("after an escape that means nothing", "Mine", "\\q@" + list);
    row("after an escape without a number", "Mine", "\\x@" + list);
    row("an at sign with more than 16 bits", "Mine", "\\x10040" + list);
    row("an at sign with more than 16 bits and zeros", "Mine", "\\x00010040" + list);
    row("an at sign with more than 16 bits in octal", "Mine", "\\200100" + list);
    row("a date after an escape that means nothing", "Mine", R"(\s@DateTime(\0\0\0\x10))");
    row("in a key of ours", "Camera1Yaw", "@" + list);
    row("a date", "Mine", R"(@DateTime(\0\0\0\x10))");
    row("no type that is known", "Mine", "@Image(1)");
    QTest::newRow("in a group") << "[Other]\nMine=@" + list << "Other/Mine"
                                << QString::fromLatin1("@" + list);
    QTest::newRow("in a key that has an at sign")
        << "%40Mine=@" + list << "@Mine" << QString::fromLatin1("@" + list);
    QTest::newRow("before a comment") << "Mine= @" + list + " ;@Date"
                                      << "Mine" << QString::fromLatin1(" @" + list + " ");
    QTest::newRow("with a line end that goes on at its end")
        << "Mine=@" + list + "\\\n\r"
        << "Mine" << QString::fromLatin1("@" + list + "\\\n\r");
}

void TestSettings::objectsAreNotBuilt()
{
    QFETCH(QByteArray, line);
    QFETCH(QString, key);
    QFETCH(QString, value);

    const Workspace workspace;
    const QByteArray content = "[General]\nCamera2Yaw=a@b\nSerialnumber=7\n" + line + "\n";
    workspace.write(settingsFile, content);
    const QVariantMap settings = loadSettings();
    QCOMPARE(settings.value(key), QVariant(value));
    QCOMPARE(settings.value("Serialnumber").toString(), "7");
    QCOMPARE(settings.value("Camera2Yaw").toString(), "a@b");
    QCOMPARE(settings.value("Camera3Roll").toString(), "-90");

    QVariantMap changed = settings;
    changed.insert("Serialnumber", "@8");
    storeSettings(changed);
    QCOMPARE(loadSettings(), changed);
    const QByteArray after = workspace.read(settingsFile);
    QVERIFY(after.contains("\nSerialnumber=@@8\n"));
    QVERIFY(after.contains("\nCamera2Yaw=a@b\n"));
    QVERIFY2(after.contains("=" + value.toLatin1() + "\n"), after.constData());
    QCOMPARE(workspace.tree("data").size(), 1);
}

void TestSettings::noRoomForTheFile()
{
    const Workspace workspace;
    const QByteArray content =
        "[General]\nSerialnumber=7\nMine=@Variant(1)\nLong=" + QByteArray(3000, 'x') + '\n';
    const TestVolume disk(QFileInfo(workspace.path(settingsFile)).path(), 64);
    SKIP_UNLESS_MOUNTED(disk);
    workspace.write(settingsFile, content);
    QFile filler(workspace.path("data/Kelpora 360/filler"));
    QVERIFY(filler.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    while (filler.write(QByteArray(4096, 'f')) > 0) {
    }
    storeSettings({{"Serialnumber", "8"}});
    QCOMPARE(workspace.read(settingsFile), content);
    QVERIFY(filler.remove());
    storeSettings({{"Serialnumber", "8"}});
    QVERIFY(workspace.read(settingsFile).contains("\nSerialnumber=8\n"));
}

void TestSettings::noRoomForTheCopy()
{
    const Workspace workspace;
    const QByteArray content = "[General]\nSerialnumber=7\nMine=@Variant(1)\n";
    workspace.write(settingsFile, content);
    const QByteArray usual = qgetenv("TMPDIR");
    const MessageLog log;
    qputenv("TMPDIR", "/dev/null");
    storeSettings({{"Serialnumber", "8"}});
    const Texts loaded = texts(loadSettings());
    qputenv("TMPDIR", usual);
    QCOMPARE(loaded, defaults());
    QCOMPARE(workspace.read(settingsFile), content);
    QCOMPARE(MessageLog::lines().filter("no temporary file can be written").size(), 1);
    QCOMPARE(loadSettings().value("Serialnumber").toString(), "7");
}

/// The program opens the file at its start, and holds it until its end.
void TestSettings::whatWasSetAtTheStartIsNotWrittenAtTheEnd()
{
    const Workspace workspace;
    workspace.write(settingsFile, "[General]\nSerialnumber=7\nMine=@Variant(1)\n");
    {
        SettingsFile early(getIniFilePath());
        early.setValue("AppVersion", "1");
        const QString folder = QFileInfo(workspace.path(settingsFile)).path();
        QVERIFY(QDir().rename(folder, folder + "-away"));
        early.sync();
        QVERIFY(QDir().rename(folder + "-away", folder));
        storeSettings({{"Serialnumber", "8"}});
    }
    QCOMPARE(loadSettings().value("Serialnumber").toString(), "8");
}

void TestSettings::noRegularFile_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("why");
    QTest::newRow("a pipe") << "pipe"
                            << "it is no regular file";
    QTest::newRow("a folder") << "folder"
                              << "it is no regular file";
    QTest::newRow("a file of 2 MiB") << "large"
                                     << "it is larger than 1 MiB";
    QTest::newRow("an object in quotes that don't end") << "Mine=\"@Variant(1)\n"
                                                        << "it has a line without an end";
    QTest::newRow("an object, and a line without a value") << "Mine=@Variant(1)\nYours\n"
                                                           << "a line of it can't be read";
    QTest::newRow("an object, and a group's name that doesn't end") << "Mine=@Variant(1)\n[Other=\\\n1\n"
                                                                    << "a line of it can't be read";
    QTest::newRow("a folder in the lock's place") << "lock"
                                                  << "its lock is no regular file";
}

void TestSettings::noRegularFile()
{
    QFETCH(QString, kind);
    QFETCH(QString, why);

    const Workspace workspace;
    const QByteArray content = "[General]\nSerialnumber=7\n";
    if (kind == "pipe") {
        workspace.makeFolder(QFileInfo(settingsFile).path());
        QCOMPARE(::mkfifo(QFile::encodeName(workspace.path(settingsFile)).constData(), 0600), 0);
    } else if (kind == "folder") {
        workspace.write(settingsFile + "/x", content);
    } else if (kind.contains('=')) {
        workspace.write(settingsFile, content + kind.toLatin1());
    } else if (kind == "large") {
        workspace.write(settingsFile, content + ';' + QByteArray(2 << 20, 'x'));
    } else {
        workspace.write(settingsFile, content);
        workspace.write(settingsFile + ".lock/x", content);
    }
    const bool pipe = kind == "pipe";
    const auto tree = pipe ? QMap<QString, QByteArray>() : workspace.tree("data");
    const MessageLog log;
    for (int i = 0; i < 2; ++i) {
        QCOMPARE(texts(loadSettings()), defaults());
        storeSettings({{"Serialnumber", "8"}});
    }
    QVERIFY(pipe ? !QFileInfo(workspace.path(settingsFile)).isFile() : workspace.tree("data") == tree);
    QCOMPARE(MessageLog::lines(), QStringList{QStringLiteral("warning: The settings file %1 is not used, the "
                                                             "defaults hold: %2.")
                                                  .arg(getIniFilePath(), why)});
}

void TestSettings::theViewChangesAnotherKey_data()
{
    QTest::addColumn<QVariant>("before");
    QTest::addColumn<QVariant>("after");

    const QStringList list = {"a", "b"};
    QTest::newRow("a text") << QVariant("a") << QVariant("b");
    QTest::newRow("a list's element") << QVariant(list) << QVariant(QStringList{"a", "c"});
    QTest::newRow("a list's length") << QVariant(list) << QVariant(QStringList{"a", "b", "c"});
    QTest::newRow("a list becomes a text") << QVariant(list) << QVariant("a,b");
    QTest::newRow("a number") << QVariant(QSize(1, 2)) << QVariant(QSize(1, 3));
    QTest::newRow("another type") << QVariant(QSize(1, 2)) << QVariant("1 2");
}

void TestSettings::theViewChangesAnotherKey()
{
    QFETCH(QVariant, before);
    QFETCH(QVariant, after);

    const Workspace workspace;
    const QString key = "Mine";
    storeSettings({{key, before}});
    QCOMPARE(loadSettings().value(key), before);
    storeSettings({{key, after}});
    QCOMPARE(loadSettings().value(key), after);
}

void TestSettings::handMadeKeyGoesRoundTrip()
{
    const Workspace workspace;
    workspace.write(settingsFile, "[General]\nByHand=yes\n");
    QVariantMap settings = loadSettings();
    QCOMPARE(settings.value("ByHand").toString(), "yes");
    QVERIFY(QFile::remove(workspace.path(settingsFile)));
    storeSettings(settings);
    QCOMPARE(stored(workspace), texts(settings));
    QCOMPARE(stored(workspace).value("ByHand"), "yes");
}

void TestSettings::fileThatCannotBeWritten()
{
    const Workspace workspace;
    iniFilePath = workspace.write("a file", "x") + "/Kelpora360.ini";
    QCOMPARE(texts(loadSettings()), defaults());
    storeSettings({{"Serialnumber", "7"}});
    QCOMPARE(texts(loadSettings()), defaults());
    QCOMPARE(workspace.read("a file"), QByteArray("x"));
}

void TestSettings::theFileIsReadAfresh()
{
    const Workspace workspace;
    QCOMPARE(loadSettings().value("Serialnumber").toString(), "000000");
    workspace.write(settingsFile, "[General]\nSerialnumber=by hand 123\n");
    QCOMPARE(loadSettings().value("Serialnumber").toString(), "by hand 123");
}

void TestSettings::aFileOfTheSameSizeIsReadAgain()
{
    const Workspace workspace;
    QCOMPARE(loadSettings().value("Serialnumber").toString(), "000000");
    const QByteArray before = workspace.read(settingsFile);
    for (const char *serial : {"000001", "000002"}) {
        // The toolkit's own view of the file changes once a millisecond at most.
        QTest::qSleep(20);
        workspace.write(settingsFile, QByteArray(before).replace("000000", serial));
        // Long enough for what was read last to hold.
        QTest::qSleep(2300);
        QCOMPARE(loadSettings().value("Serialnumber").toString(), serial);
        QCOMPARE(loadSettings().value("Serialnumber").toString(), serial);
    }
    storeSettings({{"Serialnumber", "000003"}});
    QCOMPARE(loadSettings().value("Serialnumber").toString(), "000003");
    QVERIFY(QFile::remove(workspace.path(settingsFile)));
    QCOMPARE(loadSettings().value("Serialnumber").toString(), "000000");
}

void TestSettings::aFileThatCouldNotBeReadIsReadAgain()
{
    const Workspace workspace;
    const QString path = workspace.write(settingsFile, "[General]\nSerialnumber=000007\n");
    const QString folder = QFileInfo(path).path();
    const QFile::Permissions mayBeRead = QFile::permissions(path);
    QVERIFY(QFile::setPermissions(path, {}));
    QVERIFY(QFile::setPermissions(folder, QFile::ReadOwner | QFile::ExeOwner));
    // Long enough for what was read to hold.
    QTest::qSleep(2300);
    {
        const PlainUser user;
        QCOMPARE(loadSettings().value("Serialnumber").toString(), "000000");
    }
    QVERIFY(QFile::setPermissions(path, mayBeRead));
    QCOMPARE(loadSettings().value("Serialnumber").toString(), "000007");
    QVERIFY(QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
}

void TestSettings::workersReadWhileTheViewStores()
{
    const Workspace workspace;
    storeSettings(loadSettings());
    std::atomic<bool> done{false};
    std::atomic<int> wrong{0};
    std::vector<std::thread> workers;
    for (int i = 0; i < 3; ++i) {
        workers.emplace_back([&] {
            while (!done) {
                const QString serial = loadSettings().value("Serialnumber").toString();
                if (serial != QLatin1String("000000") && serial != QLatin1String("111111"))
                    ++wrong;
            }
        });
    }
    for (int i = 0; i < 16; ++i)
        storeSettings({{"Serialnumber", QString(6, QLatin1Char(i % 2 == 0 ? '1' : '0'))}});
    done = true;
    for (std::thread &worker : workers)
        worker.join();
    QCOMPARE(wrong.load(), 0);
    QCOMPARE(stored(workspace), defaults());
}

void TestSettings::aLoadSeesAWholeStore()
{
    const Workspace workspace;
    const QStringList cameras{"Camera1Yaw", "Camera2Yaw", "Camera3Yaw"};
    const auto store = [&](int value) {
        QVariantMap settings;
        for (const QString &key : cameras)
            settings.insert(key, QString::number(value));
        storeSettings(settings);
    };
    store(0);
    // As in the program, whose start-up opens the file for the whole run.
    const QSettings shared(getIniFilePath(), QSettings::IniFormat);
    std::atomic<bool> done{false};
    std::atomic<int> mixed{0};
    std::vector<std::thread> workers;
    for (int i = 0; i < 3; ++i) {
        workers.emplace_back([&] {
            while (!done) {
                const QVariantMap settings = loadSettings();
                if (settings.value(cameras[0]) != settings.value(cameras[1]) ||
                    settings.value(cameras[0]) != settings.value(cameras[2]))
                    ++mixed;
            }
        });
    }
    for (int i = 1; i <= 300; ++i)
        store(i);
    done = true;
    for (std::thread &worker : workers)
        worker.join();
    QCOMPARE(mixed.load(), 0);
}

KELPORA_TEST_MAIN(TestSettings)
#include "tst_settings.moc"
