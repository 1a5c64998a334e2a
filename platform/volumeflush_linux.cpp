#include "platform/descriptor.h"
#include "platform/stopflag.h"
#include "platform/unsupported.h"
#include "platform/volumeflush.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <fcntl.h>
#include <map>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

struct VolumeFlush::Volumes
{
    struct Volume
    {
        QString folder;  ///< one that is on it
        Descriptor file; ///< on it, if one could be had
    };
    std::map<dev_t, Volume> byDevice;
};

namespace {

/// Whether a copy still stands where it was put.
Flushed lookFor(const QString &path)
{
    struct stat status = {};
    if (::lstat(QFile::encodeName(path).constData(), &status) != 0) {
        // A folder that was locked meanwhile hides its copies, and says nothing of the disk.
        if (errno == EACCES)
            return Flushed::All;
        return errno == ENOENT || errno == ENOTDIR ? Flushed::AllThatIsThere : Flushed::Failed;
    }
    return S_ISREG(status.st_mode) ? Flushed::All : Flushed::AllThatIsThere;
}

/// The device that a folder lies on or, where it is gone, its nearest parent that is there.
dev_t deviceBelow(const QString &folder)
{
    struct stat status = {};
    QString path = folder;
    while (::stat(QFile::encodeName(path).constData(), &status) != 0) {
        const QString parent = QFileInfo(path).path();
        if (parent == path)
            return 0;
        path = parent;
    }
    return status.st_dev;
}

/// Whether a volume still takes writes, as far as it tells. One that met an error may go on read-only, with
/// what it had not written lost, and has nothing to flush then.
bool isWritable(int file)
{
    struct statvfs status = {};
    return ::fstatvfs(file, &status) != 0 || (status.f_flag & ST_RDONLY) == 0;
}

} // namespace

VolumeFlush::VolumeFlush()
    : volumes_(std::make_unique<Volumes>())
{
}

VolumeFlush::~VolumeFlush() = default;

void VolumeFlush::watch(const QString &folder)
{
    struct stat status = {};
    if (::stat(QFile::encodeName(folder).constData(), &status) != 0)
        return;
    Volumes::Volume &volume = volumes_->byDevice[status.st_dev];
    if (volume.file.isOpen())
        return;
    // syncfs() reports the errors since its descriptor was opened, to every descriptor once.
    volume.folder = folder;
    volume.file = Descriptor(folder, O_RDONLY | O_DIRECTORY);
    // A folder may be open for writing only; a file without a name is on the same volume.
    constexpr mode_t ownerOnly = 0600;
    if (!volume.file.isOpen() && errno == EACCES)
        volume.file = Descriptor(folder, O_TMPFILE | O_WRONLY, ownerOnly);
}

Flushed VolumeFlush::finish(const QStringList &files, const StopFlag &stop, QStringList *gone) const
{
    if (files.isEmpty())
        return Flushed::All;
    bool whole = true;
    for (const QString &path : files) {
        const Flushed finished = lookFor(path);
        if (finished == Flushed::Failed || stop.isRaised())
            return Flushed::Failed;
        if (finished == Flushed::AllThatIsThere) {
            whole = false;
            if (gone != nullptr)
                gone->append(path);
        }
    }
    // Each volume is flushed, whatever another one says.
    bool failed = volumes_->byDevice.empty();
    for (const auto &[device, volume] : volumes_->byDevice) {
        const int file = volume.file.get();
        // syncfs() doesn't reach what runs a volume of FUSE, such as exFAT: it has its disk flush for an
        // fsync().
        const bool flushed =
            ::syncfs(file) == 0 && (::fsync(file) == 0 || isUnsupported(errno)) && isWritable(file);
        failed = failed || !flushed || deviceBelow(volume.folder) != device;
    }
    if (failed)
        return Flushed::Failed;
    return whole ? Flushed::All : Flushed::AllThatIsThere;
}
