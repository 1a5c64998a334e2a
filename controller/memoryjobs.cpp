#include "controller/memoryjobs.h"

#include "controller/pseacomms.h"

bool EraseMemory::endsEarly() const
{
    // At exit the controller would be turned off in the middle of it. While it runs, it holds the port.
    return false;
}

void EraseMemory::work(PSEAComms &link)
{
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
