#include "app/commandline.h"

#include "app/version.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

constexpr int usageError = 2;

/// What the toolkit and, where it is Apple's, the system understand. Each has a value.
constexpr std::array<const char *, 10> toolkitOptions = {
    "-platform", "-platformpluginpath", "-platformtheme", "-plugin",      "-display",
    "-session",  "-qwindowgeometry",    "-qwindowtitle",  "-qwindowicon", "-style"};

constexpr const char *options = R"(
  -h, --help     show this help and exit
      --version  show the version and exit

The options of the toolkit, such as -platform NAME, are understood too.
)";

bool startsWith(const std::string &text, const char *start)
{
    return text.rfind(start, 0) == 0;
}

bool isToolkitOption(const std::string &argument)
{
#ifdef Q_OS_MACOS
    if (startsWith(argument, "-NS") || startsWith(argument, "-Apple"))
        return true;
#endif
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
    for (const char *way : {"DISPLAY", "WAYLAND_DISPLAY", "WAYLAND_SOCKET"}) {
        if (!qEnvironmentVariableIsEmpty(way))
            return true;
    }
    return qgetenv("XDG_SESSION_TYPE") == "wayland";
#else
    Q_UNUSED(argc)
    return true;
#endif
}

} // namespace

std::optional<int> answerCommandLine(int argc, const char *const *argv, const char *program, const char *help)
{
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        // The latter is how the Finder of an older macOS starts a program.
        if (argument == "-reverse" || startsWith(argument, "-qmljsdebugger=") ||
            startsWith(argument, "-psn_"))
            continue;
        if (argument == "--help" || argument == "-h") {
            std::printf("%s%s", help, options);
            return EXIT_SUCCESS;
        }
        if (argument == "--version") {
            std::printf("%s %s\n", qPrintable(app_name), qPrintable(app_version));
            return EXIT_SUCCESS;
        }
        if (!isToolkitOption(argument) || i + 1 == argc) {
            std::fprintf(stderr, "%s: can't make anything of \"%s\"; see %s --help.\n", program,
                         argument.c_str(), program);
            return usageError;
        }
        ++i;
    }
    if (!mayHaveDisplay(argc)) {
        std::fprintf(stderr, "%s: there is no display to open a window on.\n", program);
        return EXIT_FAILURE;
    }
    return std::nullopt;
}
