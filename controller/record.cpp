#include "controller/record.h"

#include "controller/nmea0183.h"

#include <QLocale>

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

void Record::fromNmea(const QString &line)
{
    Nmea sentence(line.toStdString());
    if (!sentence.ChecksumValidate() || sentence.NumFields() < fieldCount ||
        sentence.FieldAsString(0) != "$PSEADATA")
        return;
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
    datetime = QDateTime::fromSecsSinceEpoch(timestamp);
}

void Record::correctTimestamp(int start)
{
    startTimestamp = start;
    timestamp = setbits(start, timestamp, 0, timeBits);
    datetime = QDateTime::fromSecsSinceEpoch(timestamp);
}

QString Record::headingCSV()
{
    return QStringLiteral(
        "Number,Id,Datetime,Timestamp,Runtime,Type,Depth,Temperature,Heading,Roll,Pitch\r\n");
}

QString Record::toCSV() const
{
    const qint64 runtime = qint64{timestamp} - startTimestamp;
    return QStringLiteral("%1,%2,%3,%4,%5,%6,%7,%8,%9,%10,%11\r\n")
        .arg(number)
        .arg(id)
        .arg(QLocale::c().toString(datetime, QStringLiteral("yyyy-MM-dd hh:mm:ss")))
        .arg(timestamp)
        .arg(runtime)
        .arg(QLatin1Char(type))
        .arg(depth)
        .arg(temperature)
        .arg(heading)
        .arg(roll)
        .arg(pitch);
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
