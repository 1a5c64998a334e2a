#include "platform/nativefile_windows.h"

#include <QDir>
#include <qt_windows.h>

std::wstring nativePath(const QString &path)
{
    const QString native = QDir::toNativeSeparators(QDir::cleanPath(QDir().absoluteFilePath(path)));
    const bool onServer = native.startsWith(QStringLiteral("\\\\"));
    return ((onServer ? QString() : QStringLiteral("\\\\?\\")) + native).toStdWString();
}

bool flushToDisk(const QString &path)
{
    // A handle of its own: Qt hands out its own only as a number that is never given back, and of those there
    // are few.
    const HANDLE file =
        ::CreateFileW(nativePath(path).c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return false;
    const bool flushed = ::FlushFileBuffers(file) != 0;
    const DWORD error = ::GetLastError();
    ::CloseHandle(file);
    ::SetLastError(error);
    return flushed;
}
