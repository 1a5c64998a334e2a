#include "tests/checks/recordingfiles.h"

#include <QPair>
#include <QVector>

namespace {

/// Numbers in either byte order.
struct Bytes
{
    bool big;
    [[nodiscard]] QByteArray two(quint16 number) const { return ordered(number); }
    [[nodiscard]] QByteArray four(quint32 number) const { return ordered(number); }

private:
    template <typename Number>
    [[nodiscard]] QByteArray ordered(Number number) const
    {
        return bigEndian<Number>(big ? number : qbswap(number));
    }
};

} // namespace

QByteArray box(const QByteArray &type, const QByteArray &content)
{
    return bigEndian(static_cast<quint32>(8 + content.size())) + type + content;
}

QByteArray wideBox(const QByteArray &type, const QByteArray &content)
{
    return bigEndian(quint32{1}) + type + bigEndian(16 + static_cast<quint64>(content.size())) + content;
}

QByteArray movieHeader(int version, quint64 created, quint64 duration, quint32 timescale)
{
    const auto time = [version](quint64 number) {
        return version == 1 ? bigEndian(number) : bigEndian(static_cast<quint32>(number));
    };
    // Rate, volume, matrix and so on follow.
    return box("mvhd", QByteArray(1, static_cast<char>(version)) + QByteArray(3, '\0') + time(created) +
                           time(created + 1) + bigEndian(timescale) + time(duration) + QByteArray(80, '\0'));
}

QByteArray movie(const QDateTime &start, qint64 length)
{
    const auto created = static_cast<quint64>(start.toSecsSinceEpoch() + 2082844800);
    return box("ftyp", "qt  ") + box("mdat", QByteArray(100, 'x')) +
           box("moov", movieHeader(0, created, static_cast<quint64>(length)));
}

QByteArray tiff(const QByteArray &taken, const QByteArray &fraction, bool big, bool inFirstTable)
{
    const Bytes bytes = {big};
    QVector<QPair<quint16, QByteArray>> texts;
    if (!taken.isEmpty())
        texts.append({0x9003, taken + '\0'});
    if (!fraction.isEmpty())
        texts.append({0x9291, fraction + '\0'});

    const quint32 first = 8;
    const quint32 second = inFirstTable ? first : first + 2 + 12 + 4;
    quint32 textAt = second + 2 + 12 * static_cast<quint32>(texts.size()) + 4;
    QByteArray table = bytes.two(static_cast<quint16>(texts.size()));
    QByteArray tail;
    for (const auto &[tag, text] : qAsConst(texts)) {
        const auto size = static_cast<quint32>(text.size());
        table += bytes.two(tag) + bytes.two(2) + bytes.four(size);
        if (size <= 4) {
            table += text.leftJustified(4, '\0');
        } else {
            table += bytes.four(textAt);
            tail += text;
            textAt += size;
        }
    }
    table += bytes.four(0);
    const QByteArray head = (big ? QByteArray("MM") : QByteArray("II")) + bytes.two(42) + bytes.four(first);
    if (inFirstTable)
        return head + table + tail;
    return head + bytes.two(1) + bytes.two(0x8769) + bytes.two(4) + bytes.four(1) + bytes.four(second) +
           bytes.four(0) + table + tail;
}

QByteArray jpeg(const QByteArray &tiff)
{
    const auto segment = [](char marker, const QByteArray &content) {
        return QByteArray("\xff") + marker + bigEndian(static_cast<quint16>(2 + content.size())) + content;
    };
    return "\xff\xd8" + segment('\xe0', QByteArray("JFIF\0\1\2\0\0\1\0\1\0\0", 14)) +
           segment('\xe1', QByteArray("Exif\0\0", 6) + tiff) + segment('\xda', QByteArray(10, '\0')) +
           QByteArray(100, 'x') + "\xff\xd9";
}

QByteArray photo(const QDateTime &start)
{
    return jpeg(tiff(start.toString(QStringLiteral("yyyy:MM:dd hh:mm:ss")).toLatin1(),
                     start.toString(QStringLiteral("zzz")).toLatin1()));
}
