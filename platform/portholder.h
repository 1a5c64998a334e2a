#pragma once

#include <QString>

/// Which other process holds the serial device `device`, as far as this user can tell: "minicom (process 7)".
/// Empty if none does, or the system doesn't tell.
[[nodiscard]] QString portHolder(const QString &device);
