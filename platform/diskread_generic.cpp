#include "platform/diskread.h"

#include <fstream>
#include <vector>

struct DiskReader::Devices
{
};

DiskReader::DiskReader() = default;
DiskReader::~DiskReader() = default;

std::optional<FileId> fileIdOf(const std::filesystem::path &path)
{
    std::error_code error;
    const std::filesystem::path place = std::filesystem::canonical(path, error);
    return error ? std::nullopt : std::optional<FileId>(FileId{0, std::filesystem::hash_value(place)});
}

std::optional<FileLook> lookOf(const std::filesystem::path &path)
{
    std::error_code error;
    const auto size = static_cast<qint64>(std::filesystem::file_size(path, error));
    // As wide as the system likes.
    const qint64 modified =
        error ? 0
              : static_cast<qint64>(std::filesystem::last_write_time(path, error).time_since_epoch().count());
    return error ? std::nullopt : std::optional<FileLook>(FileLook{size, modified, modified});
}

bool DiskReader::isStartReadable(const std::filesystem::path &path)
{
    std::ifstream file(path, std::ios::binary);
    return file.is_open() && file.peek() != std::ifstream::traits_type::eof();
}

DiskRead DiskReader::read(const std::filesystem::path &path, const StopFlag &stop,
                          const std::function<void(const char *data, std::size_t size)> &take)
{
    constexpr std::size_t pieceSize = std::size_t{1} << 20;
    std::vector<char> piece(pieceSize);
    std::ifstream file(path, std::ios::binary);
    if (!file.is_open())
        return {DiskRead::End::Failed, QStringLiteral("it can't be opened")};
    while (file) {
        if (stop.isRaised())
            return {DiskRead::End::Stopped};
        file.read(piece.data(), static_cast<std::streamsize>(piece.size()));
        take(piece.data(), static_cast<std::size_t>(file.gcount()));
    }
    if (file.bad())
        return {DiskRead::End::Failed, QStringLiteral("it can't be read")};
    return {DiskRead::End::Unproven,
            QStringLiteral("this system does not tell whether a file is read from its disk"),
            fileIdOf(path).value_or(FileId()), lookOf(path).value_or(FileLook())};
}
