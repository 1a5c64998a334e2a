#pragma once

#include "platform/stopflag.h"

#include <QString>

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <tuple>

/// What tells a file or folder from all others while it exists, whatever its path.
struct FileId
{
    quint64 device = 0;
    quint64 file = 0;

    [[nodiscard]] bool operator==(const FileId &other) const
    {
        return device == other.device && file == other.file;
    }
    [[nodiscard]] bool operator<(const FileId &other) const
    {
        return std::tie(device, file) < std::tie(other.device, other.file);
    }
};

/// The identity of what `path` leads to; none if it leads nowhere or the system doesn't tell.
[[nodiscard]] std::optional<FileId> fileIdOf(const std::filesystem::path &path);

/// How a file looks from outside.
struct FileLook
{
    qint64 size = -1;
    qint64 modified = 0; ///< in nanoseconds
    /// The latest of all its times, of which the system sets one at each change. Not all file systems store
    /// that one: it may become smaller when the system has forgotten the file.
    qint64 latest = 0;

    /// Whether nobody has changed the file since it looked like `before`.
    [[nodiscard]] bool isStill(const FileLook &before) const
    {
        return size == before.size && modified == before.modified && latest <= before.latest;
    }
};

/// The look of what is at `path`, not of what a link there leads to; none if there is nothing.
[[nodiscard]] std::optional<FileLook> lookOf(const std::filesystem::path &path);

/// How reading a file from its disk ended.
struct DiskRead
{
    enum class End {
        FromDisk,
        Unproven, ///< read whole, maybe from memory; `reason` says why
        Changed,  ///< the file changed meanwhile
        Failed,   ///< `reason` is the system's
        Stopped,
    };
    End end = End::Failed;
    QString reason = {};
    FileId id = {};
    FileLook look = {}; ///< when it had been read whole
};

/// Reads files from the disks that they lie on. What the system has of them in memory proves nothing: it may
/// be what was meant to be written.
///
/// May be used on several threads at once. What is forgotten of a file that others have open is read again at
/// their next look.
class DiskReader
{
    Q_DISABLE_COPY(DiskReader)

public:
    DiskReader();
    ~DiskReader();

    /// Hands the content of the regular file `path`, which may not be a link, to `take` piece by piece.
    [[nodiscard]] DiskRead read(const std::filesystem::path &path, const StopFlag &stop,
                                const std::function<void(const char *data, std::size_t size)> &take);

    /// Whether the disk still gives the start of a file that was read before. A disk that was pulled may stay
    /// mounted, and then only its contents are missed. Also true if the system can't be kept from using
    /// memory.
    [[nodiscard]] static bool isStartReadable(const std::filesystem::path &path);

private:
    struct Devices; // the platform's own
    std::unique_ptr<Devices> devices_;
};
