#include "tests/support/messagelog.h"

#include <QtGlobal>

#include <mutex>

namespace {

std::mutex mutex;
QStringList collected;
QtMessageHandler previous = nullptr;

void collect(QtMsgType type, const QMessageLogContext & /*context*/, const QString &text)
{
    const char *level = "debug";
    if (type == QtInfoMsg)
        level = "info";
    else if (type == QtWarningMsg)
        level = "warning";
    else if (type == QtCriticalMsg)
        level = "critical";
    const std::lock_guard<std::mutex> lock(mutex);
    collected.append(QString::fromLatin1(level) + QStringLiteral(": ") + text);
}

} // namespace

MessageLog::MessageLog()
{
    collected.clear();
    previous = qInstallMessageHandler(collect);
}

MessageLog::~MessageLog()
{
    qInstallMessageHandler(previous);
}

QStringList MessageLog::lines()
{
    const std::lock_guard<std::mutex> lock(mutex);
    return collected;
}

QStringList MessageLog::lines(const QString &level)
{
    const QString mark = level + QStringLiteral(": ");
    QStringList matching;
    for (const QString &line : lines()) {
        if (line.startsWith(mark))
            matching.append(line.mid(mark.size()));
    }
    return matching;
}
