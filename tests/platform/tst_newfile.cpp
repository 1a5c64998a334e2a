#include "platform/newfile.h"
#include "tests/support/testmain.h"
#include "tests/support/workspace.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <fcntl.h>
#include <functional>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <new>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

/// What the file system knows about taking a name: exclusive renames, hard links only (as some network
/// shares), or neither (as exFAT through FUSE).
enum FileSystem {
    ExclusiveRenames,
    HardLinks,
    PlainRenames,
};

/// From now on this process meets the errors that such a file system gives.
bool pretend(FileSystem fileSystem)
{
    if (fileSystem == ExclusiveRenames)
        return true;
    const unsigned linkError = fileSystem == PlainRenames ? unsigned(EPERM) : 0U;
    const auto call = [](long number) { return static_cast<unsigned>(number); };
    const unsigned allow = SECCOMP_RET_ALLOW;
    const unsigned refuseLink = linkError != 0 ? SECCOMP_RET_ERRNO | linkError : allow;
    constexpr auto numberAt = static_cast<unsigned>(offsetof(struct seccomp_data, nr));
    constexpr auto flagsAt = static_cast<unsigned>(offsetof(struct seccomp_data, args) + 4 * sizeof(__u64));
    std::array<sock_filter, 10> rules = {{
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, numberAt),
#ifdef SYS_link
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call(SYS_link), 5, 0),
#else
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call(SYS_linkat), 5, 0),
#endif
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call(SYS_linkat), 4, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call(SYS_renameat2), 0, 2),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, flagsAt),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0, 0, 2),
        BPF_STMT(BPF_RET | BPF_K, allow),
        BPF_STMT(BPF_RET | BPF_K, refuseLink),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | unsigned(EINVAL)),
        BPF_STMT(BPF_RET | BPF_K, allow),
    }};
    const struct sock_fprog program = {static_cast<unsigned short>(rules.size()), rules.data()};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

constexpr int cannotPretend = 99;

/// Runs `work` in a process of its own on that file system; its result, or cannotPretend.
int inChild(FileSystem fileSystem, const std::function<int()> &work)
{
    const pid_t child = ::fork();
    if (child == 0)
        ::_exit(pretend(fileSystem) ? work() : cannotPretend);
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child || !WIFEXITED(status))
        return -1;
    return WEXITSTATUS(status);
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

constexpr int rounds = 300;
constexpr int writers = 2;

/// What racing processes share.
struct Race
{
    std::array<std::atomic<int>, rounds> ready{};
    std::array<std::array<std::atomic<int>, rounds>, writers> results{};
};

int raceFor(Race &race, int writer, const QString &folder)
{
    for (std::size_t round = 0; round < rounds; ++round) {
        const QByteArray content = QByteArray(5000, writer == 0 ? 'a' : 'b');
        NewFile file(folder);
        if (!file.isOpen() || file.file().write(content) != content.size())
            return 1;
        ++race.ready[round];
        while (race.ready[round] < writers) {
        }
        const Publish result = file.publish(folder + QLatin1Char('/') + QString::number(round));
        race.results[static_cast<std::size_t>(writer)][round] = static_cast<int>(result);
    }
    return 0;
}

} // namespace

class TestNewFile : public QObject
{
    Q_OBJECT

private slots:
    void aNewNameIsTaken_data() { addFileSystems(); }
    void aNewNameIsTaken();
    void aTakenNameIsKept_data();
    void aTakenNameIsKept();
    void twoProcessesRaceForAName_data() { addFileSystems(); }
    void twoProcessesRaceForAName();
    void aFolderThatIsLocked_data();
    void aFolderThatIsLocked();
    void contents_data();
    void contents();
    void hiddenUntilPublished();
    void removedUnlessPublished();
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

void TestNewFile::aNewNameIsTaken()
{
    QFETCH(int, fileSystem);

    const Workspace workspace;
    workspace.makeFolder(folderName);
    const QString path = workspace.path(QStringLiteral("out/Rig ä.kava"));
    const int result =
        inChild(FileSystem(fileSystem), [&] { return static_cast<int>(writeNewFile(path, "new")); });
    if (result == cannotPretend)
        QSKIP("This machine does not allow system call filters.");
    QCOMPARE(result, static_cast<int>(Publish::Done));
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
    QFETCH(int, fileSystem);

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

    const int result =
        inChild(FileSystem(fileSystem), [&] { return static_cast<int>(writeNewFile(path, "new")); });
    if (result == cannotPretend)
        QSKIP("This machine does not allow system call filters.");
    QCOMPARE(result, static_cast<int>(Publish::Exists));
    QCOMPARE(entries(workspace), QStringList{QStringLiteral("taken")});
    const QFileInfo info(path);
    QCOMPARE(info.isSymLink(), kind.contains(QLatin1String("link")));
    QCOMPARE(info.isDir(), kind == QLatin1String("folder"));
    QCOMPARE(info.exists(), kind != QLatin1String("dangling link"));
    QCOMPARE(workspace.read(QStringLiteral("out/taken")), content);
}

void TestNewFile::twoProcessesRaceForAName()
{
    QFETCH(int, fileSystem);

    const Workspace workspace;
    const QString folder = workspace.makeFolder(folderName);
    void *shared = ::mmap(nullptr, sizeof(Race), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    QVERIFY(shared != MAP_FAILED);
    Race &race = *new (shared) Race;

    std::array<pid_t, writers> children{};
    for (int writer = 0; writer < writers; ++writer) {
        const pid_t child = ::fork();
        QVERIFY(child >= 0);
        if (child == 0) {
            ::alarm(120);
            ::_exit(pretend(FileSystem(fileSystem)) ? raceFor(race, writer, folder) : cannotPretend);
        }
        children[static_cast<std::size_t>(writer)] = child;
    }
    bool possible = true;
    bool ended = true;
    for (const pid_t child : children) {
        int status = 0;
        ended = ::waitpid(child, &status, 0) == child && WIFEXITED(status) && ended;
        possible = WEXITSTATUS(status) != cannotPretend && possible;
        ended = WEXITSTATUS(status) == 0 && ended;
    }
    if (!possible)
        QSKIP("This machine does not allow system call filters.");
    QVERIFY(ended);

    int firstWins = 0;
    for (std::size_t round = 0; round < rounds; ++round) {
        const auto first = static_cast<Publish>(race.results[0][round].load());
        const auto second = static_cast<Publish>(race.results[1][round].load());
        const bool firstWon = first == Publish::Done;
        QCOMPARE(first, firstWon ? Publish::Done : Publish::Exists);
        QCOMPARE(second, firstWon ? Publish::Exists : Publish::Done);
        QCOMPARE(workspace.read(folderName + QLatin1Char('/') + QString::number(round)),
                 QByteArray(5000, firstWon ? 'a' : 'b'));
        firstWins += firstWon ? 1 : 0;
    }
    qInfo("The first process won %d of %d names.", firstWins, rounds);
    QCOMPARE(entries(workspace).size(), rounds);
    ::munmap(shared, sizeof(Race));
}

void TestNewFile::aFolderThatIsLocked_data()
{
    QTest::addColumn<int>("lockedMs");
    QTest::addColumn<int>("expected");
    QTest::addColumn<int>("least");
    QTest::newRow("for a moment") << 300 << int(Publish::Done) << 300;
    QTest::newRow("for good") << -1 << int(Publish::Failed) << 1000;
}

void TestNewFile::aFolderThatIsLocked()
{
    QFETCH(int, lockedMs);
    QFETCH(int, expected);
    QFETCH(int, least);
    const Workspace workspace;
    const QByteArray folder = QFile::encodeName(workspace.makeFolder(folderName));
    const int other = ::open(folder.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    QVERIFY(::flock(other, LOCK_EX) == 0);
    QElapsedTimer timer;
    timer.start();
    std::thread hand([&] {
        if (lockedMs < 0)
            return;
        std::this_thread::sleep_for(std::chrono::milliseconds(lockedMs));
        ::flock(other, LOCK_UN);
    });
    const QString path = workspace.path(QStringLiteral("out/A.MOV"));
    const int result = inChild(PlainRenames, [&] {
        ::alarm(10);
        return static_cast<int>(writeNewFile(path, "new"));
    });
    hand.join();
    ::close(other);
    if (result == cannotPretend)
        QSKIP("This machine does not allow system call filters.");
    QCOMPARE(result, expected);
    QVERIFY2(timer.elapsed() >= least && timer.elapsed() < 9000,
             qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(entries(workspace).size(), expected == int(Publish::Done) ? 1 : 0);
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
