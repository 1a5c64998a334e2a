#include "platform/newfile.h"

#include <cstdio>

bool renameExclusively(const QString &from, const QString &to)
{
    return ::renamex_np(QFile::encodeName(from).constData(), QFile::encodeName(to).constData(),
                        RENAME_EXCL) == 0;
}
