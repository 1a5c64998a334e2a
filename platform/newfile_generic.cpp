#include "platform/newfile.h"

#include <cerrno>

bool renameExclusively(const char * /*from*/, const char * /*to*/)
{
    errno = ENOSYS;
    return false;
}
