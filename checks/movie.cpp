#include "checks/movie.h"

#include <QByteArray>
#include <QIODevice>
#include <QtEndian>

#include <algorithm>
#include <limits>
#include <utility>

namespace {

/// Cameras write about ten. A damaged file could have one in every eight bytes.
constexpr int mostBoxes = 10000;

/// 1904-01-01 to 1970-01-01.
constexpr qint64 epochDifference = 2082844800;

template <typename Number>
Number numberAt(const QByteArray &bytes, int position)
{
    return qFromBigEndian<Number>(bytes.constData() + position);
}

QByteArray readAt(QIODevice &file, qint64 position, qint64 size)
{
    return file.seek(position) ? file.read(size) : QByteArray();
}

/// What lies in a box, from `begin` up to `end`; or why there is none.
struct Content
{
    qint64 begin = 0;
    qint64 end = 0;
    QString problem;
};

Content noContent(const QString &problem)
{
    return {0, 0, problem};
}

/// Looks for the first box `type` among those from `begin` up to `end`.
Content findBox(QIODevice &file, const QByteArray &type, qint64 begin, qint64 end)
{
    qint64 position = begin;
    for (int boxes = 0; end - position >= 8; ++boxes) {
        if (boxes == mostBoxes)
            return noContent(QStringLiteral("too many boxes for a movie"));
        const QByteArray header = readAt(file, position, 16);
        if (header.size() < 8)
            return noContent(QStringLiteral("can't be read to its end"));
        quint64 size = numberAt<quint32>(header, 0);
        int headerSize = 8;
        if (size == 1 && header.size() == 16) {
            size = numberAt<quint64>(header, 8);
            headerSize = 16;
        } else if (size == 0) {
            size = static_cast<quint64>(end - position);
        }
        if (size < static_cast<quint64>(headerSize))
            return noContent(QStringLiteral("no movie, or damaged"));
        if (size > static_cast<quint64>(end - position))
            return noContent(QStringLiteral("cut short, or no movie"));
        if (header.mid(4, 4) == type)
            return {position + headerSize, position + static_cast<qint64>(size), {}};
        position += static_cast<qint64>(size);
    }
    return noContent(
        QStringLiteral("no box \"%1\": the recording was not finished").arg(QString::fromLatin1(type)));
}

/// The length in ms of `duration` units, of which a second has `timescale`; -1 for one that nothing can last.
qint64 lengthOf(quint64 duration, quint32 timescale)
{
    if (timescale == 0)
        return -1;
    const double length = static_cast<double>(duration) * 1000 / timescale;
    return length < double{std::numeric_limits<qint32>::max()} ? static_cast<qint64>(length) : -1;
}

} // namespace

RecordingTime readMovieTime(QIODevice &file)
{
    const Content movie = findBox(file, "moov", 0, file.size());
    if (!movie.problem.isEmpty())
        return failed(movie.problem);
    const Content header = findBox(file, "mvhd", movie.begin, movie.end);
    if (!header.problem.isEmpty())
        return failed(header.problem);

    // Version and flags, creation, modification, timescale, duration.
    constexpr int size32 = 4 + 4 + 4 + 4 + 4;
    constexpr int size64 = 4 + 8 + 8 + 4 + 8;
    const QByteArray fields = readAt(file, header.begin, std::min<qint64>(size64, header.end - header.begin));
    const bool wide = !fields.isEmpty() && fields.at(0) == 1;
    if (fields.size() < (wide ? size64 : size32) || fields.at(0) < 0 || fields.at(0) > 1)
        return failed(QStringLiteral("its movie header is damaged"));

    RecordingTime time;
    const quint64 created = wide ? numberAt<quint64>(fields, 4) : numberAt<quint32>(fields, 4);
    const quint64 duration = wide ? numberAt<quint64>(fields, 24) : numberAt<quint32>(fields, 16);
    const bool unknown = duration == (wide ? std::numeric_limits<quint64>::max()
                                           : quint64{std::numeric_limits<quint32>::max()});
    time.length = unknown ? -1 : lengthOf(duration, numberAt<quint32>(fields, wide ? 20 : 12));
    // The times of version 0 end in 2040.
    if (created == 0 || created >= quint64{1} << 33U)
        return failed(QStringLiteral("its movie header has no start time"));
    time.start = (static_cast<qint64>(created) - epochDifference) * 1000;
    return time;
}
