#include "platform/portaccess.h"

PortAccess portAccess(const QString & /*device*/)
{
    return {};
}

QStringList brailleDevices()
{
    return {};
}
