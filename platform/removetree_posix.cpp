#include "platform/removetree.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

/// An open folder that is closed with its owner.
class Folder
{
public:
    explicit Folder(int descriptor)
        : descriptor_(descriptor)
    {
    }
    ~Folder()
    {
        if (descriptor_ >= 0)
            ::close(descriptor_);
    }
    Folder(Folder &&other) noexcept
        : descriptor_(std::exchange(other.descriptor_, -1))
    {
    }
    Folder &operator=(Folder &&other) noexcept
    {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    Folder(const Folder &) = delete;
    Folder &operator=(const Folder &) = delete;

    [[nodiscard]] int get() const { return descriptor_; }
    [[nodiscard]] bool isOpen() const { return descriptor_ >= 0; }

private:
    int descriptor_;
};

Folder openFolder(int parent, const char *name)
{
    return Folder(::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

struct stat statusOf(const Folder &folder)
{
    struct stat status = {};
    static_cast<void>(::fstat(folder.get(), &status));
    return status;
}

/// Removes the entries of `folder` that are no folders and returns the names of those that are. Clears
/// `emptied` if one stays, or the folder can't be listed.
std::vector<std::string> removeFiles(const Folder &folder, bool *emptied)
{
    std::vector<std::string> folders;
    DIR *listing = ::fdopendir(::openat(folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (listing == nullptr) {
        *emptied = false;
        return folders;
    }
    std::vector<std::string> names;
    errno = 0;
    while (const dirent *entry = ::readdir(listing)) {
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
            names.emplace_back(entry->d_name);
        errno = 0;
    }
    *emptied = *emptied && errno == 0;
    ::closedir(listing);
    for (std::string &name : names) {
        struct stat status = {};
        if (::fstatat(folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISDIR(status.st_mode))
            folders.push_back(std::move(name));
        else if (::unlinkat(folder.get(), name.c_str(), 0) != 0)
            *emptied = false;
    }
    return folders;
}

/// Walks down and up with one open folder at a time: a card may nest deeper than a path is long, or than a
/// process may have files open.
class Eraser
{
public:
    explicit Eraser(Folder root)
        : current_(std::move(root))
        , volume_(statusOf(current_).st_dev)
    {
    }

    /// Whether everything went.
    [[nodiscard]] bool run()
    {
        begin({}, 0);
        for (;;) {
            std::vector<std::string> &folders = levels_.back().folders;
            if (!folders.empty()) {
                const std::string name = std::move(folders.back());
                folders.pop_back();
                enter(name);
            } else if (levels_.size() == 1) {
                return emptied_;
            } else if (!leave()) {
                return false;
            }
        }
    }

private:
    struct Level
    {
        std::string name;                 ///< of this folder in the one above
        ino_t parent = 0;                 ///< the folder above, to be met again on the way up
        std::vector<std::string> folders; ///< the folders in this one that are still to be removed
    };

    void begin(const std::string &name, ino_t parent)
    {
        static_cast<void>(::fchmod(current_.get(), (statusOf(current_).st_mode & 07777) | S_IRWXU));
        levels_.push_back({name, parent, removeFiles(current_, &emptied_)});
    }

    void enter(const std::string &name)
    {
        Folder child = openFolder(current_.get(), name.c_str());
        if (!child.isOpen() && errno == EACCES) {
            static_cast<void>(::fchmodat(current_.get(), name.c_str(), S_IRWXU, 0));
            child = openFolder(current_.get(), name.c_str());
        }
        if (!child.isOpen() || statusOf(child).st_dev != volume_) {
            emptied_ = false;
            return;
        }
        const ino_t parent = statusOf(current_).st_ino;
        current_ = std::move(child);
        begin(name, parent);
    }

    /// Goes up and removes the folder left; false if the way up has changed.
    bool leave()
    {
        const Level left = std::move(levels_.back());
        levels_.pop_back();
        Folder parent = openFolder(current_.get(), "..");
        if (!parent.isOpen() || statusOf(parent).st_ino != left.parent)
            return false;
        current_ = std::move(parent);
        if (::unlinkat(current_.get(), left.name.c_str(), AT_REMOVEDIR) != 0)
            emptied_ = false;
        return true;
    }

    Folder current_;
    dev_t volume_;
    std::vector<Level> levels_;
    bool emptied_ = true; ///< so far
};

} // namespace

bool emptyFolder(const QString &folder)
{
    Folder root(::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return root.isOpen() && Eraser(std::move(root)).run();
}
