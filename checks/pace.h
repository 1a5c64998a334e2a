#pragma once

#include <QString>

/// The share done, the speed and the time left of a job that reads, such as " 45 %  120 MB/s  1:23 left":
/// `done` of `total` bytes after `seconds`. Empty while nothing can be told.
[[nodiscard]] QString paceOf(qint64 done, qint64 total, double seconds);
