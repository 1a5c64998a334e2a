#pragma once

#include <QCommandLineOption>
#include <QList>
#include <QString>
#include <QStringList>

class Output;
class QCommandLineParser;
class StopFlag;

/// How a command ends; the exit code of the program.
enum class Exit {
    Good = 0,
    Finding = 1,
    Usage = 2,      ///< the command line makes no sense
    NotChecked = 3, ///< what was asked for could not be done or told
    Stopped = 130,
};

/// What a command is given.
struct Call
{
    QStringList arguments; ///< without the command's name; their number is right
    const QCommandLineParser &options;
    Output &output;
    const StopFlag &stop; ///< raised by an interrupt
};

/// One row of the table of commands.
struct Command
{
    QString name;
    QString line;      ///< what it does
    QString arguments; ///< as the help writes them
    int fewest;        ///< number of arguments
    int most;
    QList<QCommandLineOption> options; ///< beside those that all commands have
    Exit (*run)(const Call &call);
};
