#include "tests/support/workspace.h"

#include "app/paths.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

namespace {

void forgetPaths()
{
    for (QString *path : {&appPath, &applicationSupportPath, &iniFilePath, &templatesPath, &logFilePath})
        path->clear();
}

} // namespace

Workspace::Workspace()
    : folder_(QDir::tempPath() + QStringLiteral("/workspace-XXXXXX"))
    , currentBefore_(QDir::currentPath())
{
    forgetPaths();
    qputenv("XDG_DATA_HOME", QFile::encodeName(makeFolder(QStringLiteral("data"))));
    qputenv("HOME", QFile::encodeName(makeFolder(QStringLiteral("home"))));
    appPath = makeFolder(QStringLiteral("app"));
    static_cast<void>(getApplicationSupportPath());
}

Workspace::~Workspace()
{
    QDir::setCurrent(currentBefore_);
    forgetPaths();
}

QString Workspace::path(const QString &relative) const
{
    return relative.isEmpty() ? folder_.path() : folder_.filePath(relative);
}

QString Workspace::write(const QString &relative, const QByteArray &content) const
{
    QFile file(path(relative));
    QDir().mkpath(QFileInfo(file).absolutePath());
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("The test can't write %s", qPrintable(file.fileName()));
    return file.fileName();
}

QByteArray Workspace::read(const QString &relative) const
{
    QFile file(path(relative));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString Workspace::makeFolder(const QString &relative) const
{
    QDir().mkpath(path(relative));
    return path(relative);
}

QMap<QString, QByteArray> Workspace::tree(const QString &relative) const
{
    QMap<QString, QByteArray> files;
    const QDir top(path(relative));
    QDirIterator iterator(top.path(), QDir::Files | QDir::Hidden | QDir::System,
                          QDirIterator::Subdirectories);
    while (iterator.hasNext()) {
        QFile file(iterator.next());
        if (file.open(QIODevice::ReadOnly))
            files.insert(top.relativeFilePath(file.fileName()), file.readAll());
    }
    return files;
}
