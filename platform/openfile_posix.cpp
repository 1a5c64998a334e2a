#include "platform/openfile.h"

#include <sys/stat.h>

bool isInPlace(const QFile &file)
{
    struct stat opened = {};
    struct stat named = {};
    return ::fstat(file.handle(), &opened) == 0 &&
           ::stat(QFile::encodeName(file.fileName()).constData(), &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}
