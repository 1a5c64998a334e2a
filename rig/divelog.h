#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// What a made-up data log holds.
struct DiveLog
{
    int runs = 2;
    int datasets = 120;              ///< ordinary entries of each run, one a second
    std::int64_t start = 1550782004; ///< the first run's start, seconds since the epoch
    bool wrap = false;               ///< the low 16 bits of the time wrap amid each run
    bool twoRunsAMinute = false;     ///< every run starts in the same minute
};

/// The log's entries as the bodies of data sentences ("PSEADATA,1,1,1550782004,..."), numbered from 1. A
/// start entry carries its whole time, the others the low 16 bits of theirs.
[[nodiscard]] std::vector<std::string> makeDiveLog(const DiveLog &log);

/// Reads entries from a file: one a line, the data sentence's fields ("1,1,1550782004,0.00,..."); blank lines
/// and those that begin with "#" don't count. False if it can't be read.
[[nodiscard]] bool readDiveLog(const std::string &path, std::vector<std::string> *entries);
