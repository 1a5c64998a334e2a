#include "platform/newfile.h"
#include "tests/support/loopvolume.h"
#include "tests/support/testmain.h"
#include "tests/support/workspace.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <ctime>
#include <fcntl.h>
#include <functional>
#include <memory>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

/// What the file system knows about taking a name: exclusive renames, hard links only (as some network
/// shares), or neither (as exFAT through FUSE).
enum FileSystem {
    ExclusiveRenames,
    HardLinks,
    PlainRenames,
};

/// The one that the calls below pretend.
FileSystem pretended = ExclusiveRenames;
/// What another program does just before the system takes the name.
std::function<void()> inBetween;
/// How often a file can't be removed.
int refusedRemovals = 0;
/// How far the clock is ahead.
time_t secondsAhead = 0;
constexpr time_t day = 24 * 60 * 60;

int refuse(int error)
{
    errno = error;
    return -1;
}

void letOtherProgramGoFirst()
{
    if (inBetween)
        inBetween();
}

FileSystem rowFileSystem()
{
    QFETCH(int, fileSystem);
    return FileSystem(fileSystem);
}

void addFileSystems()
{
    QTest::addColumn<int>("fileSystem");
    QTest::newRow("with exclusive renames") << int(ExclusiveRenames);
    QTest::newRow("with hard links only") << int(HardLinks);
    QTest::newRow("with plain renames only") << int(PlainRenames);
}

const QString folderName = QStringLiteral("out");

QStringList entries(const Workspace &workspace, const QString &folder = folderName)
{
    return QDir(workspace.path(folder))
        .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
}

} // namespace

// These stand in for the C library's, whose parameters have names of its own.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)

extern "C" int renameat2(int fromFolder, const char *from, int toFolder, const char *to,
                         unsigned int flags) noexcept
{
    if (pretended != ExclusiveRenames)
        return refuse(EINVAL);
    letOtherProgramGoFirst();
    return static_cast<int>(::syscall(SYS_renameat2, fromFolder, from, toFolder, to, flags));
}

extern "C" int link(const char *from, const char *to) noexcept
{
    if (pretended == PlainRenames)
        return refuse(EPERM);
    letOtherProgramGoFirst();
    return ::linkat(AT_FDCWD, from, AT_FDCWD, to, 0);
}

extern "C" int unlink(const char *path) noexcept
{
    if (refusedRemovals > 0) {
        --refusedRemovals;
        return refuse(EIO);
    }
    return ::unlinkat(AT_FDCWD, path, 0);
}

extern "C" int gettimeofday(struct timeval *now, void * /*zone*/) noexcept
{
    struct timespec precise = {};
    const int result = ::clock_gettime(CLOCK_REALTIME, &precise);
    *now = {precise.tv_sec + secondsAhead, precise.tv_nsec / 1000};
    return result;
}

// NOLINTEND(readability-inconsistent-declaration-parameter-name)

class TestNewFile : public QObject
{
    Q_OBJECT

private slots:
    void cleanup();
    void aNewNameIsTaken_data() { addFileSystems(); }
    void aNewNameIsTaken();
    void aTakenNameIsKept_data();
    void aTakenNameIsKept();
    void aNameTakenByAnotherProgramAtTheLastMoment_data();
    void aNameTakenByAnotherProgramAtTheLastMoment();
    void threadsRaceForAName_data();
    void threadsRaceForAName();
    void contents_data();
    void contents();
    void hiddenUntilPublished();
    void removedUnlessPublished();
    void removedAlsoWhenTheDiskRefusesOnce();
    void leftovers();
    void aNameStandsForItsContentAfterAPowerCut_data();
    void aNameStandsForItsContentAfterAPowerCut();
    void anotherNameAfterOneThatWasTaken();
    void aKilledWriterLeavesNoFileOfThatName();
    void missingFolder();
    void namesThatAreRefused_data();
    void namesThatAreRefused();
    void fullVolume_data();
    void fullVolume();
    void readOnlyVolume();
    void pulledVolume();
};

void TestNewFile::cleanup()
{
    refusedRemovals = 0;
    secondsAhead = 0;
    pretended = ExclusiveRenames;
    inBetween = nullptr;
}

void TestNewFile::aNewNameIsTaken()
{
    pretended = rowFileSystem();

    const Workspace workspace;
    workspace.makeFolder(folderName);
    const QString path = workspace.path(QStringLiteral("out/Rig ä.kava"));
    QCOMPARE(writeNewFile(path, "new"), Publish::Done);
    QCOMPARE(entries(workspace), QStringList{QStringLiteral("Rig ä.kava")});
    QCOMPARE(workspace.read(QStringLiteral("out/Rig ä.kava")), QByteArray("new"));
}

void TestNewFile::aTakenNameIsKept_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("fileSystem");

    const QMap<QByteArray, FileSystem> fileSystems = {
        {"with exclusive renames", ExclusiveRenames},
        {"with hard links only", HardLinks},
        {"with plain renames only", PlainRenames},
    };
    for (const QByteArray kind : {"file", "empty file", "folder", "dangling link", "link to a file"}) {
        for (auto entry = fileSystems.cbegin(); entry != fileSystems.cend(); ++entry)
            QTest::newRow("by a " + kind + ", " + entry.key())
                << QString::fromLatin1(kind) << int(entry.value());
    }
}

void TestNewFile::aTakenNameIsKept()
{
    QFETCH(QString, kind);
    pretended = rowFileSystem();

    const Workspace workspace;
    workspace.makeFolder(folderName);
    const QString path = workspace.path(QStringLiteral("out/taken"));
    const QString other = workspace.path(QStringLiteral("other"));
    QByteArray content;
    if (kind == QLatin1String("folder")) {
        workspace.makeFolder(QStringLiteral("out/taken"));
    } else if (kind.contains(QLatin1String("link"))) {
        QVERIFY(QFile::link(other, path));
        if (!kind.startsWith(QLatin1String("dangling")))
            workspace.write(QStringLiteral("other"), content = "old");
    } else {
        workspace.write(QStringLiteral("out/taken"), content = kind == QLatin1String("file") ? "old" : "");
    }

    QCOMPARE(writeNewFile(path, "new"), Publish::Exists);
    QCOMPARE(entries(workspace), QStringList{QStringLiteral("taken")});
    const QFileInfo info(path);
    QCOMPARE(info.isSymLink(), kind.contains(QLatin1String("link")));
    QCOMPARE(info.isDir(), kind == QLatin1String("folder"));
    QCOMPARE(info.exists(), kind != QLatin1String("dangling link"));
    QCOMPARE(workspace.read(QStringLiteral("out/taken")), content);
}

void TestNewFile::aNameTakenByAnotherProgramAtTheLastMoment_data()
{
    QTest::addColumn<int>("fileSystem");
    QTest::newRow("with exclusive renames") << int(ExclusiveRenames);
    QTest::newRow("with hard links only") << int(HardLinks);
}

void TestNewFile::aNameTakenByAnotherProgramAtTheLastMoment()
{
    const Workspace workspace;
    pretended = rowFileSystem();
    // cppcheck-suppress danglingLifetime ; forgotten before the next test
    inBetween = [&] { workspace.write(QStringLiteral("out/f"), "theirs"); };
    QCOMPARE(writeNewFile(workspace.makeFolder(folderName) + QStringLiteral("/f"), "ours"), Publish::Exists);
    QCOMPARE(workspace.tree(folderName), (QMap<QString, QByteArray>{{QStringLiteral("f"), "theirs"}}));
}

void TestNewFile::threadsRaceForAName_data()
{
    addFileSystems();
    QTest::newRow("on exFAT") << -1;
}

void TestNewFile::threadsRaceForAName()
{
    constexpr int rounds = 300;
    constexpr std::size_t writers = 3; // as many as the imports of one program
    const Workspace workspace;
    const QString folder = workspace.makeFolder(folderName);
    std::unique_ptr<LoopVolume> exfat;
    if (rowFileSystem() >= 0) {
        pretended = rowFileSystem();
    } else {
        exfat = std::make_unique<LoopVolume>(LoopVolume::Kind::Exfat, workspace.path(QStringLiteral("image")),
                                             48, folder);
        SKIP_UNLESS_MOUNTED(*exfat);
    }
    for (int round = 0; round < rounds; ++round) {
        const QString name = QString::number(round);
        std::atomic<std::size_t> ready{0};
        std::array<Publish, writers> results{};
        std::vector<std::thread> threads;
        for (std::size_t writer = 0; writer < writers; ++writer) {
            threads.emplace_back([&, writer] {
                NewFile file(folder);
                file.file().write(QByteArray(5000, static_cast<char>('a' + writer)));
                ++ready;
                while (ready < writers)
                    std::this_thread::yield();
                results[writer] = file.publish(folder + QLatin1Char('/') + name);
            });
        }
        for (std::thread &thread : threads)
            thread.join();
        const auto winner = std::find(results.cbegin(), results.cend(), Publish::Done) - results.cbegin();
        QCOMPARE(std::count(results.cbegin(), results.cend(), Publish::Done), 1);
        QCOMPARE(std::count(results.cbegin(), results.cend(), Publish::Exists), int(writers) - 1);
        QCOMPARE(workspace.read(folderName + QLatin1Char('/') + name),
                 QByteArray(5000, static_cast<char>('a' + winner)));
    }
    QCOMPARE(entries(workspace).size(), rounds);
}

void TestNewFile::contents_data()
{
    QTest::addColumn<QByteArray>("content");

    QTest::newRow("none") << QByteArray();
    QTest::newRow("one byte") << QByteArray("x");
    QTest::newRow("every byte, as it is") << [] {
        QByteArray bytes;
        for (int byte = 0; byte < 256; ++byte)
            bytes.append(static_cast<char>(byte));
        return bytes;
    }();
    QTest::newRow("line ends are left alone") << QByteArray("a\r\nb\nc\r");
    QTest::newRow("more than any buffer") << QByteArray(5000000, 'x');
}

void TestNewFile::contents()
{
    QFETCH(QByteArray, content);

    const Workspace workspace;
    workspace.makeFolder(folderName);
    QCOMPARE(writeNewFile(workspace.path(QStringLiteral("out/f")), content), Publish::Done);
    QCOMPARE(workspace.tree(folderName), (QMap<QString, QByteArray>{{QStringLiteral("f"), content}}));
}

void TestNewFile::hiddenUntilPublished()
{
    const Workspace workspace;
    NewFile file(workspace.makeFolder(folderName));
    QVERIFY(file.isOpen());
    QCOMPARE(file.file().write("half"), qint64(4));
    QVERIFY(file.file().flush());
    QCOMPARE(QDir(workspace.path(folderName)).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
             QStringList());
    QCOMPARE(entries(workspace).size(), 1);
    QCOMPARE(file.publish(workspace.path(QStringLiteral("out/f"))), Publish::Done);
    QCOMPARE(entries(workspace), QStringList{QStringLiteral("f")});
}

void TestNewFile::removedUnlessPublished()
{
    const Workspace workspace;
    {
        NewFile file(workspace.makeFolder(folderName));
        QCOMPARE(file.file().write("half"), qint64(4));
        QCOMPARE(entries(workspace).size(), 1);
    }
    QCOMPARE(entries(workspace), QStringList());
}

void TestNewFile::removedAlsoWhenTheDiskRefusesOnce()
{
    const Workspace workspace;
    {
        NewFile file(workspace.makeFolder(folderName));
        QCOMPARE(file.file().write("half"), qint64(4));
        refusedRemovals = 1;
    }
    QCOMPARE(refusedRemovals, 0);
    QCOMPARE(entries(workspace), QStringList());
}

void TestNewFile::leftovers()
{
    const Workspace workspace;
    const QString folder = workspace.makeFolder(folderName);
    const QStringList notOurs{QStringLiteral(".kelpora360-0123456789abcde.part"),
                              QStringLiteral(".kelpora360-0123456789abcdef.part.bak"),
                              QStringLiteral(".kelpora360-my-own-notes----.part"), QStringLiteral("A.MOV"),
                              QStringLiteral("kelpora360-0123456789abcdef.part")};
    for (const QString &name : notOurs)
        workspace.write(QStringLiteral("out/") + name, "theirs");
    QVERIFY(QDir(folder).mkdir(QStringLiteral(".kelpora360-0123456789abcdef.part")));
    auto *killed = new NewFile(folder);
    const QString ours = killed->file().fileName();
    QVERIFY(killed->file().flush());
    // A copy has the time of its recording, which may be old.
    QVERIFY(killed->file().setFileTime(QDateTime::fromSecsSinceEpoch(1), QFileDevice::FileModificationTime));

    removeLeftovers(folder);
    QVERIFY(QFileInfo::exists(ours));
    secondsAhead = day - 60;
    removeLeftovers(folder);
    QVERIFY(QFileInfo::exists(ours));
    secondsAhead = day + 60;
    removeLeftovers(folder);
    QVERIFY(!QFileInfo::exists(ours));
    QStringList left = entries(workspace);
    QVERIFY(left.removeOne(QStringLiteral(".kelpora360-0123456789abcdef.part")));
    left.sort();
    QCOMPARE(left, notOurs);
    delete killed;
}

void TestNewFile::aNameStandsForItsContentAfterAPowerCut_data()
{
    QTest::addColumn<int>("size");
    QTest::newRow("a project") << 20000;
    QTest::newRow("of some megabytes") << 5000000;
}

/// What the disk holds at a moment is what a power cut at that moment leaves.
void TestNewFile::aNameStandsForItsContentAfterAPowerCut()
{
    QFETCH(int, size);
    const Workspace workspace;
    const QString image = workspace.path(QStringLiteral("image"));
    const LoopVolume volume(LoopVolume::Kind::Ext4, image, 64, workspace.path(folderName));
    SKIP_UNLESS_MOUNTED(volume);
    const QByteArray content(size, 'x');
    QCOMPARE(writeNewFile(workspace.path(QStringLiteral("out/f")), content), Publish::Done);
    // Another program's flush brings the names to disk.
    QFile other(workspace.path(QStringLiteral("out/other")));
    QVERIFY(other.open(QIODevice::WriteOnly));
    QCOMPARE(::fsync(other.handle()), 0);

    const QString cut = workspace.path(QStringLiteral("cut"));
    QVERIFY(QFile::copy(image, cut));
    const LoopVolume afterwards(LoopVolume::Kind::Ext4, cut, workspace.path(QStringLiteral("afterwards")));
    SKIP_UNLESS_MOUNTED(afterwards);
    QVERIFY(workspace.read(QStringLiteral("afterwards/f")) == content);
}

void TestNewFile::anotherNameAfterOneThatWasTaken()
{
    const Workspace workspace;
    workspace.write(QStringLiteral("out/a"), "old");
    {
        NewFile file(workspace.path(folderName));
        QCOMPARE(file.file().write("new"), qint64(3));
        QCOMPARE(file.publish(workspace.path(QStringLiteral("out/a"))), Publish::Exists);
        QCOMPARE(file.error(), QString());
        QCOMPARE(file.publish(workspace.path(QStringLiteral("out/b"))), Publish::Done);
    }
    QCOMPARE(workspace.tree(folderName),
             (QMap<QString, QByteArray>{{QStringLiteral("a"), "old"}, {QStringLiteral("b"), "new"}}));
}

void TestNewFile::aKilledWriterLeavesNoFileOfThatName()
{
    const Workspace workspace;
    const QString folder = workspace.makeFolder(folderName);
    const pid_t child = ::fork();
    QVERIFY(child >= 0);
    if (child == 0) {
        NewFile file(folder);
        file.file().write(QByteArray(100000, 'x'));
        file.file().flush();
        ::kill(::getpid(), SIGKILL);
    }
    int status = 0;
    QCOMPARE(::waitpid(child, &status, 0), child);
    QVERIFY(WIFSIGNALED(status));
    QCOMPARE(QDir(folder).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList());
    QCOMPARE(writeNewFile(folder + QStringLiteral("/f"), "new"), Publish::Done);
    QCOMPARE(workspace.read(QStringLiteral("out/f")), QByteArray("new"));
}

void TestNewFile::missingFolder()
{
    const Workspace workspace;
    const QString path = workspace.path(QStringLiteral("gone/f"));
    NewFile file(workspace.path(QStringLiteral("gone")));
    QCOMPARE(file.isOpen(), false);
    QCOMPARE(file.publish(path), Publish::Failed);
    QCOMPARE(writeNewFile(path, "new"), Publish::Failed);
    QCOMPARE(QFileInfo::exists(workspace.path(QStringLiteral("gone"))), false);
}

void TestNewFile::namesThatAreRefused_data()
{
    QTest::addColumn<QString>("name");

    QTest::newRow("a name that is too long") << QString(300, QLatin1Char('x'));
    QTest::newRow("a folder that is not there") << QStringLiteral("gone/f");
}

void TestNewFile::namesThatAreRefused()
{
    QFETCH(QString, name);

    const Workspace workspace;
    {
        NewFile file(workspace.makeFolder(folderName));
        QCOMPARE(file.file().write("new"), qint64(3));
        QCOMPARE(file.publish(workspace.path(folderName) + QLatin1Char('/') + name), Publish::Failed);
    }
    QCOMPARE(entries(workspace), QStringList());
}

void TestNewFile::fullVolume_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<bool>("inPieces");

    QTest::newRow("a file within the write buffer") << 100 << false;
    QTest::newRow("a file larger than the volume") << 1000000 << false;
    QTest::newRow("pieces of which the last does not fit") << 1000000 << true;
}

void TestNewFile::fullVolume()
{
    QFETCH(int, size);
    QFETCH(bool, inPieces);

    const Workspace workspace;
    const TestVolume volume(workspace.path(folderName), 256);
    SKIP_UNLESS_MOUNTED(volume);
    if (size < 4096) {
        QFile filler(workspace.path(QStringLiteral("out/filler")));
        QVERIFY(filler.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
        while (filler.write(QByteArray(4096, 'x')) > 0) {
        }
    }
    const QStringList before = entries(workspace);
    const QString path = workspace.path(QStringLiteral("out/f"));
    if (inPieces) {
        NewFile file(workspace.path(folderName));
        QVERIFY(file.isOpen());
        for (int written = 0; written < size; written += 1000)
            file.file().write(QByteArray(1000, 'x'));
        QCOMPARE(file.publish(path), Publish::Failed);
        QCOMPARE(file.publish(path), Publish::Failed);
        QCOMPARE(file.error(), QStringLiteral("can't write the file: ") + qt_error_string(ENOSPC));
    } else {
        QCOMPARE(writeNewFile(path, QByteArray(size, 'x')), Publish::Failed);
    }
    QCOMPARE(entries(workspace), before);
}

void TestNewFile::readOnlyVolume()
{
    const Workspace workspace;
    TestVolume volume(workspace.path(folderName), 256);
    SKIP_UNLESS_MOUNTED(volume);
    QVERIFY(volume.makeReadOnly());
    QCOMPARE(writeNewFile(workspace.path(QStringLiteral("out/f")), "new"), Publish::Failed);
    QCOMPARE(entries(workspace), QStringList());
}

void TestNewFile::pulledVolume()
{
    const Workspace workspace;
    TestVolume volume(workspace.path(folderName), 256);
    SKIP_UNLESS_MOUNTED(volume);
    NewFile file(workspace.path(folderName));
    QCOMPARE(file.file().write("new"), qint64(3));
    QVERIFY(volume.pull());
    QCOMPARE(file.publish(workspace.path(QStringLiteral("out/f"))), Publish::Failed);
    QCOMPARE(entries(workspace), QStringList());
}

KELPORA_TEST_MAIN(TestNewFile)
#include "tst_newfile.moc"
