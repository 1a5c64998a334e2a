#pragma once

#include <cerrno>

/// Whether the error number `error` says that this system, sandbox or file system does not know a request,
/// rather than that it tried and failed.
[[nodiscard]] inline bool isUnsupported(int error)
{
    switch (error) {
    case EINVAL:
    case ENOSYS:
    case EOPNOTSUPP:
#if ENOTSUP != EOPNOTSUPP
    case ENOTSUP:
#endif
    case EPERM: // sandboxes and FAT
    case ESPIPE:
        return true;
    default:
        return false;
    }
}
