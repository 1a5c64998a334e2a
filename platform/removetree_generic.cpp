#include "platform/removetree.h"

#include <QDir>
#include <QFile>

bool emptyFolder(const QString &folder)
{
    const QDir root(folder);
    const QFileInfoList entries =
        root.entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    for (const QFileInfo &entry : entries) {
        const QString path = entry.filePath();
        if (entry.isDir() && !entry.isSymLink() && !entry.isJunction())
            QDir(path).removeRecursively();
        else if (!QFile::remove(path) && QFile::setPermissions(path, entry.permissions() | QFile::WriteUser))
            QFile::remove(path); // Windows removes nothing that is read-only.
    }
    return root.isReadable() &&
           root.isEmpty(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
}
