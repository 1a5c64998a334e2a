#include "platform/newfile.h"

#include <QFileInfo>

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
    // A volume without exclusive renames: a name that is taken since the look is replaced. QFile would copy
    // where it can't rename.
    if (QFile::exists(to) || QFileInfo(to).isSymLink())
        return Publish::Exists;
    return std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0
               ? Publish::Done
               : Publish::Failed;
}
