#pragma once

#include <QFile>

/// Whether the open file `file` still has a name. What is written to a file that was deleted is lost.
[[nodiscard]] bool hasName(const QFile &file);
