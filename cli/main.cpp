#include "app/version.h"
#include "cli/commands.h"
#include "cli/output.h"
#include "platform/stopflag.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

StopFlag interrupted; // NOLINT: the one thing that a signal handler can reach

/// A command that hangs in the system, on a disk that is gone, is left behind after this time.
constexpr auto patience = std::chrono::milliseconds(800);

void stopOn(int /*signal*/)
{
    interrupted.raise();
}

/// Raises the flag at an interrupt, and ends the process if the command does not.
void obeyInterrupts()
{
    std::signal(SIGINT, stopOn);
    std::signal(SIGTERM, stopOn);
    std::thread([] {
        constexpr auto pause = std::chrono::milliseconds(20);
        while (!interrupted.isRaised())
            std::this_thread::sleep_for(pause);
        std::this_thread::sleep_for(patience);
        std::_Exit(static_cast<int>(Exit::Stopped));
    }).detach();
}

/// Errors of the libraries go to standard error. The window's log is not ours to write.
void tellWarnings(QtMsgType type, const QMessageLogContext & /*context*/, const QString &message)
{
    if (type != QtDebugMsg && type != QtInfoMsg)
        std::fprintf(stderr, "kelpora360-cli: %s\n", message.toUtf8().constData());
}

QString overview()
{
    QString text = QStringLiteral(
        "Usage: kelpora360-cli COMMAND [ARGUMENT...] [OPTION...]\n\n"
        "What the window of Kelpora 360 does, and checks of what was copied, for terminals and scripts.\n\n"
        "Commands:\n");
    for (const Command &command : commands())
        text += QStringLiteral("  %1 %2\n").arg(command.name, -10).arg(command.line);
    return text + QStringLiteral("\n  -h, --help     show this help, or a command's, and exit\n"
                                 "      --version  show the version and exit\n"
                                 "      --json     write the result as one JSON object\n\n"
                                 "Exit codes: 0 good, 1 a finding, 2 wrong usage, 3 could not be done or "
                                 "checked, 130 stopped.\n");
}

void print(const QString &text)
{
    std::fputs(text.toUtf8().constData(), stdout);
}

int wrongUsage(Output &output, const QString &text)
{
    output.complain(text);
    return output.finish(Exit::Usage);
}

int runCommand(const Command &command, QStringList arguments, Output &output)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(command.line);
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")},
                                  QStringLiteral("Show this help and exit."));
    const QCommandLineOption version(QStringLiteral("version"), QStringLiteral("Show the version and exit."));
    const QCommandLineOption json(QStringLiteral("json"),
                                  QStringLiteral("Write the result as one JSON object."));
    parser.addPositionalArgument(command.name, {},
                                 (command.name + QLatin1Char(' ') + command.arguments).trimmed());
    parser.addOptions(command.options);
    parser.addOptions({json, help, version});

    // Its place is the program's name.
    arguments.removeFirst();
    const bool understood = parser.parse(arguments);
    if (understood && parser.isSet(help)) {
        // The block of arguments would only repeat the command's name.
        const QString text = parser.helpText();
        print(text.left(text.indexOf(QStringLiteral("\nArguments:\n"))));
        return output.finish(Exit::Good);
    }
    if (understood && parser.isSet(version)) {
        print(QStringLiteral("%1 %2\n").arg(app_name, app_version));
        return output.finish(Exit::Good);
    }
    if (parser.isSet(json))
        output.useJson();
    output.set(QStringLiteral("command"), command.name);
    const QStringList given = parser.positionalArguments();
    const QString hint = QStringLiteral(" See kelpora360-cli %1 --help.").arg(command.name);
    if (!understood)
        return wrongUsage(output, parser.errorText() + hint);
    if (given.size() < command.fewest || given.size() > command.most)
        return wrongUsage(output, QStringLiteral("%1 takes %2.")
                                          .arg(command.name, command.arguments.isEmpty()
                                                                 ? QStringLiteral("no arguments")
                                                                 : command.arguments) +
                                      hint);
    const Exit exit = command.run({given, parser, output, interrupted});
    return output.finish(interrupted.isRaised() ? Exit::Stopped : exit);
}

} // namespace

int main(int argc, char *argv[])
{
    // Names on disks are UTF-8, and texts for scripts are the same everywhere.
    qputenv("LC_ALL", "C.UTF-8");
#ifdef Q_OS_UNIX
    // A closed pipe shows when the result is written.
    std::signal(SIGPIPE, SIG_IGN);
#endif
    // As the window, whose settings and templates these are.
    QCoreApplication::setApplicationName(app_name);
    QCoreApplication::setApplicationVersion(app_version);
    const QCoreApplication app(argc, argv);
    qInstallMessageHandler(tellWarnings);
    obeyInterrupts();

    Output output;
    const QStringList arguments = QCoreApplication::arguments();
    const QString name = arguments.value(1);
    if (name == QLatin1String("--help") || name == QLatin1String("-h")) {
        print(overview());
        return output.finish(Exit::Good);
    }
    if (name == QLatin1String("--version")) {
        print(QStringLiteral("%1 %2\n").arg(app_name, app_version));
        return output.finish(Exit::Good);
    }
    const auto command = std::find_if(commands().cbegin(), commands().cend(),
                                      [&](const Command &one) { return one.name == name; });
    if (command == commands().cend())
        return wrongUsage(output, (name.isEmpty() ? QStringLiteral("which command?")
                                                  : QStringLiteral("there is no command \"%1\".").arg(name)) +
                                      QStringLiteral(" See kelpora360-cli --help."));
    return runCommand(*command, arguments, output);
}
