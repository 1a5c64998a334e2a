#include "controller/nmea0183.h"
#include "controller/record.h"
#include "tests/support/testmain.h"

#include <QDateTime>

#include <ctime>
#include <limits>

namespace {

constexpr int most = std::numeric_limits<int>::max();
constexpr int least = std::numeric_limits<int>::min();

/// `text` with its checksum and line end, as the controller sends it.
QString sent(const QByteArray &text)
{
    Nmea sentence(text.toStdString());
    sentence.AddChecksum();
    return QString::fromStdString(sentence.GetSentence()) + QStringLiteral("\r\n");
}

/// A dataset's line; `tail` holds fields 4 to 9.
QString dataset(int number, int flags, qint64 time, const QByteArray &tail = "1,2,3,4,5,6")
{
    return sent("$PSEADATA," + QByteArray::number(number) + ',' + QByteArray::number(flags) + ',' +
                QByteArray::number(time) + ',' + tail);
}

/// From now on the process runs in this time zone, given in the C library's own notation.
void moveTo(const QByteArray &zone)
{
    qputenv("TZ", zone);
    ::tzset();
}

QStringList columns(const Record &record)
{
    return record.toCSV().split(QLatin1Char(','));
}

} // namespace

class TestRecord : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void startsBlank();
    void takesEveryField();
    void typeFromFlags_data();
    void typeFromFlags();
    void otherLinesChangeNothing_data();
    void otherLinesChangeNothing();
    void numbersThatAreNone();
    void completesTime_data();
    void completesTime();
    void completesOrdinaryEntriesOnly();
    void times_data();
    void times();
    void aZoneChangeDisturbsNoTime();
    void heading();
    void numberFormat_data();
    void numberFormat();
    void line_data();
    void line();
    void setbits_data();
    void setbits();
};

void TestRecord::init()
{
    moveTo("UTC0");
}

void TestRecord::startsBlank()
{
    const Record record;
    QCOMPARE(record.id, 0);
    QCOMPARE(record.number, 0);
    QCOMPARE(record.flags, 0);
    QCOMPARE(record.startTimestamp, 0);
    QCOMPARE(record.timestamp, 0);
    QCOMPARE(record.type, ' ');
    QCOMPARE(record.depth, 0.0);
}

void TestRecord::takesEveryField()
{
    const Record record(dataset(7, 10, 1550782004, "12.5,-1.25,359.9,0.5,-90,3.75"));
    QCOMPARE(record.id, 7);
    QCOMPARE(record.number, 7);
    QCOMPARE(record.flags, 10);
    QCOMPARE(record.timestamp, 1550782004);
    QCOMPARE(record.startTimestamp, 0);
    QCOMPARE(record.datetime, QDateTime::fromSecsSinceEpoch(1550782004));
    QCOMPARE(record.type, 'v');
    QCOMPARE(record.depth, 12.5);
    QCOMPARE(record.temperature, -1.25);
    QCOMPARE(record.heading, 359.9);
    QCOMPARE(record.roll, 0.5);
    QCOMPARE(record.pitch, -90.0);
    QCOMPARE(record.reserved, 3.75);
}

void TestRecord::typeFromFlags_data()
{
    QTest::addColumn<int>("flags");
    QTest::addColumn<char>("type");
    QTest::addColumn<bool>("starts");

    const auto row = [](const char *name, int flags, char type, bool starts = false) {
        QTest::newRow(name) << flags << type << starts;
    };
    row("no flag", 0, ' ');
    row("start", 1, 's', true);
    row("recording alone", 2, ' ');
    row("start and recording", 3, 's', true);
    row("the third bit means nothing", 4, ' ');
    row("video without recording", 8, ' ');
    row("video", 2 + 8, 'v');
    row("photo without recording", 16, ' ');
    row("photo", 2 + 16, 'p');
    row("video before photo", 2 + 8 + 16, 'v');
    row("start before video", 1 + 2 + 8, 's', true);
    row("start before photo", 1 + 2 + 16, 's', true);
    row("higher bits mean nothing", 32 + 64 + 2 + 8, 'v');
    row("every bit", -1, 's', true);
}

void TestRecord::typeFromFlags()
{
    QFETCH(int, flags);
    QFETCH(char, type);
    QFETCH(bool, starts);

    const Record record(dataset(1, flags, 1000));
    QCOMPARE(record.type, type);
    QCOMPARE(record.startTimestamp, starts ? 1000 : 0);

    // A record that is read into again keeps the type that the new flags don't set.
    Record again(dataset(1, 2 + 16, 900));
    again.fromNmea(dataset(1, flags, 1000));
    QCOMPARE(again.type, type == ' ' ? 'p' : type);
}

void TestRecord::otherLinesChangeNothing_data()
{
    QTest::addColumn<QString>("line");

    const QString good = dataset(1, 10, 1000);
    const auto row = [](const char *name, const QString &line) { QTest::newRow(name) << line; };
    row("nothing", QString());
    row("a line end", QStringLiteral("\r\n"));
    row("text", QStringLiteral("Hello"));
    row("a damaged byte", QString(good).replace(QStringLiteral("1000"), QStringLiteral("1001")));
    row("a wrong checksum", good.left(good.size() - 4) + QStringLiteral("zz\r\n"));
    row("no checksum", good.left(good.indexOf(QLatin1Char('*'))));
    row("cut off", good.left(good.size() / 2));
    row("another address", sent("$PSEAMSG,1,10,1000,1,2,3,4,5,6"));
    row("a longer address", sent("$PSEADATAX,1,10,1000,1,2,3,4,5,6"));
    row("a shorter address", sent("$PSEADAT,1,10,1000,1,2,3,4,5,6"));
    row("a lower-case address", sent("$pseadata,1,10,1000,1,2,3,4,5,6"));
    row("a blank before the address", sent(" $PSEADATA,1,10,1000,1,2,3,4,5,6"));
    row("one field too few", sent("$PSEADATA,1,10,1000,1,2,3,4,5"));
    row("no fields", sent("$PSEADATA"));
    row("a NUL within", QString(good).replace(5, 1, QChar(0)));
}

void TestRecord::otherLinesChangeNothing()
{
    QFETCH(QString, line);

    Record record(dataset(7, 2 + 16, 1550782004, "12.5,-1.25,359.9,0.5,-90,3.75"));
    const QString before = record.toCSV();
    record.fromNmea(line);
    QCOMPARE(record.toCSV(), before);
    QCOMPARE(record.flags, 2 + 16);
    QCOMPARE(record.startTimestamp, 0);
    QCOMPARE(record.reserved, 3.75);

    QCOMPARE(Record(line).id, 0);
    QCOMPARE(Record(line).type, ' ');
}

void TestRecord::numbersThatAreNone()
{
    // The sentence class says so on standard error.
    const Record record(sent("$PSEADATA,x,10,99999999999,,deep,3,4,5,6"));
    QCOMPARE(record.id, most);
    QCOMPARE(record.number, most);
    QCOMPARE(record.timestamp, most);
    QCOMPARE(record.depth, std::numeric_limits<double>::max());
    QCOMPARE(record.temperature, std::numeric_limits<double>::max());
    QCOMPARE(record.heading, 3.0);
    QCOMPARE(columns(record).at(6), QStringLiteral("1.79769e+308"));
}

void TestRecord::completesTime_data()
{
    QTest::addColumn<int>("start");
    QTest::addColumn<int>("low");
    QTest::addColumn<int>("completed");

    const auto row = [](const char *name, int start, int low, int completed) {
        QTest::newRow(name) << start << low << completed;
    };
    row("a wrapped low half doesn't carry", 1550782004, 16, 1550778384);
    row("the start's own time", 1550782004, 1550782004 & 0xffff, 1550782004);
    row("a second later", 1550782004, (1550782004 & 0xffff) + 1, 1550782005);
    row("the last before the wrap", 1550782004, 0xffff, 1550843903);
    row("high bits of the entry's time don't count", 1550782004, 0x7fff0010, 1550778384);
    row("a negative time counts by its low bits", 0x10000, -1, 0x1ffff);
    row("no start", 0, 0x1234, 0x1234);
    row("the latest start", most, 0, 0x7fff0000);
    row("the latest time", most, 0xffff, most);
    row("a negative start", -1, 0, -0x10000);
    row("the earliest start", least, 0, least);
}

void TestRecord::completesTime()
{
    QFETCH(int, start);
    QFETCH(int, low);
    QFETCH(int, completed);

    Record record(dataset(1, 10, low));
    record.correctTimestamp(start);
    QCOMPARE(record.startTimestamp, start);
    QCOMPARE(record.timestamp, completed);
    QCOMPARE(record.datetime, QDateTime::fromSecsSinceEpoch(completed));
    QCOMPARE(columns(record).at(4), QString::number(qint64{completed} - start));

    const Record atOnce(dataset(1, 10, low), start);
    QCOMPARE(atOnce.toCSV(), record.toCSV());
    QCOMPARE(atOnce.datetime, record.datetime);
}

void TestRecord::completesOrdinaryEntriesOnly()
{
    const Record start(dataset(7, 1, 1550782004), 1000000000);
    QCOMPARE(start.toCSV(), Record(dataset(7, 1, 1550782004)).toCSV());
    QCOMPARE(start.startTimestamp, 1550782004);
    QCOMPARE(start.datetime, QDateTime::fromSecsSinceEpoch(1550782004));
    const Record none(QStringLiteral("$PSEADATA,1*00"), 1000000000);
    QCOMPARE(none.toCSV(), Record().toCSV());
    QCOMPARE(none.startTimestamp, 0);
}

void TestRecord::times_data()
{
    QTest::addColumn<QByteArray>("zone");
    QTest::addColumn<int>("time");
    QTest::addColumn<QString>("shown");

    const auto row = [](const char *name, const char *zone, int time, const char *shown) {
        QTest::newRow(name) << QByteArray(zone) << time << QString::fromLatin1(shown);
    };
    const char *central = "CET-1CEST,M3.5.0,M10.5.0/3";
    row("universal time", "UTC0", 1550782004, "2019-02-21 20:46:44");
    row("winter", central, 1550782004, "2019-02-21 21:46:44");
    row("summer", central, 1561975200, "2019-07-01 12:00:00");
    row("west of Greenwich", "EST5", 1550782004, "2019-02-21 15:46:44");
    row("the second before summer time", central, 1553993999, "2019-03-31 01:59:59");
    row("the first second of summer time", central, 1553994000, "2019-03-31 03:00:00");
    row("the last second of summer time", central, 1572137999, "2019-10-27 02:59:59");
    row("the hour that comes twice", central, 1572138000, "2019-10-27 02:00:00");
    row("the epoch", "UTC0", 0, "1970-01-01 00:00:00");
    row("the epoch in the west", "EST5", 0, "1969-12-31 19:00:00");
    row("the last time", "UTC0", most, "2038-01-19 03:14:07");
    row("the last time in the east", "XYZ-14", most, "2038-01-19 17:14:07");
    row("a second before the epoch", "UTC0", -1, "1969-12-31 23:59:59");
    row("the first time", "UTC0", least, "1901-12-13 20:45:52");
}

void TestRecord::times()
{
    QFETCH(QByteArray, zone);
    QFETCH(int, time);
    QFETCH(QString, shown);

    moveTo(zone);
    const Record record(dataset(1, 1, time));
    QCOMPARE(columns(record).at(2), shown);
    QCOMPARE(columns(record).at(3), QString::number(time));
    QCOMPARE(columns(record).at(4), QStringLiteral("0"));
}

void TestRecord::aZoneChangeDisturbsNoTime()
{
    moveTo("CET-1CEST,M3.5.0,M10.5.0/3");
    const Record winter(dataset(1, 1, 1550782004));
    moveTo("EST5");
    const Record there(dataset(2, 1, 1550782004));
    QCOMPARE(there.timestamp, winter.timestamp);
    QCOMPARE(columns(there).at(2), QStringLiteral("2019-02-21 15:46:44"));
    Record entry(dataset(3, 10, (1550782004 & 0xffff) + 5));
    entry.correctTimestamp(there.timestamp);
    QCOMPARE(entry.timestamp, 1550782009);
    QCOMPARE(columns(entry).at(2), QStringLiteral("2019-02-21 15:46:49"));
    QCOMPARE(columns(entry).at(4), QStringLiteral("5"));

    // A run that goes on while the clocks change: the run time counts on.
    moveTo("CET-1CEST,M3.5.0,M10.5.0/3");
    Record after(dataset(4, 10, 1553994001 & 0xffff));
    after.correctTimestamp(1553993990);
    QCOMPARE(columns(after).at(2), QStringLiteral("2019-03-31 03:00:01"));
    QCOMPARE(columns(after).at(4), QStringLiteral("11"));
}

void TestRecord::heading()
{
    QCOMPARE(Record::headingCSV(), QStringLiteral("Number,Id,Datetime,Timestamp,Runtime,Type,Depth,"
                                                  "Temperature,Heading,Roll,Pitch\r\n"));
}

void TestRecord::numberFormat_data()
{
    QTest::addColumn<double>("value");
    QTest::addColumn<QString>("shown");

    const auto row = [](const char *name, double value, const char *shown) {
        QTest::newRow(name) << value << QString::fromLatin1(shown);
    };
    row("six digits, rounded", 12.345678, "12.3457");
    row("whole", 20, "20");
    row("no zeros at the end", 1.5, "1.5");
    row("zero", 0, "0");
    row("negative", -0.25, "-0.25");
    row("six digits before the point", 123456, "123456");
    row("more than six digits before the point", 1234567, "1.23457e+06");
    row("small", 0.0001, "0.0001");
    row("smaller", 0.00001234567, "1.23457e-05");
    row("largest", std::numeric_limits<double>::max(), "1.79769e+308");
    row("infinite", std::numeric_limits<double>::infinity(), "inf");
    row("no number", std::numeric_limits<double>::quiet_NaN(), "nan");
}

void TestRecord::numberFormat()
{
    QFETCH(double, value);
    QFETCH(QString, shown);

    Record record;
    record.depth = record.temperature = record.heading = record.roll = record.pitch = value;
    const QString line = record.toCSV();
    QVERIFY2(line.endsWith(QStringLiteral(",%1,%1,%1,%1,%1\r\n").arg(shown)), qPrintable(line));
}

void TestRecord::line_data()
{
    QTest::addColumn<QString>("sentence");
    QTest::addColumn<QString>("csv");

    QTest::newRow("a start") << dataset(3, 1, 1550782004, "0,21.5,180,1,-1,9")
                             << QStringLiteral("3,3,2019-02-21 20:46:44,1550782004,0,s,0,21.5,180,1,-1\r\n");
    QTest::newRow("a video's entry before its time is completed")
        << dataset(4, 10, 60, "12.345678,20,1,2,3,9")
        << QStringLiteral("4,4,1970-01-01 00:01:00,60,60,v,12.3457,20,1,2,3\r\n");
    QTest::newRow("an entry of no kind")
        << dataset(4, 0, 60) << QStringLiteral("4,4,1970-01-01 00:01:00,60,60, ,1,2,3,4,5\r\n");
}

void TestRecord::line()
{
    QFETCH(QString, sentence);
    QFETCH(QString, csv);

    QCOMPARE(Record(sentence).toCSV(), csv);

    Record relative(sentence);
    relative.number = -12;
    QCOMPARE(relative.toCSV(), QStringLiteral("-12") + csv.mid(csv.indexOf(QLatin1Char(','))));
}

void TestRecord::setbits_data()
{
    QTest::addColumn<int>("value");
    QTest::addColumn<int>("field");
    QTest::addColumn<int>("shift");
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("result");

    const auto row = [](const char *name, int value, int field, int shift, int width, int result) {
        QTest::newRow(name) << value << field << shift << width << result;
    };
    row("the low half", 0x12345678, 0x0000abcd, 0, 16, 0x1234abcd);
    row("only the field's low bits count", 0x12345678, 0x7fffabcd, 0, 16, 0x1234abcd);
    row("all", 0x12345678, 0x0abcdef0, 0, 32, 0x0abcdef0);
    row("all, negative", 0x12345678, -2, 0, 32, -2);
    row("none", 0x12345678, -1, 8, 0, 0x12345678);
    row("a byte in the middle", 0x12345678, 0xab, 8, 8, 0x1234ab78);
    row("the high half", 0x12345678, 0x7abc, 16, 16, 0x7abc5678);
    row("the sign bit set", 0, 1, 31, 1, least);
    row("the sign bit cleared", -1, 0, 31, 1, most);
    row("bits beyond the highest are lost", 0, 0xff, 28, 8, -0x10000000);
    row("31 bits", least, -1, 0, 31, -1);
    row("one bit", 0, 1, 0, 1, 1);
}

void TestRecord::setbits()
{
    QFETCH(int, value);
    QFETCH(int, field);
    QFETCH(int, shift);
    QFETCH(int, width);
    QFETCH(int, result);

    QCOMPARE(Record::setbits(value, field, shift, width), result);
}

KELPORA_TEST_MAIN(TestRecord)
#include "tst_record.moc"
