#include "app/job.h"
#include "cards/filecopy.h"
#include "tests/cards/importrun.h"
#include "tests/cards/recordings.h"
#include "tests/support/loopvolume.h"
#include "tests/support/plainuser.h"
#include "tests/support/testmain.h"
#include "tests/support/workspace.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QProcess>
#include <QStandardPaths>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <memory>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr int mebibyte = 1 << 20;

/// Runs `work` on a thread whose reading and writing is bound by file permissions, also when root runs the
/// test.
template <typename Work>
void withoutPrivileges(const Work &work)
{
    std::thread thread([&] {
        const PlainUser user;
        work();
    });
    thread.join();
}

/// A program that copies. It waits to be told to go on.
class OtherProgram
{
    Q_DISABLE_COPY(OtherProgram)

public:
    explicit OtherProgram(const QStringList &arguments)
    {
        process_.start(QStringLiteral(CARDCOPY), arguments);
    }

    [[nodiscard]] bool isWaiting()
    {
        return process_.waitForReadyRead(30000) && !process_.readLine().isEmpty();
    }
    void goOn()
    {
        process_.write("\n");
        process_.waitForBytesWritten(1000);
    }
    /// The exit code; -1 if it didn't end by itself.
    [[nodiscard]] int result()
    {
        const bool ended = process_.waitForFinished(60000) && process_.exitStatus() == QProcess::NormalExit;
        return ended ? process_.exitCode() : -1;
    }

private:
    QProcess process_;
};

/// The kinds of volume that a copy goes from and to.
class Places
{
    Q_DISABLE_COPY(Places)

public:
    explicit Places(const Workspace &workspace)
        : workspace_(workspace)
    {
    }

    /// Empty, with why() set, where it can't be had.
    [[nodiscard]] QString folder(const QString &kind, const QString &name)
    {
        const QString path = workspace_.makeFolder(name);
        if (kind == QStringLiteral("memory")) {
            volumes_.push_back(std::make_unique<TestVolume>(path, 64 * 1024));
            why_ = volumes_.back()->why();
            return volumes_.back()->isMounted() ? path : QString();
        }
        if (kind == QStringLiteral("exfat")) {
            exfat_.push_back(std::make_unique<LoopVolume>(
                LoopVolume::Kind::Exfat, workspace_.path(name + QStringLiteral(".image")), 48, path));
            why_ = exfat_.back()->why();
            return exfat_.back()->isMounted() ? path : QString();
        }
        return path;
    }
    [[nodiscard]] const QString &why() const { return why_; }

private:
    const Workspace &workspace_;
    std::vector<std::unique_ptr<TestVolume>> volumes_;
    std::vector<std::unique_ptr<LoopVolume>> exfat_;
    QString why_;
};

/// What goes wrong below a copy of more than `faultAt` bytes.
enum class Fault {
    None,
    ReadFails,     ///< as a card with a bad block
    WriteFails,    ///< as a disk that breaks
    WritesNothing, ///< as a volume in user space may answer when it is full
};
constexpr off_t faultAt = 5 * mebibyte;
Fault fault = Fault::None;
int emptyWrites = 0;

ssize_t failed(int error)
{
    errno = error;
    return -1;
}

/// Whether a copy within the system of `size` bytes at `offset` meets the fault.
bool meetsFault(off_t offset, std::size_t size)
{
    return fault != Fault::None && offset + static_cast<off_t>(size) > faultAt;
}

QString systemError(const char *what, int number)
{
    return QLatin1String(what) + QStringLiteral(": ") + qt_error_string(number);
}

/// What StagedCopy says of a copy of `source` to `destination` at its end.
QString copyError(const QString &source, const QString &destination, const StopFlag &stop = StopFlag())
{
    StagedCopy copy(source, QFileInfo(destination).absolutePath(), stop);
    const bool failed = copy.publish(destination) == Publish::Failed;
    return failed == copy.error().isEmpty() ? QStringLiteral("neither a success nor a reason") : copy.error();
}

/// How many bytes of a file the system holds in memory; -1 if it doesn't say.
qint64 cached(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    const auto size = static_cast<std::size_t>(file.size());
    void *map = ::mmap(nullptr, size, PROT_READ, MAP_SHARED, file.handle(), 0);
    if (map == MAP_FAILED)
        return -1;
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    std::vector<unsigned char> pages((size + page - 1) / page);
    const int failed = ::mincore(map, size, pages.data());
    ::munmap(map, size);
    if (failed != 0)
        return -1;
    return std::count_if(pages.cbegin(), pages.cend(),
                         [](unsigned char state) { return (state & 1U) != 0; }) *
           static_cast<qint64>(page);
}

/// Has a file written and let go of. Returns what of it stays in memory, as on a volume that is memory.
qint64 cachedAfterRelease(const QString &path)
{
    const int file = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return -1;
    const bool released = ::fsync(file) == 0 && ::posix_fadvise(file, 0, 0, POSIX_FADV_DONTNEED) == 0;
    ::close(file);
    return released ? cached(path) : -1;
}

} // namespace

// These stand in for the C library's, whose parameters have names of its own.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)

extern "C" ssize_t copy_file_range(int from, off64_t *fromOffset, int to, off64_t *toOffset, std::size_t size,
                                   unsigned int flags)
{
    if (meetsFault(*fromOffset, size))
        return failed(EIO);
    return ::syscall(SYS_copy_file_range, from, fromOffset, to, toOffset, size, flags);
}

extern "C" ssize_t sendfile(int to, int from, off_t *offset, std::size_t size) noexcept
{
    return meetsFault(*offset, size) ? failed(EIO) : ::syscall(SYS_sendfile, to, from, offset, size);
}

extern "C" ssize_t pread(int file, void *buffer, std::size_t size, off_t offset)
{
    if (fault == Fault::ReadFails && meetsFault(offset, size))
        return failed(EIO);
    return ::syscall(SYS_pread64, file, buffer, size, offset);
}

extern "C" ssize_t pwrite(int file, const void *buffer, std::size_t size, off_t offset)
{
    if (fault == Fault::WriteFails && meetsFault(offset, size))
        return failed(ENOSPC);
    // One that goes on for ever ends here, with another error than the expected one.
    if (fault == Fault::WritesNothing && meetsFault(offset, size))
        return ++emptyWrites < 1000 ? 0 : failed(EBADF);
    return ::syscall(SYS_pwrite64, file, buffer, size, offset);
}

// NOLINTEND(readability-inconsistent-declaration-parameter-name)

class TestFileCopy : public QObject
{
    Q_OBJECT

private slots:
    void copies_data();
    void copies();
    void sizesAroundThePieces_data();
    void sizesAroundThePieces();
    void aLongRecordingDoesNotFillTheMemory();
    void permissionsAndTimeAreKept_data();
    void permissionsAndTimeAreKept();
    void anExistingFileIsNeverOverwritten_data();
    void anExistingFileIsNeverOverwritten();
    void nothingIsSeenUnderTheNameBeforePublish();
    void anUnpublishedCopyLeavesNothing();
    void afterATakenNameAnotherOneWorks();
    void anEmptyFile();
    void aSparseFileIsCopiedWhole_data();
    void aSparseFileIsCopiedWhole();
    void aSourceThatCantBeCopied_data();
    void aSourceThatCantBeCopied();
    void aSourceThatGrowsAndShrinks_data();
    void aSourceThatGrowsAndShrinks();
    void aFaultInTheMiddle_data();
    void aFaultInTheMiddle();
    void aSourceWithoutPermission();
    void aFolderWithoutPermission();
    void aDestinationFolderThatIsMissing();
    void aNameThatIsTooLong();
    void aFullVolume();
    void aRaisedFlagCopiesNothing();
    void aFlagRaisedInTheMiddleEndsTheCopyWithinOnePiece();
    void twoProcessesForOneName_data();
    void twoProcessesForOneName();
    void aNameTakenWhileTheContentIsCopied();
    void twoImportsOfOneCardAtOnce_data();
    void twoImportsOfOneCardAtOnce();
};

void TestFileCopy::copies_data()
{
    QTest::addColumn<QString>("from");
    QTest::addColumn<QString>("to");
    QTest::newRow("disk to disk") << "disk"
                                  << "disk";
    QTest::newRow("disk to memory") << "disk"
                                    << "memory";
    QTest::newRow("memory to disk") << "memory"
                                    << "disk";
    QTest::newRow("memory to memory") << "memory"
                                      << "memory";
    QTest::newRow("exFAT to disk") << "exfat"
                                   << "disk";
    QTest::newRow("disk to exFAT") << "disk"
                                   << "exfat";
    QTest::newRow("exFAT to memory") << "exfat"
                                     << "memory";
}

void TestFileCopy::copies()
{
    QFETCH(QString, from);
    QFETCH(QString, to);
    const Workspace workspace;
    Places places(workspace);
    const QString card = places.folder(from, QStringLiteral("card"));
    if (card.isEmpty())
        QSKIP(qPrintable(places.why()));
    const QString target = places.folder(to, QStringLiteral("dst"));
    if (target.isEmpty())
        QSKIP(qPrintable(places.why()));
    const StopFlag stop;
    for (const int size : {0, 1, 4095, 4096, 4 * mebibyte, 4 * mebibyte + 1, 9 * mebibyte + 777}) {
        const QString name = QStringLiteral("%1.MOV").arg(size);
        const QByteArray content = recording(size, static_cast<quint32>(size));
        const QString source = workspace.write(QStringLiteral("card/") + name, content);
        QVERIFY(copyNewFile(source, target + QLatin1Char('/') + name, stop) == Publish::Done);
        QVERIFY(workspace.read(QStringLiteral("dst/") + name) == content);
        QVERIFY(workspace.read(QStringLiteral("card/") + name) == content);
        QCOMPARE(filesBelow(target), QStringList{name});
        QVERIFY(QFile::remove(target + QLatin1Char('/') + name));
    }
}

void TestFileCopy::sizesAroundThePieces_data()
{
    QTest::addColumn<int>("size");
    for (const int base : {1, 4, 8, 16, 64, 80}) {
        for (const int more : {-1, 0, 1})
            QTest::addRow("%d MiB %+d", base, more) << base * mebibyte + more;
    }
}

void TestFileCopy::sizesAroundThePieces()
{
    QFETCH(int, size);
    const Workspace workspace;
    const StopFlag stop;
    const QString source = workspace.write(QStringLiteral("A.MOV"), recording(size, 5));
    const QString copy = workspace.path(QStringLiteral("B.MOV"));
    QVERIFY(copyNewFile(source, copy, stop) == Publish::Done);
    QVERIFY(sameContent(source, copy));
}

void TestFileCopy::aLongRecordingDoesNotFillTheMemory()
{
    // More than what may wait for the disk by far.
    constexpr qint64 size = qint64{256} * mebibyte;
    constexpr qint64 limit = qint64{96} * mebibyte;
    const Workspace workspace;
    const StopFlag stop;
    const QString source = workspace.path(QStringLiteral("A.MOV"));
    {
        QFile file(source);
        QVERIFY(file.open(QIODevice::WriteOnly));
        const QByteArray piece = recording(mebibyte, 7);
        for (qint64 written = 0; written < size; written += piece.size())
            QCOMPARE(file.write(piece), qint64{piece.size()});
    }
    if (cachedAfterRelease(source) > limit)
        QSKIP("Files stay in memory on this volume.");

    const QString copy = workspace.path(QStringLiteral("B.MOV"));
    QVERIFY(copyNewFile(source, copy, stop) == Publish::Done);
    const qint64 ofSource = cached(source);
    const qint64 ofCopy = cached(copy);
    QVERIFY2(ofSource >= 0 && ofSource < limit, qPrintable(QString::number(ofSource)));
    QVERIFY2(ofCopy >= 0 && ofCopy < limit, qPrintable(QString::number(ofCopy)));
    QVERIFY(sameContent(source, copy));
}

void TestFileCopy::permissionsAndTimeAreKept_data()
{
    QTest::addColumn<uint>("mode");
    for (const uint mode : {0644U, 0600U, 0444U, 0755U, 0400U, 0666U})
        QTest::addRow("%o", mode) << mode;
}

void TestFileCopy::permissionsAndTimeAreKept()
{
    QFETCH(uint, mode);
    const Workspace workspace;
    const QString source = workspace.write(QStringLiteral("A.MOV"), "video");
    const QDateTime time(QDate(2001, 2, 3), QTime(4, 5, 6, 789));
    {
        QFile file(source);
        QVERIFY(file.open(QIODevice::ReadWrite) && file.setFileTime(time, QFileDevice::FileModificationTime));
    }
    QVERIFY(::chmod(QFile::encodeName(source).constData(), mode) == 0);

    const QString copy = workspace.path(QStringLiteral("B.MOV"));
    QVERIFY(copyNewFile(source, copy, StopFlag()) == Publish::Done);
    struct stat status = {};
    QVERIFY(::stat(QFile::encodeName(copy).constData(), &status) == 0);
    QCOMPARE(status.st_mode & 07777U, mode);
    QCOMPARE(QFileInfo(copy).lastModified(), time);
}

void TestFileCopy::anExistingFileIsNeverOverwritten_data()
{
    QTest::addColumn<QString>("kind");
    for (const char *kind : {"file", "empty file", "folder", "dangling link", "link to a file"})
        QTest::newRow(kind) << QString::fromLatin1(kind);
}

void TestFileCopy::anExistingFileIsNeverOverwritten()
{
    QFETCH(QString, kind);
    const Workspace workspace;
    const QString source = workspace.write(QStringLiteral("A.MOV"), "video");
    const QString target = workspace.path(QStringLiteral("dst/B.MOV"));
    workspace.makeFolder(QStringLiteral("dst"));
    workspace.write(QStringLiteral("other"), "other");
    if (kind == QStringLiteral("file"))
        workspace.write(QStringLiteral("dst/B.MOV"), "old");
    else if (kind == QStringLiteral("empty file"))
        workspace.write(QStringLiteral("dst/B.MOV"), {});
    else if (kind == QStringLiteral("folder"))
        workspace.makeFolder(QStringLiteral("dst/B.MOV"));
    else
        QVERIFY(QFile::link(workspace.path(kind == QStringLiteral("dangling link") ? QStringLiteral("none")
                                                                                   : QStringLiteral("other")),
                            target));
    const QMap<QString, QByteArray> before = workspace.tree(QStringLiteral("."));

    QVERIFY(copyNewFile(source, target, StopFlag()) == Publish::Exists);
    // Also when the name is only found taken at the end.
    StagedCopy staged(source, workspace.path(QStringLiteral("dst")), StopFlag());
    QVERIFY(staged.isWhole());
    QVERIFY(staged.publish(target) == Publish::Exists);
    QCOMPARE(staged.error(), QString());
    QVERIFY(staged.publish(workspace.path(QStringLiteral("dst/C.MOV"))) == Publish::Done);

    QMap<QString, QByteArray> after = workspace.tree(QStringLiteral("."));
    QCOMPARE(after.take(QStringLiteral("dst/C.MOV")), QByteArray("video"));
    QCOMPARE(after, before);
}

void TestFileCopy::nothingIsSeenUnderTheNameBeforePublish()
{
    const Workspace workspace;
    const QString source = workspace.write(QStringLiteral("A.MOV"), recording(100000, 1));
    const QString target = workspace.makeFolder(QStringLiteral("dst"));
    StagedCopy copy(source, target, StopFlag());
    QVERIFY(copy.isWhole());
    QCOMPARE(filesBelow(target).size(), 1);
    QCOMPARE(unfinishedBelow(target).size(), 1);
    QVERIFY(copy.publish(target + QStringLiteral("/B.MOV")) == Publish::Done);
    QCOMPARE(filesBelow(target), QStringList{QStringLiteral("B.MOV")});
}

void TestFileCopy::anUnpublishedCopyLeavesNothing()
{
    const Workspace workspace;
    const QString source = workspace.write(QStringLiteral("A.MOV"), recording(100000, 1));
    const QString target = workspace.makeFolder(QStringLiteral("dst"));
    {
        const StagedCopy copy(source, target, StopFlag());
        QVERIFY(copy.isWhole());
    }
    QCOMPARE(filesBelow(target), QStringList());
}

void TestFileCopy::afterATakenNameAnotherOneWorks()
{
    const Workspace workspace;
    const QString source = workspace.write(QStringLiteral("A.MOV"), recording(100000, 1));
    for (const char *name : {"0", "1", "2"})
        workspace.write(QStringLiteral("dst/") + QLatin1String(name), name);
    StagedCopy copy(source, workspace.path(QStringLiteral("dst")), StopFlag());
    for (const char *name : {"0", "1", "2"})
        QVERIFY(copy.publish(workspace.path(QStringLiteral("dst/") + QLatin1String(name))) ==
                Publish::Exists);
    QVERIFY(copy.publish(workspace.path(QStringLiteral("dst/3"))) == Publish::Done);
    QVERIFY(sameContent(source, workspace.path(QStringLiteral("dst/3"))));
    QCOMPARE(workspace.read(QStringLiteral("dst/1")), QByteArray("1"));
}

void TestFileCopy::anEmptyFile()
{
    const Workspace workspace;
    const QString source = workspace.write(QStringLiteral("card/A.MOV"), {});
    ImportRun import(
        {1, workspace.path(QStringLiteral("card")), workspace.path(QStringLiteral("dst")), {}, {}});
    QVERIFY(import.run());
    QCOMPARE(import.finalReports(), QStringList{QStringLiteral("0 1 1 Copied 1/1 videos and 0/0 photos.")});
    QCOMPARE(QFileInfo(workspace.path(QStringLiteral("dst/A_cam1.MOV"))).size(), 0);
    QVERIFY(QFileInfo::exists(workspace.path(QStringLiteral("dst/A_cam1.MOV"))));
}

void TestFileCopy::aSparseFileIsCopiedWhole_data()
{
    QTest::addColumn<QString>("from");
    QTest::addColumn<QString>("to");
    QTest::addColumn<QVector<int>>("offsets");
    const QVector<int> several{0, 9 * mebibyte + 12345, 20 * mebibyte - 300000};
    QTest::newRow("disk to disk") << "disk"
                                  << "disk" << several;
    QTest::newRow("disk to memory") << "disk"
                                    << "memory" << several;
    QTest::newRow("memory to disk") << "memory"
                                    << "disk" << several;
    QTest::newRow("disk to exFAT") << "disk"
                                   << "exfat" << several;
    QTest::newRow("nothing but a hole") << "disk"
                                        << "disk" << QVector<int>();
    QTest::newRow("a hole at the beginning and the end") << "disk"
                                                         << "memory" << QVector<int>{8 * mebibyte};
}

void TestFileCopy::aSparseFileIsCopiedWhole()
{
    QFETCH(QString, from);
    QFETCH(QString, to);
    QFETCH(QVector<int>, offsets);
    const Workspace workspace;
    Places places(workspace);
    const QString card = places.folder(from, QStringLiteral("card"));
    const QString target = card.isEmpty() ? QString() : places.folder(to, QStringLiteral("dst"));
    if (target.isEmpty())
        QSKIP(qPrintable(places.why()));
    const QString source = card + QStringLiteral("/LONG.MOV");
    QFile file(source);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) && file.resize(20 * mebibyte));
    for (const int offset : qAsConst(offsets))
        QVERIFY(file.seek(offset) && file.write(recording(300000, quint32(offset))) == 300000);
    QVERIFY(copyNewFile(source, target + QStringLiteral("/LONG.MOV"), StopFlag()) == Publish::Done);
    QVERIFY(sameContent(source, target + QStringLiteral("/LONG.MOV")));
}

void TestFileCopy::aSourceThatCantBeCopied_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<QString>("error");
    const QString noFile = QStringLiteral("can't open the source: not a regular file");
    QTest::newRow("one that isn't there") << "nothing" << systemError("can't open the source", ENOENT);
    QTest::newRow("no name") << "" << noFile;
    QTest::newRow("a folder") << "folder" << noFile;
    QTest::newRow("a pipe without a writer") << "pipe" << noFile;
    QTest::newRow("a link to a pipe") << "link to pipe" << noFile;
    QTest::newRow("a link to itself") << "loop" << systemError("can't open the source", ELOOP);
    QTest::newRow("an endless device") << "/dev/zero" << noFile;
    QTest::newRow("a read error") << "/proc/self/mem" << systemError("can't read the source", EIO);
}

void TestFileCopy::aSourceThatCantBeCopied()
{
    QFETCH(QString, source);
    QFETCH(QString, error);
    const Workspace workspace;
    workspace.makeFolder(QStringLiteral("folder"));
    const QString pipe = workspace.path(QStringLiteral("pipe"));
    QVERIFY(::mkfifo(QFile::encodeName(pipe).constData(), 0600) == 0);
    QVERIFY(QFile::link(pipe, workspace.path(QStringLiteral("link to pipe"))));
    QVERIFY(QFile::link(workspace.path(QStringLiteral("loop")), workspace.path(QStringLiteral("loop"))));
    const QString target = workspace.makeFolder(QStringLiteral("dst"));
    if (!source.isEmpty() && !source.startsWith(QLatin1Char('/')))
        source = workspace.path(source);

    QElapsedTimer timer;
    timer.start();
    QVERIFY(copyNewFile(source, target + QStringLiteral("/B.MOV"), StopFlag()) == Publish::Failed);
    QCOMPARE(copyError(source, target + QStringLiteral("/B.MOV")), error);
    QVERIFY(timer.elapsed() < 5000);
    QCOMPARE(filesBelow(target), QStringList());
}

void TestFileCopy::aSourceThatGrowsAndShrinks_data()
{
    QTest::addColumn<QString>("kind");
    QTest::newRow("on disk") << "disk";
    QTest::newRow("in memory") << "memory";
}

void TestFileCopy::aSourceThatGrowsAndShrinks()
{
    QFETCH(QString, kind);
    constexpr int copies = 150;
    const Workspace workspace;
    Places places(workspace);
    if (places.folder(kind, QStringLiteral("card")).isEmpty())
        QSKIP(qPrintable(places.why()));
    const QString path = workspace.write(QStringLiteral("card/GROWING.MOV"), QByteArray(300000, 'x'));
    const QString target = workspace.makeFolder(QStringLiteral("dst"));
    std::atomic<bool> done{false};
    std::thread writer([&] {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered))
            return;
        while (!done) {
            if (file.write(QByteArray(720, 'x')) < 0 || (file.size() > 4 * mebibyte && !file.resize(300000)))
                return;
        }
    });
    QByteArray damaged;
    for (int i = 0; i < copies && damaged.isEmpty(); ++i) {
        const QString copy = QStringLiteral("dst/%1.MOV").arg(i);
        static_cast<void>(copyNewFile(path, workspace.path(copy), StopFlag()));
        const QByteArray content = workspace.read(copy);
        if (content.count('x') != content.size())
            damaged = copy.toUtf8() + " has a foreign byte at " + QByteArray::number(content.indexOf('\0'));
    }
    done = true;
    writer.join();
    QCOMPARE(damaged, QByteArray());
}

void TestFileCopy::aFaultInTheMiddle_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("error");
    QTest::newRow("of the card") << int(Fault::ReadFails) << systemError("can't read the source", EIO);
    QTest::newRow("of the disk") << int(Fault::WriteFails) << systemError("can't write the copy", ENOSPC);
    QTest::newRow("a disk that writes nothing")
        << int(Fault::WritesNothing) << systemError("can't write the copy", EIO);
}

void TestFileCopy::aFaultInTheMiddle()
{
    QFETCH(int, kind);
    QFETCH(QString, error);
    const Workspace workspace;
    const QString source = workspace.write(QStringLiteral("A.MOV"), recording(9 * mebibyte, 1));
    const QString target = workspace.makeFolder(QStringLiteral("dst"));
    fault = Fault(kind);
    const QString said = copyError(source, target + QStringLiteral("/A.MOV"));
    fault = Fault::None;
    QCOMPARE(said, error);
    QCOMPARE(filesBelow(target), QStringList());
}

void TestFileCopy::aSourceWithoutPermission()
{
    const Workspace workspace;
    const QString card = workspace.makeFolder(QStringLiteral("card"));
    workspace.write(QStringLiteral("card/A.MOV"), "good");
    const QString secret = workspace.write(QStringLiteral("card/B.MOV"), "secret");
    QVERIFY(::chmod(QFile::encodeName(secret).constData(), 0) == 0);

    bool readable = true;
    bool ended = false;
    QString error;
    Publish result = Publish::Done;
    ImportRun import({1, card, workspace.path(QStringLiteral("dst")), {}, {}});
    withoutPrivileges([&] {
        QFile file(secret);
        readable = file.open(QIODevice::ReadOnly);
        result = copyNewFile(secret, workspace.path(QStringLiteral("C.MOV")), StopFlag());
        error = copyError(secret, workspace.path(QStringLiteral("C.MOV")));
        ended = import.run();
    });
    if (readable)
        QSKIP("This user may read every file");
    QVERIFY(result == Publish::Failed);
    QCOMPARE(error, systemError("can't open the source", EACCES));
    QVERIFY(!QFileInfo::exists(workspace.path(QStringLiteral("C.MOV"))));
    QVERIFY(ended);
    QCOMPARE(import.finalReports(), QStringList{QStringLiteral("0 1 1 Copied 1/2 videos and 0/0 photos.")});
    QCOMPARE(workspace.tree(QStringLiteral("dst")),
             (QMap<QString, QByteArray>{{QStringLiteral("A_cam1.MOV"), QByteArray("good")}}));
    QVERIFY(::chmod(QFile::encodeName(secret).constData(), 0600) == 0);
    QCOMPARE(workspace.read(QStringLiteral("card/B.MOV")), QByteArray("secret"));
}

void TestFileCopy::aFolderWithoutPermission()
{
    const Workspace workspace;
    const QString source = workspace.write(QStringLiteral("A.MOV"), "video");
    const QString target = workspace.makeFolder(QStringLiteral("dst"));
    QVERIFY(::chmod(QFile::encodeName(target).constData(), 0555) == 0);

    bool writable = true;
    QString error;
    Publish result = Publish::Done;
    withoutPrivileges([&] {
        QFile probe(target + QStringLiteral("/probe"));
        writable = probe.open(QIODevice::WriteOnly);
        result = copyNewFile(source, target + QStringLiteral("/B.MOV"), StopFlag());
        error = copyError(source, target + QStringLiteral("/B.MOV"));
    });
    QVERIFY(::chmod(QFile::encodeName(target).constData(), 0755) == 0);
    if (writable)
        QSKIP("This user may write everywhere");
    QVERIFY(result == Publish::Failed);
    QCOMPARE(error, systemError("can't create a temporary file", EACCES));
    QCOMPARE(filesBelow(target), QStringList());
}

void TestFileCopy::aDestinationFolderThatIsMissing()
{
    const Workspace workspace;
    const QString source = workspace.write(QStringLiteral("A.MOV"), "video");
    QVERIFY(copyNewFile(source, workspace.path(QStringLiteral("missing/B.MOV")), StopFlag()) ==
            Publish::Failed);
    QCOMPARE(copyError(source, workspace.path(QStringLiteral("missing/B.MOV"))),
             systemError("can't create a temporary file", ENOENT));
    QCOMPARE(filesBelow(workspace.path()), QStringList{QStringLiteral("A.MOV")});
}

void TestFileCopy::aNameThatIsTooLong()
{
    const Workspace workspace;
    const QString source = workspace.write(QStringLiteral("A.MOV"), "video");
    const QString target = workspace.path(QString(300, QLatin1Char('x')));
    QVERIFY(copyNewFile(source, target, StopFlag()) == Publish::Failed);
    QCOMPARE(copyError(source, target), systemError("can't rename the file", ENAMETOOLONG));
    QCOMPARE(filesBelow(workspace.path()), QStringList{QStringLiteral("A.MOV")});
}

void TestFileCopy::aFullVolume()
{
    const Workspace workspace;
    const QString source = workspace.write(QStringLiteral("A.MOV"), recording(3 * mebibyte, 1));
    const TestVolume volume(workspace.path(QStringLiteral("dst")), 2048);
    SKIP_UNLESS_MOUNTED(volume);
    QVERIFY(copyNewFile(source, workspace.path(QStringLiteral("dst/B.MOV")), StopFlag()) == Publish::Failed);
    QCOMPARE(filesBelow(workspace.path(QStringLiteral("dst"))), QStringList());
    QCOMPARE(copyError(source, workspace.path(QStringLiteral("dst/B.MOV"))),
             systemError("can't write the copy", ENOSPC));
    // The room is there again.
    const QString small = workspace.write(QStringLiteral("B.MOV"), recording(2 * mebibyte - 65536, 2));
    QVERIFY(copyNewFile(small, workspace.path(QStringLiteral("dst/B.MOV")), StopFlag()) == Publish::Done);
    QVERIFY(sameContent(small, workspace.path(QStringLiteral("dst/B.MOV"))));
}

void TestFileCopy::aRaisedFlagCopiesNothing()
{
    const Workspace workspace;
    const QString source = workspace.write(QStringLiteral("A.MOV"), "video");
    StopFlag stop;
    stop.raise();
    QVERIFY(copyNewFile(source, workspace.path(QStringLiteral("B.MOV")), stop) == Publish::Failed);
    QCOMPARE(copyError(source, workspace.path(QStringLiteral("B.MOV")), stop), QStringLiteral("stopped"));
    QCOMPARE(filesBelow(workspace.path()), QStringList{QStringLiteral("A.MOV")});
}

void TestFileCopy::aFlagRaisedInTheMiddleEndsTheCopyWithinOnePiece()
{
    const Workspace workspace;
    const qint64 size = qint64{192} * mebibyte;
    {
        QFile source(workspace.path(QStringLiteral("A.MOV")));
        QVERIFY(source.open(QIODevice::WriteOnly));
        const QByteArray piece = recording(mebibyte, 1);
        for (qint64 written = 0; written < size; written += piece.size())
            QCOMPARE(source.write(piece), static_cast<qint64>(piece.size()));
    }
    const QString target = workspace.makeFolder(QStringLiteral("dst"));
    StopFlag stop;
    std::atomic<bool> ended{false};
    qint64 sizeAtStop = -1;
    int held = -1;
    std::thread watcher([&] {
        const auto sizeOf = [](int file) {
            struct stat status = {};
            return ::fstat(file, &status) == 0 ? qint64{status.st_size} : -1;
        };
        while (!ended && held < 0) {
            const QStringList files = unfinishedBelow(target);
            if (!files.isEmpty())
                held = ::open(QFile::encodeName(target + QLatin1Char('/') + files.first()).constData(),
                              O_RDONLY | O_CLOEXEC);
        }
        while (!ended && sizeOf(held) < 16 * mebibyte)
            std::this_thread::yield();
        stop.raise();
        sizeAtStop = sizeOf(held);
    });
    bool whole = true;
    Publish result = Publish::Done;
    {
        StagedCopy copy(workspace.path(QStringLiteral("A.MOV")), target, stop);
        ended = true;
        watcher.join();
        whole = copy.isWhole();
        result = copy.publish(target + QStringLiteral("/B.MOV"));
    }
    struct stat status = {};
    QVERIFY(held >= 0 && ::fstat(held, &status) == 0);
    ::close(held);
    QVERIFY(!whole);
    QVERIFY(result == Publish::Failed);
    QVERIFY2(status.st_size - sizeAtStop <= 4 * mebibyte && status.st_size < size,
             qPrintable(QStringLiteral("%1 %2").arg(sizeAtStop).arg(status.st_size)));
    QCOMPARE(filesBelow(target), QStringList());
}

void TestFileCopy::twoProcessesForOneName_data()
{
    QTest::addColumn<QString>("to");
    QTest::newRow("on a disk") << "disk";
    QTest::newRow("in memory") << "memory";
}

void TestFileCopy::twoProcessesForOneName()
{
    QFETCH(QString, to);
    const Workspace workspace;
    Places places(workspace);
    const QString target = places.folder(to, QStringLiteral("dst"));
    if (target.isEmpty())
        QSKIP(qPrintable(places.why()));
    const QByteArray contents[2] = {recording(200000, 1), recording(300000, 2)};
    const QString first = workspace.write(QStringLiteral("1.MOV"), contents[0]);
    const QString second = workspace.write(QStringLiteral("2.MOV"), contents[1]);

    for (int round = 0; round < 15; ++round) {
        const QString name = QStringLiteral("%1.MOV").arg(round);
        const QString destination = target + QLatin1Char('/') + name;
        OtherProgram one({QStringLiteral("publish"), first, destination});
        OtherProgram two({QStringLiteral("publish"), second, destination});
        QVERIFY(one.isWaiting());
        QVERIFY(two.isWaiting());
        if (round % 2 == 0) {
            one.goOn();
            two.goOn();
        } else {
            two.goOn();
            one.goOn();
        }
        const int results[2] = {one.result(), two.result()};
        // One has it, and the other knows.
        QCOMPARE(results[0] + results[1], 1);
        QVERIFY(results[0] == 0 || results[1] == 0);
        QVERIFY(workspace.read(QStringLiteral("dst/") + name) == contents[results[0] == 0 ? 0 : 1]);
        QCOMPARE(filesBelow(target).size(), round + 1);
    }
}

void TestFileCopy::aNameTakenWhileTheContentIsCopied()
{
    const Workspace workspace;
    workspace.write(QStringLiteral("card/A.MOV"), recording(64 * mebibyte, 1));
    workspace.write(QStringLiteral("dst/A-1_cam1.MOV"), "also taken");
    const QString target = workspace.path(QStringLiteral("dst"));
    std::atomic<bool> ended{false};
    bool taken = false;
    std::thread watcher([&] {
        while (!ended && unfinishedBelow(target).isEmpty())
            std::this_thread::yield();
        QFile other(target + QStringLiteral("/A_cam1.MOV"));
        taken = other.open(QIODevice::WriteOnly | QIODevice::NewOnly) && other.write("someone else's") > 0;
    });
    ImportRun import({1, workspace.path(QStringLiteral("card")), target, QStringLiteral("t.kava"), {}});
    const bool done = import.run();
    ended = true;
    watcher.join();
    QVERIFY(done);
    if (!taken)
        QSKIP("The copy was quicker than the one who wanted its name");
    QCOMPARE(import.finalReports(), QStringList{QStringLiteral("0 1 1 Copied 1/1 videos and 0/0 photos.")});
    QCOMPARE(workspace.read(QStringLiteral("dst/A_cam1.MOV")), QByteArray("someone else's"));
    QCOMPARE(workspace.read(QStringLiteral("dst/A-1_cam1.MOV")), QByteArray("also taken"));
    QVERIFY(sameContent(workspace.path(QStringLiteral("card/A.MOV")),
                        workspace.path(QStringLiteral("dst/A-2_cam1.MOV"))));
    QCOMPARE(filesBelow(target).size(), 3);
    QCOMPARE(import.projectCalls(),
             QStringList{QStringLiteral("video 1 [t.kava] [") + target + QStringLiteral("/A-2.MOV] []")});
}

void TestFileCopy::twoImportsOfOneCardAtOnce_data()
{
    QTest::addColumn<bool>("twoPrograms");
    QTest::addColumn<QString>("to");
    QTest::newRow("by two programs on a disk") << true << "disk";
    QTest::newRow("by two programs in memory") << true << "memory";
    QTest::newRow("by one program on a disk") << false << "disk";
    QTest::newRow("by one program on exFAT") << false << "exfat";
}

void TestFileCopy::twoImportsOfOneCardAtOnce()
{
    QFETCH(bool, twoPrograms);
    QFETCH(QString, to);
    const Workspace workspace;
    Places places(workspace);
    const QString target = places.folder(to, QStringLiteral("dst"));
    if (target.isEmpty())
        QSKIP(qPrintable(places.why()));
    const QString card = workspace.makeFolder(QStringLiteral("card"));
    constexpr int recordings = 12;
    for (int i = 0; i < recordings; ++i)
        workspace.write(QStringLiteral("card/DCIM/%1.MOV").arg(i),
                        recording(100000 + i, static_cast<quint32>(i)));

    if (twoPrograms) {
        const QStringList arguments{
            QStringLiteral("import"), QStringLiteral("1"), card, target, QString(), QString(),
            QStringLiteral("1")};
        OtherProgram programs[2] = {OtherProgram(arguments), OtherProgram(arguments)};
        for (OtherProgram &program : programs)
            QVERIFY(program.isWaiting());
        for (OtherProgram &program : programs)
            program.goOn();
        for (OtherProgram &program : programs)
            QCOMPARE(program.result(), 0);
    } else {
        ImportRun other({1, card, target, {}, {}});
        std::thread thread([&] { other.run(); });
        ImportRun import({1, card, target, {}, {}});
        const bool ended = import.run();
        thread.join();
        QVERIFY(ended);
        QCOMPARE(import.finalReports(),
                 QStringList{QStringLiteral("0 1 1 Copied 12/12 videos and 0/0 photos.")});
        QCOMPARE(other.finalReports(), import.finalReports());
    }
    QStringList expected;
    for (int i = 0; i < recordings; ++i) {
        const QString source = workspace.path(QStringLiteral("card/DCIM/%1.MOV").arg(i));
        for (const char *suffix : {"_cam1.MOV", "-1_cam1.MOV"}) {
            expected.append(QStringLiteral("DCIM/%1").arg(i) + QLatin1String(suffix));
            QVERIFY2(sameContent(source, target + QLatin1Char('/') + expected.last()),
                     qPrintable(expected.last()));
        }
    }
    expected.sort();
    QCOMPARE(filesBelow(target), expected);
}

KELPORA_TEST_MAIN(TestFileCopy)
#include "tst_filecopy.moc"
