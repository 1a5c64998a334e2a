#pragma once

#include <QString>
#include <QStringList>

/// What the system tells about who may use a serial port. Whatever it doesn't tell speaks for the port.
struct PortAccess
{
    bool mayOpen = true;    ///< this process may read and write the port
    bool nextLogin = false; ///< the user is in `group` already, but was not at the last login
    QString group;          ///< whose members may; empty if there is no such group, or only root's
    bool modemManager =
        false; ///< a modem manager runs, or starts with the system, and may talk to the port first
};

/// Of the serial device `device` ("/dev/ttyUSB0"), which is not opened.
[[nodiscard]] PortAccess portAccess(const QString &device);

/// The USB devices that a braille daemon claims and so takes away from the serial ports, as "1a86:7523".
[[nodiscard]] QStringList brailleDevices();
