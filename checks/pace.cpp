#include "checks/pace.h"

#include <algorithm>

QString paceOf(qint64 done, qint64 total, double seconds)
{
    constexpr double megabyte = 1e6;
    constexpr int percent = 100;
    constexpr int percentWidth = 3;
    constexpr int secondsPerMinute = 60;
    const double speed = seconds > 0 ? static_cast<double>(done) / seconds : 0;
    if (total <= 0 || speed <= 0)
        return {};
    const auto left = static_cast<qint64>(static_cast<double>(std::max<qint64>(total - done, 0)) / speed);
    return QStringLiteral("%1 %  %2 MB/s  %3:%4 left")
        .arg(static_cast<int>(done * percent / total), percentWidth)
        .arg(speed / megabyte, 0, 'f', 0)
        .arg(left / secondsPerMinute)
        .arg(left % secondsPerMinute, 2, 10, QLatin1Char('0'));
}
