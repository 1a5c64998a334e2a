#include "cards/destination.h"

#include <QDebug>
#include <QDir>
#include <QFileInfo>
#include <QLocale>
#include <QStorageInfo>

void warnOfRelative(const QString &folder)
{
    if (!folder.isEmpty() && QDir::isRelativePath(folder))
        qWarning().noquote() << "The folder" << folder << "has no full path; it is"
                             << QDir::cleanPath(QDir(folder).absolutePath());
}

void logFreeRoom(const char *when, const QString &folder)
{
    if (folder.isEmpty())
        return;
    QString there = QDir::cleanPath(QDir(folder).absolutePath());
    while (!QFileInfo::exists(there) && !QDir(there).isRoot())
        there = QFileInfo(there).path();
    const QStorageInfo volume(there);
    if (!volume.isValid())
        return;
    qInfo().noquote() << when
                      << QLocale::c().formattedDataSize(volume.bytesAvailable(), 2, QLocale::DataSizeSIFormat)
                      << "free on" << volume.rootPath();
}
