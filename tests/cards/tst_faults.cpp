#include "app/paths.h"
#include "app/settings.h"
#include "cards/cardlisting.h"
#include "tests/cards/cardreports.h"
#include "tests/cards/importrun.h"
#include "tests/cards/recordings.h"
#include "tests/support/loopvolume.h"
#include "tests/support/messagelog.h"
#include "tests/support/plainuser.h"
#include "tests/support/testmain.h"
#include "tests/support/workspace.h"

#include <QDomDocument>
#include <QElapsedTimer>
#include <QProcess>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <functional>
#include <memory>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr int mebibyte = 1 << 20;
constexpr int hangMilliseconds = 240000;

using Recordings = QMap<QString, QByteArray>;

/// The name of the first camera's copy of the recording `file`.
QString copyName(const QString &file)
{
    return file.left(file.size() - 4) + QStringLiteral("_cam1") + file.right(4);
}

/// What an import of recordings of one kind ends with.
QString lastReport(bool changed, const QString &extension, int copied, int all)
{
    const QString counts = extension == QStringLiteral(".MOV")
                               ? QStringLiteral("Copied %1/%2 videos and 0/0 photos.")
                               : QStringLiteral("Copied 0/0 videos and %1/%2 photos.");
    return QStringLiteral("0 1 1 ") +
           (changed ? QStringLiteral("Error: The card was changed meanwhile. ") : QString()) +
           counts.arg(copied).arg(all);
}

Recordings videos(int count, int size)
{
    Recordings recordings;
    for (int i = 0; i < count; ++i)
        recordings.insert(QStringLiteral("DCIM/CLIP%1.MOV").arg(i),
                          recording(size + i, static_cast<quint32>(i + 1)));
    return recordings;
}

/// Which request to the disk fails, counted from 1; 0 for none.
std::atomic<int> failingFlush{0};
std::atomic<int> flushes{0};
/// How far the clock is ahead.
std::atomic<time_t> secondsAhead{0};

using FileEvent = std::function<bool(const QString &path)>;
using VolumeEvent = std::function<bool(const Workspace &workspace, TestVolume &target)>;

} // namespace

// These stand in for the C library's, whose parameters have names of its own.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)

extern "C" int sync_file_range(int file, off64_t offset, off64_t size, unsigned int flags)
{
    if (++flushes == failingFlush) {
        errno = EDQUOT;
        return -1;
    }
    return static_cast<int>(::syscall(SYS_sync_file_range, file, offset, size, flags));
}

extern "C" int gettimeofday(struct timeval *now, void * /*zone*/) noexcept
{
    struct timespec precise = {};
    const int result = ::clock_gettime(CLOCK_REALTIME, &precise);
    *now = {precise.tv_sec + secondsAhead, precise.tv_nsec / 1000};
    return result;
}

// NOLINTEND(readability-inconsistent-declaration-parameter-name)

Q_DECLARE_METATYPE(FileEvent)
Q_DECLARE_METATYPE(VolumeEvent)

class TestFaults : public QObject
{
    Q_OBJECT

private slots:
    void aFullDestination_data();
    void aFullDestination();
    void aReadOnlyDestination();
    void aDestinationThatIsAFile();
    void aMissingDestinationIsCreated();
    void aDestinationThatIsPulled_data();
    void aDestinationThatIsPulled();
    void aFolderThatCantBeMade();
    void aDestinationThatCantBeListed();
    void aFolderThatIsLockedMeanwhile();
    void copiesThatAreMovedAway_data();
    void copiesThatAreMovedAway();
    void aFolderThatIsRenamedMeanwhile();
    void aDestinationThatTurnsReadOnly();
    void aDiskThatFailsLate_data();
    void aDiskThatFailsLate();
    void unreadableRecordings();
    void aCardThatDropsOutWhileItIsListed();
    void anotherCardInTheSamePlace_data();
    void anotherCardInTheSamePlace();
    void aRecordingThatChangesMeanwhile_data();
    void aRecordingThatChangesMeanwhile();
    void theLogSaysWhyNothingWasCopied_data();
    void theLogSaysWhyNothingWasCopied();
    void aCardPulledBetweenTwoRecordings();
    void aCardPulledDuringARecording();
    void aCardThatIsWriteProtected();
    void namesThatNeedCare_data();
    void namesThatNeedCare();
    void aNameTooLongForItsSuffix();
    void loopsOfLinks();
    void aRecordingOfMoreThanFourGigabytes();
    void anEmptyCard();
    void fiveThousandRecordings();
    void aKilledImport_data();
    void aKilledImport();
    void aFlushThatFailsOnceIsTold();
    void whatAPowerCutLeftIsRemovedLater();
    void noRoomForPreviewsAndProjects_data();
    void noRoomForPreviewsAndProjects();

private:
    /// Writes the card, and imports it as the first camera's into dst; then looks at all that must hold
    /// after any import. Leaves the number of recordings that were copied in copied_.
    void importCard(const Workspace &workspace, const Recordings &recordings, ImportRun *import);
    static void writeCard(const Workspace &workspace, const Recordings &recordings);
    void checkCopies(const Workspace &workspace, const Recordings &recordings);

    int copied_ = 0;
};

void TestFaults::writeCard(const Workspace &workspace, const Recordings &recordings)
{
    workspace.makeFolder(QStringLiteral("card"));
    for (auto one = recordings.cbegin(); one != recordings.cend(); ++one)
        workspace.write(QStringLiteral("card/") + one.key(), one.value());
}

void TestFaults::checkCopies(const Workspace &workspace, const Recordings &recordings)
{
    const QString target = workspace.path(QStringLiteral("dst"));
    QStringList expected;
    for (auto one = recordings.cbegin(); one != recordings.cend(); ++one) {
        const QString copy = QStringLiteral("dst/") + copyName(one.key());
        if (!QFileInfo::exists(workspace.path(copy)))
            continue;
        expected.append(copyName(one.key()));
        QVERIFY2(workspace.read(copy) == one.value(), qPrintable(copy));
    }
    expected.sort();
    copied_ = expected.size();
    QCOMPARE(filesBelow(target), expected);
}

void TestFaults::importCard(const Workspace &workspace, const Recordings &recordings, ImportRun *import)
{
    QElapsedTimer timer;
    timer.start();
    const bool done = import->run();
    QVERIFY(timer.elapsed() < hangMilliseconds);
    QVERIFY(done);

    checkCopies(workspace, recordings);
    const int photos =
        recordings.size() - static_cast<int>(recordings.keys().filter(QStringLiteral(".MOV")).size());
    if (photos == 0) {
        QCOMPARE(import->finalReports(),
                 QStringList{QStringLiteral("0 1 1 Copied %1/%2 videos and 0/0 photos.")
                                 .arg(copied_)
                                 .arg(recordings.size())});
    }
    QCOMPARE(import->finalReports().size(), 1);
    QCOMPARE(import->reports().last(), import->finalReports().constFirst());
    for (auto one = recordings.cbegin(); one != recordings.cend(); ++one) {
        if (QFileInfo::exists(workspace.path(QStringLiteral("card"))) && !one.value().isNull())
            QVERIFY(workspace.read(QStringLiteral("card/") + one.key()) == one.value());
    }
}

void TestFaults::aFullDestination_data()
{
    QTest::addColumn<int>("sizeKiB");
    QTest::addColumn<int>("atLeast");
    QTest::addColumn<int>("atMost");
    QTest::newRow("room for none") << 512 << 0 << 0;
    QTest::newRow("room for some") << 5000 << 4 << 4;
    QTest::newRow("room for all but the last piece") << 8192 << 7 << 7;
}

void TestFaults::aFullDestination()
{
    QFETCH(int, sizeKiB);
    QFETCH(int, atLeast);
    QFETCH(int, atMost);
    const Workspace workspace;
    const Recordings recordings = videos(8, mebibyte + 1000);
    writeCard(workspace, recordings);
    const TestVolume target(workspace.path(QStringLiteral("dst")), sizeKiB);
    SKIP_UNLESS_MOUNTED(target);
    ImportRun import(workspace);
    importCard(workspace, recordings, &import);
    QVERIFY2(copied_ >= atLeast && copied_ <= atMost, qPrintable(QString::number(copied_)));
}

void TestFaults::aReadOnlyDestination()
{
    const Workspace workspace;
    const Recordings recordings = videos(3, 1000);
    writeCard(workspace, recordings);
    TestVolume target(workspace.path(QStringLiteral("dst")), 4096);
    SKIP_UNLESS_MOUNTED(target);
    QVERIFY(target.makeReadOnly());
    ImportRun import(workspace, 1, QStringLiteral("t.kava"));
    importCard(workspace, recordings, &import);
    QCOMPARE(copied_, 0);
}

void TestFaults::aDestinationThatIsAFile()
{
    const Workspace workspace;
    const Recordings recordings = videos(2, 1000);
    writeCard(workspace, recordings);
    workspace.write(QStringLiteral("dst"), "a file");
    ImportRun import(workspace);
    importCard(workspace, recordings, &import);
    QCOMPARE(copied_, 0);
    QCOMPARE(workspace.read(QStringLiteral("dst")), QByteArray("a file"));
}

void TestFaults::aMissingDestinationIsCreated()
{
    const Workspace workspace;
    const Recordings recordings = videos(2, 1000);
    writeCard(workspace, recordings);
    ImportRun import(workspace);
    importCard(workspace, recordings, &import);
    QCOMPARE(copied_, 2);
}

void TestFaults::aDestinationThatIsPulled_data()
{
    QTest::addColumn<QString>("folder");
    QTest::newRow("recordings at the top") << QString();
    QTest::newRow("recordings in a folder") << QStringLiteral("DCIM/");
}

void TestFaults::aDestinationThatIsPulled()
{
    QFETCH(QString, folder);
    const Workspace workspace;
    for (int i = 0; i < 5; ++i)
        workspace.write(QStringLiteral("card/") + folder + QStringLiteral("%1.MOV").arg(i),
                        recording(5000, 1));
    TestVolume target(workspace.path(QStringLiteral("dst")), 4096);
    SKIP_UNLESS_MOUNTED(target);
    ImportRun worker(workspace);
    bool pulled = false;
    worker.onReport = [&](const Progress &progress) {
        if (progress.value == 3 && progress.text.startsWith(QStringLiteral("Copying"))) {
            pulled = target.pull();
        }
    };
    // It went through to its end; the first two are gone with the volume, so this was no success.
    QVERIFY(worker.run());
    QVERIFY(pulled);
    QCOMPARE(worker.finalReports().size(), 1);
    QVERIFY2(worker.finalReports().constFirst().startsWith(
                 QStringLiteral("0 1 1 Error: The destination reports a write error after ")),
             qPrintable(worker.finalReports().constFirst()));
    QVERIFY(visibleBelow(workspace.path(QStringLiteral("dst"))).size() <= 3);
    QCOMPARE(unfinishedBelow(workspace.path(QStringLiteral("dst"))), QStringList());
}

void TestFaults::aFolderThatCantBeMade()
{
    const Workspace workspace;
    Recordings recordings{{QStringLiteral("DCIM/100MEDIA/CLIP.MOV"), recording(1000, 8)}};
    recordings.insert(QStringLiteral("TOP.MOV"), recording(1000, 9));
    recordings.insert(QStringLiteral("ZOO/LAST.MOV"), recording(1000, 10));
    writeCard(workspace, recordings);
    workspace.write(QStringLiteral("dst/DCIM"), "a file where the folder would be");
    ImportRun import(workspace);
    const MessageLog log;
    QVERIFY(import.run());
    QCOMPARE(import.finalReports(), QStringList{"0 1 1 Copied 2/3 videos and 0/0 photos."});
    QVERIFY(MessageLog::lines().contains(QStringLiteral("info: Card 1: copied 2/3 videos and 0/0 photos.")));
}

void TestFaults::aDestinationThatCantBeListed()
{
    const Workspace workspace;
    const Recordings recordings{{QStringLiteral("CLIP.MOV"), recording(1000, 1)}};
    writeCard(workspace, recordings);
    const QByteArray target = QFile::encodeName(workspace.makeFolder(QStringLiteral("dst")));
    const int unnamed = ::open(target.constData(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
    if (unnamed < 0)
        QSKIP("This volume has no files without a name, by which it could be flushed.");
    ::close(unnamed);
    ImportRun import(workspace);
    QCOMPARE(::chmod(target.constData(), 0333), 0);
    std::thread thread([&import] {
        const PlainUser user;
        static_cast<void>(import.run());
    });
    thread.join();
    QCOMPARE(::chmod(target.constData(), 0755), 0);
    QCOMPARE(import.finalReports(), QStringList{"0 1 1 Copied 1/1 videos and 0/0 photos."});
    checkCopies(workspace, recordings);
}

void TestFaults::aFolderThatIsLockedMeanwhile()
{
    const Workspace workspace;
    for (const char *folder : {"A", "B"})
        workspace.write(QStringLiteral("card/%1/CLIP.MOV").arg(QLatin1String(folder)), recording(1000, 1));
    const QByteArray target = QFile::encodeName(workspace.makeFolder(QStringLiteral("dst")));
    QCOMPARE(::chmod(target.constData(), 0777), 0);
    ImportRun worker(workspace);
    QByteArray locked;
    worker.onReport = [&](const Progress &progress) {
        if (progress.value != 2 || !progress.text.startsWith(QStringLiteral("Copying")))
            return;
        locked = target + (progress.text.contains(QStringLiteral("/A/")) ? "/B" : "/A");
        QCOMPARE(::chmod(locked.constData(), 0), 0);
    };
    std::thread thread([&worker] {
        const PlainUser user;
        static_cast<void>(worker.run());
    });
    thread.join();
    QCOMPARE(::chmod(locked.constData(), 0755), 0);
    QCOMPARE(worker.finalReports(), QStringList{"0 1 1 Copied 2/2 videos and 0/0 photos."});
}

void TestFaults::copiesThatAreMovedAway_data()
{
    QTest::addColumn<bool>("all");
    QTest::newRow("one copy") << false;
    QTest::newRow("the folder of all") << true;
}

void TestFaults::copiesThatAreMovedAway()
{
    QFETCH(bool, all);
    const Workspace workspace;
    const Recordings recordings = videos(3, 1000);
    writeCard(workspace, recordings);
    workspace.makeFolder(QStringLiteral("elsewhere"));
    ImportRun worker(workspace);
    bool moved = false;
    QString what = workspace.path(QStringLiteral("dst/DCIM"));
    worker.onReport = [&](const Progress &progress) {
        if (!progress.text.startsWith(QStringLiteral("Copying")) || progress.value != 3)
            return;
        if (!all)
            what += QLatin1Char('/') + QDir(what).entryList(QDir::Files).constFirst();
        moved = QFile::rename(what, workspace.path(QStringLiteral("elsewhere/moved")));
    };
    const MessageLog log;
    QVERIFY(worker.run());
    QVERIFY(moved);
    QCOMPARE(worker.finalReports(), QStringList{"0 1 1 Error: Some copies were moved or deleted during the "
                                                "import. Copied 3/3 videos and 0/0 photos."});
    const QStringList named = MessageLog::lines(QStringLiteral("warning"))
                                  .filter(QStringLiteral("Card 1: moved or deleted during the import: "));
    QCOMPARE(named.size(), all ? 2 : 1);
    QVERIFY(named.constFirst().contains(what));
}

/// Photos that were copied ahead lie in the folder that was renamed.
void TestFaults::aFolderThatIsRenamedMeanwhile()
{
    constexpr int photos = 30;
    const Workspace workspace;
    for (int i = 0; i < photos; ++i)
        workspace.write(QStringLiteral("card/DCIM/P%1.JPG").arg(i), recording(1000, quint32(i)));
    const QString rig = workspace.write(QStringLiteral("templates/Rig.kava"), "<kava><pano/></kava>");
    const QString folder = workspace.path(QStringLiteral("dst/DCIM"));
    AppController controller;
    const CardReports reports(controller);
    bool renamed = false;
    connect(
        &controller, &AppController::updateCardProgress, &controller,
        [&](const QVariant &, const QVariant &, const QVariant &, const QVariant &value,
            const QVariant &text) {
            if (value.toInt() == 4 && text.toString().startsWith(QStringLiteral("Copying ")))
                renamed = QFile::rename(folder, folder + QStringLiteral("-away"));
        },
        Qt::DirectConnection);
    controller.copyFiles(workspace.path(QStringLiteral("card")), {}, {},
                         workspace.path(QStringLiteral("dst")), rig, {});
    QVERIFY(AppController::waitForJobs(hangMilliseconds));
    QVERIFY(renamed);
    QCOMPARE(reports.finalOf(1),
             QStringList{"0 1 1 Error: Some copies were moved or deleted during the import. "
                         "Copied 0/0 videos and 30/30 photos."});
    const QStringList files = filesBelow(workspace.path(QStringLiteral("dst")));
    QCOMPARE(files.filter(QStringLiteral("_cam1.JPG")).size(), photos);
    QCOMPARE(files.filter(QStringLiteral("_giga.JPG.pano")).size(), photos);
    QCOMPARE(files.filter(QStringLiteral("DCIM/")).filter(QStringLiteral(".part")), QStringList());
}

void TestFaults::aDestinationThatTurnsReadOnly()
{
    // As a volume does by itself after an error; it has nothing to flush then, and no error to tell.
    const Workspace workspace;
    writeCard(workspace, videos(3, 1000));
    TestVolume target(workspace.path(QStringLiteral("dst")), 4096);
    SKIP_UNLESS_MOUNTED(target);
    ImportRun worker(workspace);
    bool turned = false;
    worker.onReport = [&](const Progress &progress) {
        if (progress.value == 3 && progress.text.startsWith(QStringLiteral("Copying")))
            turned = target.makeReadOnly();
    };
    QVERIFY(worker.run());
    QVERIFY(turned);
    QCOMPARE(worker.finalReports(),
             QStringList{"0 1 1 Error: The destination reports a write error after 2/3 "
                         "videos and 0/0 photos."});
}

void TestFaults::aDiskThatFailsLate_data()
{
    QTest::addColumn<int>("files");
    QTest::addColumn<int>("mebibytes");
    QTest::addColumn<int>("room"); // below the volume, in MiB
    QTest::addColumn<bool>("good");
    QTest::newRow("many small copies, written after they have their names") << 30 << 3 << 60 << false;
    QTest::newRow("a long one, while it is copied") << 1 << 150 << 90 << false;
    QTest::newRow("room enough") << 30 << 3 << 180 << true;
}

/// The volume says yes to every write; the disk below it fails when they get there.
void TestFaults::aDiskThatFailsLate()
{
    QFETCH(int, files);
    QFETCH(int, mebibytes);
    QFETCH(int, room);
    QFETCH(bool, good);
    const Workspace workspace;
    const TestVolume below(workspace.path(QStringLiteral("below")), room * 1024);
    SKIP_UNLESS_MOUNTED(below);
    const LoopVolume target(LoopVolume::Kind::Ext4, workspace.path(QStringLiteral("below/image")), 400,
                            workspace.path(QStringLiteral("dst")));
    SKIP_UNLESS_MOUNTED(target);
    for (int i = 0; i < files; ++i)
        workspace.write(QStringLiteral("card/CLIP%1.MOV").arg(i),
                        recording(mebibytes * mebibyte, static_cast<quint32>(i + 1)));
    ImportRun import(workspace);
    QVERIFY(import.run());
    QCOMPARE(import.finalReports().size(), 1);
    const QString last = import.finalReports().constFirst();
    QCOMPARE(import.reports().last(), last);
    // Also the reports that wait for the disk are sent when it fails.
    const QStringList correct = import.reports().filter(QStringLiteral(" correctly."));
    QVERIFY2(last.contains(QStringLiteral(" %1/").arg(correct.size())), qPrintable(last));
    if (good) {
        QCOMPARE(last, QStringLiteral("0 1 1 Copied %1/%1 videos and 0/0 photos.").arg(files));
    } else {
        // A copy that failed while it was made is left out; one that failed later makes all of them doubtful.
        QVERIFY2(last.startsWith("0 1 1 Error: The destination reports a write error after ") ||
                     (files == 1 && last == "0 1 1 Copied 0/1 videos and 0/0 photos."),
                 qPrintable(last));
    }
}

void TestFaults::unreadableRecordings()
{
    const Workspace workspace;
    Recordings recordings = videos(4, 100000);
    writeCard(workspace, recordings);
    // Reading it ends with an I/O error, for every user.
    for (const char *name : {"DCIM/BAD1.MOV", "DCIM/BAD2.MOV"}) {
        QVERIFY(QFile::link(QStringLiteral("/proc/self/mem"),
                            workspace.path(QStringLiteral("card/") + QLatin1String(name))));
        recordings.insert(QString::fromLatin1(name), QByteArray());
    }
    ImportRun import(workspace);
    importCard(workspace, recordings, &import);
    QCOMPARE(copied_, 4);
}

void TestFaults::aCardThatDropsOutWhileItIsListed()
{
    constexpr int count = 3000;
    constexpr int attempts = 200;
    const Workspace workspace;
    const QString path = workspace.path(QStringLiteral("card"));
    const StopFlag stop;
    bool cut = false;
    for (int attempt = 0; attempt < attempts && !cut; ++attempt) {
        TestVolume card(path, 16 * 1024);
        SKIP_UNLESS_MOUNTED(card);
        for (int i = 0; i < count; ++i)
            workspace.write(QStringLiteral("card/%1.MOV").arg(i), "x");
        std::thread hand([&card, attempt] {
            std::this_thread::sleep_for(std::chrono::microseconds(500 * (attempt % 40)));
            static_cast<void>(card.pull());
        });
        const CardListing listing = listCard(path, stop);
        hand.join();
        cut = !listing.files.isEmpty() && listing.files.size() < count;
        if (cut)
            QVERIFY(listing.unreadable.contains(path));
        else if (!listing.files.isEmpty())
            QCOMPARE(listing.unreadable, QStringList());
    }
    QVERIFY(cut);
}

void TestFaults::anotherCardInTheSamePlace_data()
{
    QTest::addColumn<QString>("extension");
    QTest::addColumn<QByteArray>("other");
    QTest::addColumn<bool>("later");
    QTest::addColumn<bool>("told");
    QTest::addColumn<int>("copied");
    for (const QString &kind : {QStringLiteral(".MOV"), QStringLiteral(".JPG")}) {
        const auto row = [&kind](const char *name) -> QTestData & {
            return QTest::addRow("%s, %s", name, qPrintable(kind)) << kind;
        };
        row("with recordings of another size") << QByteArray(3000, 'b') << false << true << 3;
        row("with recordings of another time") << QByteArray(2000, 'b') << true << true << 3;
        row("the same card again") << QByteArray(2000, 'a') << false << false << 3;
        row("with no recordings") << QByteArray() << false << false << 1;
    }
}

void TestFaults::anotherCardInTheSamePlace()
{
    QFETCH(QString, extension);
    QFETCH(QByteArray, other);
    QFETCH(bool, later);
    QFETCH(bool, told);
    QFETCH(int, copied);
    const QDateTime time = QDateTime::fromSecsSinceEpoch(1550782004);
    const Workspace workspace;
    const auto fill = [&](const QByteArray &content, const QDateTime &modified) {
        for (int i = 0; i < 3 && !content.isEmpty(); ++i) {
            QFile file(workspace.write(QStringLiteral("card/CLIP%1").arg(i) + extension, content));
            QVERIFY(file.open(QIODevice::ReadWrite));
            QVERIFY(file.setFileTime(modified, QFileDevice::FileModificationTime));
        }
    };
    fill(QByteArray(2000, 'a'), time);
    ImportRun worker(workspace);
    std::unique_ptr<TestVolume> second;
    worker.onReport = [&](const Progress &progress) {
        if (progress.value != 2 || !progress.text.startsWith(QStringLiteral("Copying")))
            return;
        second = std::make_unique<TestVolume>(workspace.path(QStringLiteral("card")), 1024);
        fill(other, later ? time.addSecs(10) : time);
    };
    const MessageLog log;
    QVERIFY(worker.run());
    SKIP_UNLESS_MOUNTED(*second);
    QCOMPARE(worker.finalReports(), QStringList{lastReport(told, extension, copied, 3)});
    const QStringList named = MessageLog::lines(QStringLiteral("warning"))
                                  .filter(QStringLiteral("Card 1: changed since the card was listed: "));
    QCOMPARE(named.size(), told ? 2 : 0);
}

void TestFaults::aRecordingThatChangesMeanwhile_data()
{
    QTest::addColumn<QString>("extension");
    QTest::addColumn<QString>("report"); // of the second of four recordings, with which it changes
    QTest::addColumn<FileEvent>("event");
    QTest::addColumn<bool>("told");
    const FileEvent touch = [](const QString &path) {
        QFile file(path);
        return file.open(QIODevice::ReadWrite) &&
               file.setFileTime(QDateTime::currentDateTime().addSecs(10), QFileDevice::FileModificationTime);
    };
    const auto write = [touch](const QByteArray &content, QIODevice::OpenMode mode) {
        return FileEvent([=](const QString &path) {
            QFile file(path);
            const bool written = file.open(mode) && file.write(content) == content.size();
            file.close();
            return written && touch(path);
        });
    };
    const FileEvent replace = [write](const QString &path) {
        return QFile::remove(path) && write(QByteArray(2000, 'a'), QIODevice::WriteOnly)(path);
    };
    // Another folder with the same names and sizes takes the place of the card's.
    const FileEvent swapCards = [write](const QString &path) {
        const QDir card = QFileInfo(path).dir();
        const QString away = card.path() + QStringLiteral("-away");
        bool swapped = QDir().rename(card.path(), away) && QDir().mkpath(card.path());
        for (const QString &name : QDir(away).entryList(QDir::Files))
            swapped = swapped && write(QByteArray(2000, 'b'), QIODevice::WriteOnly)(card.filePath(name));
        return swapped;
    };
    const QString before = QStringLiteral("Copying ");
    const QString after = QStringLiteral("Copied ");
    for (const QString &kind : {QStringLiteral(".MOV"), QStringLiteral(".JPG")}) {
        const auto row = [&kind](const char *name) -> QTestData & {
            return QTest::addRow("%s, %s", name, qPrintable(kind)) << kind;
        };
        row("touched before it is copied") << before << touch << false;
        row("touched after it was copied") << after << touch << false;
        row("replaced by the same content") << after << replace << false;
        row("other content of the same size, before it is copied")
            << before << write(QByteArray(2000, 'b'), QIODevice::WriteOnly) << false;
        row("other content of the same size, after it was copied")
            << after << write(QByteArray(2000, 'b'), QIODevice::WriteOnly) << true;
        row("longer before it is copied") << before << write("b", QIODevice::Append) << true;
        row("longer after it was copied") << after << write("b", QIODevice::Append) << true;
        row("deleted after it was copied")
            << after << FileEvent([](const QString &path) { return QFile::remove(path); }) << true;
        row("another card's of the same size") << before << swapCards << true;
    }
}

void TestFaults::aRecordingThatChangesMeanwhile()
{
    QFETCH(QString, extension);
    QFETCH(QString, report);
    QFETCH(FileEvent, event);
    QFETCH(bool, told);
    const Workspace workspace;
    for (int i = 0; i < 4; ++i)
        workspace.write(QStringLiteral("card/CLIP%1").arg(i) + extension, QByteArray(2000, 'a'));
    ImportRun run(workspace);
    QString path;
    bool happened = false;
    run.onReport = [&](const Progress &progress) {
        if (progress.value == 2 && progress.text.startsWith(QStringLiteral("Copying ")))
            path = progress.text.section(QLatin1Char(' '), 1, 1);
        if (!happened && !path.isEmpty() && progress.text.startsWith(report + path))
            happened = event(path);
    };
    QVERIFY(run.run());
    QVERIFY(happened);
    QCOMPARE(run.finalReports(), QStringList{lastReport(told, extension, 4, 4)});
}

void TestFaults::theLogSaysWhyNothingWasCopied_data()
{
    QTest::addColumn<QString>("folder"); // of the recordings on the card
    QTest::addColumn<VolumeEvent>("prepare");
    QTest::addColumn<QString>("cause");
    QTest::newRow("a folder that can't be made")
        << QStringLiteral("DCIM/") << VolumeEvent([](auto &space, auto &) {
               return !space.write(QStringLiteral("dst/DCIM"), "a file").isEmpty();
           })
        << QStringLiteral("can't create the folder: Not a directory");
    QTest::newRow("a full disk") << QString() << VolumeEvent([](auto &space, auto &) {
        QFile filler(space.path(QStringLiteral("dst/filler")));
        return filler.open(QIODevice::WriteOnly | QIODevice::Unbuffered) &&
               filler.write(QByteArray(2 * mebibyte, 'x')) < 2 * mebibyte;
    }) << QStringLiteral("can't write the copy: No space left on device");
    QTest::newRow("a volume that is read-only")
        << QString() << VolumeEvent([](auto &, auto &volume) { return volume.makeReadOnly(); })
        << QStringLiteral("can't create a temporary file: Read-only file system");
    QTest::newRow("a folder that is not ours") << QString() << VolumeEvent([](auto &space, auto &) {
        return ::chmod(QFile::encodeName(space.path(QStringLiteral("dst"))).constData(), 0555) == 0;
    }) << QStringLiteral("can't create a temporary file: Permission denied");
    QTest::newRow("a name that is too long")
        << QString(243, QLatin1Char('x')) << VolumeEvent([](auto &, auto &) { return true; })
        << QStringLiteral("can't rename the file: File name too long");
    QTest::newRow("a card that can't be read") << QString() << VolumeEvent([](auto &space, auto &) {
        bool linked = true;
        for (const QString &file : filesBelow(space.path(QStringLiteral("card")))) {
            const QString path = space.path(QStringLiteral("card/") + file);
            linked = linked && QFile::remove(path) && QFile::link(QStringLiteral("/proc/self/mem"), path);
        }
        return linked;
    }) << QStringLiteral("can't read the source: Input/output error");
}

void TestFaults::theLogSaysWhyNothingWasCopied()
{
    QFETCH(QString, folder);
    QFETCH(VolumeEvent, prepare);
    QFETCH(QString, cause);
    const Workspace workspace;
    for (int i = 0; i < 3; ++i)
        workspace.write(QStringLiteral("card/%1CLIP%2.MOV").arg(folder).arg(i), recording(100000, 1));
    TestVolume target(workspace.path(QStringLiteral("dst")), 1024);
    SKIP_UNLESS_MOUNTED(target);
    QVERIFY(prepare(workspace, target));
    ImportRun import(workspace);
    const MessageLog log;
    {
        const PlainUser user;
        QVERIFY(import.run());
    }
    QCOMPARE(import.finalReports(), QStringList{"0 1 1 Copied 0/3 videos and 0/0 photos."});
    const QString first = import.reports().constFirst().section(QLatin1Char(' '), 4);
    const QString copy = workspace.path(QStringLiteral("dst/")) +
                         copyName(QDir(workspace.path(QStringLiteral("card"))).relativeFilePath(first));
    QCOMPARE(MessageLog::lines(QStringLiteral("warning")),
             (QStringList{QStringLiteral("Card 1: could not copy %1 to %2: %3").arg(first, copy, cause),
                          QStringLiteral("Card 1: 3 recordings could not be copied: ") + cause}));
}

void TestFaults::aCardPulledBetweenTwoRecordings()
{
    const Workspace workspace;
    TestVolume card(workspace.path(QStringLiteral("card")), 16 * 1024);
    SKIP_UNLESS_MOUNTED(card);
    const Recordings recordings = videos(6, mebibyte);
    writeCard(workspace, recordings);
    ImportRun worker(workspace);
    bool pulled = false;
    worker.onReport = [&](const Progress &progress) {
        if (progress.value == 4 && progress.text.startsWith(QStringLiteral("Copying")))
            pulled = card.pull();
    };
    QVERIFY(worker.run());
    QVERIFY(pulled);
    checkCopies(workspace, recordings);
    QCOMPARE(copied_, 3);
    QCOMPARE(worker.finalReports(), QStringList{QStringLiteral("0 1 1 Copied 3/6 videos and 0/0 photos.")});
    QCOMPARE(worker.reports().last(), worker.finalReports().constFirst());
}

void TestFaults::aCardPulledDuringARecording()
{
    const Workspace workspace;
    TestVolume card(workspace.path(QStringLiteral("card")), 112 * 1024);
    SKIP_UNLESS_MOUNTED(card);
    const Recordings recordings = videos(3, 32 * mebibyte);
    writeCard(workspace, recordings);
    const QString target = workspace.path(QStringLiteral("dst"));
    std::atomic<bool> late{false};
    bool pulled = false;
    std::thread hand([&] {
        while (!late && unfinishedBelow(target).isEmpty())
            std::this_thread::yield();
        pulled = card.pull();
    });
    ImportRun run(workspace);
    // If the copies were too fast, the card is pulled before the last recording.
    run.onReport = [&](const Progress &progress) {
        if (progress.text.startsWith(QStringLiteral("Copying")) && progress.value == 3) {
            late = true;
            hand.join();
        }
    };
    const bool done = run.run();
    if (hand.joinable())
        hand.join();
    QVERIFY(pulled);
    QVERIFY(done);
    // What was open could be read to its end; but only what the card can still vouch for counts.
    checkCopies(workspace, recordings);
    QVERIFY(copied_ <= 2);
    QCOMPARE(run.finalReports().size(), 1);
    const QString final = run.finalReports().constFirst();
    const int counted = final.section(QLatin1Char(' '), 4, 4).section(QLatin1Char('/'), 0, 0).toInt();
    QVERIFY(final.startsWith(QStringLiteral("0 1 1 Copied ")) &&
            final.endsWith(QStringLiteral("/3 videos and 0/0 photos.")));
    QVERIFY2(counted <= copied_, qPrintable(final));
}

void TestFaults::aCardThatIsWriteProtected()
{
    const Workspace workspace;
    TestVolume card(workspace.path(QStringLiteral("card")), 4096);
    SKIP_UNLESS_MOUNTED(card);
    const Recordings recordings = videos(3, 100000);
    writeCard(workspace, recordings);
    QVERIFY(card.makeReadOnly());
    ImportRun import(workspace);
    importCard(workspace, recordings, &import);
    QCOMPARE(copied_, 3);
}

void TestFaults::namesThatNeedCare_data()
{
    QTest::addColumn<QString>("file");
    for (const char *name : {"Tauchgänge/Große Höhle.MOV", "潜水/動画.MOV",
                             ("e\xCC\x81"
                              "te\xCC\x81.MOV"),
                             "100 MEDIA/CLIP 1.MOV", " leading.MOV", "%1/%2%3.MOV", "100%/%n%s.MOV",
                             "a&b;c'd\"e.MOV", "-rf.MOV", "tab\tnew\nline.MOV", "back\\slash.MOV",
                             "*?[x].MOV", "x..MOV", "😀.MOV", "$HOME`id`.MOV", "file:x.MOV", "#1?.MOV"})
        QTest::newRow(name) << QString::fromUtf8(name);
}

void TestFaults::namesThatNeedCare()
{
    QFETCH(QString, file);
    const Workspace workspace;
    const Recordings recordings{{file, recording(5000, 1)}};
    writeCard(workspace, recordings);
    ImportRun import(workspace);
    importCard(workspace, recordings, &import);
    QCOMPARE(copied_, 1);
    const QString path = workspace.path(QStringLiteral("card/")) + file;
    QCOMPARE(import.reports().at(0), QStringLiteral("0 2 1 Copying ") + path);
    QCOMPARE(import.reports().at(1), QStringLiteral("0 1 2 Copied ") + path + QStringLiteral(" correctly."));
}

void TestFaults::aNameTooLongForItsSuffix()
{
    const Workspace workspace;
    Recordings recordings = videos(1, 1000);
    recordings.insert(QString(251, QLatin1Char('x')) + QStringLiteral(".MOV"), recording(1000, 9));
    writeCard(workspace, recordings);
    ImportRun import(workspace);
    importCard(workspace, recordings, &import);
    QCOMPARE(copied_, 1);
}

void TestFaults::loopsOfLinks()
{
    const Workspace workspace;
    const Recordings recordings = videos(2, 1000);
    writeCard(workspace, recordings);
    const QString card = workspace.path(QStringLiteral("card"));
    QVERIFY(QFile::link(card, card + QStringLiteral("/DCIM/up")));
    QVERIFY(QFile::link(QStringLiteral("."), card + QStringLiteral("/DCIM/here")));
    QVERIFY(QFile::link(QStringLiteral("b.MOV"), card + QStringLiteral("/a.MOV")));
    QVERIFY(QFile::link(QStringLiteral("a.MOV"), card + QStringLiteral("/b.MOV")));
    ImportRun import(workspace);
    importCard(workspace, recordings, &import);
    QCOMPARE(copied_, 2);
}

void TestFaults::aRecordingOfMoreThanFourGigabytes()
{
    const Workspace workspace;
    const QString card = workspace.makeFolder(QStringLiteral("card"));
    const qint64 size = (qint64{4} << 30) + 12345;
    const QByteArray end = recording(100000, 1);
    {
        QFile file(card + QStringLiteral("/LONG.MOV"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QVERIFY(file.seek(size - end.size()));
        QCOMPARE(file.write(end), static_cast<qint64>(end.size()));
    }
    ImportRun import(workspace);
    QVERIFY(import.run());
    QCOMPARE(import.finalReports(), QStringList{QStringLiteral("0 1 1 Copied 1/1 videos and 0/0 photos.")});
    QFile copy(workspace.path(QStringLiteral("dst/LONG_cam1.MOV")));
    QVERIFY(copy.open(QIODevice::ReadOnly));
    QCOMPARE(copy.size(), size);
    QVERIFY(copy.seek(size - end.size()));
    QVERIFY(copy.readAll() == end);
}

void TestFaults::anEmptyCard()
{
    const Workspace workspace;
    const TestVolume card(workspace.path(QStringLiteral("card")), 1024);
    SKIP_UNLESS_MOUNTED(card);
    workspace.makeFolder(QStringLiteral("dst"));
    ImportRun import(workspace);
    importCard(workspace, {}, &import);
    QCOMPARE(import.reports().size(), 1);
}

void TestFaults::fiveThousandRecordings()
{
    constexpr int count = 5000;
    const Workspace workspace;
    Recordings recordings;
    for (int i = 0; i < count; ++i) {
        recordings.insert(
            QStringLiteral("DCIM/%1MEDIA/IMG%2.MOV").arg(100 + i / 1000).arg(i, 4, 10, QLatin1Char('0')),
            "recording " + QByteArray::number(i));
    }
    writeCard(workspace, recordings);
    ImportRun import(workspace);
    importCard(workspace, recordings, &import);
    QCOMPARE(copied_, count);
    QCOMPARE(import.reports().size(), 2 * count + 1);
    QVERIFY(import.reports().constFirst().startsWith(QStringLiteral("0 5001 1 Copying ")));
    QVERIFY(import.reports().at(2 * count - 1).startsWith(QStringLiteral("0 5000 5001 Copied ")));
}

void TestFaults::aKilledImport_data()
{
    QTest::addColumn<int>("report"); // two for each recording: "Copying ..." and "Copied ..."
    QTest::addColumn<int>("bytes");  // of the file that is written when the kill comes
    QTest::newRow("before the first byte of the first recording") << 1 << 0;
    QTest::newRow("in a recording") << 7 << 3 * mebibyte + 1;
    QTest::newRow("before the last byte of a recording") << 13 << 6 * mebibyte - 1;
    QTest::newRow("in the last recording") << 19 << 5 * mebibyte;
    QTest::newRow("in a preview") << 4 << 30000;
    QTest::newRow("in a project") << 8 << 90000;
}

void TestFaults::aKilledImport()
{
    QFETCH(int, report);
    QFETCH(int, bytes);
    const Workspace workspace;
    const Recordings recordings = videos(10, 6 * mebibyte);
    writeCard(workspace, recordings);
    const QString target = workspace.makeFolder(QStringLiteral("dst"));
    const QString templatePath =
        workspace.write(QStringLiteral("templates/rig.kava"),
                        "<kava><videos><video/><video/><video/></videos><pano><images/></pano><x>" +
                            QByteArray(100000, 'x') + "</x></kava>");
    const QByteArray picture = recording(70000, 99);
    workspace.write(QStringLiteral("templates/rig.jpg"), picture);
    // The program has its settings file before it imports; the kill is for what the import writes.
    QVERIFY(!loadSettings().isEmpty());

    QProcess process;
    process.start(QStringLiteral(CARDCOPY),
                  {QStringLiteral("import"), QStringLiteral("1"), workspace.path(QStringLiteral("card")),
                   target, templatePath, QString(), QString::number(report), QString::number(bytes)});
    QVERIFY2(process.waitForFinished(hangMilliseconds), qPrintable(process.errorString()));
    QCOMPARE(process.exitStatus(), QProcess::CrashExit);
    QCOMPARE(process.exitCode(), SIGXFSZ);

    const QStringList unfinished = unfinishedBelow(target);
    QCOMPARE(unfinished.size(), 1);
    QCOMPARE(QFileInfo(target + QLatin1Char('/') + unfinished.constFirst()).size(), bytes);
    QStringList copies;
    for (const QString &file : visibleBelow(target)) {
        const QByteArray content = workspace.read(QStringLiteral("dst/") + file);
        if (file.endsWith(QStringLiteral("_autopano.kava"))) {
            QVERIFY2(QDomDocument().setContent(content), qPrintable(file));
        } else if (file.endsWith(QStringLiteral(".jpg"))) {
            QVERIFY2(content == picture, qPrintable(file));
        } else {
            copies.append(file);
            QVERIFY2(content == recordings.value(QString(file).remove(QStringLiteral("_cam1"))),
                     qPrintable(file));
        }
    }
    QCOMPARE(copies.size(), report / 2);
    QCOMPARE(filesBelow(target).size(), visibleBelow(target).size() + 1);
    for (auto one = recordings.cbegin(); one != recordings.cend(); ++one)
        QVERIFY(workspace.read(QStringLiteral("card/") + one.key()) == one.value());

    // What is left over stands in nobody's way.
    ImportRun import(workspace, 1, {}, QStringLiteral("again"));
    QVERIFY(import.run());
    QCOMPARE(import.finalReports(), QStringList{QStringLiteral("0 1 1 Copied 10/10 videos and 0/0 photos.")});
}

/// Each request to the disk fails in turn: a plain "Copied" stands for recordings, previews and projects.
void TestFaults::aFlushThatFailsOnceIsTold()
{
    const QString templatesBelow = QStringLiteral("templates/rig");
    int requests = 0;
    QStringList everything;
    for (int failing = 0; failing <= requests; ++failing) {
        const Workspace workspace;
        workspace.write(QStringLiteral("card/A.MOV"), recording(mebibyte, 1));
        workspace.write(QStringLiteral("card/B.JPG"), recording(mebibyte, 2));
        const QString templatePath =
            workspace.write(templatesBelow + QStringLiteral(".kava"), "<kava><pano/></kava>");
        workspace.write(templatesBelow + QStringLiteral(".jpg"), recording(mebibyte, 3));
        const QString target = workspace.makeFolder(QStringLiteral("dst"));
        QVERIFY(QDir().mkpath(getTemplateDir()));
        AppController controller;
        const CardReports reports(controller);
        flushes = 0;
        failingFlush = failing;
        controller.copyFiles(workspace.path(QStringLiteral("card")), {}, {}, target, templatePath, {});
        QVERIFY(AppController::waitForJobs(hangMilliseconds));
        failingFlush = 0;
        const QStringList last = reports.finalOf(1);
        QCOMPARE(last.size(), 1);
        const QStringList found = workspace.tree(QStringLiteral("dst")).keys();
        QVERIFY(found.filter(QStringLiteral(".part")).isEmpty());
        const bool whole = last.constFirst() == QStringLiteral("0 1 1 Copied 1/1 videos and 1/1 photos.");
        if (failing == 0) {
            requests = flushes;
            // To begin and to wait for two recordings, a preview and a photo's project; to wait for a video's
            // project and two templates.
            QCOMPARE(requests, 2 * 4 + 3);
            QVERIFY(whole);
            everything = found;
        }
        QVERIFY2(whole == (found == everything),
                 qPrintable(QStringLiteral("%1: %2").arg(failing).arg(last.constFirst())));
    }
}

/// The import looks for them itself; which ones they are is told elsewhere.
void TestFaults::whatAPowerCutLeftIsRemovedLater()
{
    const Workspace workspace;
    const QString left =
        workspace.write(QStringLiteral("dst/DCIM/.kelpora360-0123456789abcdef.part"), "half a recording");
    writeCard(workspace, videos(1, mebibyte));
    ImportRun(workspace).run();
    QVERIFY(QFileInfo::exists(left));
    secondsAhead = 2 * 24 * 60 * 60;
    ImportRun(workspace).run();
    secondsAhead = 0;
    QVERIFY(!QFileInfo::exists(left));
}

void TestFaults::noRoomForPreviewsAndProjects_data()
{
    QTest::addColumn<int>("pictureSize");
    QTest::addColumn<int>("projectSize");
    QTest::addColumn<int>("targetKiB");
    constexpr int kibibyte = 1024;
    QTest::newRow("room for everything") << 100 * kibibyte << 100 * kibibyte << 8 * 1024;
    QTest::newRow("no room for a preview") << 900 * kibibyte << 10 * kibibyte << 3 * 1024 + 600;
    QTest::newRow("room for some previews") << 300 * kibibyte << 10 * kibibyte << 3 * 1024 + 800;
    QTest::newRow("no room for the project") << 10 * kibibyte << 700 * kibibyte << 3 * 1024 + 600;
    QTest::newRow("room for neither") << 700 * kibibyte << 700 * kibibyte << 3 * 1024 + 600;
}

void TestFaults::noRoomForPreviewsAndProjects()
{
    QFETCH(int, pictureSize);
    QFETCH(int, projectSize);
    QFETCH(int, targetKiB);
    const Workspace workspace;
    QStringList cards;
    QVector<QByteArray> contents;
    for (int card = 1; card <= 3; ++card) {
        contents.append(recording(mebibyte, static_cast<quint32>(card)));
        workspace.write(QStringLiteral("card%1/A.MOV").arg(card), contents.last());
        cards.append(workspace.path(QStringLiteral("card%1").arg(card)));
    }
    const QString templates = QDir(getTemplateDir()).absolutePath();
    const QString inWorkspace = QDir(workspace.path()).relativeFilePath(templates);
    const QString templatePath =
        workspace.write(inWorkspace + QStringLiteral("/rig.kava"),
                        "<kava><videos><video/><video/><video/></videos><pano><images/></pano><x>" +
                            QByteArray(projectSize, 'x') + "</x></kava>");
    const QByteArray picture = recording(pictureSize, 9);
    workspace.write(inWorkspace + QStringLiteral("/rig.jpg"), picture);

    QByteArray project;
    {
        AppController controller;
        controller.copyFiles(cards.at(0), cards.at(1), cards.at(2), workspace.path(QStringLiteral("roomy")),
                             templatePath, {});
        QVERIFY(AppController::waitForJobs(hangMilliseconds));
        project = workspace.read(QStringLiteral("roomy/A_autopano.kava"));
        QVERIFY(project.size() > projectSize);
    }

    const TestVolume target(workspace.path(QStringLiteral("dst")), targetKiB);
    SKIP_UNLESS_MOUNTED(target);
    AppController controller;
    const CardReports reports(controller);
    controller.copyFiles(cards.at(0), cards.at(1), cards.at(2), workspace.path(QStringLiteral("dst")),
                         templatePath, {});
    QVERIFY(AppController::waitForJobs(hangMilliseconds));

    QMap<QString, QByteArray> found = workspace.tree(QStringLiteral("dst"));
    for (int card = 1; card <= 3; ++card) {
        const QString copy = QStringLiteral("A_cam%1.MOV").arg(card);
        const bool copied = found.contains(copy);
        QCOMPARE(reports.finalOf(card),
                 QStringList{QStringLiteral("0 1 1 Copied %1/1 videos and 0/0 photos.").arg(copied ? 1 : 0)});
        if (copied)
            QVERIFY(found.take(copy) == contents.at(card - 1));
        if (found.contains(copy + QStringLiteral(".jpg")))
            QVERIFY(found.take(copy + QStringLiteral(".jpg")) == picture);
        QVERIFY(workspace.read(QStringLiteral("card%1/A.MOV").arg(card)) == contents.at(card - 1));
    }
    if (found.contains(QStringLiteral("A_autopano.kava")))
        QVERIFY(found.take(QStringLiteral("A_autopano.kava")) == project);
    found.remove(QStringLiteral("Kelpora360.log"));
    QCOMPARE(found.keys(), QStringList());
}

KELPORA_TEST_MAIN(TestFaults)
#include "tst_faults.moc"
