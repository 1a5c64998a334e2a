#pragma once

#include "rig/faults.h"
#include "rig/mockedport.h"
#include "rig/simulatedcontroller.h"
#include "rig/transcript.h"

#include <atomic>
#include <chrono>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct RigOptions
{
    UsbIdentity usb;
    ControllerState controller;
    Faults faults;
    std::chrono::milliseconds plugAfter{0};    ///< from the start on
    std::chrono::milliseconds replugAfter{-1}; ///< from an unplugging on; negative: never
    std::string transcript;                    ///< file; empty: none
};

/// A simulated controller on a mocked serial device, served by a thread of its own from construction to
/// destruction. What it offers is safe to call from any thread.
class SimulatedRig
{
public:
    /// Returns when the device is there, unless it is to come later. Throws std::runtime_error.
    explicit SimulatedRig(const RigOptions &options);
    ~SimulatedRig();
    SimulatedRig(const SimulatedRig &) = delete;
    SimulatedRig &operator=(const SimulatedRig &) = delete;

    void unplug();
    void plug();
    /// From now on answers `address` with these lines, exactly as they stand.
    void answerInstead(const std::string &address, std::vector<std::string> lines);

    /// Every byte that came from the program.
    [[nodiscard]] std::string received() const;
    [[nodiscard]] ControllerState state() const;
    [[nodiscard]] std::int64_t clock() const;
    [[nodiscard]] int beeps() const;

private:
    using Time = std::chrono::steady_clock::time_point;

    void serve();
    void plugNow();
    void unplugNow();
    void takeNotice();
    void takeCommands();
    void queue(std::vector<Step> steps);
    void deliver();
    bool writeStep(const std::string &bytes);
    [[nodiscard]] int millisecondsToWait() const;
    void wake() const;

    mutable std::mutex mutex_; ///< guards all but the thread, the flag and the wake-up
    Transcript transcript_;
    MockedPort port_;
    SimulatedController controller_;
    Faults faults_;
    FaultyCable cable_;
    std::chrono::milliseconds replugAfter_;
    std::deque<Step> steps_;
    std::size_t written_ = 0; ///< bytes of the first step
    Time due_;                ///< of the first step
    Time plugAt_ = Time::max();
    int quietLooks_ = 0;
    bool blocked_ = false;
    bool held_ = false;
    std::string received_;
    int wake_ = -1;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};
