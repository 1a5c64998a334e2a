#include "cards/cardlisting.h"

#include "platform/stopflag.h"

#include <QDir>
#include <QFileInfo>

#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

namespace fs = std::filesystem;

namespace {

QString text(const fs::path &path)
{
    return QString::fromStdString(path.u8string());
}

/// Whether a name is valid UTF-8. Another one would be a different name once it is a QString.
bool isValidUtf8(const std::string &name)
{
    // Alone, or at the beginning, U+FEFF would be taken for a byte order mark.
    const std::string text = '/' + name;
    return QString::fromStdString(text).toStdString() == text;
}

/// Whether a link, or anything else of that name, leads to a regular file.
bool leadsToFile(const fs::path &path, CardListing *listing)
{
    std::error_code error;
    const fs::file_type type = fs::status(path, error).type();
    // A link that leads back to itself leads nowhere, like one whose target is missing.
    if (type == fs::file_type::none && error != std::errc::too_many_symbolic_link_levels)
        listing->unreadable.append(text(path));
    return type == fs::file_type::regular;
}

/// A folder that is being listed, and its next entry.
struct Folder
{
    fs::path path;
    fs::directory_iterator next;
};

} // namespace

CardFile::CardFile(const QString &filePath)
    : path(filePath)
{
    // QFileInfo converts the time to local time, which takes longer than everything else here.
    const fs::path file = fs::u8path(path.toStdString());
    std::error_code error;
    size = static_cast<qint64>(fs::file_size(file, error));
    modified = static_cast<qint64>(fs::last_write_time(file, error).time_since_epoch().count());
}

CardFile::Change CardFile::change() const
{
    const CardFile now(path);
    if (now.size != size)
        return Change::Size;
    return now.modified == modified ? Change::None : Change::Time;
}

// Qt's own iterator skips folders that it can't read, and names that are not valid UTF-8, without an error;
// an import would say that it copied everything.
CardListing listCard(const QString &root, const StopFlag &stop)
{
    CardListing listing;
    std::vector<Folder> open;
    const auto enter = [&](const fs::path &path) {
        std::error_code error;
        open.push_back({path, fs::directory_iterator(path, error)});
        // Only root may read the folder that ext4 keeps for itself.
        const bool ownFolder = path.filename() == "lost+found" && open.size() == 2;
        if (error && !(ownFolder && error == std::errc::permission_denied))
            listing.unreadable.append(text(path));
    };
    enter(fs::u8path(QDir(root).absolutePath().toStdString()));
    while (!open.empty() && !stop.isRaised()) {
        if (open.back().next == fs::directory_iterator()) {
            open.pop_back();
            continue;
        }
        const fs::directory_entry entry = *open.back().next;
        std::error_code error;
        open.back().next.increment(error);
        if (error)
            listing.unreadable.append(text(open.back().path));

        const std::string name = entry.path().filename().u8string();
        if (QFileInfo(text(entry.path())).isHidden())
            continue;
        std::error_code unknown;
        const fs::file_type type = fs::symlink_status(entry.path(), unknown).type();
        if (!isValidUtf8(name) || type == fs::file_type::none) {
            listing.unreadable.append(text(entry.path()));
        } else if (type == fs::file_type::not_found) {
            // The card is gone, with all entries that were read ahead; one line is enough for them.
            const QString folder = text(open.back().path);
            if (!listing.unreadable.endsWith(folder))
                listing.unreadable.append(folder);
        } else if (type == fs::file_type::directory) {
            enter(entry.path());
        } else if (type == fs::file_type::regular || leadsToFile(entry.path(), &listing)) {
            listing.files.append(CardFile(text(entry.path())));
        }
    }
    return listing;
}
