#include "rig/faults.h"

#include "rig/sentence.h"

#include <algorithm>
#include <utility>

namespace {

using std::chrono::microseconds;

constexpr int bitsPerByte = 10;
constexpr int baudRate = 115200;
/// Short enough for a reader to see single bytes, long enough for it to be woken between two.
constexpr microseconds byteGap{100};
/// What an adapter hands over at once on a slow line.
constexpr std::size_t slowChunk = 16;

microseconds wireTime(std::size_t bytes)
{
    return microseconds(bytes * bitsPerByte * 1000000 / baudRate);
}

bool endsDump(const std::string &line)
{
    return line.find("DATA END") != std::string::npos;
}

bool endsErase(const std::string &line)
{
    return line.find("PSEAFORMAT,MEMORY,COMPLETE") != std::string::npos;
}

} // namespace

FaultyCable::FaultyCable(const Faults &faults)
    : faults_(faults)
{
}

std::vector<Step> FaultyCable::deliver(const std::vector<std::string> &lines)
{
    std::vector<Step> steps;
    steps.reserve(lines.size());
    std::string burst;
    microseconds wait = faults_.delay;
    const auto appendAfterWait = [&](const std::string &bytes) {
        if (bytes.empty())
            return;
        const std::size_t first = steps.size();
        append(bytes, &steps);
        steps[first].wait += std::exchange(wait, microseconds(0));
    };
    const auto flush = [&] { appendAfterWait(std::exchange(burst, {})); };
    for (const std::string &line : lines) {
        if (faults_.mute || (faults_.muteAfter >= 0 && answers_ >= faults_.muteAfter))
            break;
        if (faults_.noEnd && endsDump(line))
            continue;
        if (answers_ == faults_.unplugAfter && !unplugged_) {
            // Only possible before the very first answer: later it is pulled right after the line.
            flush();
            unplugged_ = true;
            steps.push_back({microseconds(0), {}, true});
            break;
        }
        ++answers_;
        if (endsErase(line)) {
            flush();
            wait += faults_.eraseTime;
        }
        for (const std::string &sent : {faults_.noise ? noise(line) : std::string(), damaged(line)}) {
            if (faults_.burst)
                burst += sent;
            else
                appendAfterWait(sent);
        }
        if (answers_ == faults_.unplugAfter && !unplugged_) {
            flush();
            unplugged_ = true;
            steps.push_back({microseconds(0), {}, true});
            break;
        }
    }
    flush();
    return steps;
}

std::string FaultyCable::noise(const std::string &line)
{
    std::string damaged = line;
    // None of these begins as the line does: a damaged data line is a lost one, see badChecksumEvery.
    switch (noises_++ % 4) {
    case 0:
        damaged[1] ^= 1;
        return damaged;
    case 1:
        return makeSentence("GPGLL,4736.1234,N,00741.5678,E,204644,A") + "\r\n";
    case 2:
        return line.substr(line.size() / 2);
    default:
        return "\xff\xfe\x80\x01*,$,*\x7f\r\n";
    }
}

/// The answer line that was counted last, as it arrives.
std::string FaultyCable::damaged(const std::string &line) const
{
    const auto isTurn = [this](int every) { return every > 0 && answers_ % every == 0; };
    std::string arrives = line;
    const std::size_t star = line.rfind('*');
    if (isTurn(faults_.badChecksumEvery) && star != std::string::npos && star + 1 < line.size())
        arrives[star + 1] = line[star + 1] == '0' ? '1' : '0';
    if (isTurn(faults_.loseByteEvery))
        arrives.erase(line.size() / 2, 1);
    if (isTurn(faults_.loseEndEvery))
        arrives.erase(arrives.find_last_not_of("\r\n") + 1);
    return arrives;
}

void FaultyCable::append(const std::string &line, std::vector<Step> *steps) const
{
    const std::size_t wanted = faults_.pieces > 0 ? static_cast<std::size_t>(faults_.pieces) : 1;
    const std::size_t pieces = std::min(wanted, line.size());
    for (std::size_t piece = 0; piece < pieces; ++piece) {
        const std::size_t begin = line.size() * piece / pieces;
        const std::size_t end = line.size() * (piece + 1) / pieces;
        const std::size_t chunk = faults_.bytewise ? 1 : faults_.slow ? slowChunk : end - begin;
        for (std::size_t at = begin; at < end; at += chunk) {
            Step step;
            step.bytes = line.substr(at, std::min(chunk, end - at));
            if (faults_.bytewise)
                step.wait = byteGap;
            if (faults_.slow)
                step.wait = std::max(step.wait, wireTime(step.bytes.size()));
            if (piece > 0 && at == begin)
                step.wait += faults_.pause;
            steps->push_back(std::move(step));
        }
    }
}
