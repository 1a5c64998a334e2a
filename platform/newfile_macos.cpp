#include "platform/newfile.h"

#include <cstdio>

bool renameExclusively(const char *from, const char *to)
{
    return ::renamex_np(from, to, RENAME_EXCL) == 0;
}
