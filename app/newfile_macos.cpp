#include "app/newfile.h"

#include <QFileInfo>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace {

/// On macOS fsync() ends at the drive's own memory.
bool sync(int file)
{
    return ::fcntl(file, F_FULLFSYNC) == 0 || ::fsync(file) == 0 || errno == EINVAL || errno == ENOTSUP;
}

} // namespace

bool syncToDisk(QFileDevice &file)
{
    return file.flush() && sync(file.handle());
}

bool syncFolder(const QString &folder)
{
    const int file = ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    // One that may only be written to.
    if (file < 0)
        return errno == EACCES;
    const bool synced = sync(file);
    ::close(file);
    return synced;
}

Publish renameNoReplace(const QString &from, const QString &to)
{
    if (::renamex_np(QFile::encodeName(from).constData(), QFile::encodeName(to).constData(), RENAME_EXCL) ==
        0)
        return Publish::Done;
    if (errno == EEXIST)
        return Publish::Exists;
    if (errno != ENOTSUP)
        return Publish::Failed;
    // A volume without exclusive renames. QFile would copy where it can't rename.
    if (QFile::exists(to) || QFileInfo(to).isSymLink())
        return Publish::Exists;
    return std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0
               ? Publish::Done
               : Publish::Failed;
}
