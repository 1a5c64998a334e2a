#include "rig/transcript.h"

#include <array>
#include <cstdio>

namespace {

std::string printable(std::string line)
{
    constexpr const char *lineEnd = "\r\n";
    if (line.size() >= 2 && line.compare(line.size() - 2, 2, lineEnd) == 0)
        line.erase(line.size() - 2);
    std::string text;
    for (const char byte : line) {
        if (byte >= ' ' && byte <= '~') {
            text += byte;
            continue;
        }
        std::array<char, 8> escape{};
        std::snprintf(escape.data(), escape.size(), "\\x%02X", static_cast<unsigned>(byte) & 0xffU);
        text += escape.data();
    }
    return text;
}

} // namespace

Transcript::Transcript(const std::string &path)
    : path_(path)
{
    if (!path_.empty())
        file_.open(path_, std::ios::trunc);
}

void Transcript::event(const std::string &text)
{
    if (!toController_.empty())
        write('>', toController_);
    if (!toProgram_.empty())
        write('<', toProgram_);
    toController_.clear();
    toProgram_.clear();
    write('-', text);
    flush();
}

void Transcript::add(char direction, const std::string &bytes, std::string *begun)
{
    if (path_.empty())
        return;
    *begun += bytes;
    std::size_t start = 0;
    for (std::size_t end = begun->find('\n'); end != std::string::npos; end = begun->find('\n', start)) {
        write(direction, begun->substr(start, end + 1 - start));
        start = end + 1;
    }
    begun->erase(0, start);
}

void Transcript::write(char direction, const std::string &text)
{
    if (path_.empty())
        return;
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start_;
    std::array<char, 32> stamp{};
    std::snprintf(stamp.data(), stamp.size(), "%9.3f %c ", time.count(), direction);
    file_ << stamp.data() << printable(text) << '\n';
}
