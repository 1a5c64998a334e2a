#include "controller/memoryjobs.h"

#include "controller/pseacomms.h"

#include <utility>

EraseMemory::EraseMemory(ControllerRequest request, QString serial)
    : ControllerJob(std::move(request))
    , serial_(std::move(serial))
{
}

bool EraseMemory::endsEarly() const
{
    // At exit the controller would be turned off in the middle of it. While it runs, it holds the port.
    return false;
}

void EraseMemory::work(PSEAComms &link)
{
    // Ports are given out anew: the next rig often gets the name of the one before.
    if (!serial_.isEmpty() && link.serialNumber() != serial_) {
        report({0, 2, 2, QStringLiteral("Error: Another device is connected now. Nothing was erased.")});
        return;
    }
    report({0, 2, 1, QStringLiteral("Erasing memory ...")});
    report({0, 2, 2,
            link.eraseData() ? QStringLiteral("Success. Memory erased.")
                             : QStringLiteral("Error erasing memory: %1").arg(link.lastError_)});
}

void TurnOff::work(PSEAComms &link)
{
    report({0, 2, 1, QStringLiteral("Turning off ...")});
    report({0, 2, 2,
            link.off() ? QStringLiteral("Success. Controller is off")
                       : QStringLiteral("Error turning off: %1").arg(link.lastError_)});
}
