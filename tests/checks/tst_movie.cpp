#include "checks/movie.h"
#include "fuzz/countingbuffer.h"
#include "tests/checks/recordingfiles.h"

#include <QBuffer>
#include <QtTest>

namespace {

// 2026-05-01 10:30:00, since 1904.
constexpr quint64 created = 3860476200;
const QDateTime start(QDate(2026, 5, 1), QTime(10, 30), Qt::UTC);

RecordingTime timeIn(QByteArray bytes)
{
    QBuffer file(&bytes);
    return file.open(QIODevice::ReadOnly) ? readMovieTime(file) : RecordingTime();
}

} // namespace

class TestMovie : public QObject
{
    Q_OBJECT

private slots:
    void movies_data();
    void movies();
    void badFiles_data();
    void badFiles();
    void everyCutIsRefused();
    void theRecordingItselfIsNotRead();
};

void TestMovie::movies_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QDateTime>("begun");
    QTest::addColumn<qint64>("length");

    const auto row = [](const char *title, const QByteArray &bytes, qint64 length,
                        const QDateTime &begun = start) { QTest::newRow(title) << bytes << begun << length; };
    const QByteArray type = box("ftyp", "qt  ");
    const QByteArray picture = box("mdat", QByteArray(50, 'x'));
    const auto header = [](const QByteArray &mvhd) { return box("moov", mvhd); };
    row("the header first", type + header(movieHeader(0, created, 95500)) + picture, 95500);
    row("the header last", type + picture + header(movieHeader(0, created, 95500)), 95500);
    row("no file type", picture + header(movieHeader(0, created, 95500)), 95500);
    row("64-bit times", type + picture + header(movieHeader(1, created, 95500)), 95500);
    row("a 64-bit size before the header",
        type + wideBox("mdat", QByteArray(50, 'x')) + header(movieHeader(0, created, 1000)), 1000);
    row("a header with a 64-bit size", type + wideBox("moov", movieHeader(0, created, 1000)), 1000);
    row("a header up to the end of the file",
        type + bigEndian(quint32{0}) + "moov" + movieHeader(0, created, 1000), 1000);
    row("other boxes before the header",
        type + box("wide", {}) + box("free", "abc") + box("uuid", QByteArray(30, 'u')) +
            header(box("udta", "abcd") + movieHeader(0, created, 1000)),
        1000);
    row("a few bytes at the end", type + header(movieHeader(0, created, 1000)) + "abc", 1000);
    row("a timescale of its own", header(movieHeader(0, created, 2865000, 30000)), 95500);
    row("no length", header(movieHeader(0, created, 0xffffffff)), -1);
    row("no length in 64 bits", header(movieHeader(1, created, ~quint64{0})), -1);
    row("a length that nothing lasts", header(movieHeader(1, created, ~quint64{0} - 1, 1)), -1);
    row("no timescale", header(movieHeader(0, created, 1000, 0)), -1);
    row("a clock that was never set", header(movieHeader(0, 2082844800, 1000)), 1000,
        QDateTime(QDate(1970, 1, 1), QTime(0, 0), Qt::UTC));
}

void TestMovie::movies()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QDateTime, begun);
    QFETCH(qint64, length);

    const RecordingTime time = timeIn(bytes);
    QCOMPARE(time.problem, QString());
    QCOMPARE(QDateTime::fromMSecsSinceEpoch(time.start, Qt::UTC), begun);
    QCOMPARE(time.length, length);
}

void TestMovie::badFiles_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("problem");

    const auto row = [](const char *title, const QByteArray &bytes, const char *problem) {
        QTest::newRow(title) << bytes << QString::fromLatin1(problem);
    };
    const char *const unfinished = R"(no box "moov": the recording was not finished)";
    row("an empty file", {}, unfinished);
    row("a recording without its end", box("ftyp", "qt  ") + box("mdat", "xxxx"), unfinished);
    row("the picture cut short", box("ftyp", "qt  ") + box("mdat", QByteArray(50, 'x')).left(30),
        "cut short, or no movie");
    row("a text", QByteArray("This is no movie at all. ").repeated(4), "cut short, or no movie");
    row("only zeros after the type", box("ftyp", "qt  ") + QByteArray(512, '\0'), unfinished);
    row("a size below that of a box", bigEndian(quint32{7}) + "free" + QByteArray(20, 'x'),
        "no movie, or damaged");
    row("a 64-bit size below that of a box",
        bigEndian(quint32{1}) + "free" + bigEndian(quint64{15}) + QByteArray(20, 'x'),
        "no movie, or damaged");
    row("a 64-bit size beyond all numbers",
        bigEndian(quint32{1}) + "free" + bigEndian(~quint64{0}) + QByteArray(20, 'x'),
        "cut short, or no movie");
    row("a 64-bit size without its number", bigEndian(quint32{1}) + "free", "no movie, or damaged");
    row("boxes without end", box("free", {}).repeated(20000), "too many boxes for a movie");
    row("no movie header", box("moov", box("udta", "abcd")),
        R"(no box "mvhd": the recording was not finished)");
    row("an empty movie header", box("moov", box("mvhd", {})), "its movie header is damaged");
    row("a movie header cut short", box("moov", box("mvhd", movieHeader(1, created, 1).mid(8, 31))),
        "its movie header is damaged");
    row("a movie header of another version", box("moov", movieHeader(2, created, 1)),
        "its movie header is damaged");
    row("no start", box("moov", movieHeader(0, 0, 1000)), "its movie header has no start time");
    row("a start beyond all calendars", box("moov", movieHeader(1, ~quint64{0}, 1000)),
        "its movie header has no start time");
}

void TestMovie::badFiles()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, problem);

    QCOMPARE(timeIn(bytes).problem, problem);
}

void TestMovie::everyCutIsRefused()
{
    const QByteArray whole = movie(start, 95500);
    QCOMPARE(timeIn(whole).problem, QString());
    for (int size = 0; size < whole.size(); ++size)
        QVERIFY2(!timeIn(whole.left(size)).problem.isEmpty(), QByteArray::number(size).constData());
}

void TestMovie::theRecordingItselfIsNotRead()
{
    QByteArray bytes = box("ftyp", "qt  ") + wideBox("mdat", QByteArray(10'000'000, 'x')) +
                       box("moov", movieHeader(0, created, 95500));
    CountingBuffer file(&bytes);
    QVERIFY(file.open(QIODevice::ReadOnly | QIODevice::Unbuffered));
    QCOMPARE(readMovieTime(file).length, qint64{95500});
    QVERIFY2(file.bytesRead() < 200, QByteArray::number(file.bytesRead()).constData());
}

QTEST_GUILESS_MAIN(TestMovie)

#include "tst_movie.moc"
