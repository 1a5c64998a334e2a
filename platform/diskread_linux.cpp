#include "platform/descriptor.h"
#include "platform/diskread.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <linux/magic.h>
#include <map>
#include <mutex>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <vector>

namespace {

// Not yet in the system's header.
constexpr decltype(statfs::f_type) ntfs3Magic = 0x7366746e;
constexpr decltype(statfs::f_type) hfsPlusMagic = 0x482b;

constexpr std::size_t pieceSize = std::size_t{1} << 20;
constexpr std::size_t pieceAlignment = 4096;

QString systemReason()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

/// What stands between a file and its disk.
enum class Below {
    Disk,         ///< the page cache alone
    AskedDisk,    ///< the same, but an O_DIRECT read may use the cache too; the system tells of each file
    OddDisk,      ///< the same, and it does not tell
    ProgramsDisk, ///< a program (FUSE) that reads a block device through the page cache
    Unknown,      ///< another machine, memory alone, or a cache of the file system's own
};

Below below(int file, dev_t device)
{
    struct statfs volume = {};
    if (::fstatfs(file, &volume) != 0)
        return Below::Unknown;
    switch (volume.f_type) {
    case EXT4_SUPER_MAGIC:
        return Below::AskedDisk;
    case XFS_SUPER_MAGIC:
    case MSDOS_SUPER_MAGIC:
    case EXFAT_SUPER_MAGIC:
        return Below::Disk;
    case BTRFS_SUPER_MAGIC:
    case F2FS_SUPER_MAGIC:
    case ISOFS_SUPER_MAGIC:
    case UDF_SUPER_MAGIC:
    case ntfs3Magic:
    case hfsPlusMagic:
        return Below::OddDisk;
    case FUSE_SUPER_MAGIC:
        return major(device) != 0 ? Below::ProgramsDisk : Below::Unknown;
    default:
        return Below::Unknown;
    }
}

/// Whether the system has, or may have, any page of the open file in memory. To a user who could not write
/// the file it says yes.
bool isResident(int file, off_t size)
{
    constexpr off_t window = off_t{256} << 20;
    const off_t pageSize = ::sysconf(_SC_PAGESIZE);
    std::vector<unsigned char> pages(static_cast<std::size_t>(window / pageSize));
    for (off_t begin = 0; begin < size; begin += window) {
        const auto length = static_cast<std::size_t>(std::min(window, size - begin));
        void *mapped = ::mmap(nullptr, length, PROT_READ, MAP_PRIVATE, file, begin);
        if (mapped == MAP_FAILED)
            return true;
        const bool told = ::mincore(mapped, length, pages.data()) == 0;
        ::munmap(mapped, length);
        const auto count = static_cast<std::ptrdiff_t>((length + static_cast<std::size_t>(pageSize) - 1) /
                                                       static_cast<std::size_t>(pageSize));
        if (!told || std::any_of(pages.cbegin(), pages.cbegin() + count,
                                 [](unsigned char page) { return (page & 1U) != 0; }))
            return true;
    }
    return false;
}

/// Takes all pages of the open file or device out of memory. False if some stay: they wait to be written,
/// are locked, or another process maps or has just read them.
bool forget(int file, off_t size)
{
    constexpr int tries = 3;
    for (int tried = 0; tried < tries; ++tried) {
        if (::fsync(file) != 0 && errno == EIO)
            return false;
        ::posix_fadvise(file, 0, 0, POSIX_FADV_DONTNEED);
        if (!isResident(file, size))
            return true;
    }
    return false;
}

/// Has the block device `id`, on which the open file lies, forgotten. Returns why it can't be.
QString forgetDevice(dev_t id, int file)
{
    std::error_code error;
    const std::string number = std::to_string(major(id)) + ":" + std::to_string(minor(id));
    const auto link = std::filesystem::read_symlink("/sys/dev/block/" + number, error);
    const std::string path = "/dev/" + link.filename().string();
    const Descriptor device(error ? -1 : ::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status = {};
    unsigned long long size = 0;
    if (!device.isOpen() || ::fstat(device.get(), &status) != 0 || !S_ISBLK(status.st_mode) ||
        status.st_rdev != id || ::ioctl(device.get(), BLKGETSIZE64, &size) != 0)
        return QStringLiteral(
            "the volume lies behind a program (FUSE), and only root can read past its memory");
    if (::syncfs(file) == 0 && forget(device.get(), static_cast<off_t>(size)))
        return {};
    return QStringLiteral("the system keeps parts of the volume in memory");
}

/// Whether the content lies with what the system knows of the file, which it doesn't forget with the pages.
bool isInline(int file)
{
    std::array<quint64, (sizeof(fiemap) + sizeof(fiemap_extent)) / sizeof(quint64)> space = {};
    auto *map = reinterpret_cast<fiemap *>(space.data());
    map->fm_length = FIEMAP_MAX_OFFSET;
    map->fm_extent_count = 1;
    return ::ioctl(file, FS_IOC_FIEMAP, map) == 0 && map->fm_mapped_extents > 0 &&
           (map->fm_extents[0].fe_flags & FIEMAP_EXTENT_DATA_INLINE) != 0;
}

/// Whether O_DIRECT reads past the page cache. Where ext4 journals, encrypts or checks contents, it does not.
bool isDirectReal(int file, Below kind)
{
    if (kind != Below::AskedDisk)
        return kind != Below::OddDisk;
    struct statx status = {};
    return ::statx(file, "", AT_EMPTY_PATH, STATX_DIOALIGN, &status) == 0 &&
           (status.stx_mask & STATX_DIOALIGN) != 0 && status.stx_dio_mem_align != 0;
}

bool setDirect(int file, bool on)
{
    const int flags = ::fcntl(file, F_GETFL);
    return flags >= 0 && ::fcntl(file, F_SETFL, on ? flags | O_DIRECT : flags & ~O_DIRECT) == 0;
}

FileLook lookOf(const struct stat &status)
{
    const auto nanoseconds = [](const timespec &time) {
        constexpr qint64 second = 1'000'000'000;
        return time.tv_sec * second + time.tv_nsec;
    };
    const qint64 modified = nanoseconds(status.st_mtim);
    return {status.st_size, modified, std::max(modified, nanoseconds(status.st_ctim))};
}

} // namespace

/// The block devices below programs. Forgotten once: what is in memory later was read from the disk later.
struct DiskReader::Devices
{
    std::mutex mutex;
    std::map<dev_t, QString> reasons; ///< why it could not be; empty if it was
};

DiskReader::DiskReader()
    : devices_(std::make_unique<Devices>())
{
}

DiskReader::~DiskReader() = default;

std::optional<FileId> fileIdOf(const std::filesystem::path &path)
{
    struct stat status = {};
    if (::stat(path.c_str(), &status) != 0)
        return std::nullopt;
    return FileId{status.st_dev, status.st_ino};
}

std::optional<FileLook> lookOf(const std::filesystem::path &path)
{
    struct stat status = {};
    if (::lstat(path.c_str(), &status) != 0)
        return std::nullopt;
    return lookOf(status);
}

bool DiskReader::isStartReadable(const std::filesystem::path &path)
{
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
    struct stat status = {};
    if (!file.isOpen() || ::fstat(file.get(), &status) != 0)
        return false;
    static_cast<void>(forget(file.get(), status.st_size));
    char first = 0;
    return ::pread(file.get(), &first, sizeof first, 0) >= 0;
}

DiskRead DiskReader::read(const std::filesystem::path &path, const StopFlag &stop,
                          const std::function<void(const char *data, std::size_t size)> &take)
{
    // A pipe that has taken the file's place must not hang the check.
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
    struct stat before = {};
    if (!file.isOpen() || ::fstat(file.get(), &before) != 0)
        return {DiskRead::End::Failed, systemReason()};
    const FileId id = {before.st_dev, before.st_ino};
    if (!S_ISREG(before.st_mode))
        return {DiskRead::End::Changed, {}, id};

    const Below kind = below(file.get(), before.st_dev);
    QString unproven;
    if (kind == Below::Unknown) {
        unproven = QStringLiteral("its file system does not tell whether it reads from a disk");
    } else if (kind == Below::ProgramsDisk) {
        const std::lock_guard<std::mutex> lock(devices_->mutex);
        const auto known = devices_->reasons.find(before.st_dev);
        unproven = known != devices_->reasons.cend()
                       ? known->second
                       : (devices_->reasons[before.st_dev] = forgetDevice(before.st_dev, file.get()));
    }
    bool direct = false;
    if (!forget(file.get(), before.st_size) && unproven.isEmpty()) {
        direct = isDirectReal(file.get(), kind) && setDirect(file.get(), true);
        if (!direct)
            unproven = QStringLiteral("the system keeps it in memory");
    }
    if (unproven.isEmpty() && isInline(file.get()))
        unproven = QStringLiteral("the system keeps it in memory");

    ::posix_fadvise(file.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    const std::unique_ptr<char, decltype(&std::free)> piece(
        static_cast<char *>(std::aligned_alloc(pieceAlignment, pieceSize)), &std::free);
    if (!piece)
        throw std::bad_alloc();
    constexpr off_t forgetEvery = off_t{32} << 20;
    off_t position = 0;
    for (;;) {
        if (stop.isRaised())
            return {DiskRead::End::Stopped, {}, id};
        const ssize_t size = ::pread(file.get(), piece.get(), pieceSize, position);
        if (size < 0 && direct && errno == EINVAL && setDirect(file.get(), false)) {
            direct = false;
            unproven = QStringLiteral("the system keeps it in memory");
            continue;
        }
        if (size < 0)
            return {DiskRead::End::Failed, systemReason(), id};
        if (size == 0)
            break;
        take(piece.get(), static_cast<std::size_t>(size));
        position += size;
        // It may have no end.
        if (position > before.st_size)
            break;
        // Other programs keep their memory.
        if (position % forgetEvery == 0)
            ::posix_fadvise(file.get(), position - forgetEvery, forgetEvery, POSIX_FADV_DONTNEED);
    }
    struct stat after = {};
    if (::fstat(file.get(), &after) != 0)
        return {DiskRead::End::Failed, systemReason(), id};
    const FileLook look = lookOf(after);
    if (position != before.st_size || !look.isStill(lookOf(before)))
        return {DiskRead::End::Changed, {}, id};
    return {unproven.isEmpty() ? DiskRead::End::FromDisk : DiskRead::End::Unproven, unproven, id, look};
}
