#pragma once

#include <QString>

/// A process that holds a serial device.
struct PortHolder
{
    QString process;       ///< its number; empty: there is none
    bool lockOnly = false; ///< a lock file names it, but whether it has opened the device isn't seen
    QString text;          ///< "minicom (process 7)"
};

/// Which other process holds the serial device `device`, as far as this user can tell. None if the system
/// doesn't tell.
[[nodiscard]] PortHolder portHolder(const QString &device);
