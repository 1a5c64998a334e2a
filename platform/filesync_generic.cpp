#include "platform/filesync.h"

bool startSync(QFileDevice &file)
{
    return file.flush();
}

bool syncContent(QFileDevice &file, const StopFlag &stop)
{
    return !stop.isRaised() && file.flush();
}

bool syncToDisk(QFileDevice &file)
{
    return file.flush();
}

bool syncFolder(const QString &folder)
{
    Q_UNUSED(folder)
    return true;
}
