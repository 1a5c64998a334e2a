#include "platform/descriptor.h"
#include "platform/stopflag.h"
#include "platform/volumeflush.h"

#include <cerrno>
#include <fcntl.h>
#include <map>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

struct VolumeFlush::Volumes
{
};

VolumeFlush::VolumeFlush() = default;

VolumeFlush::~VolumeFlush() = default;

void VolumeFlush::watch(const QString & /*folder*/) {}

Flushed VolumeFlush::finish(const QStringList &files, const StopFlag &stop, QStringList * /*gone*/) const
{
    // Network and some foreign volumes know only the plain flush.
    const auto flush = [](const Descriptor &file, int request) {
        return ::fcntl(file.get(), request) != -1 || ::fsync(file.get()) == 0;
    };
    std::map<dev_t, Descriptor> last; // of each volume
    for (const QString &path : files) {
        // What stands there may have become something else, such as a pipe that would wait for its writer.
        Descriptor file(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
        // A copy keeps the permissions of its source, also those that forbid to read it. One that can't be
        // found may have gone with the volume that it was written to.
        if (!file.isOpen() && errno == EACCES)
            continue;
        struct stat status = {};
        if (stop.isRaised() || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
            !flush(file, F_BARRIERFSYNC))
            return Flushed::Failed;
        last[status.st_dev] = std::move(file);
    }
    // Has the disk empty its own cache, which holds the volume's other files too.
    bool flushed = true;
    for (const auto &[device, file] : last)
        flushed = flush(file, F_FULLFSYNC) && flushed;
    return flushed ? Flushed::All : Flushed::Failed;
}
