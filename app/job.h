#pragma once

#include <QString>

#include <atomic>
#include <functional>

/// What a long job tells the view: a bar from `from` to `to` that stands at `value`, and a line of text.
/// The job has ended once `value` is at least `to`.
struct Progress
{
    int from = 0;
    int to = 0;
    int value = 0;
    QString text;
};

/// Takes a job's reports; called on the job's thread.
using ProgressReport = std::function<void(const Progress &)>;

/// Asks jobs to end early. Raised once, when the program closes; tested by every job in its loops.
class StopFlag
{
public:
    void raise() { raised_.store(true, std::memory_order_relaxed); }
    [[nodiscard]] bool isRaised() const { return raised_.load(std::memory_order_relaxed); }

private:
    std::atomic<bool> raised_{false};
};
