#include "cards/drives.h"
#include "tests/support/loopvolume.h"
#include "tests/support/messagelog.h"
#include "tests/support/testmain.h"
#include "tests/support/workspace.h"

#include <QElapsedTimer>
#include <QJsonObject>
#include <QStorageInfo>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <linux/fuse.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr int cardKiB = 1024;

QList<QJsonObject> objectsIn(const QVariantList &list)
{
    QList<QJsonObject> objects;
    for (const QVariant &drive : list)
        objects.append(drive.toJsonObject());
    return objects;
}

/// The entries whose volume lies in `folder`, in the list's order.
QList<QJsonObject> drivesBelow(const QString &folder, Drives &drives)
{
    QList<QJsonObject> below;
    for (const QJsonObject &drive : objectsIn(drives.list())) {
        if (drive.value(QStringLiteral("key")).toString().startsWith(folder + QLatin1Char('/')))
            below.append(drive);
    }
    return below;
}

QList<QJsonObject> drivesBelow(const QString &folder)
{
    Drives drives;
    return drivesBelow(folder, drives);
}

QStringList values(const QList<QJsonObject> &entries, const char *member)
{
    QStringList texts;
    for (const QJsonObject &entry : entries)
        texts.append(entry.value(QLatin1String(member)).toString());
    return texts;
}

/// How many threads this process has; each question to a volume is one.
int threads()
{
    return QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot).size();
}

/// Shows this process `line` as the only volume beside the system's, as long as it lives; none if it is
/// empty.
class MountTable
{
    Q_DISABLE_COPY(MountTable)

public:
    MountTable(const Workspace &workspace, const QByteArray &line)
    {
        QByteArray content;
        QFile real(table());
        if (real.open(QIODevice::ReadOnly)) {
            const QList<QByteArray> lines = real.readAll().split('\n');
            for (const QByteArray &one : lines) {
                if (one.split(' ').value(4) == "/")
                    content += one + '\n';
            }
        }
        const QString path = workspace.write(QStringLiteral("mountinfo"), content + line + '\n');
        shown_ = ::mount(QFile::encodeName(path).constData(), QFile::encodeName(table()).constData(), nullptr,
                         MS_BIND, nullptr) == 0;
    }
    ~MountTable()
    {
        if (shown_)
            static_cast<void>(::umount2(QFile::encodeName(table()).constData(), MNT_DETACH));
    }

    [[nodiscard]] bool isShown() const { return shown_; }

private:
    static QString table() { return QStringLiteral("/proc/%1/mountinfo").arg(::getpid()); }

    bool shown_ = false;
};

/// A volume whose server does not answer until it is told to.
class StalledVolume
{
    Q_DISABLE_COPY(StalledVolume)

public:
    explicit StalledVolume(const QString &mountPoint)
        : mountPoint_(QFile::encodeName(mountPoint))
        , connection_(::open("/dev/fuse", O_RDWR | O_CLOEXEC))
    {
        QDir().mkpath(mountPoint);
        const QByteArray options =
            "fd=" + QByteArray::number(connection_) + ",rootmode=40000,user_id=0,group_id=0";
        mounted_ = connection_ >= 0 && ::mount("stalled", mountPoint_.constData(), "fuse",
                                               MS_NODEV | MS_NOSUID, options.constData()) == 0;
    }
    ~StalledVolume()
    {
        if (mounted_)
            static_cast<void>(::umount2(mountPoint_.constData(), MNT_FORCE | MNT_DETACH));
        if (server_.joinable())
            server_.join();
        ::close(connection_);
    }

    [[nodiscard]] bool isMounted() const { return mounted_; }
    [[nodiscard]] static QString why()
    {
        return QStringLiteral("This machine allows no volumes in user space.");
    }
    /// Begins to answer; each answer takes `delay`.
    void answer(std::chrono::milliseconds delay = {})
    {
        server_ = std::thread([this, delay] { serve(delay); });
    }

private:
    void serve(std::chrono::milliseconds delay) const
    {
        std::vector<char> request(FUSE_MIN_READ_BUFFER + 65536);
        // Ends with the mount.
        while (::read(connection_, request.data(), request.size()) > 0) {
            fuse_in_header header = {};
            std::memcpy(&header, request.data(), sizeof header);
            if (header.opcode == FUSE_INIT) {
                fuse_init_out reply = {};
                reply.major = FUSE_KERNEL_VERSION;
                reply.minor = FUSE_KERNEL_MINOR_VERSION;
                reply.max_write = 4096;
                send(header, reply);
            } else if (header.opcode == FUSE_GETATTR) {
                fuse_attr_out reply = {};
                reply.attr.ino = FUSE_ROOT_ID;
                reply.attr.mode = S_IFDIR | 0755;
                send(header, reply);
            } else if (header.opcode == FUSE_STATFS) {
                std::this_thread::sleep_for(delay);
                fuse_statfs_out reply = {};
                reply.st.blocks = cardKiB;
                reply.st.bsize = reply.st.frsize = 1024;
                send(header, reply);
            }
        }
    }

    template <typename Reply>
    void send(const fuse_in_header &to, const Reply &reply) const
    {
        struct
        {
            fuse_out_header header;
            Reply reply;
        } message = {{sizeof(fuse_out_header) + sizeof(Reply), 0, to.unique}, reply};
        static_cast<void>(::write(connection_, &message, message.header.len));
    }

    QByteArray mountPoint_;
    int connection_;
    bool mounted_ = false;
    std::thread server_;
};

/// Stands for a card's device: a label is only ever looked up for what is no regular file.
QString makeDevice(const Workspace &workspace)
{
    const QString path = workspace.path(QStringLiteral("sdcard1"));
    return ::mkfifo(QFile::encodeName(path).constData(), 0600) == 0 ? path : QString();
}

/// A /dev of the test's own, for as long as it lives, with labels for devices.
class LabelFolder
{
    Q_DISABLE_COPY(LabelFolder)

public:
    LabelFolder()
        : dev_(QStringLiteral("/dev"), cardKiB, QStringLiteral("labels"))
    {
    }

    [[nodiscard]] const TestVolume &volume() const { return dev_; }
    [[nodiscard]] static bool add(const QString &label, const QString &device)
    {
        const QString folder = QStringLiteral("/dev/disk/by-label/");
        return QDir().mkpath(folder) && QFile::link(device, folder + label);
    }

private:
    TestVolume dev_;
};

} // namespace

class TestDrives : public QObject
{
    Q_OBJECT

private slots:
    void aMountedCardIsListedByPathAndName();
    void anEntryIsAJsonObjectWithTwoTexts();
    void withNoCardNothingIsListed();
    void aWriteProtectedCardIsNotOffered();
    void aPulledCardIsNotOfferedAnyMore();
    void theSystemVolumeIsNeverOffered();
    void theSystemsOrderIsKept();
    void aLabelIsTheName();
    void twoCardsWithOneLabelAreTwoEntries();
    void aVolumeThatDoesNotAnswerIsNotOffered();
    void aVolumeThatStallsIsLeftOutUntilItAnswers();
    void aSlowVolumeIsListedFromTheSecondRefreshOn();
    void aDiskImageIsOfferedLikeACard();
    void aNetworkFolderIsOfferedLikeACard_data();
    void aNetworkFolderIsOfferedLikeACard();
    void theCardThatTheWindowMakesOfAVolume_data();
    void theCardThatTheWindowMakesOfAVolume();
    void theMoviesFolder_data();
    void theMoviesFolder();
};

void TestDrives::aMountedCardIsListedByPathAndName()
{
    const Workspace workspace;
    const QString path = workspace.path(QStringLiteral("media/KELPORA 360_1"));
    const TestVolume card(path, cardKiB);
    SKIP_UNLESS_MOUNTED(card);

    const QList<QJsonObject> found = drivesBelow(workspace.path());
    QCOMPARE(values(found, "key"), QStringList{path});
    // Without a label the name is the path.
    QCOMPARE(values(found, "value"), QStringList{path});
}

void TestDrives::anEntryIsAJsonObjectWithTwoTexts()
{
    const Workspace workspace;
    const TestVolume card(workspace.path(QStringLiteral("card")), cardKiB);
    SKIP_UNLESS_MOUNTED(card);

    const QVariantList list = Drives().list();
    QVERIFY(!list.isEmpty());
    for (const QVariant &entry : list) {
        QCOMPARE(entry.userType(), static_cast<int>(QMetaType::QJsonObject));
        const QJsonObject object = entry.toJsonObject();
        QCOMPARE(object.keys(), (QStringList{QStringLiteral("key"), QStringLiteral("value")}));
        QVERIFY(object.value(QStringLiteral("key")).isString());
        QVERIFY(object.value(QStringLiteral("value")).isString());
    }
}

void TestDrives::withNoCardNothingIsListed()
{
    const Workspace workspace;
    workspace.makeFolder(QStringLiteral("media/KELPORA360_1"));
    QCOMPARE(values(drivesBelow(workspace.path()), "key"), QStringList());
    const MountTable onlyTheSystem(workspace, {});
    if (!onlyTheSystem.isShown())
        QSKIP("This machine does not allow the mount.");
    QCOMPARE(Drives().list(), QVariantList());
}

void TestDrives::aWriteProtectedCardIsNotOffered()
{
    const Workspace workspace;
    TestVolume first(workspace.path(QStringLiteral("first")), cardKiB);
    const TestVolume second(workspace.path(QStringLiteral("second")), cardKiB);
    SKIP_UNLESS_MOUNTED(first);
    SKIP_UNLESS_MOUNTED(second);
    QCOMPARE(drivesBelow(workspace.path()).size(), 2);

    QVERIFY(first.makeReadOnly());
    QCOMPARE(values(drivesBelow(workspace.path()), "key"),
             QStringList{workspace.path(QStringLiteral("second"))});
}

void TestDrives::aPulledCardIsNotOfferedAnyMore()
{
    const Workspace workspace;
    TestVolume card(workspace.path(QStringLiteral("card")), cardKiB);
    SKIP_UNLESS_MOUNTED(card);
    QCOMPARE(drivesBelow(workspace.path()).size(), 1);

    QVERIFY(card.pull());
    QCOMPARE(drivesBelow(workspace.path()).size(), 0);
}

void TestDrives::theSystemVolumeIsNeverOffered()
{
    const QStorageInfo root = QStorageInfo::root();
    if (!root.isValid() || root.isReadOnly())
        QSKIP("The system volume is not writable here, so it would not be offered anyhow");
    QVERIFY(QStorageInfo::mountedVolumes().contains(root));
    QVERIFY(!values(objectsIn(Drives().list()), "key").contains(root.rootPath()));
}

void TestDrives::theSystemsOrderIsKept()
{
    const Workspace workspace;
    const TestVolume b(workspace.path(QStringLiteral("b")), cardKiB);
    const TestVolume c(workspace.path(QStringLiteral("c")), cardKiB);
    const TestVolume a(workspace.path(QStringLiteral("a")), cardKiB);
    SKIP_UNLESS_MOUNTED(b);
    SKIP_UNLESS_MOUNTED(c);
    SKIP_UNLESS_MOUNTED(a);

    QStringList mounted;
    const QList<QStorageInfo> volumes = QStorageInfo::mountedVolumes();
    for (const QStorageInfo &volume : volumes)
        mounted.append(volume.rootPath());
    const QStringList listed = values(objectsIn(Drives().list()), "key");
    QStringList expected = mounted;
    expected.erase(std::remove_if(expected.begin(), expected.end(),
                                  [&](const QString &path) { return !listed.contains(path); }),
                   expected.end());
    QCOMPARE(listed, expected);
    QCOMPARE(values(drivesBelow(workspace.path()), "key"),
             (QStringList{workspace.path(QStringLiteral("b")), workspace.path(QStringLiteral("c")),
                          workspace.path(QStringLiteral("a"))}));
}

void TestDrives::aLabelIsTheName()
{
    const Workspace workspace;
    const QString device = makeDevice(workspace);
    const TestVolume card(workspace.path(QStringLiteral("media/1")), cardKiB, device);
    const LabelFolder labels;
    SKIP_UNLESS_MOUNTED(card);
    SKIP_UNLESS_MOUNTED(labels.volume());
    QVERIFY(LabelFolder::add(QStringLiteral("KELPORA360_1"), device));

    const QList<QJsonObject> found = drivesBelow(workspace.path());
    QCOMPARE(values(found, "key"), QStringList{workspace.path(QStringLiteral("media/1"))});
    QCOMPARE(values(found, "value"), QStringList{QStringLiteral("KELPORA360_1")});
}

void TestDrives::twoCardsWithOneLabelAreTwoEntries()
{
    const Workspace workspace;
    // A label names one device, so both volumes stand on it.
    const QString device = makeDevice(workspace);
    const TestVolume first(workspace.path(QStringLiteral("media/1")), cardKiB, device);
    const TestVolume second(workspace.path(QStringLiteral("media/2")), cardKiB, device);
    const LabelFolder labels;
    SKIP_UNLESS_MOUNTED(first);
    SKIP_UNLESS_MOUNTED(second);
    SKIP_UNLESS_MOUNTED(labels.volume());
    QVERIFY(LabelFolder::add(QStringLiteral("KELPORA360"), device));

    const QList<QJsonObject> found = drivesBelow(workspace.path());
    QCOMPARE(values(found, "key"), (QStringList{workspace.path(QStringLiteral("media/1")),
                                                workspace.path(QStringLiteral("media/2"))}));
    QCOMPARE(values(found, "value"),
             (QStringList{QStringLiteral("KELPORA360"), QStringLiteral("KELPORA360")}));
}

void TestDrives::aVolumeThatDoesNotAnswerIsNotOffered()
{
    const Workspace workspace;
    const QString path = workspace.makeFolder(QStringLiteral("dead"));
    const int connection = ::open("/dev/fuse", O_RDWR | O_CLOEXEC);
    if (connection < 0)
        QSKIP("This user can't open /dev/fuse");
    const QByteArray options =
        "fd=" + QByteArray::number(connection) + ",rootmode=40000,user_id=0,group_id=0";
    const int mounted = ::mount("dead", QFile::encodeName(path).constData(), "fuse", MS_NODEV | MS_NOSUID,
                                options.constData());
    const int reason = errno;
    // Nobody serves the volume from here on: every question to it fails.
    ::close(connection);
    if (mounted != 0)
        QSKIP(qPrintable(QStringLiteral("This machine does not allow the mount: ") +
                         QString::fromLocal8Bit(std::strerror(reason))));

    const QStorageInfo volume(path);
    const QList<QJsonObject> found = drivesBelow(workspace.path());
    bool known = false;
    const QList<QStorageInfo> volumes = QStorageInfo::mountedVolumes();
    for (const QStorageInfo &one : volumes)
        known = known || (one.rootPath() == path && !one.isReady());
    QVERIFY(::umount2(QFile::encodeName(path).constData(), MNT_DETACH) == 0);
    QVERIFY(known);
    QCOMPARE(found.size(), 0);

    const TestVolume answers(path, 64, QStringLiteral("dead"));
    SKIP_UNLESS_MOUNTED(answers);
    QCOMPARE(values(drivesBelow(workspace.path()), "key"), QStringList{path});
}

void TestDrives::aVolumeThatStallsIsLeftOutUntilItAnswers()
{
    const Workspace workspace;
    const auto path = [&workspace](const char *name) { return workspace.path(QString::fromLatin1(name)); };
    const TestVolume first(path("a card"), cardKiB);
    StalledVolume stalled(path("stalled \\ 1"));
    const TestVolume last(path("last"), cardKiB);
    SKIP_UNLESS_MOUNTED(first);
    SKIP_UNLESS_MOUNTED(stalled);
    SKIP_UNLESS_MOUNTED(last);
    const QStringList others{path("a card"), path("last")};
    const int threadsBefore = threads();

    Drives drives;
    // The first look waits for the answer, the others don't.
    for (const int milliseconds : {2500, 900, 900}) {
        const MessageLog log;
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(values(drivesBelow(workspace.path(), drives), "key"), others);
        QVERIFY2(timer.elapsed() < milliseconds, qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(MessageLog::lines(),
                 QStringList{QStringLiteral("warning: A volume does not answer and is left out: ") +
                             path("stalled \\ 1")});
        // One hangs that asked all volumes, one that asked this one; the others end.
        QVERIFY(QTest::qWaitFor([&] { return threads() == threadsBefore + 2; }));
    }

    stalled.answer();
    const QStringList all{path("a card"), path("stalled \\ 1"), path("last")};
    QVERIFY(
        QTest::qWaitFor([&] { return values(drivesBelow(workspace.path(), drives), "key") == all; }, 20000));
    const MessageLog log;
    QCOMPARE(values(drivesBelow(workspace.path(), drives), "key"), all);
    QCOMPARE(MessageLog::lines(), QStringList());
}

void TestDrives::aSlowVolumeIsListedFromTheSecondRefreshOn()
{
    const Workspace workspace;
    const QString path = workspace.path(QStringLiteral("KELPORA360_1"));
    StalledVolume card(path);
    if (!card.isMounted())
        QSKIP(qPrintable(StalledVolume::why()));
    card.answer(std::chrono::milliseconds(1500));
    const int threadsBefore = threads();

    Drives drives;
    const auto listed = [&] {
        for (const QVariant &entry : drives.list()) {
            if (entry.toJsonObject().value(QStringLiteral("key")).toString() == path)
                return true;
        }
        return false;
    };
    QVERIFY(!listed());
    for (int refresh = 0; refresh < 3; ++refresh) {
        QVERIFY(QTest::qWaitFor([&] { return threads() <= threadsBefore; }, 30000));
        QVERIFY2(listed(), qPrintable(QString::number(refresh)));
    }
}

void TestDrives::aDiskImageIsOfferedLikeACard()
{
    const Workspace workspace;
    const QString path = workspace.path(QStringLiteral("image"));
    const LoopVolume image(LoopVolume::Kind::Ext4, workspace.path(QStringLiteral("file")), 8, path);
    if (!image.isMounted())
        QSKIP(qPrintable(image.why()));
    QCOMPARE(values(drivesBelow(workspace.path()), "key"), QStringList{path});
}

void TestDrives::aNetworkFolderIsOfferedLikeACard_data()
{
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<QByteArray>("server");
    QTest::newRow("nfs") << QByteArray("nfs4") << QByteArray("boat:/dives");
    QTest::newRow("smb") << QByteArray("cifs") << QByteArray("//boat/dives");
    QTest::newRow("ssh") << QByteArray("fuse.sshfs") << QByteArray("diver@boat:/dives");
}

void TestDrives::aNetworkFolderIsOfferedLikeACard()
{
    QFETCH(QByteArray, type);
    QFETCH(QByteArray, server);
    const Workspace workspace;
    const QString path = workspace.makeFolder(QStringLiteral("dives"));
    const QByteArray place = "900 1 0:90 / " + QFile::encodeName(path);
    {
        const MountTable table(workspace, place + " rw,relatime - " + type + ' ' + server + " rw");
        if (!table.isShown())
            QSKIP("This machine does not allow the mount.");
        QCOMPARE(values(drivesBelow(workspace.path()), "key"), QStringList{path});
    }
    QCOMPARE(drivesBelow(workspace.path()).size(), 0);
}

void TestDrives::theCardThatTheWindowMakesOfAVolume_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("card");
    const auto row = [](const char *what, const char *path, const char *name, int card) {
        QTest::newRow(what) << QString::fromLatin1(path) << QString::fromLatin1(name) << card;
    };
    row("name", "/media/usb", "360_02", 2);
    row("path", "/media/360_03", "usb", 3);
    row("mark in the path, digit in the name", "/media/diver360/usb", "reef1", 1);
    row("another digit", "/media/360_04", "360_04", 0);
    row("no mark", "/media/card1", "card1", 0);
    row("no digit at the end", "/media/360_1/x", "360", 0);
    row("digits that differ: the smaller", "/media/360_03", "360_01", 1);
    row("nothing", "", "", 0);
}

void TestDrives::theCardThatTheWindowMakesOfAVolume()
{
    QFETCH(const QString, path);
    QFETCH(const QString, name);
    QTEST(cardOf(path, name), "card");
}

void TestDrives::theMoviesFolder_data()
{
    QTest::addColumn<QByteArray>("userFolders");
    QTest::addColumn<QString>("expected");

    QTest::newRow("the user's own choice")
        << QByteArray("XDG_VIDEOS_DIR=\"$HOME/Dives\"\n") << QStringLiteral("home/Dives");
    QTest::newRow("the platform's default") << QByteArray() << QStringLiteral("home/Videos");
}

void TestDrives::theMoviesFolder()
{
    QFETCH(QByteArray, userFolders);
    QFETCH(QString, expected);
    const Workspace workspace;
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(workspace.makeFolder(QStringLiteral("config"))));
    if (!userFolders.isEmpty())
        workspace.write(QStringLiteral("config/user-dirs.dirs"), userFolders);

    QCOMPARE(moviesLocation(), workspace.path(expected));
    QVERIFY(!QFileInfo::exists(workspace.path(expected)));
    qunsetenv("XDG_CONFIG_HOME");
}

KELPORA_TEST_MAIN(TestDrives)
#include "tst_drives.moc"
