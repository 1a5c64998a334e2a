#include "cards/cardlisting.h"

#include "app/job.h"

#include <QDir>

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

/// A folder that is being listed, and the entry to come.
struct Folder
{
    fs::path path;
    fs::directory_iterator next;
};

} // namespace

// Qt's own iterator passes over a folder that it can't read, and over names that are no text, without a word;
// an import must not say that it copied everything then.
CardListing listCard(const QString &root, const StopFlag &stop)
{
    CardListing listing;
    std::vector<Folder> open;
    const auto enter = [&](const fs::path &path) {
        std::error_code error;
        open.push_back({path, fs::directory_iterator(path, error)});
        if (error)
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
        std::error_code unknown;
        // The last is the file system's own, and root's alone.
        if (name.front() == '.' || name == "lost+found")
            continue;
        if (!isText(name))
            listing.unreadable.append(text(entry.path()));
        else if (entry.symlink_status(unknown).type() == fs::file_type::directory)
            enter(entry.path());
        else if (entry.is_regular_file(unknown))
            listing.files.append(text(entry.path()));
    }
    return listing;
}
