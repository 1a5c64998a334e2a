#include "platform/newfile.h"

#include <QFileInfo>

#include <cstdio>

Publish renameNoReplace(const QString &from, const QString &to)
{
    if (QFile::exists(to) || QFileInfo(to).isSymLink())
        return Publish::Exists;
    // QFile would copy where it can't rename, and leave a part of the file there when it is ended. A name
    // that is taken since the look is replaced.
    return std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0
               ? Publish::Done
               : Publish::Failed;
}
