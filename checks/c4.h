#pragma once

#include <QByteArray>

/// The C4 ID (SMPTE ST 2114) of `content`: "c4" and its SHA-512 in base 58, 90 letters in all.
[[nodiscard]] QByteArray c4Of(const QByteArray &content);
