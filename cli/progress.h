#pragma once

#include <QtGlobal>

#include <atomic>
#include <functional>
#include <thread>

/// A line on standard error with the share done, the speed and the time left, while it lives. Only on a
/// terminal.
class ProgressLine
{
    Q_DISABLE_COPY(ProgressLine)

public:
    /// Both functions are asked on another thread: bytes done, and in all (0 while that is unknown).
    ProgressLine(std::function<qint64()> done, std::function<qint64()> total);
    ~ProgressLine();

private:
    std::atomic<bool> ended_{false};
    std::thread thread_;
};
