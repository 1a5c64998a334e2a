#include "app/appcontroller.h"
#include "cards/cardpreparation.h"
#include "tests/support/medium.h"
#include "tests/support/messagelog.h"
#include "tests/support/plainuser.h"
#include "tests/support/testmain.h"
#include "tests/support/workspace.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QThread>

#include <algorithm>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <stdexcept>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const QByteArray config = "multi.auto_ena=1\nrecord.tl_enable=0\n";
const QByteArray media = "a recording";

QByteArray label(int card)
{
    return "[autorun]\r\nlabel=360_0" + QByteArray::number(card) +
           "\r\n\r\n[Content]\r\nMusicFiles=0\r\nPictureFiles=0\r\nVideoFiles=0";
}

QString indexName(int card)
{
    return QStringLiteral("360_0%1").arg(card);
}

/// The four files that every card gets.
QMap<QString, QByteArray> markers(int card)
{
    return {{indexName(card), ""},
            {".disable_osx_metadata", ""},
            {".metadata_never_index", ""},
            {"AutoRun.inf", label(card)}};
}

/// The names in a folder as the system has them, whatever their encoding, sorted.
QList<QByteArray> rawNames(const QString &folder)
{
    QList<QByteArray> names;
    DIR *listing = ::opendir(QFile::encodeName(folder).constData());
    if (listing == nullptr)
        return names;
    while (const dirent *entry = ::readdir(listing)) {
        const QByteArray name(entry->d_name);
        if (name != "." && name != "..")
            names.append(name);
    }
    ::closedir(listing);
    std::sort(names.begin(), names.end());
    return names;
}

void kindRows()
{
    QTest::addColumn<QString>("kind");
    for (const char *kind : {"folder", "tmpfs", "ext4", "exfat"})
        QTest::newRow(kind) << QString::fromLatin1(kind);
}

/// Prepares one card and writes down, in their order, what it logs and reports.
QStringList prepare(int card, const QString &root, bool erase, bool createSyncConfig)
{
    const MessageLog log;
    QStringList transcript;
    int logged = 0;
    const auto takeLog = [&] {
        const QStringList lines = MessageLog::lines();
        transcript += lines.mid(logged);
        logged = lines.size();
    };
    CardPreparation(card, root, [&](const Progress &progress) {
        takeLog();
        transcript.append(
            QStringLiteral("%1 %2 %3 ").arg(progress.from).arg(progress.to).arg(progress.value) +
            progress.text);
    }).run(erase, createSyncConfig);
    takeLog();
    return transcript;
}

QString logLine(const char *text, int card, const QString &root)
{
    return QStringLiteral("info: ") + QString::fromLatin1(text).arg(card).arg(root);
}

QString notEmptied(int card, const QString &root)
{
    return QStringLiteral("warning: Card %1: not everything could be removed from %2.").arg(card).arg(root);
}

QString cutShort(int card, const QString &root)
{
    return QStringLiteral("warning: Card %1: not everything could be written to %2.").arg(card).arg(root);
}

QStringList markerLines(int card, const QString &root)
{
    return {logLine("Created index file on card %1 (%2)", card, root),
            logLine("Created disable_osx_metadata file on card %1 (%2)", card, root),
            logLine("Created metadata_never_index file on card %1 (%2)", card, root),
            logLine("Created AutoRun file on card %1 (%2)", card, root)};
}

mode_t modeOf(const QString &path)
{
    struct stat status = {};
    return ::lstat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_mode & 07777 : 0;
}

bool setMode(const QString &path, mode_t mode)
{
    return ::chmod(QFile::encodeName(path).constData(), mode) == 0;
}

bool link(const QString &target, const QString &path)
{
    return ::symlink(QFile::encodeName(target).constData(), QFile::encodeName(path).constData()) == 0;
}

} // namespace

class TestCardPreparation : public QObject
{
    Q_OBJECT

private slots:
    void files_data();
    void files();
    void transcript_data();
    void transcript();
    void theCardIsWholeWithItsLastReport();
    void existingFiles_data();
    void existingFiles();
    void theReadOnlyConfigurationKeepsItsContent();
    void theReadOnlyConfigurationOfAnEarlierTime_data();
    void theReadOnlyConfigurationOfAnEarlierTime();
    void aConfigurationOfAnySize();
    void aPreparationThatThrows();
    void preparingTwice_data();
    void preparingTwice();
    void invalidFolders_data();
    void invalidFolders();
    void theRootOfTheSystemStays_data();
    void theRootOfTheSystemStays();
    void failures_data();
    void failures();
    void aWriteProtectedCard();
    void aFullCard();
    void linksAreRemovedNotFollowed_data();
    void linksAreRemovedNotFollowed();
    void nothingIsWrittenThroughALink_data();
    void nothingIsWrittenThroughALink();
    void readOnlyFilesAndFolders_data();
    void readOnlyFilesAndFolders();
    void names_data();
    void names();
    void manyEntries_data();
    void manyEntries();
    void specialFiles();
    void aPipeInTheLabelsPlace_data();
    void aPipeInTheLabelsPlace();
    void aCardThatCannotBeListed();
    void anotherVolumeIsNotEntered();
    void theControllerPreparesThreeOnItsThread();
    void theControllersCardsFollowTheirSlots_data();
    void theControllersCardsFollowTheirSlots();
};

void TestCardPreparation::files_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("card");
    QTest::addColumn<bool>("erase");
    QTest::addColumn<bool>("sync");
    int row = 0;
    for (const char *kind : {"folder", "tmpfs", "ext4", "exfat"}) {
        for (const bool erase : {false, true}) {
            for (const bool sync : {false, true})
                QTest::addRow("%s, %s, %s", kind, erase ? "erased" : "not erased",
                              sync ? "with configuration" : "without configuration")
                    << QString::fromLatin1(kind) << row++ % 3 + 1 << erase << sync;
        }
    }
}

void TestCardPreparation::files()
{
    QFETCH(QString, kind);
    QFETCH(int, card);
    QFETCH(bool, erase);
    QFETCH(bool, sync);
    const Workspace workspace;
    const Medium medium(workspace, kind);
    SKIP_UNLESS_MOUNTED(medium);
    const QMap<QString, QByteArray> old = {{"DCIM/100MEDIA/CLIP0001.MOV", media},
                                           {"DCIM/100MEDIA/.hidden", media},
                                           {".Trashes/501/x", media},
                                           {"notes.txt", media},
                                           {"MISC/other", media}};
    for (auto file = old.cbegin(); file != old.cend(); ++file)
        workspace.write(QStringLiteral("card/") + file.key(), file.value());
    workspace.makeFolder(QStringLiteral("card/DCIM/empty"));
    struct stat before = {};
    QCOMPARE(::stat(QFile::encodeName(medium.root()).constData(), &before), 0);

    prepare(card, medium.root(), erase, sync);

    QMap<QString, QByteArray> expected = markers(card);
    if (!erase) {
        for (auto file = old.cbegin(); file != old.cend(); ++file)
            expected.insert(file.key(), file.value());
    }
    if (sync)
        expected.insert(QStringLiteral("MISC/cfg"), config);
    QCOMPARE(workspace.tree(QStringLiteral("card")), expected);
    QList<QByteArray> top = {QFile::encodeName(indexName(card)), ".disable_osx_metadata",
                             ".metadata_never_index", "AutoRun.inf"};
    if (!erase)
        top += QList<QByteArray>{".Trashes", "DCIM", "notes.txt"};
    if (!erase && kind == QLatin1String("ext4"))
        top.append("lost+found");
    if (sync || !erase)
        top.append("MISC");
    std::sort(top.begin(), top.end());
    QCOMPARE(rawNames(medium.root()), top);
    // FAT and its kin keep no permissions.
    if (sync && kind != QLatin1String("exfat"))
        QCOMPARE(modeOf(workspace.path(QStringLiteral("card/MISC/cfg"))), mode_t(0444));
    struct stat after = {};
    QCOMPARE(::stat(QFile::encodeName(medium.root()).constData(), &after), 0);
    QCOMPARE(after.st_dev, before.st_dev);
    QCOMPARE(after.st_ino, before.st_ino);
}

void TestCardPreparation::transcript_data()
{
    QTest::addColumn<bool>("erase");
    QTest::addColumn<bool>("sync");
    QTest::addColumn<QString>("status");
    QTest::newRow("neither") << false << false << "No action";
    QTest::newRow("erased") << true << false << "Erased";
    QTest::newRow("configured") << false << true << "Prepared.";
    QTest::newRow("erased and configured") << true << true << "Erased and prepared.";
}

void TestCardPreparation::transcript()
{
    QFETCH(bool, erase);
    QFETCH(bool, sync);
    QFETCH(QString, status);
    for (int card = 1; card <= 3; ++card) {
        const Workspace workspace;
        // No placeholder is filled twice, and a path is shown as it was passed.
        const QString root = workspace.makeFolder(QStringLiteral("card %1 \u00fc")) + QStringLiteral("/");
        QStringList expected;
        if (erase)
            expected << QStringLiteral("0 2 1 Erasing")
                     << QStringLiteral("info: Erased card %1 (").arg(card) + root + QStringLiteral(")");
        if (sync)
            expected << QStringLiteral("0 2 2 Creating config")
                     << QStringLiteral("info: Created config file on card %1 (").arg(card) + root +
                            QStringLiteral(")");
        for (const char *file : {"index", "disable_osx_metadata", "metadata_never_index", "AutoRun"})
            expected
                << QStringLiteral("info: Created %1 file on card %2 (").arg(QLatin1String(file)).arg(card) +
                       root + QStringLiteral(")");
        expected << QStringLiteral("0 2 2 ") + status;
        QCOMPARE(prepare(card, root, erase, sync), expected);
    }
}

void TestCardPreparation::theCardIsWholeWithItsLastReport()
{
    const Workspace workspace;
    const QString root = workspace.makeFolder(QStringLiteral("card"));
    workspace.write(QStringLiteral("card/DCIM/A.MOV"), media);
    const MessageLog log;
    QList<QStringList> seen;
    CardPreparation(1, root, [&](const Progress &) {
        seen.append(workspace.tree(QStringLiteral("card")).keys());
    }).run(true, true);
    QCOMPARE(seen, (QList<QStringList>{{"DCIM/A.MOV"},
                                       {},
                                       {".disable_osx_metadata", ".metadata_never_index", "360_01",
                                        "AutoRun.inf", "MISC/cfg"}}));
}

void TestCardPreparation::existingFiles_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QByteArray>("after");
    QTest::newRow("a longer label keeps its tail")
        << "AutoRun.inf" << QByteArray(300, 'x') << label(2) + QByteArray(300 - label(2).size(), 'x');
    QTest::newRow("a shorter label") << "AutoRun.inf" << QByteArray("[autorun]\r\nlabel=OLD") << label(2);
    QTest::newRow("the label of another slot") << "AutoRun.inf" << label(3) << label(2);
    QTest::newRow("a label with zero bytes")
        << "AutoRun.inf" << QByteArray(200, '\0') << label(2) + QByteArray(200 - label(2).size(), '\0');
    QTest::newRow("the index keeps its content") << "360_02" << QByteArray("index") << QByteArray("index");
    QTest::newRow("the index of another slot stays")
        << "360_03" << QByteArray("index") << QByteArray("index");
    QTest::newRow("the first marker keeps its content")
        << ".disable_osx_metadata" << QByteArray("1") << QByteArray("1");
    QTest::newRow("the second marker keeps its content")
        << ".metadata_never_index" << QByteArray("2") << QByteArray("2");
    QTest::newRow("a longer configuration keeps its tail") << "MISC/cfg" << config + "more=1\n"
                                                           << config + "more=1\n";
    QTest::newRow("another configuration")
        << "MISC/cfg" << QByteArray(50, 'y') << config + QByteArray(50 - config.size(), 'y');
    QTest::newRow("a shorter configuration") << "MISC/cfg" << QByteArray("multi") << config;
}

void TestCardPreparation::existingFiles()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, before);
    QFETCH(QByteArray, after);
    for (const QString &kind : {QStringLiteral("folder"), QStringLiteral("tmpfs")}) {
        const Workspace workspace;
        const Medium medium(workspace, kind);
        if (!medium.isMounted())
            continue;
        workspace.write(QStringLiteral("card/") + name, before);
        prepare(2, medium.root(), false, true);
        QMap<QString, QByteArray> expected = markers(2);
        expected.insert(QStringLiteral("MISC/cfg"), config);
        expected.insert(name, after);
        QCOMPARE(workspace.tree(QStringLiteral("card")), expected);
    }
}

void TestCardPreparation::theReadOnlyConfigurationOfAnEarlierTime_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QByteArray>("behind");
    QTest::newRow("ours alone") << QByteArray() << QByteArray();
    QTest::newRow("a camera's longer one") << QByteArray(config.size(), 'x') + "mine=1\n"
                                           << QByteArray("mine=1\n");
}

void TestCardPreparation::theReadOnlyConfigurationOfAnEarlierTime()
{
    QFETCH(QByteArray, before);
    QFETCH(QByteArray, behind);
    const Workspace workspace;
    const QString root = workspace.makeFolder(QStringLiteral("card"));
    if (!before.isEmpty())
        workspace.write(QStringLiteral("card/MISC/cfg"), before);
    const PlainUser user;
    const QStringList said = prepare(1, root, false, true);
    QVERIFY(said.filter(QStringLiteral("warning: ")).isEmpty());
    QCOMPARE(prepare(1, root, false, true), said);
    QCOMPARE(workspace.read(QStringLiteral("card/MISC/cfg")), config + behind);
}

void TestCardPreparation::theReadOnlyConfigurationKeepsItsContent()
{
    const Workspace workspace;
    const QString root = workspace.makeFolder(QStringLiteral("card"));
    const QString path = workspace.write(QStringLiteral("card/MISC/cfg"), "mine=1\n");
    QVERIFY(setMode(path, 0400));
    {
        const PlainUser user;
        const QStringList expected = QStringList{QStringLiteral("0 2 2 Creating config"),
                                                 logLine("Created config file on card %1 (%2)", 1, root)} +
                                     markerLines(1, root) + QStringList{cutShort(1, root), "0 2 2 Prepared."};
        QCOMPARE(prepare(1, root, false, true), expected);
    }
    QCOMPARE(workspace.read(QStringLiteral("card/MISC/cfg")), QByteArray("mine=1\n"));
    QCOMPARE(modeOf(path), mode_t(0444));
    {
        const PlainUser user;
        prepare(1, root, true, true);
    }
    QCOMPARE(workspace.read(QStringLiteral("card/MISC/cfg")), config);
    QCOMPARE(modeOf(path), mode_t(0444));
}

void TestCardPreparation::aConfigurationOfAnySize()
{
    // As a damaged card may tell.
    const Workspace workspace;
    const QString root = workspace.makeFolder(QStringLiteral("card"));
    const QString path = workspace.write(QStringLiteral("card/MISC/cfg"), {});
    if (!QFile::resize(path, qint64{1} << 30))
        QSKIP("This file system takes no file of that size");
    struct rusage before = {};
    struct rusage after = {};
    ::getrusage(RUSAGE_SELF, &before);
    const QStringList said = prepare(1, root, false, true);
    ::getrusage(RUSAGE_SELF, &after);
    QCOMPARE(said.last(), QStringLiteral("0 2 2 Prepared."));
    // In KiB.
    QVERIFY2(after.ru_maxrss - before.ru_maxrss < 100000, "all of it was taken into memory");
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.read(config.size()), config);
}

void TestCardPreparation::aPreparationThatThrows()
{
    const Workspace workspace;
    const QString root = workspace.makeFolder(QStringLiteral("card"));
    const MessageLog log;
    QStringList told;
    CardPreparation(2, root, [&told](const Progress &progress) {
        told.append(progress.text);
        if (told.size() == 1)
            throw std::runtime_error("no memory");
    }).run(true, true);
    QCOMPARE(told, (QStringList{"Erasing", "Error: no memory"}));
    QCOMPARE(MessageLog::lines(QStringLiteral("warning")), QStringList{"Card 2: no memory"});
}

void TestCardPreparation::preparingTwice_data()
{
    kindRows();
}

void TestCardPreparation::preparingTwice()
{
    QFETCH(QString, kind);
    const Workspace workspace;
    const Medium medium(workspace, kind);
    SKIP_UNLESS_MOUNTED(medium);
    QMap<QString, QByteArray> expected = markers(3);
    expected.insert(QStringLiteral("MISC/cfg"), config);
    for (const bool erase : {true, true, false}) {
        prepare(3, medium.root(), erase, true);
        QCOMPARE(workspace.tree(QStringLiteral("card")), expected);
    }
    // Moved to another slot without being erased, it carries both indexes and the new label.
    prepare(1, medium.root(), false, false);
    expected.insert(indexName(1), "");
    expected.insert(QStringLiteral("AutoRun.inf"), label(1));
    QCOMPARE(workspace.tree(QStringLiteral("card")), expected);
}

void TestCardPreparation::invalidFolders_data()
{
    QTest::addColumn<QString>("folder");
    QTest::addColumn<bool>("erase");
    // Erasing "/" is tried in a changed root below.
    QTest::newRow("an empty slot, erased") << "" << true;
    QTest::newRow("an empty slot") << "" << false;
    QTest::newRow("the root of the system") << "/" << false;
}

void TestCardPreparation::invalidFolders()
{
    QFETCH(QString, folder);
    QFETCH(bool, erase);
    const Workspace workspace;
    workspace.write(QStringLiteral("here/file"), media);
    QVERIFY(QDir::setCurrent(workspace.path(QStringLiteral("here"))));
    for (int card = 1; card <= 3; ++card) {
        QCOMPARE(prepare(card, folder, erase, true),
                 (QStringList{logLine("Invalid directory for card %1 (%2)", card, folder),
                              QStringLiteral("0 2 2 Invalid directory")}));
        QVERIFY(!QFileInfo::exists(QStringLiteral("/") + indexName(card)));
    }
    QVERIFY(!QFileInfo::exists(QStringLiteral("/AutoRun.inf")));
    QCOMPARE(workspace.tree(QStringLiteral("here")), (QMap<QString, QByteArray>{{"file", media}}));
}

void TestCardPreparation::theRootOfTheSystemStays_data()
{
    QTest::addColumn<QString>("path");
    for (const char *path : {"/", "//", "/.", "/folder/..", "/all"})
        QTest::newRow(path) << QString::fromLatin1(path);
}

void TestCardPreparation::theRootOfTheSystemStays()
{
    QFETCH(QString, path);
    const Workspace workspace;
    workspace.write(QStringLiteral("system/file"), media);
    workspace.makeFolder(QStringLiteral("system/folder"));
    QVERIFY(QFile::link(QStringLiteral("/"), workspace.path(QStringLiteral("system/all"))));
    const QByteArray root = QFile::encodeName(workspace.path(QStringLiteral("system")));
    const pid_t child = ::fork();
    QVERIFY(child >= 0);
    if (child == 0) {
        if (::chroot(root.constData()) != 0 || ::chdir("/") != 0)
            ::_exit(77);
        QString last;
        CardPreparation(1, path, [&last](const Progress &progress) { last = progress.text; }).run(true, true);
        ::_exit(last == QStringLiteral("Invalid directory") ? 0 : 1);
    }
    int status = 0;
    QCOMPARE(::waitpid(child, &status, 0), child);
    QVERIFY(WIFEXITED(status));
    if (WEXITSTATUS(status) == 77)
        QSKIP("This machine allows no other root folder.");
    QCOMPARE(WEXITSTATUS(status), 0);
    QCOMPARE(workspace.read(QStringLiteral("system/file")), QByteArray(media));
    QCOMPARE(
        QDir(workspace.path(QStringLiteral("system"))).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
        (QStringList{"all", "file", "folder"}));
}

void TestCardPreparation::failures_data()
{
    QTest::addColumn<QStringList>("folders");
    QTest::addColumn<QString>("file");
    QTest::addColumn<QStringList>("missing");
    const QStringList none;
    QTest::newRow("the card is gone") << none << "" << QStringList{"index", "disable", "metadata", "AutoRun"};
    QTest::newRow("a folder in the index's place") << QStringList{"360_01"} << "" << QStringList{"index"};
    QTest::newRow("a folder in the first marker's place")
        << QStringList{".disable_osx_metadata"} << "" << QStringList{"disable"};
    QTest::newRow("a folder in the second marker's place")
        << QStringList{".metadata_never_index"} << "" << QStringList{"metadata"};
    QTest::newRow("a folder in the label's place")
        << QStringList{"AutoRun.inf"} << "" << QStringList{"AutoRun"};
    QTest::newRow("a folder in the configuration's place") << QStringList{"MISC/cfg"} << "" << none;
    QTest::newRow("a file in its folder's place") << QStringList{"DCIM"} << "MISC" << none;
}

void TestCardPreparation::failures()
{
    QFETCH(QStringList, folders);
    QFETCH(QString, file);
    QFETCH(QStringList, missing);
    const Workspace workspace;
    const QString root = workspace.path(QStringLiteral("card"));
    for (const QString &folder : folders)
        workspace.makeFolder(QStringLiteral("card/") + folder);
    if (!file.isEmpty())
        workspace.write(QStringLiteral("card/") + file, media);
    QStringList lines = markerLines(1, root);
    for (const QString &name : missing)
        lines = lines.filter(QRegularExpression(QStringLiteral("^(?!info: Created %1)").arg(name)));
    QCOMPARE(lines.size(), 4 - missing.size());
    QCOMPARE(prepare(1, root, false, true),
             (QStringList{"0 2 2 Creating config", logLine("Created config file on card %1 (%2)", 1, root)} +
              lines + QStringList{cutShort(1, root), "0 2 2 Prepared."}));
    QCOMPARE(QFileInfo::exists(root), !folders.isEmpty());
    if (!file.isEmpty())
        QCOMPARE(workspace.read(QStringLiteral("card/") + file), media);
    QStringList expected;
    if (folders.isEmpty())
        expected << QStringLiteral("0 2 1 Erasing") << notEmptied(1, root)
                 << logLine("Erased card %1 (%2)", 1, root) << cutShort(1, root);
    else
        expected << QStringLiteral("0 2 1 Erasing") << logLine("Erased card %1 (%2)", 1, root)
                 << markerLines(1, root);
    QCOMPARE(prepare(1, root, true, false), expected + QStringList{"0 2 2 Erased"});
}

void TestCardPreparation::aWriteProtectedCard()
{
    const Workspace workspace;
    const Medium medium(workspace, QStringLiteral("tmpfs"));
    SKIP_UNLESS_MOUNTED(medium);
    workspace.write(QStringLiteral("card/DCIM/A.MOV"), media);
    QVERIFY(medium.volume()->makeReadOnly());
    QCOMPARE(prepare(2, medium.root(), true, true),
             (QStringList{QStringLiteral("0 2 1 Erasing"), notEmptied(2, medium.root()),
                          logLine("Erased card %1 (%2)", 2, medium.root()),
                          QStringLiteral("0 2 2 Creating config"),
                          logLine("Created config file on card %1 (%2)", 2, medium.root()),
                          cutShort(2, medium.root()), QStringLiteral("0 2 2 Erased and prepared.")}));
    QCOMPARE(workspace.tree(QStringLiteral("card")), (QMap<QString, QByteArray>{{"DCIM/A.MOV", media}}));
}

void TestCardPreparation::aFullCard()
{
    const Workspace workspace;
    const QString root = workspace.path(QStringLiteral("card"));
    const TestVolume volume(root, 1024);
    SKIP_UNLESS_MOUNTED(volume);
    QFile file(root + QStringLiteral("/A.MOV"));
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    while (file.write(QByteArray(4096, 'x')) == 4096) {
    }
    file.close();
    const qint64 size = file.size();
    QVERIFY(size > 0);
    QCOMPARE(prepare(1, root, false, false),
             (markerLines(1, root) + QStringList{cutShort(1, root), "0 2 2 No action"}));
    QCOMPARE(file.size(), size);
    prepare(1, root, true, true);
    QMap<QString, QByteArray> expected = markers(1);
    expected.insert(QStringLiteral("MISC/cfg"), config);
    QCOMPARE(workspace.tree(QStringLiteral("card")), expected);
}

void TestCardPreparation::linksAreRemovedNotFollowed_data()
{
    QTest::addColumn<QString>("kind");
    for (const char *kind : {"folder", "tmpfs", "ext4"})
        QTest::newRow(kind) << QString::fromLatin1(kind);
}

void TestCardPreparation::linksAreRemovedNotFollowed()
{
    QFETCH(QString, kind);
    const Workspace workspace;
    const Medium medium(workspace, kind);
    SKIP_UNLESS_MOUNTED(medium);
    const QString file = workspace.write(QStringLiteral("outside/file"), media);
    workspace.write(QStringLiteral("outside/folder/inner"), media);
    const QString folder = workspace.path(QStringLiteral("outside/folder"));
    workspace.write(QStringLiteral("beside"), media);
    QVERIFY(setMode(file, 0440));
    QVERIFY(setMode(folder, 0550));
    const QStringList targets = {file,
                                 folder,
                                 QStringLiteral("../outside/file"),
                                 QStringLiteral("../outside/folder"),
                                 QStringLiteral("../outside"),
                                 QStringLiteral(".."),
                                 QStringLiteral("."),
                                 QStringLiteral("itself"),
                                 workspace.path(),
                                 workspace.path(QStringLiteral("nowhere"))};
    for (const QString &below : {QString(), QStringLiteral("/DCIM"), QStringLiteral("/DCIM/deep/MISC")}) {
        QDir().mkpath(medium.root() + below);
        for (int i = 0; i < targets.size(); ++i)
            QVERIFY(link(targets.at(i), medium.root() + below + QStringLiteral("/link%1").arg(i)));
    }
    QVERIFY(link(QStringLiteral("itself"), medium.root() + QStringLiteral("/itself")));
    QVERIFY(link(folder, medium.root() + QStringLiteral("/MISC")));
    QVERIFY(link(file, medium.root() + QStringLiteral("/AutoRun.inf")));
    QVERIFY(link(folder, medium.root() + QStringLiteral("/360_01")));

    {
        const PlainUser user;
        prepare(1, medium.root(), true, true);
    }

    QMap<QString, QByteArray> expected = markers(1);
    expected.insert(QStringLiteral("MISC/cfg"), config);
    QCOMPARE(workspace.tree(QStringLiteral("card")), expected);
    QCOMPARE(rawNames(medium.root()).size(), 5);
    QCOMPARE(workspace.tree(QStringLiteral("outside")),
             (QMap<QString, QByteArray>{{"file", media}, {"folder/inner", media}}));
    QCOMPARE(workspace.read(QStringLiteral("beside")), media);
    QCOMPARE(modeOf(file), mode_t(0440));
    QCOMPARE(modeOf(folder), mode_t(0550));
    QVERIFY(setMode(folder, 0750));
}

void TestCardPreparation::nothingIsWrittenThroughALink_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("target");
    for (const char *name :
         {"360_01", ".disable_osx_metadata", ".metadata_never_index", "AutoRun.inf", "MISC/cfg"}) {
        QTest::addRow("%s to a file", name) << name << "outside/file";
        QTest::addRow("%s to nothing", name) << name << "outside/new";
    }
    QTest::newRow("MISC to a folder") << "MISC"
                                      << "outside";
    QTest::newRow("MISC to nothing") << "MISC"
                                     << "outside/new";
}

void TestCardPreparation::nothingIsWrittenThroughALink()
{
    QFETCH(QString, name);
    QFETCH(QString, target);
    const Workspace workspace;
    const QString root = workspace.makeFolder(QStringLiteral("card"));
    workspace.makeFolder(QFileInfo(QStringLiteral("card/") + name).path());
    const QString file = workspace.write(QStringLiteral("outside/file"), media);
    QVERIFY(setMode(file, 0600));
    QVERIFY(link(workspace.path(target), root + QLatin1Char('/') + name));
    const QStringList said = prepare(1, root, false, true);
    QCOMPARE(workspace.tree(QStringLiteral("outside")), (QMap<QString, QByteArray>{{"file", media}}));
    QCOMPARE(rawNames(workspace.path(QStringLiteral("outside"))), QList<QByteArray>{"file"});
    QCOMPARE(modeOf(file), mode_t(0600));
    QVERIFY(QFileInfo(root + QLatin1Char('/') + name).isSymLink());
    QCOMPARE(said.mid(said.size() - 2), (QStringList{cutShort(1, root), "0 2 2 Prepared."}));
    QCOMPARE(said.size(), name.startsWith(QStringLiteral("MISC")) ? 8 : 7);
}

void TestCardPreparation::readOnlyFilesAndFolders_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("fileMode");
    QTest::addColumn<int>("folderMode");
    for (const char *kind : {"folder", "tmpfs", "ext4"}) {
        QTest::addRow("read-only files, %s", kind) << kind << 0444 << 0755;
        QTest::addRow("read-only folders, %s", kind) << kind << 0644 << 0555;
        QTest::addRow("no permission at all, %s", kind) << kind << 0 << 0;
        QTest::addRow("folders that may only be listed, %s", kind) << kind << 0644 << 0444;
        QTest::addRow("folders that may only be passed, %s", kind) << kind << 0644 << 0111;
    }
}

void TestCardPreparation::readOnlyFilesAndFolders()
{
    QFETCH(QString, kind);
    QFETCH(int, fileMode);
    QFETCH(int, folderMode);
    const Workspace workspace;
    const Medium medium(workspace, kind);
    SKIP_UNLESS_MOUNTED(medium);
    const QStringList files = {"a", "DCIM/b", "DCIM/100/c", "DCIM/100/.d"};
    for (const QString &file : files)
        QVERIFY(setMode(workspace.write(QStringLiteral("card/") + file, media), mode_t(fileMode)));
    workspace.makeFolder(QStringLiteral("card/DCIM/empty"));
    for (const char *folder : {"DCIM/100", "DCIM/empty", "DCIM"})
        QVERIFY(setMode(medium.root() + QLatin1Char('/') + QLatin1String(folder), mode_t(folderMode)));
    const PlainUser user;
    prepare(1, medium.root(), true, false);
    QCOMPARE(workspace.tree(QStringLiteral("card")), markers(1));
    QCOMPARE(rawNames(medium.root()).size(), 4);
}

void TestCardPreparation::names_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QByteArray>("name");
    for (const char *kind : {"folder", "tmpfs", "ext4", "exfat"}) {
        QTest::addRow("accents, %s", kind) << kind << QByteArray("T\xc3\xa4uchgang \xc3\xa9");
        QTest::addRow("accents on their own, %s", kind) << kind << QByteArray("a\xcc\x88");
        QTest::addRow("other scripts, %s", kind) << kind << QByteArray("\xe6\xb5\xb7\xd9\x85\xd7\x90");
        QTest::addRow("beyond the basic plane, %s", kind) << kind << QByteArray("\xf0\x9f\x90\xa0");
        QTest::addRow("blanks, %s", kind) << kind << QByteArray("a  b");
        QTest::addRow("a leading dash, %s", kind) << kind << QByteArray("-rf");
        QTest::addRow("percent and hash, %s", kind) << kind << QByteArray("%20#1%1");
        if (QByteArray(kind) == "exfat")
            continue;
        QTest::addRow("not UTF-8, %s", kind) << kind << QByteArray("\xff\xfe\x80");
        QTest::addRow("cut in a character, %s", kind) << kind << QByteArray("reef\xc3");
        QTest::addRow("a line end, %s", kind) << kind << QByteArray("a\nb\r");
        QTest::addRow("a backslash, %s", kind) << kind << QByteArray("a\\b");
        QTest::addRow("a blank alone, %s", kind) << kind << QByteArray(" ");
        QTest::addRow("255 bytes, %s", kind) << kind << QByteArray(255, 'l');
    }
}

void TestCardPreparation::names()
{
    QFETCH(QString, kind);
    QFETCH(QByteArray, name);
    const Workspace workspace;
    const Medium medium(workspace, kind);
    SKIP_UNLESS_MOUNTED(medium);
    const QByteArray top = QFile::encodeName(medium.root());
    const QByteArray folder = top + '/' + name;
    QCOMPARE(::mkdir(folder.constData(), 0700), 0);
    QCOMPARE(::mkdir((top + "/d").constData(), 0700), 0);
    for (const QByteArray &path : {folder + '/' + name, top + "/d/" + name}) {
        const int file = ::open(path.constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        QVERIFY(file >= 0);
        ::close(file);
    }
    prepare(1, medium.root(), true, false);
    QCOMPARE(rawNames(medium.root()).size(), 4);
    QCOMPARE(workspace.tree(QStringLiteral("card")), markers(1));
}

void TestCardPreparation::manyEntries_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("count");
    QTest::addColumn<bool>("folders");
    for (const char *kind : {"tmpfs", "ext4"}) {
        QTest::addRow("20,000 files, %s", kind) << kind << 20000 << false;
        QTest::addRow("20,000 folders, %s", kind) << kind << 20000 << true;
    }
    // The machine's own disk and exFAT take milliseconds for each folder, whoever removes it.
    for (const char *kind : {"folder", "exfat"}) {
        QTest::addRow("2,000 files, %s", kind) << kind << 2000 << false;
        QTest::addRow("2,000 folders, %s", kind) << kind << 2000 << true;
    }
}

void TestCardPreparation::manyEntries()
{
    QFETCH(QString, kind);
    QFETCH(int, count);
    QFETCH(bool, folders);
    const Workspace workspace;
    const Medium medium(workspace, kind);
    SKIP_UNLESS_MOUNTED(medium);
    const int folder =
        ::open(QFile::encodeName(workspace.makeFolder(QStringLiteral("card/DCIM"))).constData(),
               O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    int made = 0;
    for (int i = 0; i < count; ++i) {
        const QByteArray name = "CLIP" + QByteArray::number(i);
        if (folders) {
            made += ::mkdirat(folder, name.constData(), 0700) == 0 ? 1 : 0;
        } else {
            const int file = ::openat(folder, name.constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
            made += file >= 0 ? 1 : 0;
            ::close(file);
        }
    }
    ::close(folder);
    QCOMPARE(made, count);
    QElapsedTimer timer;
    timer.start();
    prepare(1, medium.root(), true, true);
    QVERIFY2(timer.elapsed() < 20000, qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(rawNames(medium.root()).size(), 5);
}

void TestCardPreparation::specialFiles()
{
    const Workspace workspace;
    const QString root = workspace.makeFolder(QStringLiteral("card"));
    for (const char *name : {"/pipe", "/AutoRun.inf"})
        QCOMPARE(::mkfifo(QFile::encodeName(root + QLatin1String(name)).constData(), 0600), 0);
    const QString outside = workspace.write(QStringLiteral("outside"), media);
    QCOMPARE(::link(QFile::encodeName(outside).constData(),
                    QFile::encodeName(root + QStringLiteral("/second")).constData()),
             0);
    prepare(1, root, true, false);
    QCOMPARE(workspace.tree(QStringLiteral("card")), markers(1));
    QCOMPARE(workspace.read(QStringLiteral("outside")), media);
}

void TestCardPreparation::aPipeInTheLabelsPlace_data()
{
    QTest::addColumn<bool>("linked");
    QTest::newRow("itself") << false;
    QTest::newRow("behind a link") << true;
}

void TestCardPreparation::aPipeInTheLabelsPlace()
{
    QFETCH(bool, linked);
    const Workspace workspace;
    const QString root = workspace.makeFolder(QStringLiteral("card"));
    const QString label = root + QStringLiteral("/AutoRun.inf");
    const QString pipe = linked ? workspace.path(QStringLiteral("pipe")) : label;
    QCOMPARE(::mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
    if (linked)
        QVERIFY(link(pipe, label));
    // What is asked for here is that it comes back.
    const QStringList said = prepare(1, root, false, false);
    QCOMPARE(said.mid(said.size() - 2), (QStringList{cutShort(1, root), "0 2 2 No action"}));
    QVERIFY(said.filter(QStringLiteral("AutoRun")).isEmpty());
}

void TestCardPreparation::aCardThatCannotBeListed()
{
    const Workspace workspace;
    const QString root = workspace.makeFolder(QStringLiteral("card"));
    workspace.write(QStringLiteral("card/DCIM/A.MOV"), media);
    QVERIFY(setMode(root, 0333));
    QStringList said;
    {
        const PlainUser user;
        said = prepare(1, root, true, false);
    }
    QVERIFY(setMode(root, 0755));
    QVERIFY(said.contains(notEmptied(1, root)));
    QCOMPARE(workspace.read(QStringLiteral("card/DCIM/A.MOV")), media);
}

void TestCardPreparation::anotherVolumeIsNotEntered()
{
    const Workspace workspace;
    const Medium medium(workspace, QStringLiteral("tmpfs"));
    SKIP_UNLESS_MOUNTED(medium);
    const TestVolume inner(workspace.path(QStringLiteral("card/DCIM/inner")), 1024);
    SKIP_UNLESS_MOUNTED(inner);
    const TestVolume top(workspace.path(QStringLiteral("card/top")), 1024);
    SKIP_UNLESS_MOUNTED(top);
    workspace.write(QStringLiteral("card/DCIM/inner/A.MOV"), media);
    workspace.write(QStringLiteral("card/top/below/B.MOV"), media);
    workspace.write(QStringLiteral("card/DCIM/other/C.MOV"), media);
    const QString folder = workspace.path(QStringLiteral("card/top"));
    QVERIFY(setMode(folder, 0500));
    prepare(1, medium.root(), true, false);
    QMap<QString, QByteArray> expected = markers(1);
    expected.insert(QStringLiteral("DCIM/inner/A.MOV"), media);
    expected.insert(QStringLiteral("top/below/B.MOV"), media);
    QCOMPARE(workspace.tree(QStringLiteral("card")), expected);
    QCOMPARE(modeOf(folder), mode_t(0500));
}

void TestCardPreparation::theControllerPreparesThreeOnItsThread()
{
    const Workspace workspace;
    QStringList roots;
    for (int card = 1; card <= 3; ++card) {
        workspace.write(QStringLiteral("card%1/DCIM/A.MOV").arg(card), media);
        roots.append(workspace.path(QStringLiteral("card%1").arg(card)));
    }
    AppController controller;
    const MessageLog log;
    QStringList reports;
    QList<QThread *> threads;
    connect(
        &controller, &AppController::updateCardProgress, this,
        [&](const QVariant &card, const QVariant &from, const QVariant &to, const QVariant &value,
            const QVariant &text) {
            threads.append(QThread::currentThread());
            QStringList fields;
            for (const QVariant &field : {card, from, to, value, text})
                fields.append(field.toString());
            reports.append(fields.join(QLatin1Char(' ')));
        },
        Qt::DirectConnection);
    controller.eraseCards(roots.at(0), roots.at(1), roots.at(2), true, true);
    // All of it has come by the return.
    QStringList expected;
    for (int card = 1; card <= 3; ++card) {
        for (const char *report : {"0 2 1 Erasing", "0 2 2 Creating config", "0 2 2 Erased and prepared."})
            expected.append(QStringLiteral("%1 ").arg(card) + QLatin1String(report));
    }
    QCOMPARE(reports, expected);
    QCOMPARE(threads.count(QThread::currentThread()), threads.size());
    for (int card = 1; card <= 3; ++card) {
        QMap<QString, QByteArray> files = markers(card);
        files.insert(QStringLiteral("MISC/cfg"), config);
        QCOMPARE(workspace.tree(QStringLiteral("card%1").arg(card)), files);
    }
}

void TestCardPreparation::theControllersCardsFollowTheirSlots_data()
{
    QTest::addColumn<QStringList>("slotFolders");
    QTest::newRow("the first alone") << QStringList{"a", "", ""};
    QTest::newRow("the second alone") << QStringList{"", "a", ""};
    QTest::newRow("the third alone") << QStringList{"", "", "a"};
    QTest::newRow("an invalid one in the middle") << QStringList{"a", "/", "b"};
    QTest::newRow("an unused one at the start") << QStringList{"", "b", "a"};
    QTest::newRow("none") << QStringList{"", "", ""};
}

void TestCardPreparation::theControllersCardsFollowTheirSlots()
{
    QFETCH(QStringList, slotFolders);
    const Workspace workspace;
    workspace.makeFolder(QStringLiteral("a"));
    workspace.makeFolder(QStringLiteral("b"));
    QStringList passed;
    QStringList expected;
    for (int i = 0; i < slotFolders.size(); ++i) {
        const QString &folder = slotFolders.at(i);
        const bool valid = folder == QLatin1String("a") || folder == QLatin1String("b");
        passed.append(valid ? workspace.path(folder) : folder);
        expected.append(QString::number(i + 1) +
                        (valid ? QStringLiteral(" 2 No action") : QStringLiteral(" 2 Invalid directory")));
    }
    AppController controller;
    QStringList reports;
    connect(&controller, &AppController::updateCardProgress, this,
            [&](const QVariant &card, const QVariant &, const QVariant &, const QVariant &value,
                const QVariant &text) {
                reports.append(card.toString() + QLatin1Char(' ') + value.toString() + QLatin1Char(' ') +
                               text.toString());
            });
    const MessageLog log;
    controller.eraseCards(passed.at(0), passed.at(1), passed.at(2), false, false);
    QCOMPARE(reports, expected);
    for (const QString &name : {QStringLiteral("a"), QStringLiteral("b")}) {
        const int slot = slotFolders.indexOf(name) + 1;
        const QMap<QString, QByteArray> files = slot > 0 ? markers(slot) : QMap<QString, QByteArray>();
        QCOMPARE(workspace.tree(name), files);
    }
}

KELPORA_TEST_MAIN(TestCardPreparation)
#include "tst_cardpreparation.moc"
