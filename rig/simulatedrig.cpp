#include "rig/simulatedrig.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <iterator>
#include <poll.h>
#include <stdexcept>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// How often to look whether the program has read all before the cable is pulled, and how many looks in a
/// row must find nothing: on a busy machine bytes take a while from the far end to the near end.
constexpr milliseconds lookGap{5};
constexpr int quietLooksWanted = 80;

} // namespace

SimulatedRig::SimulatedRig(const RigOptions &options)
    : transcript_(options.transcript)
    , port_(options.usb)
    , controller_(options.controller)
    , faults_(options.faults)
    , cable_(options.faults)
    , replugAfter_(options.replugAfter)
    , wake_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))
{
    if (wake_ < 0 || !transcript_.isGood())
        throw std::runtime_error(wake_ < 0 ? "no event descriptor" : "can't write " + options.transcript);
    if (options.plugAfter.count() > 0)
        plugAt_ = steady_clock::now() + options.plugAfter;
    else
        plugNow();
    thread_ = std::thread(&SimulatedRig::serve, this);
}

SimulatedRig::~SimulatedRig()
{
    stop_ = true;
    wake();
    thread_.join();
    close(wake_);
}

void SimulatedRig::wake() const
{
    eventfd_write(wake_, 1);
}

void SimulatedRig::unplug()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    unplugNow();
    wake();
}

void SimulatedRig::plug()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    plugNow();
    wake();
}

void SimulatedRig::answerInstead(const std::string &address, std::vector<std::string> lines)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    controller_.answerInstead(address, std::move(lines));
}

std::string SimulatedRig::received() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return received_;
}

ControllerState SimulatedRig::state() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return controller_.state();
}

std::int64_t SimulatedRig::clock() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return controller_.clock();
}

int SimulatedRig::beeps() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return controller_.beeps();
}

void SimulatedRig::plugNow()
{
    plugAt_ = Time::max();
    if (port_.isPlugged())
        return;
    port_.plug();
    transcript_.event("plugged in");
}

void SimulatedRig::unplugNow()
{
    if (!port_.isPlugged())
        return;
    steps_.clear();
    written_ = 0;
    blocked_ = false;
    held_ = false;
    // Said first: the program may react before a line could be written.
    transcript_.event("cable pulled");
    port_.unplug();
    if (replugAfter_.count() >= 0)
        plugAt_ = steady_clock::now() + replugAfter_;
}

void SimulatedRig::serve()
{
    std::unique_lock<std::mutex> lock(mutex_);
    while (!stop_) {
        const int events = (faults_.halfOpen ? 0 : POLLIN) | (blocked_ ? POLLOUT : 0);
        std::array<pollfd, 3> wanted = {{{wake_, POLLIN, 0},
                                         {port_.openings(), POLLIN, 0},
                                         {port_.farEnd(), static_cast<short>(events), 0}}};
        const int patience = millisecondsToWait();
        lock.unlock();
        // Shorter waits than poll() can measure are slept through below.
        poll(wanted.data(), wanted.size(), patience);
        lock.lock();
        eventfd_t wakings = 0;
        eventfd_read(wake_, &wakings);
        if (steady_clock::now() >= plugAt_)
            plugNow();
        if (!port_.isPlugged())
            continue;
        takeNotice();
        takeCommands();
        blocked_ = false;
        deliver();
        transcript_.flush();
    }
}

int SimulatedRig::millisecondsToWait() const
{
    Time next = plugAt_;
    if (!steps_.empty() && !blocked_)
        next = std::min(next, due_);
    if (next == Time::max())
        return -1;
    const auto left = std::chrono::duration_cast<milliseconds>(next - steady_clock::now());
    return static_cast<int>(std::clamp<milliseconds::rep>(left.count(), 0, 1000));
}

void SimulatedRig::takeNotice()
{
    const bool held = port_.isHeld();
    if (held == held_)
        return;
    transcript_.event(held ? "port opened" : "port closed");
    held_ = held;
    if (!held)
        return;
    std::vector<Step> greeting;
    for (const std::string &line : controller_.greeting())
        greeting.push_back({std::chrono::microseconds(0), line});
    queue(std::move(greeting));
}

void SimulatedRig::queue(std::vector<Step> steps)
{
    if (steps_.empty() && !steps.empty())
        due_ = steady_clock::now() + steps.front().wait;
    steps_.insert(steps_.end(), std::make_move_iterator(steps.begin()), std::make_move_iterator(steps.end()));
}

void SimulatedRig::takeCommands()
{
    std::array<char, 4096> bytes{};
    ssize_t size = 0;
    while (!faults_.halfOpen && (size = read(port_.farEnd(), bytes.data(), bytes.size())) > 0) {
        const std::string command(bytes.data(), static_cast<std::size_t>(size));
        received_ += command;
        transcript_.toController(command);
        if (!faults_.deafInDump || steps_.empty())
            queue(cable_.deliver(controller_.receive(command)));
    }
}

/// Does what is due. Steps less than a millisecond apart are waited for here, as poll() can't.
void SimulatedRig::deliver()
{
    constexpr std::chrono::microseconds shortWait{1000};
    constexpr milliseconds turn{20};
    const Time begin = steady_clock::now();
    while (!steps_.empty() && !stop_) {
        const auto left = due_ - steady_clock::now();
        if (left > shortWait || steady_clock::now() - begin > turn)
            return;
        if (left.count() > 0)
            std::this_thread::sleep_for(left);
        if (steps_.front().unplug) {
            quietLooks_ = port_.unread() == 0 || !held_ ? quietLooks_ + 1 : 0;
            if (quietLooks_ < quietLooksWanted) {
                due_ = steady_clock::now() + lookGap;
                return;
            }
            quietLooks_ = 0;
            unplugNow();
            return;
        }
        if (!writeStep(steps_.front().bytes))
            return;
        steps_.pop_front();
        if (!steps_.empty())
            due_ = std::max(due_ + steps_.front().wait, steady_clock::now() - turn);
    }
}

/// True when all of it has been written. While nobody holds the port it is written into the void.
bool SimulatedRig::writeStep(const std::string &bytes)
{
    while (held_ && written_ < bytes.size()) {
        const ssize_t size = write(port_.farEnd(), bytes.data() + written_, bytes.size() - written_);
        if (size < 0 && errno == EAGAIN) {
            blocked_ = true;
            return false;
        }
        if (size < 0)
            break;
        written_ += static_cast<std::size_t>(size);
    }
    written_ = 0;
    if (held_)
        transcript_.toProgram(bytes);
    return true;
}
