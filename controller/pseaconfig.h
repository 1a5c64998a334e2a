#pragma once

#include <QString>
#include <QVariantList>

class PSEAComms;

/// The controller's settings as the user edited them.
struct PSEAConfig
{
    QString text;                 ///< empty
    qint32 recLedOn = 0;          ///< 1 while the LED is to be on when recording
    qint32 loggingInterval = 0;   ///< milliseconds
    qint32 timelapseInterval = 0; ///< milliseconds
    qint32 timelapseTimeout = 0;  ///< minutes
    qint32 e1FirmwareVersion = 0; ///< camera firmware generation: 26, 29 or 30

    /// From the settings page: intervals in seconds, the time-out in minutes; fractions are cut off.
    [[nodiscard]] static PSEAConfig fromUser(int recLedOn, double loggingSeconds, double timelapseSeconds,
                                             double timeoutMinutes, int e1FirmwareVersion);
};

/// The clock value to send: `date` ("yyyy-MM-dd hh:mm:ss", local) in seconds since the epoch; now if it is no
/// date.
[[nodiscard]] quint32 clockValue(const QString &date);

/// The battery's charge as text, "-" for an unknown voltage.
[[nodiscard]] QString voltsToPercent(double volts);
