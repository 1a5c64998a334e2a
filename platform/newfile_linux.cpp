#include "platform/newfile.h"
#include "platform/unsupported.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

bool renameExclusively(const QString &from, const QString &to)
{
    const QByteArray source = QFile::encodeName(from);
    const QByteArray target = QFile::encodeName(to);
    if (::renameat2(AT_FDCWD, source.constData(), AT_FDCWD, target.constData(), RENAME_NOREPLACE) == 0)
        return true;
    if (!isUnsupported(errno))
        return false;
    // Some network shares know hard links, which never replace a file either.
    if (::link(source.constData(), target.constData()) == 0) {
        ::unlink(source.constData());
        return true;
    }
    if (errno != EEXIST)
        errno = ENOTSUP;
    return false;
}
