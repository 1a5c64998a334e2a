#include "rig/mockedport.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <stdexcept>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <umockdev.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr const char *wrapper = "umockdev-wrapper";
constexpr const char *triedMark = "KELPORA_RIG_WRAPPED";

[[noreturn]] void fail(const std::string &what)
{
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

bool isPreloaded()
{
    std::ifstream maps("/proc/self/maps");
    std::string line;
    while (std::getline(maps, line)) {
        if (line.find("libumockdev-preload") != std::string::npos)
            return true;
    }
    return false;
}

/// Nobody may open it for writing, not even root.
constexpr const char *forbidden = "/proc/sys/kernel/osrelease";

/// A port's lock file, where programs look for it; see the Filesystem Hierarchy Standard.
std::string lockFileOf(const std::string &port)
{
    for (const char *folder : {"/var/lock", "/etc/locks", "/var/spool/locks", "/var/spool/uucp"}) {
        if (access(folder, R_OK | W_OK) == 0)
            return std::string(folder) + "/LCK.." + port;
    }
    return "/tmp/LCK.." + port;
}

/// The device database writes an underscore for a blank.
std::string property(std::string text)
{
    std::replace(text.begin(), text.end(), ' ', '_');
    return text;
}

} // namespace

bool enterMockedWorld(char *argv[])
{
    if (isPreloaded())
        return true;
    if (std::getenv(triedMark) != nullptr) {
        std::fprintf(stderr, "%s: the mocking library can't be preloaded\n", argv[0]);
        return false;
    }
    setenv(triedMark, "1", 1);
    // The preloaded library comes before the address sanitizer's, which objects unless told.
    const char *asan = std::getenv("ASAN_OPTIONS");
    const std::string options =
        (asan != nullptr ? std::string(asan) + ":" : std::string()) + "verify_asan_link_order=0";
    setenv("ASAN_OPTIONS", options.c_str(), 1);

    std::array<char, 4096> self{};
    const ssize_t length = readlink("/proc/self/exe", self.data(), self.size() - 1);
    if (length > 0) {
        std::string name = wrapper;
        std::vector<char *> arguments = {name.data(), self.data()};
        for (char **argument = argv + 1; *argument != nullptr; ++argument)
            arguments.push_back(*argument);
        arguments.push_back(nullptr);
        execvp(wrapper, arguments.data());
    }
    std::fprintf(stderr, "%s: %s: %s\n", argv[0], wrapper, std::strerror(errno));
    return false;
}

/// The mocked /sys and /dev.
class MockedPort::Testbed
{
public:
    explicit Testbed(const UsbIdentity &identity)
        : testbed_(umockdev_testbed_new())
    {
        for (std::size_t other = 0; other < identity.beside.size(); ++other) {
            UsbIdentity beside = identity;
            beside.port += "other" + std::to_string(other);
            beside.serial = identity.beside[other];
            add(beside, std::to_string(other + 2));
        }
        // Listed last.
        tty_ = add(identity, "9");

        char *root = umockdev_testbed_get_root_dir(testbed_);
        device_ = root + ("/dev/" + identity.port);
        listing_ = root + ("/sys/class/tty/" + identity.port);
        g_free(root);
        std::array<char, 4096> target{};
        if (readlink(listing_.c_str(), target.data(), target.size() - 1) <= 0)
            fail(listing_);
        listed_ = target.data();
        hide();
    }
    ~Testbed() { g_object_unref(testbed_); }
    Testbed(const Testbed &) = delete;
    Testbed &operator=(const Testbed &) = delete;

    // The testbed itself can't take a device away and bring one of that name back.
    void show(const char *terminal) const
    {
        if (symlink(terminal, device_.c_str()) != 0 || symlink(listed_.c_str(), listing_.c_str()) != 0)
            fail(device_);
    }
    void hide() const
    {
        unlink(device_.c_str());
        unlink(listing_.c_str());
    }

    void setSerial(const std::string &serial) const
    {
        const std::string device = "/sys" + tty_;
        umockdev_testbed_set_property(testbed_, device.c_str(), "ID_SERIAL_SHORT", serial.c_str());
    }

private:
    /// Adds a device that is plugged into this place of the bus; returns its path below /sys.
    std::string add(const UsbIdentity &identity, const std::string &place)
    {
        const std::string usb = "/devices/pci0000:00/0000:00:14.0/usb1/1-" + place;
        std::string tty = usb + "/1-" + place + ":1.0/" + identity.port + "/tty/" + identity.port;
        std::string more;
        for (const std::string &one : identity.properties)
            more += "E: " + one + "\n";
        add("P: " + usb +
            "\n"
            "E: SUBSYSTEM=usb\n"
            "E: DEVTYPE=usb_device\n"
            "A: idVendor=0403\n"
            "A: idProduct=6015\n"
            "A: manufacturer=" +
            identity.manufacturer + "\nA: product=" + identity.description +
            "\nA: serial=" + identity.serial + "\n" + more + "\n");
        add("P: " + tty + "\nN: " + identity.port + "\nE: SUBSYSTEM=tty\nE: DEVNAME=/dev/" + identity.port +
            "\n"
            "E: ID_BUS=usb\n"
            "E: ID_VENDOR_ID=0403\n"
            "E: ID_MODEL_ID=6015\n"
            "E: ID_VENDOR=" +
            property(identity.manufacturer) + "\nE: ID_MODEL=" + property(identity.description) +
            "\nE: ID_SERIAL_SHORT=" + identity.serial + "\nA: dev=188:" + place + "\n" + more + "\n");
        return tty;
    }

    void add(const std::string &description)
    {
        GError *error = nullptr;
        if (umockdev_testbed_add_from_string(testbed_, description.c_str(), &error) != 0)
            return;
        const std::string reason = error != nullptr ? error->message : "unknown error";
        g_clear_error(&error);
        throw std::runtime_error("the device can't be mocked: " + reason);
    }

    UMockdevTestbed *testbed_;
    std::string tty_;
    std::string device_;
    std::string listing_;
    std::string listed_;
};

MockedPort::MockedPort(const UsbIdentity &identity)
    : testbed_(std::make_unique<Testbed>(identity))
    , replugSerial_(identity.replugSerial)
    , forbidden_(identity.forbidden)
    , watch_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
{
    if (watch_ < 0)
        fail("inotify");
    if (identity.busy)
        takeLock(lockFileOf(identity.port));
}

MockedPort::~MockedPort()
{
    unplug();
    close(watch_);
    if (lock_ >= 0) {
        unlink(lockFile_.c_str());
        close(lock_);
    }
}

/// Locks the port as another program does that uses it.
void MockedPort::takeLock(const std::string &path)
{
    std::array<char, 256> host{};
    gethostname(host.data(), host.size() - 1);
    const std::string owner =
        std::to_string(getpid()) + "\n" + program_invocation_short_name + "\n" + host.data() + "\n";
    lock_ = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (lock_ < 0 || flock(lock_, LOCK_EX | LOCK_NB) != 0 ||
        write(lock_, owner.data(), owner.size()) != static_cast<ssize_t>(owner.size()))
        fail(path);
    lockFile_ = path;
}

void MockedPort::plug()
{
    if (isPlugged())
        return;
    far_ = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    std::array<char, 64> terminal{};
    if (far_ < 0 || grantpt(far_) != 0 || unlockpt(far_) != 0 ||
        ptsname_r(far_, terminal.data(), terminal.size()) != 0)
        fail("no pseudo-terminal");
    near_ = open(terminal.data(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    termios settings{};
    if (near_ < 0 || tcgetattr(near_, &settings) != 0)
        fail(terminal.data());
    cfmakeraw(&settings);
    tcsetattr(near_, TCSANOW, &settings);
    holders_ = 0;
    if (inotify_add_watch(watch_, terminal.data(), IN_OPEN | IN_CLOSE) < 0)
        fail(terminal.data());
    if (wasPlugged_ && !replugSerial_.empty())
        testbed_->setSerial(replugSerial_);
    wasPlugged_ = true;
    testbed_->show(forbidden_ ? forbidden : terminal.data());
}

void MockedPort::unplug()
{
    if (!isPlugged())
        return;
    testbed_->hide();
    close(far_);
    close(near_);
    far_ = near_ = -1;
    // Nobody's closing counts any more.
    std::array<char, 4096> events{};
    while (read(watch_, events.data(), events.size()) > 0)
        ;
    holders_ = 0;
}

bool MockedPort::isHeld()
{
    alignas(inotify_event) std::array<char, 4096> events{};
    ssize_t size = 0;
    while ((size = read(watch_, events.data(), events.size())) > 0) {
        for (ssize_t at = 0; at < size;) {
            inotify_event event{};
            std::memcpy(&event, events.data() + at, sizeof event);
            at += static_cast<ssize_t>(sizeof event + event.len);
            if ((event.mask & IN_OPEN) != 0)
                ++holders_;
            else if ((event.mask & IN_CLOSE) != 0 && holders_ > 0 && --holders_ == 0)
                discard();
        }
    }
    return holders_ > 0;
}

/// As a driver does with what comes in while its device isn't open.
void MockedPort::discard() const
{
    tcflush(near_, TCIFLUSH);
    ioctl(near_, TIOCNXCL);
}

int MockedPort::unread() const
{
    int bytes = 0;
    return ioctl(near_, FIONREAD, &bytes) == 0 ? bytes : 0;
}
