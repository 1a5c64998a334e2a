#pragma once

#include <atomic>

/// Asks jobs to end early. Raised once, when the program closes; tested by every job in its loops.
class StopFlag
{
public:
    void raise() { raised_.store(true, std::memory_order_relaxed); }
    [[nodiscard]] bool isRaised() const { return raised_.load(std::memory_order_relaxed); }

private:
    std::atomic<bool> raised_{false};
};
