#include "platform/copycontent.h"
#include "platform/stopflag.h"

#include <QFile>

#include <cerrno>
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

CopyResult copyContent(QFile &source, QFile &target, const StopFlag &stop)
{
    copyfile_state_t state = copyfile_state_alloc();
    copyfile_state_set(state, COPYFILE_STATE_STATUS_CB, reinterpret_cast<const void *>(&onProgress));
    copyfile_state_set(state, COPYFILE_STATE_STATUS_CTX, &stop);
    const bool copied = ::fcopyfile(source.handle(), target.handle(), state, COPYFILE_DATA) == 0;
    const int error = errno;
    copyfile_state_free(state);
    if (stop.isRaised())
        return {CopyResult::End::Stopped};
    if (copied)
        return {};
    // It doesn't say which side failed: a read error is told by another read at the place where it stopped.
    char byte = 0;
    const off_t stoppedAt = ::lseek(source.handle(), 0, SEEK_CUR);
    const bool readable = ::pread(source.handle(), &byte, 1, stoppedAt) >= 0;
    return {readable ? CopyResult::End::WriteFailed : CopyResult::End::ReadFailed, qt_error_string(error)};
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
