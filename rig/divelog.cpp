#include "rig/divelog.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>

namespace {

constexpr int startFlags = 1;
constexpr int videoFlags = 2 + 8;
constexpr int photoFlags = 2 + 16;
constexpr std::int64_t lowHalf = 0xffff;
constexpr std::int64_t betweenRuns = 1800;
constexpr std::int64_t minute = 60;
constexpr double pi = 3.14159265358979323846;

/// To tenths, and without the sign of a negative zero.
double tenths(double value)
{
    return std::round(value * 10) / 10 + 0.0;
}

/// A dive down to 18 m and back up through ever warmer water, turning once around.
std::string entry(int number, int flags, std::int64_t time, double progress)
{
    const double depth = 18 * std::sin(pi * progress);
    std::array<char, 128> text{};
    std::snprintf(text.data(), text.size(), "PSEADATA,%d,%d,%lld,%.2f,%.1f,%.1f,%.1f,%.1f,%.2f", number,
                  flags, static_cast<long long>(time), depth, 22 - depth / 3, 359 * progress,
                  tenths(5 * std::sin(8 * pi * progress)), tenths(3 * std::cos(6 * pi * progress)), 3.95);
    return text.data();
}

} // namespace

std::vector<std::string> makeDiveLog(const DiveLog &log)
{
    std::vector<std::string> entries;
    std::int64_t start = log.start;
    if (log.twoRunsAMinute)
        start -= start % minute;
    for (int run = 0; run < log.runs; ++run) {
        if (log.wrap)
            start = (start | lowHalf) + 1 - (log.datasets + 1) / 2;
        entries.push_back(entry(static_cast<int>(entries.size()) + 1, startFlags, start, 0));
        for (int i = 1; i <= log.datasets; ++i)
            entries.push_back(entry(static_cast<int>(entries.size()) + 1,
                                    run % 2 == 0 ? videoFlags : photoFlags, (start + i) & lowHalf,
                                    static_cast<double>(i) / log.datasets));
        start += log.twoRunsAMinute ? (minute - 1) / log.runs : log.datasets + betweenRuns;
    }
    return entries;
}

bool readDiveLog(const std::string &path, std::vector<std::string> *entries)
{
    std::ifstream file(path);
    if (!file)
        return false;
    std::string line;
    while (std::getline(file, line)) {
        line.erase(line.find_last_not_of(" \r\t") + 1);
        if (!line.empty() && line.front() != '#')
            entries->push_back("PSEADATA," + line);
    }
    return !file.bad();
}
