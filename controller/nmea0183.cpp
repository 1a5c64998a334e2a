#include "controller/nmea0183.h"

#include <algorithm>
#include <array>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <utility>

namespace {

constexpr unsigned long max_length = 161;
constexpr std::size_t number_buffer = 32;
constexpr std::size_t checksum_buffer = 8;

bool IsTerminator(char byte)
{
    return byte == '\0' || byte == '\n' || byte == '\r';
}

bool IsSeparator(char byte)
{
    return byte == ',' || byte == '*';
}

/// An assertion that also holds where NDEBUG is defined.
void Require(bool holds, const char *operation, const char *expression)
{
    if (holds)
        return;
    std::fprintf(stderr, "%s: nmea0183: Assertion `%s' failed.\n", operation, expression);
    std::abort();
}

int HexDigit(char digit)
{
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    if (digit >= 'a' && digit <= 'f')
        return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F')
        return digit - 'A' + 10;
    return -1;
}

/// The program runs in the user's locale, whose decimal point may be a comma, or more than one byte; a
/// sentence's is a full stop.
const char *LocalPoint()
{
    return std::localeconv()->decimal_point;
}

/// `text`, as printed in the user's locale, with a full stop. Its first byte is no decimal point.
std::string WithPoint(std::string text)
{
    const char *point = LocalPoint();
    const std::size_t at = text.find(point, 1);
    if (at != std::string::npos)
        text.replace(at, std::strlen(point), ".");
    return text;
}

double ToDouble(const std::string &text)
{
    const char *point = LocalPoint();
    if (std::strcmp(point, ".") == 0)
        return std::stod(text);
    std::string local = text;
    const std::size_t stop = local.find('.');
    if (stop != std::string::npos)
        local.replace(stop, 1, point);
    return std::stod(local);
}

/// Longer than what any limit here leaves of it, also after a decimal point of several bytes has become one.
template <typename... Values>
std::string Printed(const char *format, Values... values)
{
    std::array<char, 2 * number_buffer> buffer{};
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    std::snprintf(buffer.data(), buffer.size(), format, values...);
#pragma GCC diagnostic pop
    return buffer.data();
}

} // namespace

Nmea::Nmea()
{
    Init(std::string());
}

Nmea::Nmea(const std::string &sentence)
{
    Init(sentence);
}

Nmea::Nmea(const Nmea &other)
{
    Init(other.sentence_);
}

Nmea &Nmea::operator=(const Nmea &other)
{
    if (this != &other)
        Init(std::string(other.sentence_));
    return *this;
}

void Nmea::Init(const std::string &sentence)
{
    fields_.clear();
    valid_ = false;
    sentence_ = sentence;
    std::size_t pieces = 0;
    for (char &byte : sentence_) {
        byte = IsTerminator(byte) ? '\0' : byte;
        pieces += IsSeparator(byte) ? 1U : 0U;
    }
    unsplit_ = sentence_.size();
    num_fields_ = static_cast<unsigned long>(pieces >= 2 ? pieces - 1 : 0);
    lat_string_.clear();
    lon_string_.clear();
    time_string_.clear();
    valid_ = true;
}

bool Nmea::InitAndValidate(const std::string &sentence, unsigned long min_fields)
{
    Init(sentence);
    ChecksumValidate();
    if (num_fields_ < min_fields)
        valid_ = false;
    return valid_;
}

unsigned long Nmea::SplitFields()
{
    SplitRest();
    unsplit_ = sentence_.size();
    SplitRest();
    num_fields_ = static_cast<unsigned long>(fields_.size() >= 2 ? fields_.size() - 1 : 0);
    return num_fields_;
}

// Most sentences are only looked at, for their checksum and the number of their fields.
void Nmea::SplitRest() const
{
    const char *start = sentence_.data();
    const char *const end = start + std::min(std::exchange(unsplit_, 0), sentence_.size());
    // Counted first, so that however many fields there are, room is made for them once.
    fields_.reserve(fields_.size() + static_cast<std::size_t>(std::count_if(start, end, IsSeparator)));
    for (const char *at = start; at != end; ++at) {
        if (IsSeparator(*at)) {
            fields_.emplace_back(start, at);
            start = at + 1;
        }
    }
}

void Nmea::Terminate0()
{
    SplitRest();
    std::replace_if(sentence_.begin(), sentence_.end(), IsTerminator, '\0');
}

unsigned long Nmea::ChecksumCalculate() const
{
    // Widening a signed byte copies its sign: the XOR of the bytes, widened, is that of the widened bytes.
    unsigned checksum = 0;
    const char *at = sentence_.data();
    const char *const end = at + sentence_.size();
    if (at != end && *at == '$')
        ++at;
    for (; at != end && *at != '*' && !IsTerminator(*at); ++at)
        checksum ^= static_cast<unsigned char>(*at);
    return static_cast<unsigned long>(static_cast<signed char>(checksum));
}

long Nmea::ChecksumGet() const
{
    const char *at = sentence_.data();
    const char *const end = at + sentence_.size();
    while (at != end && *at != '*' && !IsTerminator(*at))
        ++at;
    if (at == end || *at != '*')
        return -1;
    unsigned long value = 0;
    bool any = false;
    for (++at; at != end && !IsTerminator(*at); ++at) {
        const int digit = HexDigit(*at);
        if (digit < 0)
            return -1;
        value = value * 16 + static_cast<unsigned long>(digit);
        any = true;
    }
    return any ? static_cast<long>(value) : -1;
}

bool Nmea::ChecksumValidate()
{
    const long stored = ChecksumGet();
    if (stored != -1 && static_cast<unsigned long>(stored) == ChecksumCalculate())
        return true;
    valid_ = false;
    return false;
}

void Nmea::Print() const
{
    SplitRest();
    std::printf("Sentence:%s\n%lu Fields: ", sentence_.c_str(), num_fields_);
    for (const std::string &field : fields_)
        std::printf("%s,", field.c_str());
    std::printf("\n");
}

void Nmea::Close()
{
    sentence_.clear();
    fields_.clear();
    unsplit_ = 0;
    num_fields_ = 0;
    valid_ = false;
}

unsigned long Nmea::VerifyLength()
{
    if (sentence_.size() > max_length)
        valid_ = false;
    return static_cast<unsigned long>(sentence_.size());
}

template <typename Result, typename Convert>
Result Nmea::ConvertField(unsigned long field, Result failure, const Convert &convert)
{
    try {
        SplitRest();
        return convert(fields_.at(field));
    } catch (const std::invalid_argument &error) {
        std::fprintf(stderr, "Invalid argument:%s\n", error.what());
    } catch (const std::out_of_range &error) {
        std::fprintf(stderr, "Out of range:%s\n", error.what());
    }
    valid_ = false;
    return failure;
}

std::string Nmea::FieldAsString(unsigned long field)
{
    Require(field <= num_fields_, "FieldAsString", "field <= num_fields_");
    return ConvertField(field, std::string(), [](const std::string &text) { return text; });
}

int Nmea::FieldAsInt(unsigned long field)
{
    Require(field <= num_fields_, "FieldAsInt", "field <= num_fields_");
    return ConvertField(field, std::numeric_limits<int>::max(),
                        [](const std::string &text) { return std::stoi(text); });
}

long Nmea::FieldAsLong(unsigned long field)
{
    Require(field <= num_fields_, "FieldAsLong", "field <= num_fields_");
    return ConvertField(field, std::numeric_limits<long>::max(),
                        [](const std::string &text) { return std::stol(text); });
}

unsigned long Nmea::FieldAsULong(unsigned long field)
{
    Require(field <= num_fields_, "FieldAsULong", "field <= num_fields_");
    return ConvertField(field, std::numeric_limits<unsigned long>::max(),
                        [](const std::string &text) { return std::stoul(text); });
}

double Nmea::FieldAsDouble(unsigned long field)
{
    Require(field <= num_fields_, "FieldAsDouble", "field <= num_fields_");
    return ConvertField(field, std::numeric_limits<double>::max(), ToDouble);
}

bool Nmea::FieldAsBool(unsigned long field)
{
    Require(field <= num_fields_, "FieldAsBool", "field <= num_fields_");
    return ConvertField(field, false, [](const std::string &text) { return std::stoi(text) != 0; });
}

char Nmea::FieldAsChar(unsigned long field)
{
    Require(field <= num_fields_, "FieldAsChar", "field <= num_fields_");
    return ConvertField(field, '\0', [](const std::string &text) { return text.at(0); });
}

bool Nmea::CoordinateString(unsigned long value_field, unsigned long hemisphere_field, std::string *result)
{
    result->clear();
    const bool was_valid = valid_;
    valid_ = true;
    const char hemisphere =
        ConvertField(hemisphere_field, '\0', [](const std::string &text) { return text.at(0); });
    const double value = valid_ ? FieldAsDouble(value_field) : 0;
    const bool converted = valid_;
    valid_ = converted && was_valid;
    if (!converted)
        return false;
    double degrees = 0;
    const double minutes = std::modf(value / 100, &degrees) * 100;
    *result =
        Limited(WithPoint(Printed("%2.0f%c%07.4f%c", degrees, ':', minutes, hemisphere)), number_buffer);
    return true;
}

std::string Nmea::FieldsAsLatString(unsigned long value_field, unsigned long ns_field)
{
    Require(ns_field <= num_fields_, "FieldsAsLatString", "ns_field <= num_fields_");
    CoordinateString(value_field, ns_field, &lat_string_);
    return lat_string_;
}

std::string Nmea::FieldsAsLonString(unsigned long value_field, unsigned long ew_field)
{
    Require(ew_field <= num_fields_, "FieldsAsLonString", "ew_field <= num_fields_");
    CoordinateString(value_field, ew_field, &lon_string_);
    return lon_string_;
}

std::string Nmea::FieldAsTimeString(unsigned long field)
{
    Require(field <= num_fields_, "FieldAsTimeString", "field <= num_fields_");
    return ConvertField(field, std::string(time_string_), [this](const std::string &text) {
        const unsigned long value = std::stoul(text);
        time_string_ = Limited(Printed("%2ld:%02ld:%02ld", static_cast<long>(value / 10000),
                                       static_cast<long>(value / 100 % 100), static_cast<long>(value % 100)),
                               number_buffer);
        return time_string_;
    });
}

std::string Nmea::Limited(std::string text, std::size_t buffer)
{
    if (text.size() >= buffer) {
        valid_ = false;
        text.resize(buffer - 1);
    }
    return text;
}

unsigned long Nmea::Append(const std::string &text)
{
    sentence_ += text;
    return VerifyLength();
}

unsigned long Nmea::AddBool(bool value)
{
    return Append(Limited(Printed(",%d", value ? 1 : 0), number_buffer));
}

unsigned long Nmea::AddChar(char value)
{
    return Append(Limited(Printed(",%c", value), number_buffer));
}

void Nmea::AddLong(long value)
{
    Append(Limited(Printed(",%ld", value), number_buffer));
}

unsigned long Nmea::AddULong(unsigned long value)
{
    return Append(Limited(Printed(",%lu", value), number_buffer));
}

unsigned long Nmea::AddDouble(double value, unsigned int precision)
{
    // No double has more decimals, and some C libraries make as many as they are told to.
    const int decimals = static_cast<int>(std::min(precision, 1074U));
    return Append(Limited(WithPoint(Printed(",%0.*f", decimals, value)), number_buffer));
}

unsigned long Nmea::AddString(const std::string &value)
{
    return Append("," + value);
}

unsigned long Nmea::AddStatus(bool value)
{
    return Append(value ? ",A" : ",F");
}

void Nmea::AddChecksum()
{
    Append(Limited(Printed("*%02lX", ChecksumCalculate()), checksum_buffer));
}
