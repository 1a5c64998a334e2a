#include "cli/progress.h"

#include "platform/terminal.h"

#include <QElapsedTimer>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <utility>

namespace {

void show(qint64 done, qint64 total, double seconds)
{
    constexpr double megabyte = 1e6;
    constexpr int percent = 100;
    constexpr int secondsPerMinute = 60;
    const double speed = seconds > 0 ? static_cast<double>(done) / seconds : 0;
    if (total <= 0 || speed <= 0)
        return;
    const auto left = static_cast<int>(static_cast<double>(std::max<qint64>(total - done, 0)) / speed);
    std::fprintf(stderr, "\r%3d %%  %.0f MB/s  %d:%02d left \033[K", static_cast<int>(done * percent / total),
                 speed / megabyte, left / secondsPerMinute, left % secondsPerMinute);
    std::fflush(stderr);
}

} // namespace

ProgressLine::ProgressLine(std::function<qint64()> done, std::function<qint64()> total)
{
    if (!isErrorTerminal())
        return;
    thread_ = std::thread([this, done = std::move(done), total = std::move(total)] {
        constexpr auto pause = std::chrono::milliseconds(50);
        constexpr int pauses = 4;
        QElapsedTimer timer;
        timer.start();
        for (int i = 1; !ended_; ++i) {
            std::this_thread::sleep_for(pause);
            if (i % pauses == 0)
                show(done(), total(), static_cast<double>(timer.elapsed()) / 1000.0);
        }
        std::fputs("\r\033[K", stderr);
    });
}

ProgressLine::~ProgressLine()
{
    ended_ = true;
    if (thread_.joinable())
        thread_.join();
}
