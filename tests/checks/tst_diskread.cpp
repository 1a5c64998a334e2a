#include "platform/diskread.h"
#include "tests/support/medium.h"
#include "tests/support/testmain.h"
#include "tests/support/workspace.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

Q_DECLARE_METATYPE(DiskRead::End)

namespace {

/// Larger than a piece, and no whole number of pages.
constexpr int size = 3 * 1024 * 1024 + 77;

/// Bytes that are found once in an image.
QByteArray recording()
{
    QByteArray bytes(size, '\0');
    for (int i = 0; i < size; ++i)
        bytes[i] = static_cast<char>((i * 31 + i / 251) % 253);
    return bytes.replace(0, 17, "a recording of us");
}

/// Flips a bit of `content` in the image of a volume, beneath the volume. False if it is not there.
bool flipBeneath(const QString &image, const QByteArray &content, int place)
{
    QFile file(image);
    if (!file.open(QIODevice::ReadWrite))
        return false;
    const uchar *bytes = file.map(0, file.size());
    const QByteArray whole =
        QByteArray::fromRawData(reinterpret_cast<const char *>(bytes), static_cast<int>(file.size()));
    const int start = whole.indexOf(content.left(4096));
    const char flipped = static_cast<char>(content.at(place) ^ 1);
    return start >= 0 && file.seek(start + place) && file.write(&flipped, 1) == 1;
}

/// Maps a file and keeps all its pages in memory.
class Mapped
{
    Q_DISABLE_COPY(Mapped)

public:
    explicit Mapped(const QString &path)
    {
        const int file = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
        pages_ = ::mmap(nullptr, size, PROT_READ, MAP_SHARED | MAP_POPULATE, file, 0);
        ::close(file);
    }
    ~Mapped()
    {
        if (isMapped())
            ::munmap(pages_, size);
    }
    [[nodiscard]] bool isMapped() const { return pages_ != MAP_FAILED; }

private:
    void *pages_;
};

} // namespace

class DiskReadTest : public QObject
{
    Q_OBJECT

private slots:
    void whatTheDiskHoldsIsRead_data();
    void whatTheDiskHoldsIsRead();
    void memoryIsNotTakenForADisk();
    void changeWhileReading_data();
    void changeWhileReading();
    void whatCanNotBeRead_data();
    void whatCanNotBeRead();
    void stopEndsIt();
};

void DiskReadTest::whatTheDiskHoldsIsRead_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<bool>("mapped");

    QTest::newRow("ext4, pages in memory") << QStringLiteral("ext4") << false;
    QTest::newRow("ext4, pages that another process maps") << QStringLiteral("ext4") << true;
    QTest::newRow("exFAT, pages in memory") << QStringLiteral("exfat") << false;
    QTest::newRow("exFAT, pages that another process maps") << QStringLiteral("exfat") << true;
}

void DiskReadTest::whatTheDiskHoldsIsRead()
{
    QFETCH(QString, kind);
    QFETCH(bool, mapped);
    const Workspace workspace;
    const Medium medium(workspace, kind);
    SKIP_UNLESS_MOUNTED(medium);
    QByteArray content = recording();
    const QString path = workspace.write(QStringLiteral("card/CLIP.MOV"), content);
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadWrite) && ::fsync(file.handle()) == 0);
    QCOMPARE(file.readAll(), content);
    const std::unique_ptr<Mapped> pages = mapped ? std::make_unique<Mapped>(path) : nullptr;
    QVERIFY(!pages || pages->isMapped());

    constexpr int place = 100;
    QVERIFY(flipBeneath(workspace.path(QStringLiteral("card.image")), content, place));
    file.seek(0);
    QCOMPARE(file.readAll(), content); // memory still says what was written
    file.close();

    content[place] = static_cast<char>(content.at(place) ^ 1);
    QByteArray read;
    const DiskRead result =
        DiskReader().read(path.toStdString(), StopFlag(), [&](const char *data, std::size_t count) {
            read.append(data, static_cast<int>(count));
        });
    QCOMPARE(result.reason, QString());
    QCOMPARE(result.end, DiskRead::End::FromDisk);
    QVERIFY(read == content);
}

void DiskReadTest::memoryIsNotTakenForADisk()
{
    const Workspace workspace;
    const Medium medium(workspace, QStringLiteral("tmpfs"));
    SKIP_UNLESS_MOUNTED(medium);
    const QString path = workspace.write(QStringLiteral("card/CLIP.MOV"), recording());
    QByteArray read;
    const DiskRead result =
        DiskReader().read(path.toStdString(), StopFlag(), [&](const char *data, std::size_t count) {
            read.append(data, static_cast<int>(count));
        });
    QCOMPARE(result.end, DiskRead::End::Unproven);
    QVERIFY(!result.reason.isEmpty());
    QVERIFY(read == recording());
}

void DiskReadTest::changeWhileReading_data()
{
    QTest::addColumn<QString>("change");
    QTest::addColumn<DiskRead::End>("end");

    QTest::newRow("none") << QString() << DiskRead::End::FromDisk;
    QTest::newRow("grows") << QStringLiteral("grow") << DiskRead::End::Changed;
    QTest::newRow("shrinks") << QStringLiteral("shrink") << DiskRead::End::Changed;
    QTest::newRow("is written in place") << QStringLiteral("write") << DiskRead::End::Changed;
}

void DiskReadTest::changeWhileReading()
{
    QFETCH(QString, change);
    const Workspace workspace;
    const Medium medium(workspace, QStringLiteral("ext4"));
    SKIP_UNLESS_MOUNTED(medium);
    const QString path = workspace.write(QStringLiteral("card/CLIP.MOV"), recording());
    bool begun = false;
    const DiskRead result =
        DiskReader().read(path.toStdString(), StopFlag(), [&](const char * /*data*/, std::size_t) {
            if (std::exchange(begun, true))
                return;
            QFile file(path);
            QVERIFY(file.open(QIODevice::ReadWrite));
            if (change == QLatin1String("grow"))
                QVERIFY(file.seek(size) && file.write("more") == 4);
            else if (change == QLatin1String("shrink"))
                QVERIFY(file.resize(size / 2));
            else if (change == QLatin1String("write"))
                QVERIFY(file.write("other") == 5);
        });
    QTEST(result.end, "end");
}

void DiskReadTest::whatCanNotBeRead_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<DiskRead::End>("end");

    QTest::newRow("missing") << QString() << DiskRead::End::Failed;
    QTest::newRow("a folder") << QStringLiteral("folder") << DiskRead::End::Changed;
    QTest::newRow("a link") << QStringLiteral("link") << DiskRead::End::Failed;
    QTest::newRow("a pipe that nobody writes to") << QStringLiteral("pipe") << DiskRead::End::Changed;
}

void DiskReadTest::whatCanNotBeRead()
{
    QFETCH(QString, kind);
    const Workspace workspace;
    const QString path = workspace.path(QStringLiteral("it"));
    if (kind == QLatin1String("folder"))
        workspace.makeFolder(QStringLiteral("it"));
    else if (kind == QLatin1String("link"))
        QVERIFY(QFile::link(workspace.write(QStringLiteral("file"), "x"), path));
    else if (kind == QLatin1String("pipe"))
        QVERIFY(::mkfifo(QFile::encodeName(path).constData(), 0600) == 0);
    bool given = false;
    const DiskRead result = DiskReader().read(path.toStdString(), StopFlag(),
                                              [&](const char * /*data*/, std::size_t) { given = true; });
    QTEST(result.end, "end");
    QVERIFY(!given);
}

void DiskReadTest::stopEndsIt()
{
    const Workspace workspace;
    const QString path = workspace.write(QStringLiteral("CLIP.MOV"), recording());
    StopFlag stop;
    std::size_t given = 0;
    const DiskRead result =
        DiskReader().read(path.toStdString(), stop, [&](const char * /*data*/, std::size_t count) {
            given += count;
            stop.raise();
        });
    QCOMPARE(result.end, DiskRead::End::Stopped);
    QVERIFY(given < static_cast<std::size_t>(size));
}

KELPORA_TEST_MAIN(DiskReadTest)
#include "tst_diskread.moc"
