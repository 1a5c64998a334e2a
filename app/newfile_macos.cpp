#include "app/newfile.h"

#include <cerrno>
#include <cstdio>

Publish renameNoReplace(const QString &from, const QString &to)
{
    if (::renamex_np(QFile::encodeName(from).constData(), QFile::encodeName(to).constData(), RENAME_EXCL) ==
        0)
        return Publish::Done;
    if (errno == EEXIST)
        return Publish::Exists;
    if (errno != ENOTSUP)
        return Publish::Failed;
    // A volume without exclusive renames; QFile looks the name up first and refuses to replace it.
    if (QFile::exists(to))
        return Publish::Exists;
    return QFile::rename(from, to) ? Publish::Done : Publish::Failed;
}
