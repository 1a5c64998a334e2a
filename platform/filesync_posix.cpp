#include "platform/filesync.h"

#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace {

bool reachesDisk(int file)
{
#ifdef F_FULLFSYNC
    // On macOS fsync() ends at the drive's own memory.
    if (::fcntl(file, F_FULLFSYNC) == 0)
        return true;
#endif
    return ::fsync(file) == 0 || errno == EINVAL || errno == ENOSYS || errno == ENOTSUP;
}

} // namespace

bool syncToDisk(QFileDevice &file)
{
    return file.flush() && reachesDisk(file.handle());
}

bool syncFolder(const QString &folder)
{
    const int file = ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (file < 0)
        return errno == EACCES;
    const bool synced = reachesDisk(file);
    const int error = errno;
    ::close(file);
    errno = error;
    return synced;
}
