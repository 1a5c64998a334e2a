#pragma once

#include <chrono>
#include <string>
#include <vector>

/// What goes wrong between controller and program. All can be combined.
struct Faults
{
    bool burst = false;       ///< all answers of a command in one write
    bool bytewise = false;    ///< every byte in a write of its own
    int pieces = 0;           ///< every line in that many pieces, with a pause between them; 0: whole
    bool slow = false;        ///< 115,200 baud in real time
    bool noise = false;       ///< a damaged or foreign line before every answer line
    bool mute = false;        ///< no answer at all
    int muteAfter = -1;       ///< none after that many answer lines; -1: never
    int badChecksumEvery = 0; ///< every that many-th answer line has a wrong checksum; 0: none
    int loseEndEvery = 0;     ///< every that many-th answer line comes without its line end; 0: none
    int loseByteEvery = 0;    ///< of every that many-th answer line the byte in the middle is lost; 0: none
    int unplugAfter = -1;     ///< after that many answer lines the cable is pulled, once; -1: never
    bool noEnd = false;       ///< a dump without its end message
    std::chrono::microseconds pause{40000}; ///< between pieces
    std::chrono::milliseconds delay{0};     ///< before the answer to a command
    std::chrono::milliseconds eraseTime{0}; ///< before an erase is reported as done
    bool deafInDump = false; ///< what comes in while it is still answering is lost, as busy firmware loses it
    bool halfOpen = false;   ///< the device takes what is written, and nobody reads it
};

/// One thing to do towards the program.
struct Step
{
    std::chrono::microseconds wait{0}; ///< before it
    std::string bytes;                 ///< to be written at once
    bool unplug = false;               ///< pull the cable instead
};

/// Turns a controller's answers into what the cable delivers.
class FaultyCable
{
public:
    explicit FaultyCable(const Faults &faults);

    /// The steps that deliver the answer lines of one or more commands.
    [[nodiscard]] std::vector<Step> deliver(const std::vector<std::string> &lines);

private:
    [[nodiscard]] std::string noise(const std::string &line);
    [[nodiscard]] std::string damaged(const std::string &line) const;
    void append(const std::string &line, std::vector<Step> *steps) const;

    Faults faults_;
    int answers_ = 0; ///< answer lines so far, noise not counted
    int noises_ = 0;
    bool unplugged_ = false;
};
