#include "platform/desktop.h"

#include <windows.h>

class Desktop::Private
{
};

Desktop::Desktop() = default;

Desktop::~Desktop()
{
    allowSleep();
}

// The state is that of the calling thread, and ends with it.
void Desktop::preventSleep(const QString & /*reason*/)
{
    SetThreadExecutionState(ES_CONTINUOUS | ES_SYSTEM_REQUIRED);
}

void Desktop::allowSleep()
{
    SetThreadExecutionState(ES_CONTINUOUS);
}

void Desktop::notify(const QString & /*program*/, const QString & /*text*/) {}

bool Desktop::close()
{
    allowSleep();
    return true;
}
