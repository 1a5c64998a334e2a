#include "platform/filesync.h"
#include "platform/unsupported.h"
#include "platform/writeback_linux.h"

#include <cerrno>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace {

/// Whether a rename reaches the disk no earlier than what was written before it. Others, such as exFAT and
/// network shares, take what they were told to write as they like, or have a cache below them.
bool keepsOrder(int file)
{
    struct statfs volume = {};
    if (::fstatfs(file, &volume) != 0)
        return false;
    switch (volume.f_type) {
    case EXT4_SUPER_MAGIC:
    case XFS_SUPER_MAGIC:
    case BTRFS_SUPER_MAGIC:
    case TMPFS_MAGIC:
        return true;
    default:
        return false;
    }
}

} // namespace

bool startSync(QFileDevice &file)
{
    struct stat status = {};
    return file.flush() && ::fstat(file.handle(), &status) == 0 &&
           startWriteback(file.handle(), 0, status.st_size);
}

bool syncContent(QFileDevice &file, const StopFlag &stop)
{
    struct stat status = {};
    return file.flush() && ::fstat(file.handle(), &status) == 0 &&
           finishWriteback(file.handle(), 0, status.st_size, stop) &&
           (keepsOrder(file.handle()) || ::fsync(file.handle()) == 0 || isUnsupported(errno));
}
