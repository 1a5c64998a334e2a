#include "platform/descriptor.h"
#include "platform/removetree.h"

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace {

/// Each level takes a descriptor and some stack; no camera nests deeper than a few.
constexpr int deepest = 1000;

struct stat statusOf(const Descriptor &folder)
{
    struct stat status = {};
    static_cast<void>(::fstat(folder.get(), &status));
    return status;
}

Descriptor openFolder(const Descriptor &parent, const char *name)
{
    return Descriptor(::openat(parent.get(), name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

/// False if the folder can't be listed to its end.
bool list(const Descriptor &folder, std::vector<std::string> *names)
{
    DIR *listing = ::fdopendir(::openat(folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (listing == nullptr)
        return false;
    errno = 0;
    while (const dirent *entry = ::readdir(listing)) {
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
            names->emplace_back(entry->d_name);
        errno = 0;
    }
    const bool whole = errno == 0;
    ::closedir(listing);
    return whole;
}

/// Removes all that the open folder, `level` levels below the root, holds on the volume `device`.
bool empty(const Descriptor &folder, dev_t device, int level)
{
    static_cast<void>(::fchmod(folder.get(), (statusOf(folder).st_mode & 07777) | S_IRWXU));
    std::vector<std::string> names;
    bool emptied = list(folder, &names);
    for (const std::string &entry : names) {
        const char *name = entry.c_str();
        struct stat status = {};
        if (::fstatat(folder.get(), name, &status, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISDIR(status.st_mode)) {
            emptied = ::unlinkat(folder.get(), name, 0) == 0 && emptied;
            continue;
        }
        Descriptor child = openFolder(folder, name);
        if (!child.isOpen() && errno == EACCES && ::fchmodat(folder.get(), name, S_IRWXU, 0) == 0)
            child = openFolder(folder, name);
        emptied = child.isOpen() && statusOf(child).st_dev == device && level < deepest &&
                  empty(child, device, level + 1) && ::unlinkat(folder.get(), name, AT_REMOVEDIR) == 0 &&
                  emptied;
    }
    return emptied;
}

} // namespace

bool emptyFolder(const QString &folder)
{
    const Descriptor root(folder, O_RDONLY | O_DIRECTORY);
    return root.isOpen() && empty(root, statusOf(root).st_dev, 0);
}
