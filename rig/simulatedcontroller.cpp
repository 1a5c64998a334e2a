#include "rig/simulatedcontroller.h"

#include "rig/sentence.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <utility>

namespace {

std::int64_t systemTime()
{
    using std::chrono::system_clock;
    return std::chrono::duration_cast<std::chrono::seconds>(system_clock::now().time_since_epoch()).count();
}

std::string line(const std::string &body)
{
    return makeSentence(body) + "\r\n";
}

std::int64_t number(const std::string &field)
{
    return std::strtoll(field.c_str(), nullptr, 10);
}

} // namespace

SimulatedController::SimulatedController(ControllerState state, HostTime hostTime)
    : state_(std::move(state))
    , hostTime_(hostTime ? std::move(hostTime) : HostTime(systemTime))
{
}

void SimulatedController::answerInstead(const std::string &address, std::vector<std::string> lines)
{
    replaced_[address] = std::move(lines);
}

std::int64_t SimulatedController::clock() const
{
    return hostTime_() + clockOffset_;
}

std::vector<std::string> SimulatedController::receive(const std::string &bytes)
{
    Lines lines;
    pending_ += bytes;
    for (std::size_t end = pending_.find('\n'); end != std::string::npos; end = pending_.find('\n')) {
        const Lines answers = answer(pending_.substr(0, end + 1));
        lines.insert(lines.end(), answers.begin(), answers.end());
        pending_.erase(0, end + 1);
    }
    return lines;
}

SimulatedController::Lines SimulatedController::answer(const std::string &line)
{
    Fields fields;
    if (!state_.on || !parseSentence(line, &fields))
        return {};
    Lines own = answerCommand(fields);
    const auto replaced = replaced_.find(fields[0]);
    return replaced == replaced_.end() ? own : replaced->second;
}

SimulatedController::Lines SimulatedController::answerCommand(const Fields &fields)
{
    const std::string &command = fields[0];
    if (command == "PSEABEEP") {
        ++beeps_;
        return {};
    }
    if (command == "PSEAVER") {
        Lines lines = message(command, "KELPORA 360", state_.version);
        char volts[32];
        std::snprintf(volts, sizeof volts, "PSEABATTERY,%.2f", state_.volts);
        lines.push_back(line(volts));
        return lines;
    }
    if (command == "PSEAGETSETTINGS")
        return settingsAnswer();
    if (command == "PSEASETSETTINGS" && fields.size() > state_.settings.size()) {
        for (std::size_t word = 0; word < state_.settings.size(); ++word)
            state_.settings[word] = static_cast<std::int32_t>(number(fields[word + 1]));
        return settingsAnswer();
    }
    if (command == "PSEAFACTORYSETTINGS") {
        state_.settings = ControllerState::factorySettings;
        return settingsAnswer();
    }
    if (command == "PSEASETRTC" && fields.size() > 1) {
        clockOffset_ = number(fields[1]) - hostTime_();
        return state_.oldFirmware ? message(command, "CLOCK", "TIME SET") : clockAnswer();
    }
    if (command == "PSEAFORMAT") {
        Lines lines = message(command, "MEMORY", "ERASING");
        state_.log.clear();
        const Lines done = message(command, "MEMORY", "COMPLETE");
        lines.insert(lines.end(), done.begin(), done.end());
        return lines;
    }
    if (command == "PSEANUMDUMP")
        return {line("PSEANUMDATA," + (state_.announced < 0 ? std::to_string(state_.log.size())
                                                            : std::to_string(state_.announced)))};
    if (command == "PSEADUMP")
        return dump();
    if (command == "PSEAOFF") {
        state_.on = false;
        return message(command, "POWER OFF", "GOODBYE");
    }
    if (command == "PSEAREBOOT")
        return message(command, "BOOT", state_.version);
    return {};
}

SimulatedController::Lines SimulatedController::greeting() const
{
    if (!state_.on)
        return {};
    Lines lines;
    if (state_.leftovers > 0) {
        lines = dump();
        const auto left = std::min(lines.size(), static_cast<std::size_t>(state_.leftovers));
        lines.erase(lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(left));
    }
    if (state_.boots) {
        lines.emplace_back("\xff\xfe\x80\x01KELPORA 360\r\n");
        lines.push_back(message("PSEAREBOOT", "BOOT", state_.version).front());
    }
    return lines;
}

SimulatedController::Lines SimulatedController::dump() const
{
    Lines lines;
    lines.reserve(state_.log.size() + 1);
    for (const std::string &entry : state_.log)
        lines.push_back(line(entry));
    lines.push_back(message("PSEADUMP", "MEMORY", "DATA END").front());
    return lines;
}

SimulatedController::Lines SimulatedController::message(const std::string &tag, const std::string &text,
                                                        const std::string &more) const
{
    return {line("PSEAMSG," + std::to_string(clock()) + "," + tag + "," + text + "," + more)};
}

SimulatedController::Lines SimulatedController::settingsAnswer() const
{
    std::string body = "PSEASETTINGS";
    const std::size_t words = state_.settings.size() - (state_.oldFirmware ? 1 : 0);
    for (std::size_t word = 0; word < words; ++word)
        body += "," + std::to_string(state_.settings[word]);
    return {line(body)};
}

SimulatedController::Lines SimulatedController::clockAnswer() const
{
    const auto now = static_cast<std::time_t>(clock());
    std::tm utc{};
    gmtime_r(&now, &utc);
    char body[64];
    std::strftime(body, sizeof body, "PSEACLOCK,%Y,%m,%d,%H,%M,%S,%w,A", &utc);
    return {line(body)};
}
