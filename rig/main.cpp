#include "rig/divelog.h"
#include "rig/simulatedrig.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <fstream>
#include <getopt.h>
#include <optional>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int usageError = 2;
constexpr int notFound = 127;
constexpr int bySignal = 128;

constexpr const char *usage = R"(Usage: kelpora360-rig [options] -- program [arguments]

Runs a program with a simulated controller on a mocked USB serial port. Ends with the program's exit code.

The device
  --port NAME             name of the port (ttyUSB0). Two rigs on one machine need different names:
                          the lock file of a port is the machine's
  --serial TEXT           serial number (KELPORA0001)
  --manufacturer TEXT     (Kelpora)
  --description TEXT      (Kelpora 360 Controller)
  --property NAME=VALUE   what the device database says of it besides; may be given again
  --plug-after SECONDS    plug it in that long after the start
  --replug-after SECONDS  plug it in again that long after it was pulled
  --replug-serial TEXT    its serial number from then on: another controller in its place
  --beside TEXT           another device of this serial number, listed before it, at which nobody answers;
                          may be given again
  --busy                  another program holds the port
  --forbidden             this user may not open the port
  --half-open             it takes what is written, and nobody reads it

The controller
  --battery VOLTS         battery voltage (3.95)
  --firmware TEXT         firmware version (1.24)
  --settings A,B,C,D,E    LED flag, logging interval ms, time-lapse interval ms, time-lapse time-out,
                          camera generation (1,1000,10000,30,29)
  --old-firmware          settings of four words; a message instead of the clock when the time is set
  --off                   switched off
  --runs N                recording runs in its memory (2)
  --datasets N            entries of each run, one a second (120)
  --start SECONDS         when the first run started, since the epoch (1550782004)
  --wrap                  the 16-bit times wrap within each run
  --two-runs-a-minute     all runs start in the same minute
  --log FILE              memory read from a file: the fields of a data sentence a line

What goes wrong; all can be combined
  --burst                 all answers of a command in one write
  --bytewise              every byte in a write of its own
  --pieces[=N]            every line in N pieces (3) with a pause of 40 ms between them
  --slow                  115,200 baud in real time
  --noise                 a damaged or foreign line before every answer line
  --mute                  no answer
  --mute-after N          none after N answer lines
  --bad-checksum-every N  every N-th answer line has a wrong checksum
  --unplug-after N        the cable is pulled after N answer lines
  --lose-end-every N      every N-th answer line comes without its line end
  --lose-byte-every N     of every N-th answer line the byte in the middle is lost
  --no-end                a dump without its end message
  --announce N            the count tells N datasets, whatever the dump brings
  --delay SECONDS         before the answer to each command
  --erase-time SECONDS    before an erase is reported as done
  --deaf-in-dump          a command that comes in while it is still answering is lost
  --boots                 noise and a boot message whenever the port is opened
  --leftovers N           whenever the port is opened, the last N lines of an earlier dump

  --transcript FILE       write both directions there, with times
  --state FILE            write there at the end what the controller keeps

SIGUSR1 pulls the cable.
)";

enum Option : int {
    Port = 256,
    Serial,
    Manufacturer,
    Description,
    Property,
    PlugAfter,
    ReplugAfter,
    ReplugSerial,
    Beside,
    Busy,
    Forbidden,
    HalfOpen,
    Battery,
    Firmware,
    Settings,
    OldFirmware,
    Off,
    Runs,
    Datasets,
    Start,
    Wrap,
    TwoRunsAMinute,
    Log,
    Burst,
    Bytewise,
    Pieces,
    Slow,
    Noise,
    Mute,
    MuteAfter,
    BadChecksumEvery,
    UnplugAfter,
    LoseEndEvery,
    LoseByteEvery,
    NoEnd,
    Announce,
    Delay,
    EraseTime,
    DeafInDump,
    Boots,
    Leftovers,
    TranscriptFile,
    StateFile,
    Help
};

constexpr option longOptions[] = {
    {"port", required_argument, nullptr, Port},
    {"serial", required_argument, nullptr, Serial},
    {"manufacturer", required_argument, nullptr, Manufacturer},
    {"description", required_argument, nullptr, Description},
    {"property", required_argument, nullptr, Property},
    {"plug-after", required_argument, nullptr, PlugAfter},
    {"replug-after", required_argument, nullptr, ReplugAfter},
    {"replug-serial", required_argument, nullptr, ReplugSerial},
    {"beside", required_argument, nullptr, Beside},
    {"busy", no_argument, nullptr, Busy},
    {"forbidden", no_argument, nullptr, Forbidden},
    {"half-open", no_argument, nullptr, HalfOpen},
    {"battery", required_argument, nullptr, Battery},
    {"firmware", required_argument, nullptr, Firmware},
    {"settings", required_argument, nullptr, Settings},
    {"old-firmware", no_argument, nullptr, OldFirmware},
    {"off", no_argument, nullptr, Off},
    {"runs", required_argument, nullptr, Runs},
    {"datasets", required_argument, nullptr, Datasets},
    {"start", required_argument, nullptr, Start},
    {"wrap", no_argument, nullptr, Wrap},
    {"two-runs-a-minute", no_argument, nullptr, TwoRunsAMinute},
    {"log", required_argument, nullptr, Log},
    {"burst", no_argument, nullptr, Burst},
    {"bytewise", no_argument, nullptr, Bytewise},
    {"pieces", optional_argument, nullptr, Pieces},
    {"slow", no_argument, nullptr, Slow},
    {"noise", no_argument, nullptr, Noise},
    {"mute", no_argument, nullptr, Mute},
    {"mute-after", required_argument, nullptr, MuteAfter},
    {"bad-checksum-every", required_argument, nullptr, BadChecksumEvery},
    {"unplug-after", required_argument, nullptr, UnplugAfter},
    {"lose-end-every", required_argument, nullptr, LoseEndEvery},
    {"lose-byte-every", required_argument, nullptr, LoseByteEvery},
    {"no-end", no_argument, nullptr, NoEnd},
    {"announce", required_argument, nullptr, Announce},
    {"delay", required_argument, nullptr, Delay},
    {"erase-time", required_argument, nullptr, EraseTime},
    {"deaf-in-dump", no_argument, nullptr, DeafInDump},
    {"boots", no_argument, nullptr, Boots},
    {"leftovers", required_argument, nullptr, Leftovers},
    {"transcript", required_argument, nullptr, TranscriptFile},
    {"state", required_argument, nullptr, StateFile},
    {"help", no_argument, nullptr, Help},
    {nullptr, 0, nullptr, 0},
};

/// Reads one option's value; complains and gives nothing if it isn't a number in the range.
class Value
{
public:
    explicit Value(const char *text)
        : text_(text)
    {
    }

    template <typename Number>
    bool into(Number *number, double least, double most) const
    {
        char *end = nullptr;
        const double value = std::strtod(text_, &end);
        if (end == text_ || *end != '\0' || !(value >= least && value <= most)) {
            std::fprintf(stderr, "kelpora360-rig: not a number from %g to %g: %s\n", least, most, text_);
            return false;
        }
        *number = static_cast<Number>(value);
        return true;
    }

    bool into(std::chrono::milliseconds *time) const
    {
        double seconds = 0;
        if (!into(&seconds, 0, 3600))
            return false;
        *time = std::chrono::milliseconds(static_cast<long>(seconds * 1000));
        return true;
    }

    bool into(std::array<std::int32_t, 5> *words) const
    {
        std::size_t count = 0;
        const char *at = text_;
        for (char *end = nullptr; count < words->size(); at = end + 1, ++count) {
            (*words)[count] = static_cast<std::int32_t>(std::strtol(at, &end, 10));
            const bool last = count + 1 == words->size();
            if (end == at || *end != (last ? '\0' : ',')) {
                std::fprintf(stderr, "kelpora360-rig: not five whole numbers: %s\n", text_);
                return false;
            }
        }
        return true;
    }

private:
    const char *text_;
};

/// What the command line names beside the rig itself.
struct Files
{
    std::string log;   ///< read into the memory
    std::string state; ///< written at the end
};

bool take(int option, const char *text, RigOptions *rig, DiveLog *log, Files *files)
{
    constexpr double most = 1000000;
    constexpr double mostTime = 2147483647;
    const Value value(text);
    switch (option) {
    case Port:
        rig->usb.port = text;
        return true;
    case Serial:
        rig->usb.serial = text;
        return true;
    case Manufacturer:
        rig->usb.manufacturer = text;
        return true;
    case Description:
        rig->usb.description = text;
        return true;
    case Property:
        rig->usb.properties.emplace_back(text);
        return true;
    case PlugAfter:
        return value.into(&rig->plugAfter);
    case ReplugAfter:
        return value.into(&rig->replugAfter);
    case ReplugSerial:
        rig->usb.replugSerial = text;
        return true;
    case Beside:
        rig->usb.beside.emplace_back(text);
        return true;
    case Busy:
        return rig->usb.busy = true;
    case Forbidden:
        return rig->usb.forbidden = true;
    case HalfOpen:
        return rig->faults.halfOpen = true;
    case Battery:
        return value.into(&rig->controller.volts, 0, 100);
    case Firmware:
        rig->controller.version = text;
        return true;
    case Settings:
        return value.into(&rig->controller.settings);
    case OldFirmware:
        return rig->controller.oldFirmware = true;
    case Off:
        rig->controller.on = false;
        return true;
    case Runs:
        return value.into(&log->runs, 0, most);
    case Datasets:
        return value.into(&log->datasets, 0, most);
    case Start:
        return value.into(&log->start, -mostTime, mostTime);
    case Wrap:
        return log->wrap = true;
    case TwoRunsAMinute:
        return log->twoRunsAMinute = true;
    case Log:
        files->log = text;
        return true;
    case Burst:
        return rig->faults.burst = true;
    case Bytewise:
        return rig->faults.bytewise = true;
    case Pieces:
        rig->faults.pieces = 3;
        return text == nullptr || value.into(&rig->faults.pieces, 1, 1000);
    case Slow:
        return rig->faults.slow = true;
    case Noise:
        return rig->faults.noise = true;
    case Mute:
        return rig->faults.mute = true;
    case MuteAfter:
        return value.into(&rig->faults.muteAfter, 0, most);
    case BadChecksumEvery:
        return value.into(&rig->faults.badChecksumEvery, 1, most);
    case UnplugAfter:
        return value.into(&rig->faults.unplugAfter, 0, most);
    case LoseEndEvery:
        return value.into(&rig->faults.loseEndEvery, 1, most);
    case LoseByteEvery:
        return value.into(&rig->faults.loseByteEvery, 1, most);
    case NoEnd:
        return rig->faults.noEnd = true;
    case Announce:
        return value.into(&rig->controller.announced, 0, most);
    case Delay:
        return value.into(&rig->faults.delay);
    case EraseTime:
        return value.into(&rig->faults.eraseTime);
    case DeafInDump:
        return rig->faults.deafInDump = true;
    case Boots:
        return rig->controller.boots = true;
    case Leftovers:
        return value.into(&rig->controller.leftovers, 1, most);
    case TranscriptFile:
        rig->transcript = text;
        return true;
    case StateFile:
        files->state = text;
        return true;
    default:
        return false;
    }
}

/// Reads the command line; an exit code if there is nothing to run.
std::optional<int> readOptions(int argc, char *argv[], RigOptions *rig, Files *files)
{
    DiveLog log;
    for (int option = 0; (option = getopt_long(argc, argv, "+", longOptions, nullptr)) != -1;) {
        if (option == Help) {
            std::fputs(usage, stdout);
            return 0;
        }
        if (!take(option, optarg, rig, &log, files))
            return usageError;
    }
    if (optind >= argc) {
        std::fputs(usage, stderr);
        return usageError;
    }
    if (files->log.empty()) {
        rig->controller.log = makeDiveLog(log);
    } else if (!readDiveLog(files->log, &rig->controller.log)) {
        std::fprintf(stderr, "kelpora360-rig: %s: %s\n", files->log.c_str(), std::strerror(errno));
        return usageError;
    }
    return std::nullopt;
}

/// Starts the program in a process group of its own, so that what it starts can be ended with it.
pid_t start(char *program[], const sigset_t &signals)
{
    const pid_t rig = getpid();
    const pid_t child = fork();
    if (child != 0)
        return child;
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != rig)
        _exit(notFound);
    sigprocmask(SIG_UNBLOCK, &signals, nullptr);
    execvp(program[0], program);
    std::fprintf(stderr, "kelpora360-rig: %s: %s\n", program[0], std::strerror(errno));
    _exit(notFound);
}

/// Ends what the program started and left running.
void endGroup(pid_t group)
{
    constexpr timespec look{0, 20000000};
    constexpr int patience = 50;
    kill(-group, SIGTERM);
    for (int looks = 0; kill(-group, 0) == 0; ++looks) {
        if (looks == patience)
            kill(-group, SIGKILL);
        while (waitpid(-group, nullptr, WNOHANG) > 0)
            ;
        nanosleep(&look, nullptr);
    }
}

/// Waits for the program; passes on what asks it to end, and insists after a while. Pulls the cable when
/// asked to.
int await(pid_t child, const sigset_t &signals, SimulatedRig *rig)
{
    constexpr std::time_t unlimited = 3600;
    constexpr std::time_t patience = 5;
    bool asked = false;
    for (;;) {
        timespec limit{};
        limit.tv_sec = asked ? patience : unlimited;
        const int signal = sigtimedwait(&signals, nullptr, &limit);
        int status = 0;
        if (waitpid(child, &status, WNOHANG) == child) {
            endGroup(child);
            return WIFEXITED(status) ? WEXITSTATUS(status) : bySignal + WTERMSIG(status);
        }
        if (signal == SIGTERM || signal == SIGINT || signal == SIGHUP) {
            asked = true;
            kill(-child, signal);
        } else if (signal == SIGUSR1) {
            rig->unplug();
        } else if (asked && signal < 0 && errno == EAGAIN) {
            kill(-child, SIGKILL);
        }
    }
}

/// Writes what the controller keeps, a name and a value a line; false if it can't.
bool writeState(const std::string &path, const SimulatedRig &rig)
{
    const ControllerState state = rig.state();
    std::ofstream file(path);
    file << "on " << state.on << "\ndatasets " << state.log.size() << "\nbeeps " << rig.beeps()
         << "\nsettings";
    for (const std::int32_t word : state.settings)
        file << ' ' << word;
    file << std::endl;
    return file.good();
}

int run(int argc, char *argv[])
{
    RigOptions options;
    Files files;
    if (const std::optional<int> code = readOptions(argc, argv, &options, &files))
        return *code;
    if (!enterMockedWorld(argv))
        return EXIT_FAILURE;

    // Before any thread is started, so that all of them leave these to await().
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGCHLD, SIGUSR1})
        sigaddset(&signals, signal);
    sigprocmask(SIG_BLOCK, &signals, nullptr);

    // What the program leaves behind becomes a child of this process, which ends it.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    SimulatedRig rig(options);
    const pid_t child = start(argv + optind, signals);
    if (child < 0) {
        std::perror("kelpora360-rig: fork");
        return EXIT_FAILURE;
    }
    setpgid(child, child);
    const int code = await(child, signals, &rig);
    if (files.state.empty() || writeState(files.state, rig))
        return code;
    std::fprintf(stderr, "kelpora360-rig: %s: %s\n", files.state.c_str(), std::strerror(errno));
    return EXIT_FAILURE;
}

} // namespace

int main(int argc, char *argv[])
{
    try {
        return run(argc, argv);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "kelpora360-rig: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
