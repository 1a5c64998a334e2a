#include "controller/shellcommand.h"

#include <QDebug>
#include <QThread>

#include <array>
#include <cstdio>

namespace {

constexpr std::size_t pieceSize = 40;
constexpr int lineLength = 40;
constexpr unsigned long pauseSeconds = 1;

/// What the process printed, up to the first zero byte, in lines.
QStringList lines(const QByteArray &output)
{
    return QString::fromLocal8Bit(output.constData()).split(QLatin1Char('\n'), Qt::KeepEmptyParts);
}

} // namespace

ShellCommand::ShellCommand(QObject *parent)
    : QObject(parent)
{
}

ShellCommand::~ShellCommand()
{
    if (process)
        process->deleteLater();
}

bool ShellCommand::run(QString program, QStringList arguments)
{
    running = false;
    success = false;
    QString commandLine = program;
    for (const QString &argument : qAsConst(arguments))
        commandLine += QLatin1Char(' ') + argument;
    qInfo().noquote() << "Firmware update command line:" << commandLine;

    std::FILE *pipe =
        ::popen(commandLine.toUtf8().constData(), "r"); // NOLINT(cert-env33-c): the tool is the user's own
    if (pipe == nullptr) {
        qWarning("Firmware update failed to start");
        emit newMessage(QStringLiteral("Firmware update failed to start"));
    } else {
        qInfo("Firmware update started");
        emit newMessage(QStringLiteral("Firmware update started"));
        running = true;
        readOutput(pipe);
    }
    QThread::sleep(pauseSeconds);
    running = false;
    if (pipe != nullptr)
        ::pclose(pipe);
    return false;
}

void ShellCommand::readOutput(std::FILE *pipe)
{
    QString output;
    std::array<char, pieceSize> piece{};
    while (std::fgets(piece.data(), static_cast<int>(piece.size()), pipe) != nullptr) {
        output += QString::fromUtf8(piece.data());
        // The view shows it in lines of about this length.
        if (output.length() - output.lastIndexOf(QLatin1Char('\n')) > lineLength)
            output += QLatin1Char('\n');
        qInfo().noquote() << output;
        emit newMessage(output);
    }
}

void ShellCommand::onStdoutAvailable() const
{
    if (process)
        qInfo() << lines(process->readAllStandardOutput());
}

void ShellCommand::onStderrAvailable() const
{
    if (process)
        qWarning() << lines(process->readAllStandardError());
}

void ShellCommand::onError(QProcess::ProcessError error)
{
    qWarning() << error;
}

void ShellCommand::onFinished(int exitCode, QProcess::ExitStatus exitStatus)
{
    qInfo().noquote() << QStringLiteral("Firmware update completed with code %1 and status %2")
                             .arg(exitCode)
                             .arg(static_cast<int>(exitStatus));
    running = false;
    if (process)
        process->deleteLater();
}

void ShellCommand::onStateChanged(QProcess::ProcessState state)
{
    qInfo() << state;
}
