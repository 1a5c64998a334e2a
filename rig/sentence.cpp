#include "rig/sentence.h"

#include <array>
#include <cstdio>

namespace {

unsigned checksum(const std::string &body)
{
    unsigned sum = 0;
    for (const char byte : body)
        sum ^= static_cast<unsigned char>(byte);
    return sum;
}

std::string hex(unsigned value)
{
    std::array<char, 12> text{};
    std::snprintf(text.data(), text.size(), "%02X", value);
    return text.data();
}

} // namespace

std::string makeSentence(const std::string &body)
{
    return "$" + body + "*" + hex(checksum(body));
}

bool parseSentence(const std::string &line, std::vector<std::string> *fields)
{
    const std::size_t end = line.find_last_not_of("\r\n") + 1;
    const std::size_t star = line.find('*');
    if (star == std::string::npos || line.front() != '$' || star + 3 != end)
        return false;
    const std::string body = line.substr(1, star - 1);
    if (line.substr(star + 1, 2) != hex(checksum(body)))
        return false;
    fields->clear();
    std::size_t start = 0;
    for (std::size_t comma = body.find(','); comma != std::string::npos; comma = body.find(',', start)) {
        fields->push_back(body.substr(start, comma - start));
        start = comma + 1;
    }
    fields->push_back(body.substr(start));
    return true;
}
