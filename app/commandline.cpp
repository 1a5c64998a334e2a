#include "app/commandline.h"

#include "app/version.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

constexpr int usageError = 2;

/// What the toolkit understands and session managers and tests of the desktop make use of; each has a value.
constexpr std::array<const char *, 3> toolkitOptions = {"-platform", "-display", "-session"};

constexpr const char *help = R"(Usage: kelpora360 [OPTION]

Opens the window of Kelpora 360, the companion of an underwater rig of three
cameras and a controller: settings, clock and data log of the controller,
preparation and import of the three memory cards, stitching projects.

  --help     show this help and exit
  --version  show the version and exit

Options of the toolkit, each with a value: -platform, -display, -session.
)";

bool isToolkitOption(const std::string &argument)
{
    for (const char *option : toolkitOptions) {
        if (argument == option || argument == std::string("-") + option)
            return true;
    }
    return false;
}

/// False if the desktop's usual ways to a display are not there, and the toolkit was given no other.
bool mayHaveDisplay(int argc)
{
#if defined(Q_OS_UNIX) && !defined(Q_OS_MACOS)
    // The toolkit looks for itself.
    if (argc > 1 || !qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        return true;
    return !qEnvironmentVariableIsEmpty("DISPLAY") || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
#else
    Q_UNUSED(argc)
    return true;
#endif
}

} // namespace

std::optional<int> answerCommandLine(int argc, const char *const *argv)
{
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        // How the Finder of an older macOS starts a program.
        if (argument.rfind("-psn_", 0) == 0)
            continue;
        if (argument == "--help" || argument == "-h") {
            std::fputs(help, stdout);
            return EXIT_SUCCESS;
        }
        if (argument == "--version") {
            std::printf("%s %s\n", qPrintable(app_name), qPrintable(app_version));
            return EXIT_SUCCESS;
        }
        if (!isToolkitOption(argument) || i + 1 == argc) {
            std::fprintf(stderr, "kelpora360: can't make anything of \"%s\"; see kelpora360 --help\n",
                         argument.c_str());
            return usageError;
        }
        ++i;
    }
    if (!mayHaveDisplay(argc)) {
        std::fputs("kelpora360: there is no display to open a window on\n", stderr);
        return EXIT_FAILURE;
    }
    return std::nullopt;
}
