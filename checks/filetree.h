#pragma once

#include <QString>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

class StopFlag;

/// A regular file below a folder.
struct TreeFile
{
    std::string path; ///< relative to the folder, in the bytes of the file system, parts joined by "/"
    qint64 size = 0;
    qint64 modified = 0; ///< on the clock of the file system

    [[nodiscard]] bool operator==(const TreeFile &other) const
    {
        return path == other.path && size == other.size && modified == other.modified;
    }
};

/// A path and what is to be said of it.
struct TreeProblem
{
    std::string path; ///< as TreeFile::path
    QString reason;
};

/// What lies below a folder.
struct FileTree
{
    std::vector<TreeFile> files;     ///< hidden ones too, in the system's order
    std::vector<std::string> others; ///< links, which are not followed, pipes and the like
    std::vector<TreeProblem>
        unreadable; ///< folders that could not be listed to their end, and entries that can't be told
};

/// Lists all that is below `root`, but of the files only those that `wanted` holds for, if it is given, and
/// of the folders none that `skipped` holds for, which gets their paths. Ends early when `stop` is raised.
[[nodiscard]] FileTree listTree(const std::filesystem::path &root, const StopFlag &stop,
                                const std::function<bool(const TreeFile &)> &wanted = {},
                                const std::function<bool(const std::filesystem::path &)> &skipped = {});
