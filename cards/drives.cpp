#include "cards/drives.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonObject>
#include <QStandardPaths>
#include <QStorageInfo>

QVariantList listDrives()
{
    const QStorageInfo root = QStorageInfo::root();
    QVariantList drives;
    const QList<QStorageInfo> volumes = QStorageInfo::mountedVolumes();
    for (const QStorageInfo &volume : volumes) {
        if (!volume.isValid() || !volume.isReady() || volume == root || volume.isReadOnly())
            continue;
        QString path = volume.rootPath();
        drives.append(QJsonObject{
            {QStringLiteral("key"), path.remove(QStringLiteral("file://"))},
            {QStringLiteral("value"), volume.displayName()},
        });
    }
    // Left in the system's order on purpose: the operator finds a card where the system lists it.
    return drives;
}

QString moviesLocation()
{
    return QStandardPaths::writableLocation(QStandardPaths::MoviesLocation);
}

bool isSystemRoot(const QString &path)
{
    return path == QLatin1String("/") || QFileInfo(path).canonicalFilePath() == QDir::rootPath();
}
