#include "platform/openfile.h"

#include <sys/stat.h>

bool hasName(const QFile &file)
{
    struct stat found = {};
    return ::fstat(file.handle(), &found) == 0 && found.st_nlink > 0;
}
