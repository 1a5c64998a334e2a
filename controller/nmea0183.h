#pragma once

#include <string>
#include <vector>

/// One sentence in the form of NMEA 0183: "$ADDRESS,field,...*hh", parsed from text or built field by field.
///
/// Fields are numbered from 1; 0 is the address. hh is the XOR of the bytes between "$" and "*". Nothing here
/// throws: a conversion that fails says so on standard error, clears IsValid() and returns the stated value.
/// A field index above NumFields() is a programming error and aborts, in release builds too.
class Nmea
{
public:
    Nmea();
    explicit Nmea(const std::string &sentence);
    /// Takes only the other's text and parses it anew.
    Nmea(const Nmea &other);
    Nmea &operator=(const Nmea &other);
    Nmea(Nmea &&other) noexcept = default;
    Nmea &operator=(Nmea &&other) noexcept = default;
    ~Nmea() = default;

    /// Parses `sentence`; line ends in it become NUL bytes. Valid afterwards, whatever the checksum.
    void Init(const std::string &sentence);
    /// Parses `sentence`; valid, and true returned, if its checksum is right and it has at least
    /// `min_fields` data fields.
    bool InitAndValidate(const std::string &sentence, unsigned long min_fields);
    /// Appends the pieces before each "," and "*" to the fields. What follows the last one is no field.
    unsigned long SplitFields();
    /// Overwrites every CR, LF and NUL with NUL.
    void Terminate0();

    /// The XOR over signed bytes, widened: a sentence with bytes above 127 may give more than 8 bits.
    [[nodiscard]] unsigned long ChecksumCalculate() const;
    /// The checksum in the text; -1 if there is none or it isn't hexadecimal.
    [[nodiscard]] long ChecksumGet() const;
    /// Whether both agree; clears IsValid() if not.
    bool ChecksumValidate();

    [[nodiscard]] std::string GetSentence() const { return sentence_; }
    [[nodiscard]] unsigned long NumFields() const { return num_fields_; }
    [[nodiscard]] bool IsValid() const { return valid_; }
    /// Writes the sentence and its fields to standard output.
    void Print() const;
    /// Empties the sentence; invalid afterwards.
    void Close();
    /// The sentence's length in bytes; from 162 on it is invalid.
    unsigned long VerifyLength();

    [[nodiscard]] std::string FieldAsString(unsigned long field);
    [[nodiscard]] int FieldAsInt(unsigned long field);             ///< largest int on failure
    [[nodiscard]] long FieldAsLong(unsigned long field);           ///< largest long on failure
    [[nodiscard]] unsigned long FieldAsULong(unsigned long field); ///< all ones on failure
    [[nodiscard]] double FieldAsDouble(unsigned long field); ///< largest double on failure; "." in any locale
    [[nodiscard]] bool FieldAsBool(unsigned long field);     ///< false on failure
    [[nodiscard]] char FieldAsChar(unsigned long field);     ///< NUL on failure
    /// "DD:MM.mmmmN" from a value DDMM.mmmm and a hemisphere; empty on failure.
    [[nodiscard]] std::string FieldsAsLatString(unsigned long value_field, unsigned long ns_field);
    /// The same for a longitude.
    [[nodiscard]] std::string FieldsAsLonString(unsigned long value_field, unsigned long ew_field);
    /// "hh:mm:ss" from hhmmss; on failure the previous result.
    [[nodiscard]] std::string FieldAsTimeString(unsigned long field);

    // Each appends to the sentence and returns its new length.
    unsigned long AddBool(bool value);
    unsigned long AddChar(char value);
    void AddLong(long value);
    unsigned long AddULong(unsigned long value);
    unsigned long AddDouble(double value, unsigned int precision);
    unsigned long AddString(const std::string &value);
    unsigned long AddStatus(bool value); ///< "A" or "F"
    void AddChecksum();                  ///< to be called last

private:
    template <typename Result, typename Convert>
    Result ConvertField(unsigned long field, Result failure, const Convert &convert);
    bool CoordinateString(unsigned long value_field, unsigned long hemisphere_field, std::string *result);
    /// What a buffer of that many bytes holds of `text`; invalid if that isn't all.
    std::string Limited(std::string text, std::size_t buffer);
    unsigned long Append(const std::string &text);
    void SplitRest() const;

    std::string sentence_;
    mutable std::vector<std::string> fields_;
    mutable std::size_t unsplit_ = 0; ///< the length of the sentence's beginning that is not in `fields_` yet
    unsigned long num_fields_ = 0;
    std::string lat_string_;
    std::string lon_string_;
    std::string time_string_;
    bool valid_ = false;
};
