// A dump's line: as it came, and as the fields of a sentence whose checksum is right.

#include "controller/record.h"

#include "controller/nmea0183.h"
#include "fuzz/target.h"

namespace {

void Read(const QString &line)
{
    Record record(line);
    HOLDS(record.toCSV().count(QLatin1Char(',')) == 10 && record.toCSV().indexOf(QLatin1Char('\n')) > 0);
    const int low = record.timestamp;
    record.correctTimestamp(record.number);
    HOLDS((record.timestamp & 0xffff) == (low & 0xffff));
    HOLDS(record.toCSV().count(QLatin1Char(',')) == 10 && record.toCSV().endsWith(QStringLiteral("\r\n")));
    // What was replaced can be put back.
    const int shift = record.flags & 31;
    for (int width = 0; width <= 32 - shift; ++width) {
        const int replaced = Record::setbits(record.id, record.timestamp, shift, width);
        const auto old = static_cast<int>(static_cast<quint32>(record.id) >> shift);
        HOLDS(Record::setbits(replaced, old, shift, width) == record.id);
    }
    const QString before = record.toCSV();
    record.fromNmea(QStringLiteral("$PSEAMSG*00"));
    HOLDS(record.toCSV() == before);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    SilenceErrors();
    const std::string text(reinterpret_cast<const char *>(data), size);
    Read(QString::fromStdString(text));
    Nmea sentence("$PSEADATA");
    // Only text that stays the same in both directions keeps its checksum.
    sentence.AddString(QString::fromStdString(text).toStdString());
    sentence.AddChecksum();
    Read(QString::fromStdString(sentence.GetSentence()));
    return 0;
}
