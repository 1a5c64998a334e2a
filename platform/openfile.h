#pragma once

#include <QFile>

/// Whether the path by which `file` was opened still leads to it. False where the system doesn't tell.
[[nodiscard]] bool isInPlace(const QFile &file);
