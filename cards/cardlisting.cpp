#include "cards/cardlisting.h"

#include "app/job.h"

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

/// Whether a name survives the way through text, by which everything else names the file.
bool isText(const std::string &name)
{
    return QString::fromStdString(name).toStdString() == name;
}

/// Whether a link, or what else has the name, is a regular file at its end.
bool leadsToFile(const fs::path &path, CardListing *listing)
{
    std::error_code error;
    const fs::file_type type = fs::status(path, error).type();
    // A link in a circle leads nowhere, as one whose end is missing.
    if (type == fs::file_type::none && error != std::errc::too_many_symbolic_link_levels)
        listing->unreadable.append(text(path));
    return type == fs::file_type::regular;
}

/// A folder that is being listed, and the entry to come.
struct Folder
{
    fs::path path;
    fs::directory_iterator next;
};

} // namespace

CardFile::CardFile(const QString &filePath)
    : path(filePath)
{
    // The toolkit would turn the time into a local one, which takes longer than all else here.
    const fs::path file = fs::u8path(path.toStdString());
    std::error_code error;
    size = static_cast<qint64>(fs::file_size(file, error));
    modified = static_cast<qint64>(fs::last_write_time(file, error).time_since_epoch().count());
}

bool CardFile::isUnchanged() const
{
    const CardFile now(path);
    return now.size == size && now.modified == modified;
}

// Qt's own iterator passes over a folder that it can't read, and over names that are no text, without a word;
// an import must not say that it copied everything then.
CardListing listCard(const QString &root, const StopFlag &stop)
{
    CardListing listing;
    std::vector<Folder> open;
    const auto enter = [&](const fs::path &path) {
        std::error_code error;
        open.push_back({path, fs::directory_iterator(path, error)});
        // The folder that a file system keeps for itself is root's alone.
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
        if (!isText(name) || type == fs::file_type::none) {
            listing.unreadable.append(text(entry.path()));
        } else if (type == fs::file_type::not_found) {
            // The card is gone, with all entries that were read ahead: one line for them will do.
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
