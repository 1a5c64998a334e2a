#include "app/job.h"
#include "cards/platformcopy.h"

#include <QFile>

#include <copyfile.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

int onProgress(int /*what*/, int stage, copyfile_state_t /*state*/, const char * /*source*/,
               const char * /*target*/, void *context)
{
    const auto *stop = static_cast<const StopFlag *>(context);
    return stage == COPYFILE_PROGRESS && stop->isRaised() ? COPYFILE_QUIT : COPYFILE_CONTINUE;
}

} // namespace

bool copyContent(QFile &source, QFile &target, const StopFlag &stop)
{
    copyfile_state_t state = copyfile_state_alloc();
    copyfile_state_set(state, COPYFILE_STATE_STATUS_CB, reinterpret_cast<const void *>(&onProgress));
    copyfile_state_set(state, COPYFILE_STATE_STATUS_CTX, &stop);
    const int result = ::fcopyfile(source.handle(), target.handle(), state, COPYFILE_DATA);
    copyfile_state_free(state);
    return result == 0 && !stop.isRaised();
}

void copyAttributes(QFile &source, QFile &target)
{
    // Not with fcopyfile(): a recording that was locked in the camera would lock the copy before it has its
    // name.
    struct stat status = {};
    if (::fstat(source.handle(), &status) != 0)
        return;
    constexpr mode_t permissionBits = 0777;
    static_cast<void>(::fchmod(target.handle(), status.st_mode & permissionBits));
    const struct timespec times[2] = {status.st_atimespec, status.st_mtimespec};
    static_cast<void>(::futimens(target.handle(), times));
}

VolumeFlush::~VolumeFlush() = default;

void VolumeFlush::watch(const QString & /*folder*/) {}

bool VolumeFlush::finish(const QStringList &files, const StopFlag &stop) const
{
    bool flushed = true;
    for (const QString &path : files) {
        if (stop.isRaised())
            return false;
        QFile file(path);
        const bool last = &path == &files.last();
        // It went with the volume that it was written to.
        if (!file.exists())
            return false;
        if (file.open(QIODevice::ReadOnly))
            // Network and some foreign volumes know only the plain flush.
            flushed = (::fcntl(file.handle(), last ? F_FULLFSYNC : F_BARRIERFSYNC) != -1 ||
                       ::fsync(file.handle()) == 0) &&
                      flushed;
    }
    return flushed;
}
