#include "platform/filesync.h"

#include <fcntl.h>
#include <unistd.h>

bool startSync(QFileDevice &file)
{
    return file.flush();
}

bool syncContent(QFileDevice &file, const StopFlag &stop)
{
    // Network and some foreign volumes know only the plain flush.
    return !stop.isRaised() && file.flush() &&
           (::fcntl(file.handle(), F_BARRIERFSYNC) != -1 || ::fsync(file.handle()) == 0);
}
