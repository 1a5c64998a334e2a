#include "checks/filetree.h"

#include "platform/stopflag.h"

#include <system_error>

namespace fs = std::filesystem;

namespace {

QString reasonOf(const std::error_code &error)
{
    return QString::fromLocal8Bit(error.message().c_str());
}

/// A folder that is being listed, and its next entry.
struct Folder
{
    std::string path; ///< relative, with a slash behind it; empty for the root
    fs::directory_iterator next;
};

} // namespace

FileTree listTree(const fs::path &root, const StopFlag &stop,
                  const std::function<bool(const TreeFile &)> &wanted,
                  const std::function<bool(const fs::path &)> &skipped)
{
    FileTree tree;
    std::vector<Folder> open;
    const auto enter = [&](const fs::path &path, const std::string &relative) {
        std::error_code error;
        open.push_back({relative, fs::directory_iterator(path, error)});
        if (error)
            tree.unreadable.push_back({relative, QStringLiteral("can't be listed: ") + reasonOf(error)});
    };
    enter(root, {});
    while (!open.empty() && !stop.isRaised()) {
        if (open.back().next == fs::directory_iterator()) {
            open.pop_back();
            continue;
        }
        const fs::directory_entry entry = *open.back().next;
        const std::string folder = open.back().path;
        std::error_code error;
        open.back().next.increment(error);
        if (error)
            tree.unreadable.push_back({folder, QStringLiteral("can't be listed: ") + reasonOf(error)});

        const std::string name = entry.path().filename().u8string();
        TreeFile file{folder + name};
        std::error_code unknown;
        switch (fs::symlink_status(entry.path(), unknown).type()) {
        case fs::file_type::directory:
            if (!skipped || !skipped(entry.path()))
                enter(entry.path(), file.path + '/');
            break;
        case fs::file_type::regular:
            file.size = static_cast<qint64>(fs::file_size(entry.path(), unknown));
            if (!unknown)
                file.modified = static_cast<qint64>(
                    fs::last_write_time(entry.path(), unknown).time_since_epoch().count());
            if (unknown)
                tree.unreadable.push_back({file.path, QStringLiteral("can't be read: ") + reasonOf(unknown)});
            else if (!wanted || wanted(file))
                tree.files.push_back(std::move(file));
            break;
        case fs::file_type::none:
        case fs::file_type::not_found:
            tree.unreadable.push_back({file.path, QStringLiteral("can't be read: ") + reasonOf(unknown)});
            break;
        default:
            tree.others.push_back(file.path);
            break;
        }
    }
    return tree;
}
