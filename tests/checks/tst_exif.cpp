#include "checks/exif.h"
#include "tests/checks/recordingfiles.h"

#include <QBuffer>
#include <QtTest>

namespace {

const QByteArray taken = "2026:05:01 10:30:00";
const QDateTime start(QDate(2026, 5, 1), QTime(10, 30), Qt::UTC);

RecordingTime timeIn(QByteArray bytes)
{
    QBuffer file(&bytes);
    return file.open(QIODevice::ReadOnly) ? readPhotoTime(file) : RecordingTime();
}

} // namespace

class TestExif : public QObject
{
    Q_OBJECT

private slots:
    void photos_data();
    void photos();
    void badFiles_data();
    void badFiles();
    void noCutCrashes();
};

void TestExif::photos_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("milliseconds");

    const auto row = [](const char *title, const QByteArray &bytes, int milliseconds = 0) {
        QTest::newRow(title) << bytes << milliseconds;
    };
    row("a JPEG", jpeg(tiff(taken)));
    row("the most significant byte first", jpeg(tiff(taken, {}, true)));
    row("a fraction of three digits", jpeg(tiff(taken, "250")), 250);
    row("a fraction, the most significant byte first", jpeg(tiff(taken, "250", true)), 250);
    row("a fraction of one digit", jpeg(tiff(taken, "5")), 500);
    row("a fraction of six digits", jpeg(tiff(taken, "123456")), 123);
    row("a fraction with a blank", jpeg(tiff(taken, "12 ")), 120);
    row("a fraction that is no number", jpeg(tiff(taken, "abc")));
    row("fill bytes before the segment", "\xff\xd8\xff\xff" + jpeg(tiff(taken)).mid(2));
    row("a DNG", tiff(taken, "250"), 250);
    row("a DNG that has the time in its first table", tiff(taken, "250", false, true), 250);
}

void TestExif::photos()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, milliseconds);

    const RecordingTime time = timeIn(bytes);
    QCOMPARE(time.problem, QString());
    QCOMPARE(QDateTime::fromMSecsSinceEpoch(time.start, Qt::UTC), start.addMSecs(milliseconds));
    QCOMPARE(time.length, qint64{-1});
}

void TestExif::badFiles_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("problem");

    const auto row = [](const char *title, const QByteArray &bytes, const char *problem) {
        QTest::newRow(title) << bytes << QString::fromLatin1(problem);
    };
    const char *const noTime = "its Exif data has no time";
    row("an empty file", {}, "no photo, or damaged");
    row("a text", "This is no photo.", "no photo, or damaged");
    row("a JPEG without Exif", "\xff\xd8\xff\xda" + QByteArray(50, 'x'), "no Exif data");
    row("a JPEG that ends at once", "\xff\xd8", "no Exif data");
    row("segments without end", "\xff\xd8" + QByteArray("\xff\xe0\0\2", 4).repeated(5000), "no Exif data");
    row("a segment of no size", "\xff\xd8" + QByteArray("\xff\xe0\0\0", 4) + QByteArray(50, 'x'),
        "no Exif data");
    row("fill bytes alone", "\xff\xd8" + QByteArray(5000, '\xff'), "no Exif data");
    row("a damaged structure", jpeg("XX" + tiff(taken).mid(2)), "its Exif data is damaged");
    row("no entry", jpeg(tiff({})), noTime);
    row("blanks, as for an unknown time", jpeg(tiff("    :  :     :  :  ")), noTime);
    row("zeros", jpeg(tiff("0000:00:00 00:00:00")), noTime);
    row("a day that doesn't exist", jpeg(tiff("2026:02:30 10:30:00")), noTime);
    row("a text of another form", jpeg(tiff("2026-05-01T10:30:00")), noTime);
    QByteArray elsewhere = tiff(taken);
    row("a table beyond the end", jpeg(elsewhere.replace(4, 4, "\xf0\xff\xff\xff")), noTime);
    QByteArray loop = tiff({});
    row("a table that points to itself", jpeg(loop.replace(18, 4, QByteArray("\x08\0\0\0", 4))), noTime);
    QByteArray count = tiff(taken);
    row("more entries than there are", jpeg(count.replace(26, 2, "\xff\xff")).left(60), noTime);
    QByteArray number = tiff(taken, {}, false, true);
    row("a time that is no text", jpeg(number.replace(12, 2, QByteArray("\3\0", 2))), noTime);
}

void TestExif::badFiles()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, problem);

    QCOMPARE(timeIn(bytes).problem, problem);
}

void TestExif::noCutCrashes()
{
    const QByteArray whole = tiff(taken, "250");
    for (int size = 0; size < whole.size(); ++size) {
        const RecordingTime time = timeIn(whole.left(size));
        QVERIFY2(!time.problem.isEmpty() || time.start / 1000 == start.toSecsSinceEpoch(),
                 QByteArray::number(size).constData());
    }
}

QTEST_GUILESS_MAIN(TestExif)

#include "tst_exif.moc"
