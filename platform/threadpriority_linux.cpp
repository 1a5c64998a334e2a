#include "platform/threadpriority.h"

#include <sys/resource.h>
#include <unistd.h>

void lowerThreadPriority()
{
    // About a tenth of the main thread's weight. 0 is the calling thread, not its process.
    constexpr int below = 10;
    const int mainThread = ::getpriority(PRIO_PROCESS, static_cast<id_t>(::getpid()));
    static_cast<void>(::setpriority(PRIO_PROCESS, 0, mainThread + below));
}
