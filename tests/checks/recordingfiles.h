#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QtEndian>

/// A number of `Number`'s size, the most significant byte first.
template <typename Number>
[[nodiscard]] QByteArray bigEndian(Number number)
{
    QByteArray bytes(static_cast<int>(sizeof(Number)), '\0');
    qToBigEndian(number, bytes.data());
    return bytes;
}

/// A box of ISO/IEC 14496-12.
[[nodiscard]] QByteArray box(const QByteArray &type, const QByteArray &content);
/// The same with a 64-bit size.
[[nodiscard]] QByteArray wideBox(const QByteArray &type, const QByteArray &content);

/// The box "mvhd" in version 0 or 1. `created` counts seconds since 1904.
[[nodiscard]] QByteArray movieHeader(int version, quint64 created, quint64 duration,
                                     quint32 timescale = 1000);

/// A movie that a camera began at `start`, with some bytes for a picture.
[[nodiscard]] QByteArray movie(const QDateTime &start, qint64 length);

/// A TIFF structure as in Exif. An empty text leaves its entry out; `inFirstTable` puts the entries where a
/// DNG may.
[[nodiscard]] QByteArray tiff(const QByteArray &taken, const QByteArray &fraction = {},
                              bool bigEndian = false, bool inFirstTable = false);
/// A JPEG with this TIFF structure, after a segment of its own.
[[nodiscard]] QByteArray jpeg(const QByteArray &tiff);
/// A JPEG that a camera took at `start`.
[[nodiscard]] QByteArray photo(const QDateTime &start);
