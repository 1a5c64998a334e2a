#include "app/paths.h"

#include <QCoreApplication>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <cstdio>
#include <exception>
#include <mutex>

QString appPath;
QString applicationSupportPath;
QString iniFilePath;
QString templatesPath;
QString logFilePath;

namespace {

const QString iniFileName = QStringLiteral("Kelpora360.ini");
const QString logFileName = QStringLiteral("Kelpora360.log");
const QString supportFolderName = QStringLiteral("Kelpora 360");
const QString executableFolderName = QStringLiteral("Kelpora360");
const QString bundleMark = QStringLiteral("/Contents/");

/// Workers ask for the log and the templates while the main thread does; a QString must not be assigned
/// and copied at the same time.
std::mutex &stringsMutex()
{
    static std::mutex mutex;
    return mutex;
}

QString remember(QString &stored, const QString &value)
{
    const std::lock_guard<std::mutex> lock(stringsMutex());
    if (stored != value)
        stored = value;
    return stored;
}

QString remembered(const QString &stored)
{
    const std::lock_guard<std::mutex> lock(stringsMutex());
    return stored;
}

/// The folder `levels` above `path`, by its name alone: it need not exist.
QString above(const QString &path, int levels)
{
    QString result = path;
    for (int level = 0; level < levels; ++level)
        result = QDir::cleanPath(result + QStringLiteral("/.."));
    return result;
}

/// Runs `update`; an exception costs only the update and is told on standard error, since the log itself
/// asks for these paths.
template <typename Update>
void guarded(const Update &update)
{
    try {
        update();
    } catch (const std::exception &error) {
        std::fprintf(stderr, "%s\n", error.what());
    }
}

QString siblingFolder(const QString &name, const char *logText)
{
    QDir folder(getAppPath());
    static_cast<void>(folder.cd(name));
    qInfo() << logText << folder.absolutePath();
    return folder.absolutePath();
}

} // namespace

void setAppPathFromExecutable(const QString &executablePath)
{
    qInfo("Updating App path");
    QString folder = QFileInfo(executablePath).absolutePath();
    if (folder.contains(bundleMark))
        folder = above(folder, 3);
    QDir::setCurrent(remember(appPath, folder));
}

QString getAppPath()
{
    if (remembered(appPath).isEmpty())
        setAppPathFromExecutable(QCoreApplication::applicationFilePath());
    return remembered(appPath);
}

QString getApplicationSupportPath()
{
    guarded([] {
        const QStringList locations = QStandardPaths::standardLocations(QStandardPaths::AppDataLocation);
        if (locations.isEmpty())
            return;
        // While no application name is registered the platform may name the folder after the executable.
        QString folder = QDir(locations.first()).absolutePath();
        if (folder.contains(executableFolderName))
            folder = above(folder, 1);
        if (!folder.contains(supportFolderName))
            folder = QDir(folder).absoluteFilePath(supportFolderName);
        if (!QDir(folder).exists())
            QDir().mkpath(folder);
        if (QDir(folder).exists())
            remember(applicationSupportPath, folder);
    });
    return remembered(applicationSupportPath);
}

QString getIniFilePath()
{
    guarded([] {
        if (!remembered(iniFilePath).isEmpty())
            return;
        if (remember(iniFilePath, QDir(getApplicationSupportPath()).absoluteFilePath(iniFileName)).isEmpty())
            remember(iniFilePath, getAppPath() + QLatin1Char('/') + iniFileName);
    });
    return remembered(iniFilePath);
}

QString getTemplateDir()
{
    guarded([] {
        const QDir besideApp(getAppPath() + QStringLiteral("/templates"));
        const QString folder =
            besideApp.exists()
                ? besideApp.absolutePath()
                : QDir(getApplicationSupportPath()).absoluteFilePath(QStringLiteral("templates"));
        qInfo() << "Template dir:" << folder;
        remember(templatesPath, folder);
    });
    return remembered(templatesPath);
}

QString getLogFilePath()
{
    guarded([] {
        QString path = QDir(getApplicationSupportPath()).absoluteFilePath(logFileName);
        if (path.isEmpty())
            path = getAppPath() + QLatin1Char('/') + logFileName;
        QFile file(remember(logFilePath, path));
        if (file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text))
            file.write("Logfile path:\n");
    });
    return remembered(logFilePath);
}

QString getUtilitiesDir()
{
    return siblingFolder(QStringLiteral("utilities"), "Utilities dir:");
}

QString getFirmwareDir()
{
    return siblingFolder(QStringLiteral("firmware"), "Firmware dir:");
}
