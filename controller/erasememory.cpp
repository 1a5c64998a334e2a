#include "controller/erasememory.h"

#include "controller/pseacomms.h"

#include <utility>

EraseMemory::EraseMemory(ControllerRequest request, QString serial)
    : ControllerJob(std::move(request))
    , serial_(std::move(serial))
{
    // At exit the controller would be turned off in the middle of it. While it runs, it holds the port.
    request_.endsEarly = false;
}

void EraseMemory::work(PSEAComms &link)
{
    // Ports are given out anew: the next rig often gets the name of the one before.
    if (!serial_.isEmpty() && link.serialNumber() != serial_) {
        done(QStringLiteral("Error: Another device is connected now. Nothing was erased."));
        return;
    }
    step(QStringLiteral("Erasing memory ..."));
    done(link.eraseData() ? QStringLiteral("Success. Memory erased.")
                          : QStringLiteral("Error erasing memory: %1").arg(link.lastError_));
}
