#include "platform/filesync.h"
#include "platform/nativefile_windows.h"

#include <qt_windows.h>

#include <io.h>

bool startSync(QFileDevice &file)
{
    return file.flush();
}

bool syncContent(QFileDevice &file, const StopFlag &stop)
{
    return !stop.isRaised() && file.flush() && flushToDisk(file.fileName());
}

bool syncToDisk(QFileDevice &file)
{
    // Not by its name: a QSaveFile tells the one that it will have. The number that stands for Qt's handle is
    // lost for good, which for the few files that are replaced does no harm.
    return file.flush() && ::FlushFileBuffers(reinterpret_cast<HANDLE>(::_get_osfhandle(file.handle()))) != 0;
}

bool syncFolder(const QString &folder)
{
    // There is no such request.
    Q_UNUSED(folder)
    return true;
}
