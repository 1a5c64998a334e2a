#include "platform/copycontent.h"
#include "platform/stopflag.h"
#include "platform/writeback_linux.h"

#include <QFile>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <linux/fs.h>
#include <memory>
#include <sys/ioctl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

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
        // Not make_unique(), which would fill it: every copy comes here, to see the source's end.
        if (!buffer_)
            buffer_.reset(new char[bufferSize]);
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

/// Tells the system that [begin, end) is not needed in memory any more. A card is larger than what is worth
/// keeping of it, and each page that is used again saves taking a new one. Touches no page that is still to
/// be written.
void releaseCache(int file, off_t begin, off_t end)
{
    // Advice: a file system that doesn't take it keeps what it likes.
    static_cast<void>(::posix_fadvise(file, begin, end - begin, POSIX_FADV_DONTNEED));
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
        if (!startWriteback(file_, std::exchange(started_, end), end))
            return false;
        const off_t settled = end - writebackWindow;
        if (settled <= settled_)
            return true;
        const off_t from = settled_;
        settled_ = settled;
        if (!finishWriteback(file_, from, settled, stop_))
            return false;
        releaseCache(file_, from, settled);
        return true;
    }

private:
    int file_;
    const StopFlag &stop_;
    off_t started_ = 0;
    off_t settled_ = 0;
};

CopyResult copyRanges(int source, int target, const StopFlag &stop)
{
    using End = CopyResult::End;
    const auto failed = [&stop](End end) {
        return stop.isRaised() ? CopyResult{End::Stopped} : CopyResult{end, qt_error_string(errno)};
    };
    RangeCopier copier(source, target);
    WriteBehind writeBehind(target, stop);
    off_t released = 0;
    for (off_t offset = 0; !stop.isRaised();) {
        const ssize_t copied = copier.copy(offset, chunkSize);
        if (copied < 0)
            return failed(copier.failure());
        if (copied == 0)
            return {};
        offset += copied;
        if (offset - released >= chunkSize) {
            releaseCache(source, released, offset);
            released = offset;
        }
        if (!writeBehind.advance(offset))
            return failed(End::WriteFailed);
    }
    return {End::Stopped};
}

} // namespace

CopyResult copyContent(QFile &source, QFile &target, const StopFlag &stop)
{
    if (stop.isRaised())
        return {CopyResult::End::Stopped};
    if (::ioctl(target.handle(), FICLONE, source.handle()) == 0)
        return {};
    return copyRanges(source.handle(), target.handle(), stop);
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
