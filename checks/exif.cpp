#include "checks/exif.h"

#include <QByteArray>
#include <QDateTime>
#include <QIODevice>
#include <QtEndian>

#include <algorithm>
#include <utility>

namespace {

constexpr int mostSegments = 1000;
constexpr int mostEntries = 1000;
constexpr int entrySize = 12;

constexpr quint16 exifTag = 0x8769; ///< where the table of Exif begins
constexpr quint16 dateTimeOriginalTag = 0x9003;
constexpr quint16 subSecTimeOriginalTag = 0x9291;

QByteArray readAt(QIODevice &file, qint64 position, qint64 size)
{
    return file.seek(position) ? file.read(size) : QByteArray();
}

/// Where the TIFF structure begins in a JPEG: in its segment APP1 that starts with "Exif". -1 without one.
qint64 findExif(QIODevice &file)
{
    qint64 position = 2;
    for (int segments = 0; segments < mostSegments; ++segments) {
        const QByteArray head = readAt(file, position, 10);
        if (head.size() < 10 || head.at(0) != '\xff')
            return -1;
        const auto marker = static_cast<uchar>(head.at(1));
        if (marker == 0xff) { // a fill byte
            ++position;
            continue;
        }
        if (marker == 0xda || marker == 0xd9) // the picture, the end
            return -1;
        if (marker == 0xe1 && head.mid(4) == QByteArray("Exif\0\0", 6))
            return position + head.size();
        position += 2 + qFromBigEndian<quint16>(head.constData() + 2);
    }
    return -1;
}

/// The tables of a TIFF structure, of either byte order, whose offsets count from `begin`.
class Tiff
{
public:
    Tiff(QIODevice &file, qint64 begin)
        : file_(file)
        , begin_(begin)
    {
        const QByteArray head = readAt(file, begin, 8);
        bigEndian_ = head.startsWith(QByteArray("MM\0\x2a", 4));
        if (bigEndian_ || head.startsWith(QByteArray("II\x2a\0", 4)))
            first_ = head.size() == 8 ? number<quint32>(head, 4) : 0;
    }

    /// Offset of the first table; 0 if this is no TIFF.
    [[nodiscard]] quint32 first() const { return first_; }

    /// The entry `tag` of the table at `offset`; empty without one.
    [[nodiscard]] QByteArray entry(quint32 offset, quint16 tag) const
    {
        const QByteArray count = readAt(file_, begin_ + offset, 2);
        if (offset == 0 || count.size() < 2)
            return {};
        const int entries = std::min<int>(number<quint16>(count, 0), mostEntries);
        const QByteArray table = file_.read(qint64{entries} * entrySize);
        for (int at = 0; at + entrySize <= table.size(); at += entrySize) {
            if (number<quint16>(table, at) == tag)
                return table.mid(at, entrySize);
        }
        return {};
    }

    [[nodiscard]] quint32 offsetIn(const QByteArray &entry) const
    {
        return entry.isEmpty() ? 0 : number<quint32>(entry, 8);
    }

    /// The text of an entry, up to 32 letters.
    [[nodiscard]] QByteArray text(const QByteArray &entry) const
    {
        constexpr quint16 ascii = 2;
        if (entry.isEmpty() || number<quint16>(entry, 2) != ascii)
            return {};
        const quint32 size = std::min<quint32>(number<quint32>(entry, 4), 32);
        const QByteArray bytes =
            size <= 4 ? entry.mid(8, static_cast<int>(size)) : readAt(file_, begin_ + offsetIn(entry), size);
        return bytes.left(bytes.indexOf('\0')).trimmed();
    }

private:
    template <typename Number>
    [[nodiscard]] Number number(const QByteArray &bytes, int position) const
    {
        const char *at = bytes.constData() + position;
        return bigEndian_ ? qFromBigEndian<Number>(at) : qFromLittleEndian<Number>(at);
    }

    QIODevice &file_;
    qint64 begin_;
    bool bigEndian_ = false;
    quint32 first_ = 0;
};

} // namespace

RecordingTime readPhotoTime(QIODevice &file)
{
    const bool jpeg = readAt(file, 0, 2) == "\xff\xd8";
    const qint64 begin = jpeg ? findExif(file) : 0;
    if (begin < 0)
        return failed(QStringLiteral("no Exif data"));
    const Tiff tiff(file, begin);
    if (tiff.first() == 0)
        return failed(jpeg ? QStringLiteral("its Exif data is damaged")
                           : QStringLiteral("no photo, or damaged"));

    const quint32 exif = tiff.offsetIn(tiff.entry(tiff.first(), exifTag));
    // A DNG may have it in the first table too (TIFF/EP).
    quint32 table = exif;
    QByteArray taken = tiff.text(tiff.entry(exif, dateTimeOriginalTag));
    if (taken.isEmpty()) {
        table = tiff.first();
        taken = tiff.text(tiff.entry(table, dateTimeOriginalTag));
    }
    QDateTime moment =
        QDateTime::fromString(QString::fromLatin1(taken), QStringLiteral("yyyy:MM:dd hh:mm:ss"));
    moment.setTimeSpec(Qt::UTC);
    if (!moment.isValid())
        return failed(QStringLiteral("its Exif data has no time"));

    RecordingTime time;
    const QByteArray fraction =
        tiff.text(tiff.entry(table, subSecTimeOriginalTag)).left(3).leftJustified(3, '0');
    bool isNumber = false;
    const uint milliseconds = fraction.toUInt(&isNumber);
    time.start = moment.toMSecsSinceEpoch() + (isNumber ? milliseconds : 0);
    return time;
}
