#pragma once

#include <memory>
#include <string>
#include <vector>

/// How a USB serial device presents itself.
struct UsbIdentity
{
    std::string port = "ttyUSB0";
    std::string serial = "KELPORA0001";
    std::string manufacturer = "Kelpora";
    std::string description = "Kelpora 360 Controller";
    std::string replugSerial;            ///< from the second plugging on; empty: the same
    std::vector<std::string> properties; ///< "NAME=VALUE", what the device database adds
    std::vector<std::string> beside;     ///< serial numbers of other devices, at which nobody answers
    bool busy = false;                   ///< another program holds the port
    bool forbidden = false;              ///< this user may not open the port
};

/// Replaces this program by itself under the mocking library, unless it runs there already. To be called
/// first of all; false with the reason on standard error if that isn't possible.
[[nodiscard]] bool enterMockedWorld(char *argv[]);

/// A mocked USB serial device: this process and its children list and open it like any other. One per
/// process; the mocked world around it has no other serial port but those beside it.
class MockedPort
{
public:
    /// Makes the device, not plugged in yet. Throws std::runtime_error if that fails.
    explicit MockedPort(const UsbIdentity &identity);
    ~MockedPort();
    MockedPort(const MockedPort &) = delete;
    MockedPort &operator=(const MockedPort &) = delete;

    /// Plugs it in: a fresh device of the same name. Throws std::runtime_error if that fails.
    void plug();
    /// Pulls the cable: the near end's reads and writes fail from then on.
    void unplug();
    [[nodiscard]] bool isPlugged() const { return far_ >= 0; }

    /// The far end, non-blocking; -1 while unplugged.
    [[nodiscard]] int farEnd() const { return far_; }
    /// Becomes readable when the near end is opened or closed; for poll().
    [[nodiscard]] int openings() const { return watch_; }
    /// Takes notice of openings and closings: whether the near end is held open now. After the last closing
    /// what was left unread is gone.
    [[nodiscard]] bool isHeld();
    /// How many bytes the near end has not read yet.
    [[nodiscard]] int unread() const;

private:
    void discard() const;
    void takeLock(const std::string &path);

    class Testbed;
    std::unique_ptr<Testbed> testbed_;
    std::string replugSerial_;
    bool forbidden_ = false;
    bool wasPlugged_ = false;
    int lock_ = -1; ///< another program's; -1: none
    std::string lockFile_;
    int far_ = -1;
    int near_ = -1; ///< ours: keeps the far end readable while nobody else holds the port
    int watch_ = -1;
    int holders_ = 0;
};
