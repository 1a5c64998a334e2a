#include "platform/nativefile_windows.h"
#include "platform/newfile.h"

#include <qt_windows.h>

#include <cerrno>

bool renameExclusively(const QString &from, const QString &to)
{
    if (::MoveFileExW(nativePath(from).c_str(), nativePath(to).c_str(), MOVEFILE_WRITE_THROUGH) != 0)
        return true;
    const DWORD error = ::GetLastError();
    errno = error == ERROR_ALREADY_EXISTS || error == ERROR_FILE_EXISTS ? EEXIST : EIO;
    return false;
}
