#include "platform/newfile.h"
#include "platform/unsupported.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

bool renameExclusively(const char *from, const char *to)
{
    if (::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0)
        return true;
    if (!isUnsupported(errno))
        return false;
    // Some network shares know hard links, which never replace a file either.
    if (::link(from, to) == 0) {
        ::unlink(from);
        return true;
    }
    if (errno != EEXIST)
        errno = ENOTSUP;
    return false;
}
