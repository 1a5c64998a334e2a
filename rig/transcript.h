#pragma once

#include <chrono>
#include <fstream>
#include <string>

/// Writes what passes over the cable, one line each: seconds since the start, the direction, the text.
///
///       0.104 > $PSEABEEP*15           to the controller
///       0.105 < $PSEABATTERY,3.95*3A   to the program
///       0.106 - port closed            what happened to the port
///
/// The line end "\r\n" isn't shown; any other byte that isn't printable is, as "\xNN".
class Transcript
{
public:
    /// An empty path writes nothing.
    explicit Transcript(const std::string &path);

    [[nodiscard]] bool isGood() const { return path_.empty() || file_.good(); }

    void toController(const std::string &bytes) { add('>', bytes, &toController_); }
    void toProgram(const std::string &bytes) { add('<', bytes, &toProgram_); }
    /// Also writes out lines that have begun.
    void event(const std::string &text);
    /// Lets a reader see all that is written.
    void flush() { file_.flush(); }

private:
    void add(char direction, const std::string &bytes, std::string *begun);
    void write(char direction, const std::string &text);

    std::string path_;
    std::ofstream file_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    std::string toController_;
    std::string toProgram_;
};
