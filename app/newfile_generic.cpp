#include "app/newfile.h"

Publish renameNoReplace(const QString &from, const QString &to)
{
    if (QFile::rename(from, to))
        return Publish::Done;
    return QFile::exists(to) ? Publish::Exists : Publish::Failed;
}
