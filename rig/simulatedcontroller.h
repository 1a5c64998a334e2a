#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

/// What a controller keeps.
struct ControllerState
{
    static constexpr std::array<std::int32_t, 5> factorySettings = {1, 1000, 10000, 30, 29};

    std::string version = "1.24";
    double volts = 3.95;
    /// LED flag, logging interval ms, time-lapse interval ms, time-lapse time-out, camera generation.
    std::array<std::int32_t, 5> settings = factorySettings;
    std::vector<std::string> log; ///< bodies of data sentences, see makeDiveLog()
    bool on = true;
    /// Settings answers of four words, and a message instead of the clock when the time has been set.
    bool oldFirmware = false;
    int announced = -1; ///< datasets that it says it holds; -1: as many as it does
    bool boots = false; ///< whenever the port is opened, as the adapter's lines reset it
    int leftovers = 0;  ///< lines of a dump that it still sends when the port is opened
};

/// The controller as a state machine: bytes of commands in, lines of answers out. Knows neither a device nor
/// the time that anything takes.
class SimulatedController
{
public:
    /// Seconds since the epoch.
    using HostTime = std::function<std::int64_t()>;

    explicit SimulatedController(ControllerState state, HostTime hostTime = {});

    /// Takes bytes as they come; returns the lines, each with its line end, that answer the commands which
    /// they complete. What isn't a command is not answered, and nothing is while the controller is off.
    [[nodiscard]] std::vector<std::string> receive(const std::string &bytes);

    /// The lines that it sends by itself when the port is opened.
    [[nodiscard]] std::vector<std::string> greeting() const;

    /// From now on answers `address` ("PSEAVER") with these lines, exactly as they stand.
    void answerInstead(const std::string &address, std::vector<std::string> lines);

    [[nodiscard]] const ControllerState &state() const { return state_; }
    /// The clock, which runs with the host's time from what it was set to.
    [[nodiscard]] std::int64_t clock() const;
    [[nodiscard]] int beeps() const { return beeps_; }

private:
    using Fields = std::vector<std::string>;
    using Lines = std::vector<std::string>;

    [[nodiscard]] Lines answer(const std::string &line);
    [[nodiscard]] Lines answerCommand(const Fields &fields);
    [[nodiscard]] Lines message(const std::string &tag, const std::string &text,
                                const std::string &more) const;
    [[nodiscard]] Lines dump() const;
    [[nodiscard]] Lines settingsAnswer() const;
    [[nodiscard]] Lines clockAnswer() const;

    ControllerState state_;
    HostTime hostTime_;
    std::int64_t clockOffset_ = 0;
    int beeps_ = 0;
    std::string pending_;
    std::map<std::string, Lines> replaced_;
};
