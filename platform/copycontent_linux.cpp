#include "platform/copycontent.h"
#include "platform/stopflag.h"
#include "platform/volumeflush.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <linux/fs.h>
#include <memory>
#include <sys/ioctl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace {

constexpr off_t chunkSize = off_t{4} << 20;

/// How much is handed to the disk at once: in smaller pieces the handing over costs as much as the copying.
constexpr off_t writebackStep = off_t{16} << 20;

/// How much of a file may be waiting for the disk while it is copied. Keeps the disk writing while the card
/// is read, and keeps what the last flush has to wait for small.
constexpr off_t writebackWindow = off_t{64} << 20;

/// How a range gets from one descriptor to the other; the first that the two file systems support is kept.
enum class Method {
    CopyFileRange,
    SendFile,
    ReadWrite,
};

class RangeCopier
{
public:
    RangeCopier(int source, int target)
        : source_(source)
        , target_(target)
    {
    }

    /// Copies up to `size` bytes at `offset` to the same offset. Returns the number copied, 0 at the end of
    /// the source, -1 on an error; see failure().
    ssize_t copy(off_t offset, off_t size)
    {
        for (;;) {
            const ssize_t copied = attempt(offset, static_cast<std::size_t>(size));
            if (copied > 0)
                return copied;
            if (copied < 0 && errno == EINTR)
                continue;
            // Some file systems answer 0 instead of refusing, and no error of the others tells which side
            // failed: only plain reads and writes are believed.
            if (method_ == Method::ReadWrite)
                return copied;
            method_ = method_ == Method::CopyFileRange ? Method::SendFile : Method::ReadWrite;
        }
    }

    /// What made copy() fail, with errno.
    [[nodiscard]] CopyResult::End failure() const
    {
        return readFailed_ ? CopyResult::End::ReadFailed : CopyResult::End::WriteFailed;
    }

private:
    ssize_t attempt(off_t offset, std::size_t size)
    {
        switch (method_) {
        case Method::CopyFileRange: {
            off_t from = offset;
            off_t to = offset;
            return ::copy_file_range(source_, &from, target_, &to, size, 0);
        }
        case Method::SendFile: {
            off_t from = offset;
            if (::lseek(target_, offset, SEEK_SET) < 0)
                return -1;
            return ::sendfile(target_, source_, &from, size);
        }
        case Method::ReadWrite:
            return readWrite(offset, size);
        }
        return -1;
    }

    ssize_t readWrite(off_t offset, std::size_t size)
    {
        constexpr std::size_t bufferSize = std::size_t{1} << 20;
        if (!buffer_)
            buffer_ = std::make_unique<char[]>(bufferSize);
        const ssize_t count = ::pread(source_, buffer_.get(), std::min(size, bufferSize), offset);
        readFailed_ = count < 0;
        ssize_t written = 0;
        while (written < count) {
            const ssize_t step = ::pwrite(target_, buffer_.get() + written,
                                          static_cast<std::size_t>(count - written), offset + written);
            if (step < 0 && errno != EINTR)
                return -1;
            // Without progress or a reason, as a volume in user space may answer, it would go on for ever.
            if (step == 0) {
                errno = EIO;
                return -1;
            }
            written += std::max<ssize_t>(step, 0);
        }
        return count;
    }

    int source_;
    int target_;
    Method method_ = Method::CopyFileRange;
    std::unique_ptr<char[]> buffer_;
    bool readFailed_ = false;
};

/// The next stretch of data at or after `from`; up to the end of the file where holes aren't reported.
struct Stretch
{
    off_t begin = 0;
    off_t end = 0;
    bool none = false;
};

Stretch nextStretch(int file, off_t from)
{
    constexpr off_t unknownEnd = off_t{1} << 62;
    const off_t begin = ::lseek(file, from, SEEK_DATA);
    if (begin < 0)
        return errno == ENXIO ? Stretch{from, from, true} : Stretch{from, unknownEnd, false};
    const off_t end = ::lseek(file, begin, SEEK_HOLE);
    return {begin, end <= begin ? unknownEnd : end, false};
}

/// Whether the disk could not write, rather than the file system not knowing such a request.
bool isWriteError(int error)
{
    switch (error) {
    case EINVAL:
    case ESPIPE:
    case ENOSYS:
    case EOPNOTSUPP:
    case EPERM: // as sandboxes say
        return false;
    default:
        return true;
    }
}

/// Has the disk write [begin, end) and, with SYNC_FILE_RANGE_WAIT_*, waits for it. False if it could not be
/// written; an error is told only once, so no answer may be passed over.
bool syncRange(int file, off_t begin, off_t end, unsigned flags)
{
    return end <= begin || ::sync_file_range(file, begin, end - begin, flags) == 0 || !isWriteError(errno);
}

/// Tells the system that [begin, end) is not needed in memory any more. A card is larger than what is worth
/// keeping of it, and each page that is used again saves taking a new one. Touches no page that is still to
/// be written.
void releaseCache(int file, off_t begin, off_t end)
{
    // Advice: a file system that doesn't take it keeps what it likes.
    static_cast<void>(::posix_fadvise(file, begin, end - begin, POSIX_FADV_DONTNEED));
}

/// Waits until [begin, end) is written, in pieces: no single wait can be interrupted.
bool settle(int file, off_t begin, off_t end, const StopFlag &stop)
{
    constexpr unsigned written =
        SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER;
    for (off_t offset = begin; offset < end; offset += chunkSize) {
        if (stop.isRaised() || !syncRange(file, offset, std::min(offset + chunkSize, end), written))
            return false;
    }
    return true;
}

/// Waits until a copy is written.
Flushed settleCopy(const QString &path, const StopFlag &stop)
{
    // What stands there may have become something else, such as a pipe that would wait for its writer.
    const int file =
        ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (file < 0) {
        // A copy keeps the permissions of its source, also those that forbid to read it.
        if (errno == EACCES)
            return Flushed::All;
        return errno == ENOENT || errno == ENOTDIR || errno == ELOOP ? Flushed::AllThatIsThere
                                                                     : Flushed::Failed;
    }
    struct stat status = {};
    Flushed result = Flushed::Failed;
    if (::fstat(file, &status) == 0) {
        if (!S_ISREG(status.st_mode))
            result = Flushed::AllThatIsThere;
        else if (settle(file, 0, status.st_size, stop))
            result = Flushed::All;
    }
    ::close(file);
    return result;
}

/// The device that a folder lies on or, where it is gone, its nearest parent that is there.
quint64 deviceBelow(const QString &folder)
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

/// Has the disk write what is copied while the copying goes on, and lets go of what it has written.
class WriteBehind
{
public:
    WriteBehind(int file, const StopFlag &stop)
        : file_(file)
        , stop_(stop)
    {
    }

    /// Everything up to `end` is copied. False on a write error or a raised flag.
    bool advance(off_t end)
    {
        if (end - started_ < writebackStep)
            return true;
        if (!finish(end))
            return false;
        const off_t settled = end - writebackWindow;
        if (settled <= settled_)
            return true;
        const off_t from = settled_;
        settled_ = settled;
        if (!settle(file_, from, settled, stop_))
            return false;
        releaseCache(file_, from, settled);
        return true;
    }

    /// Has the rest written, without waiting for it.
    bool finish(off_t end)
    {
        const off_t from = started_;
        started_ = end;
        return syncRange(file_, from, end, SYNC_FILE_RANGE_WRITE);
    }

private:
    int file_;
    const StopFlag &stop_;
    off_t started_ = 0;
    off_t settled_ = 0;
};

CopyResult copyStretches(int source, int target, const StopFlag &stop)
{
    using End = CopyResult::End;
    const auto failed = [&stop](End end) {
        return stop.isRaised() ? CopyResult{End::Stopped} : CopyResult{end, qt_error_string(errno)};
    };
    RangeCopier copier(source, target);
    WriteBehind writeBehind(target, stop);
    off_t offset = 0;
    off_t released = 0;
    for (;;) {
        struct stat before = {};
        struct stat after = {};
        if (::fstat(source, &before) != 0)
            return failed(End::ReadFailed);
        const Stretch stretch = nextStretch(source, offset);
        if (stretch.none) {
            // It may end in a hole. What it grew or shrank by since the first look is none.
            if (::fstat(source, &after) != 0)
                return failed(End::ReadFailed);
            const off_t size = std::min(before.st_size, after.st_size);
            const bool ended =
                writeBehind.finish(offset) && (size <= offset || ::ftruncate(target, size) == 0);
            return ended ? CopyResult() : failed(End::WriteFailed);
        }
        offset = stretch.begin;
        while (offset < stretch.end) {
            if (stop.isRaised())
                return {End::Stopped};
            const ssize_t copied = copier.copy(offset, std::min(chunkSize, stretch.end - offset));
            if (copied < 0)
                return failed(copier.failure());
            if (copied == 0)
                return writeBehind.finish(offset) ? CopyResult() : failed(End::WriteFailed);
            offset += copied;
            if (offset - released >= chunkSize) {
                releaseCache(source, released, offset);
                released = offset;
            }
            if (!writeBehind.advance(offset))
                return failed(End::WriteFailed);
        }
    }
}

} // namespace

CopyResult copyContent(QFile &source, QFile &target, const StopFlag &stop)
{
    if (stop.isRaised())
        return {CopyResult::End::Stopped};
    if (::ioctl(target.handle(), FICLONE, source.handle()) == 0)
        return {};
    return copyStretches(source.handle(), target.handle(), stop);
}

void copyAttributes(QFile &source, QFile &target)
{
    struct stat status = {};
    if (::fstat(source.handle(), &status) != 0)
        return;
    constexpr mode_t permissionBits = 0777;
    // FAT and exFAT keep neither; the copy is whole all the same.
    static_cast<void>(::fchmod(target.handle(), status.st_mode & permissionBits));
    const struct timespec times[2] = {status.st_atim, status.st_mtim};
    static_cast<void>(::futimens(target.handle(), times));
}

VolumeFlush::~VolumeFlush()
{
    for (const auto &volume : volumes_) {
        if (volume.second.file >= 0)
            ::close(volume.second.file);
    }
}

void VolumeFlush::watch(const QString &folder)
{
    const QByteArray path = QFile::encodeName(folder);
    struct stat status = {};
    if (::stat(path.constData(), &status) != 0)
        return;
    Volume &volume = volumes_[status.st_dev];
    if (volume.file >= 0)
        return;
    // syncfs() reports the errors since its descriptor was opened, to every descriptor once.
    volume.folder = folder;
    volume.file = ::open(path.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    // A folder may be open for writing only; a file without a name is on the same volume.
    constexpr mode_t ownerOnly = 0600;
    if (volume.file < 0 && errno == EACCES)
        volume.file = ::open(path.constData(), O_TMPFILE | O_WRONLY | O_CLOEXEC, ownerOnly);
}

Flushed VolumeFlush::finish(const QStringList &files, const StopFlag &stop, QStringList *gone) const
{
    if (files.isEmpty())
        return Flushed::All;
    // File by file first, because the flush of the volume can't be interrupted.
    bool whole = true;
    for (const QString &path : files) {
        const Flushed settled = settleCopy(path, stop);
        if (settled == Flushed::Failed || stop.isRaised())
            return Flushed::Failed;
        if (settled == Flushed::AllThatIsThere) {
            whole = false;
            if (gone != nullptr)
                gone->append(path);
        }
    }
    // Each volume is flushed, whatever another one says.
    bool failed = volumes_.empty();
    for (const auto &volume : volumes_) {
        const bool flushed = ::syncfs(volume.second.file) == 0 && isWritable(volume.second.file);
        failed = failed || !flushed || (!whole && deviceBelow(volume.second.folder) != volume.first);
    }
    if (failed)
        return Flushed::Failed;
    return whole ? Flushed::All : Flushed::AllThatIsThere;
}
