#include "platform/filesync.h"

bool syncToDisk(QFileDevice &file)
{
    return file.flush();
}

bool syncFolder(const QString &folder)
{
    Q_UNUSED(folder)
    return true;
}
