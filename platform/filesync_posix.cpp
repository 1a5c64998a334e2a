#include "platform/descriptor.h"
#include "platform/filesync.h"
#include "platform/unsupported.h"

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
    return ::fsync(file) == 0 || isUnsupported(errno);
}

} // namespace

bool syncToDisk(QFileDevice &file)
{
    return file.flush() && reachesDisk(file.handle());
}

bool syncFolder(const QString &folder)
{
    const Descriptor file(folder, O_RDONLY | O_DIRECTORY);
    return file.isOpen() ? reachesDisk(file.get()) : errno == EACCES;
}
