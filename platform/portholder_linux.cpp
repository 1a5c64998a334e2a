#include "platform/portholder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <unistd.h>

namespace {

bool holds(const QString &process, const QString &device)
{
    const QDir descriptors(QStringLiteral("/proc/%1/fd").arg(process));
    const QStringList names = descriptors.entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
    for (const QString &name : names) {
        if (QFile::symLinkTarget(descriptors.filePath(name)) == device)
            return true;
    }
    return false;
}

/// The process that a lock file names, as terminal programs leave it; empty if it has ended.
QString lockingProcess(const QString &device)
{
    QFile lock(QStringLiteral("/run/lock/LCK..") + QFileInfo(device).fileName());
    if (!lock.open(QIODevice::ReadOnly))
        return {};
    // The name of the program and of the user may follow.
    const QString process = QString::fromLatin1(lock.readLine()).simplified().section(QLatin1Char(' '), 0, 0);
    return process.toLongLong() > 0 && QFileInfo::exists(QStringLiteral("/proc/") + process) ? process
                                                                                             : QString();
}

} // namespace

PortHolder portHolder(const QString &device)
{
    const QString own = QString::number(::getpid());
    QString holder = lockingProcess(device);
    if (holder.isEmpty() || holder == own) {
        holder.clear();
        const QStringList processes =
            QDir(QStringLiteral("/proc")).entryList({QStringLiteral("[1-9]*")}, QDir::Dirs);
        for (const QString &process : processes) {
            if (process != own && holds(process, device)) {
                holder = process;
                break;
            }
        }
    }
    if (holder.isEmpty())
        return {};
    QFile name(QStringLiteral("/proc/%1/comm").arg(holder));
    const bool named = name.open(QIODevice::ReadOnly);
    return {holder, !holds(holder, device),
            QStringLiteral("%1 (process %2)")
                .arg(named ? QString::fromLocal8Bit(name.readAll()).trimmed() : QStringLiteral("a program"),
                     holder)};
}
