#include "platform/removetree.h"

#include <QDir>
#include <QFile>

bool emptyFolder(const QString &folder)
{
    const QDir root(folder);
    const QFileInfoList entries =
        root.entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    for (const QFileInfo &entry : entries) {
        if (entry.isDir() && !entry.isSymLink())
            QDir(entry.filePath()).removeRecursively();
        else
            QFile::remove(entry.filePath());
    }
    return root.isReadable() &&
           root.isEmpty(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
}
