#include "controller/pseaconfig.h"

#include <QDateTime>

#include <array>
#include <limits>

namespace {

/// The integer part; a value that an int can't hold, or no number at all, gives the nearest bound or 0.
qint32 truncated(double value)
{
    using Limits = std::numeric_limits<qint32>;
    if (value != value)
        return 0;
    if (value >= static_cast<double>(Limits::max()))
        return Limits::max();
    if (value <= static_cast<double>(Limits::min()))
        return Limits::min();
    return static_cast<qint32>(value);
}

} // namespace

PSEAConfig PSEAConfig::fromUser(int recLedOn, double loggingSeconds, double timelapseSeconds,
                                double timeoutMinutes, int e1FirmwareVersion)
{
    constexpr double msPerSecond = 1000;
    PSEAConfig config;
    config.recLedOn = recLedOn;
    config.loggingInterval = truncated(loggingSeconds * msPerSecond);
    config.timelapseInterval = truncated(timelapseSeconds * msPerSecond);
    config.timelapseTimeout = truncated(timeoutMinutes);
    config.e1FirmwareVersion = e1FirmwareVersion;
    return config;
}

quint32 clockValue(const QString &date)
{
    QDateTime time = QDateTime::fromString(date, QStringLiteral("yyyy-MM-dd hh:mm:ss"));
    if (!time.isValid())
        time = QDateTime::currentDateTimeUtc();
    return static_cast<quint32>(time.toSecsSinceEpoch());
}

QString voltsToPercent(double volts)
{
    struct Row
    {
        double below;
        const char *text;
    };
    constexpr std::array<Row, 11> rows = {{
        {0.5, "-"},
        {3.5, "Empty"},
        {3.57, "10 %"},
        {3.64, "20 %"},
        {3.71, "30 %"},
        {3.78, "40 %"},
        {3.85, "50 %"},
        {3.92, "60 %"},
        {3.99, "70 %"},
        {4.06, "80 %"},
        {4.13, "90 %"},
    }};
    for (const Row &row : rows) {
        if (volts < row.below)
            return QString::fromLatin1(row.text);
    }
    return QStringLiteral("100 %");
}
