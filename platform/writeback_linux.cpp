#include "platform/writeback_linux.h"

#include "platform/stopflag.h"
#include "platform/unsupported.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>

namespace {

bool syncRange(int file, off_t begin, off_t end, unsigned flags)
{
    return end <= begin || ::sync_file_range(file, begin, end - begin, flags) == 0 || isUnsupported(errno);
}

} // namespace

bool startWriteback(int file, off_t begin, off_t end)
{
    return syncRange(file, begin, end, SYNC_FILE_RANGE_WRITE);
}

bool finishWriteback(int file, off_t begin, off_t end, const StopFlag &stop)
{
    // In pieces: no single wait can be interrupted.
    constexpr off_t pieceSize = off_t{4} << 20;
    constexpr unsigned written =
        SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER;
    for (off_t offset = begin; offset < end; offset += pieceSize) {
        if (stop.isRaised() || !syncRange(file, offset, std::min(offset + pieceSize, end), written))
            return false;
    }
    return true;
}
