#include "controller/turnoff.h"

#include "controller/pseacomms.h"

void TurnOff::work(PSEAComms &link)
{
    step(QStringLiteral("Turning off ..."));
    link.skipUntilQuiet();
    done(link.off() ? QStringLiteral("Success. Controller is off")
                    : QStringLiteral("Error turning off: %1").arg(link.lastError_));
}
