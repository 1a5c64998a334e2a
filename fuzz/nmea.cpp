// The sentence class: the input as a received line, then as a list of things to build.

#include "controller/nmea0183.h"
#include "fuzz/target.h"

#include <cstring>
#include <string>

namespace {

/// Takes values off the input's front; zeros once it is used up.
class Input
{
public:
    Input(const std::uint8_t *data, std::size_t size)
        : rest_(reinterpret_cast<const char *>(data), size)
    {
    }

    [[nodiscard]] bool isEmpty() const { return rest_.empty(); }

    template <typename Value>
    Value take()
    {
        const std::string bytes = takeBytes(sizeof(Value));
        Value value{};
        std::memcpy(&value, bytes.data(), bytes.size());
        return value;
    }

    std::string takeBytes(std::size_t count)
    {
        std::string bytes = rest_.substr(0, count);
        rest_.erase(0, count);
        return bytes;
    }

private:
    std::string rest_;
};

void ReadEveryField(Nmea nmea)
{
    for (unsigned long i = 0; i <= nmea.NumFields(); ++i) {
        static_cast<void>(nmea.FieldAsString(i));
        static_cast<void>(nmea.FieldAsInt(i));
        static_cast<void>(nmea.FieldAsLong(i));
        static_cast<void>(nmea.FieldAsULong(i));
        static_cast<void>(nmea.FieldAsDouble(i));
        static_cast<void>(nmea.FieldAsBool(i));
        static_cast<void>(nmea.FieldAsChar(i));
        constexpr std::size_t longest = 31;
        HOLDS(nmea.FieldAsTimeString(i).size() <= longest);
        HOLDS(nmea.FieldsAsLatString(i, nmea.NumFields() - i).size() <= longest);
        HOLDS(nmea.FieldsAsLonString(nmea.NumFields() - i, i).size() <= longest);
    }
}

void Parse(const std::string &text)
{
    Nmea nmea(text);
    HOLDS(nmea.IsValid());
    const std::string kept = nmea.GetSentence();
    HOLDS(kept.size() == text.size() && kept.find_first_of("\r\n") == std::string::npos);
    const long stored = nmea.ChecksumGet();
    const bool right = stored != -1 && static_cast<unsigned long>(stored) == nmea.ChecksumCalculate();
    HOLDS(nmea.ChecksumValidate() == right && nmea.IsValid() == right);
    HOLDS(Nmea(nmea).NumFields() == nmea.NumFields());
    ReadEveryField(nmea);

    // The fields, put together again, are the text up to its last separator.
    std::string joined;
    for (unsigned long i = 0; i <= nmea.NumFields() && kept.find_first_of(",*") != std::string::npos; ++i)
        joined += nmea.FieldAsString(i) + kept[joined.size() + nmea.FieldAsString(i).size()];
    HOLDS(joined == kept.substr(0, kept.find_last_of(",*") + 1));

    HOLDS(nmea.InitAndValidate(text, 1) == (right && nmea.NumFields() >= 1));
    nmea.SplitFields();
    ReadEveryField(nmea);
    nmea.Close();
    HOLDS(nmea.NumFields() == 0 && nmea.GetSentence().empty() && !nmea.IsValid());
}

void BuildFrom(Input input)
{
    Nmea nmea(input.takeBytes(input.take<std::uint8_t>() % 32));
    while (!input.isEmpty()) {
        const std::size_t before = nmea.GetSentence().size();
        switch (input.take<std::uint8_t>() % 8) {
        case 0:
            nmea.AddBool(input.take<std::uint8_t>() % 2 == 0);
            break;
        case 1:
            nmea.AddChar(input.take<char>());
            break;
        case 2:
            nmea.AddLong(input.take<long>());
            break;
        case 3:
            nmea.AddULong(input.take<unsigned long>());
            break;
        case 4: {
            const auto value = input.take<double>();
            nmea.AddDouble(value, input.take<unsigned int>());
            break;
        }
        case 5:
            nmea.AddString(input.takeBytes(input.take<std::uint8_t>()));
            break;
        case 6:
            nmea.AddStatus(input.take<std::uint8_t>() % 2 == 0);
            break;
        default:
            nmea.AddChecksum();
            break;
        }
        const std::size_t after = nmea.GetSentence().size();
        HOLDS(after > before && nmea.VerifyLength() == after);
        HOLDS(after <= 161 || !nmea.IsValid());
    }
    std::string plain = nmea.GetSentence();
    for (char &byte : plain) {
        if (byte == '*' || byte == '\r' || byte == '\n' || byte <= '\0')
            byte = 'x';
    }
    Nmea built(plain);
    built.AddChecksum();
    HOLDS(Nmea(built.GetSentence() + "\r\n").ChecksumValidate());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    SilenceErrors();
    constexpr std::size_t longest = 2000;
    if (size > longest)
        return 0;
    Parse(std::string(reinterpret_cast<const char *>(data), size));
    BuildFrom(Input(data, size));
    return 0;
}
