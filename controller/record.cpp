#include "controller/record.h"

#include "controller/nmea0183.h"

#include <QLocale>
#include <QStringList>

namespace {

constexpr int startFlag = 1;
constexpr int recordingFlag = 2;
constexpr int videoFlag = 8;
constexpr int photoFlag = 16;
constexpr int timeBits = 16;

} // namespace

Record::Record(const QString &line)
{
    fromNmea(line);
}

// The system is asked for its time zone with every local time: once for each line of a dump is enough.
Record::Record(const QString &line, int start)
{
    if (!takeFields(line))
        return;
    if (type == 's')
        setTime(timestamp);
    else
        correctTimestamp(start);
}

void Record::fromNmea(const QString &line)
{
    if (takeFields(line))
        setTime(timestamp);
}

/// All but the local time. False, and nothing taken, if the line is no whole entry.
bool Record::takeFields(const QString &line)
{
    Nmea sentence(line.toStdString());
    if (!sentence.ChecksumValidate() || sentence.NumFields() < fieldCount ||
        sentence.FieldAsString(0) != "$PSEADATA")
        return false;
    id = sentence.FieldAsInt(1);
    number = id;
    flags = sentence.FieldAsInt(2);
    timestamp = sentence.FieldAsInt(3);
    depth = sentence.FieldAsDouble(4);
    temperature = sentence.FieldAsDouble(5);
    heading = sentence.FieldAsDouble(6);
    roll = sentence.FieldAsDouble(7);
    pitch = sentence.FieldAsDouble(8);
    reserved = sentence.FieldAsDouble(9);

    if ((flags & startFlag) != 0) {
        type = 's';
        startTimestamp = timestamp;
    } else if ((flags & recordingFlag) != 0) {
        if ((flags & videoFlag) != 0)
            type = 'v';
        else if ((flags & photoFlag) != 0)
            type = 'p';
    }
    return true;
}

void Record::setTime(int seconds)
{
    timestamp = seconds;
    datetime = QDateTime::fromSecsSinceEpoch(seconds);
}

void Record::correctTimestamp(int start)
{
    startTimestamp = start;
    setTime(setbits(start, timestamp, 0, timeBits));
}

QString Record::headingCSV()
{
    return QStringLiteral(
        "Number,Id,Datetime,Timestamp,Runtime,Type,Depth,Temperature,Heading,Roll,Pitch\r\n");
}

QString Record::toCSV() const
{
    // A dump has 100,000 lines, and QString::arg() would go through each eleven times.
    const QStringList columns = {
        QString::number(number),
        QString::number(id),
        QLocale::c().toString(datetime, QStringLiteral("yyyy-MM-dd hh:mm:ss")),
        QString::number(timestamp),
        QString::number(qint64{timestamp} - startTimestamp),
        QString(QLatin1Char(type)),
        QString::number(depth),
        QString::number(temperature),
        QString::number(heading),
        QString::number(roll),
        QString::number(pitch),
    };
    return columns.join(QLatin1Char(',')) + QStringLiteral("\r\n");
}

int Record::setbits(int value, int field, int shift, int width)
{
    constexpr int intBits = 32;
    const quint32 low = width >= intBits ? ~quint32{0} : (quint32{1} << width) - 1;
    const quint32 mask = low << shift;
    const quint32 bits =
        (static_cast<quint32>(value) & ~mask) | ((static_cast<quint32>(field) & low) << shift);
    return static_cast<int>(bits);
}
