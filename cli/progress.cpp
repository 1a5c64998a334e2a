#include "cli/progress.h"

#include "checks/pace.h"
#include "platform/terminal.h"

#include <QElapsedTimer>

#include <chrono>
#include <cstdio>
#include <utility>

namespace {

void show(qint64 done, qint64 total, double seconds)
{
    const QString pace = paceOf(done, total, seconds);
    if (pace.isEmpty())
        return;
    std::fprintf(stderr, "\r%s \033[K", pace.toUtf8().constData());
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
