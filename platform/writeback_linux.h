#pragma once

#include <sys/types.h>

class StopFlag;

/// Has the disk start to write [begin, end) of an open file. False, with errno, if it could not write; a file
/// system that knows no such request says yes. An error is told only once, so no answer may be passed over.
[[nodiscard]] bool startWriteback(int file, off_t begin, off_t end);

/// Returns once [begin, end) is written, or `stop` is raised, which is tested every 4 MiB. False if not all
/// is written.
[[nodiscard]] bool finishWriteback(int file, off_t begin, off_t end, const StopFlag &stop);
