#include "app/log.h"

#include "app/paths.h"
#include "app/screen.h"
#include "platform/openfile.h"

#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QLocale>
#include <QStandardPaths>
#include <QSysInfo>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <mutex>

namespace {

QString levelOf(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg:
        return QStringLiteral(" Debug: ");
    case QtInfoMsg:
        return QStringLiteral(" Info: ");
    case QtWarningMsg:
        return QStringLiteral(" Warning: ");
    case QtCriticalMsg:
        return QStringLiteral(" Critical: ");
    case QtFatalMsg:
        return QStringLiteral(" Fatal: ");
    }
    return QStringLiteral(" Info: ");
}

/// The local time. Its part down to the second is kept for the lines of that second: each look at the local
/// time may ask the system's files which zone this is, and a dump logs a line for every dataset.
QString timeStamp()
{
    constexpr qint64 msPerSecond = 1000;
    // Plain types: a line may be logged while the thread's objects are being destroyed.
    thread_local qint64 lastSecond = -1;
    thread_local std::array<char, 32> lastText{};
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    if (now / msPerSecond != lastSecond) {
        // In the same digits everywhere, whatever the user's locale.
        const QString text =
            QLocale::c().toString(QDateTime::fromMSecsSinceEpoch(now), QStringLiteral("yyyy-MM-dd hh:mm:ss"));
        qstrncpy(lastText.data(), text.toLatin1().constData(), static_cast<uint>(lastText.size()));
        lastSecond = now / msPerSecond;
    }
    return QStringLiteral("%1.%2")
        .arg(QLatin1String(lastText.data()))
        .arg(now % msPerSecond, 3, 10, QLatin1Char('0'));
}

constexpr const char *firstOfPair = "Logfile path:\n";

/// A controller that sends without an end fills the log as well. Support needs its beginning and its end.
constexpr qint64 longestLog = qint64{32} << 20;

/// A log that is shorter is left alone, however little room the disk has.
constexpr qint64 shortestToShorten = qint64{1} << 20;

/// Leaves the first and the last quarter of a log, and a line between them.
void shorten(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite | QIODevice::Unbuffered))
        return;
    const qint64 part = file.size() / 4;
    const QByteArray head = file.read(part);
    if (!file.seek(file.size() - part))
        return;
    const QByteArray tail = file.read(part);
    if (head.size() != part || tail.size() != part)
        return;
    const int headEnd = qMax(head.lastIndexOf(firstOfPair), 0);
    const int tailBegin = qMax(tail.indexOf(firstOfPair), 0);
    // What a full disk took half of is no line.
    const QByteArray lines = tail.mid(tailBegin, tail.lastIndexOf('\n') + 1 - tailBegin);
    const QByteArray end = firstOfPair +
                           QStringLiteral("%1 Warning: The log is too long, %2 bytes are left out here.\n")
                               .arg(timeStamp(), QString::number(file.size() - headEnd - lines.size()))
                               .toUtf8() +
                           lines;
    // In place, which needs no room. Some file systems want it all the same, and have it once the file is
    // cut.
    if (!file.seek(headEnd) || file.write(end) != end.size()) {
        file.resize(headEnd);
        file.seek(headEnd);
        file.write(end);
    }
    file.resize(file.pos());
}

/// The log file, open from one message to the next. Each line is with the system at once.
class LogFile
{
public:
    /// Takes the file at `path`, which belongs to the data folder `dataFolder`.
    void take(const QString &dataFolder, const QString &path)
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        dataFolder_ = dataFolder;
        file_.close();
        file_.setFileName(path);
    }

    /// False if no file, or one of another data folder, was taken, or it can't be opened.
    bool append(const QString &dataFolder, const QByteArray &text)
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (file_.fileName().isEmpty() || dataFolder != dataFolder_ || !isReady())
            return false;
        const bool whole = file_.write(text) == text.size();
        const qint64 size = file_.size();
        if (size > longestLog || (!whole && size > shortestToShorten)) {
            shorten(file_.fileName());
            // The disk was full, and is no longer.
            if (!whole)
                file_.write(text);
        }
        // What failed may do so only for this opening of the file.
        if (!whole)
            file_.close();
        return true;
    }

private:
    bool isReady()
    {
        // Who deletes it or takes it away gets a new one.
        if (file_.isOpen() && isInPlace(file_))
            return true;
        file_.close();
        // A buffer that could not be written makes the file look empty.
        return file_.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text | QIODevice::Unbuffered);
    }

    std::mutex mutex_;
    QString dataFolder_;
    QFile file_;
};

/// Never destroyed: a thread of the toolkit may log at the very end.
LogFile &logFile()
{
    static auto *const file = new LogFile;
    return *file;
}

void appendToLog(const QByteArray &entry)
{
    const QString dataFolder = QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
    // getLogFilePath() writes the first line of the pair itself.
    if (logFile().append(dataFolder, firstOfPair + entry))
        return;
    logFile().take(dataFolder, getLogFilePath());
    logFile().append(dataFolder, entry);
}

} // namespace

void AppMessageHandler(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    const QString time = timeStamp();
    const QString text = QString::fromUtf8(message.toLocal8Bit());
    if (type == QtFatalMsg)
        std::abort();

    const QString line = time + levelOf(type) + text;
    const QByteArray echo = line.toLatin1();
    if (context.file != nullptr)
        std::fprintf(stderr, "%s\t(%s:%u)\n", echo.constData(), context.file,
                     static_cast<unsigned>(context.line));
    else
        std::fprintf(stderr, "%s\n", echo.constData());

    appendToLog(line.toUtf8() + '\n');
}

void resetLog()
{
    QFile::remove(getLogFilePath());
}

void logEnvironment(const QString &appName, const QString &appVersion, const AppScreen &screen)
{
    qInfo() << "AppName:" << appName;
    qInfo() << "AppVersion:" << appVersion;
    qInfo() << "AppExecutable:" << screen.executablePath;
    qInfo() << "AppDirectory:" << screen.applicationDirectory;
    qInfo() << "WorkingDirectory:" << QDir::currentPath();
    qInfo() << "CpuArchitecture:" << QSysInfo::currentCpuArchitecture();
    qInfo() << "KernelType:" << QSysInfo::kernelType();
    qInfo() << "KernelVersion:" << QSysInfo::kernelVersion();
    qInfo() << "OperatingSystem:" << QSysInfo::productType() << QSysInfo::productVersion();
    qInfo() << "PhysicalSizeHeight:" << screen.physicalSizeHeight;
    qInfo() << "PhysicalDpi:" << screen.physicalDpi;
    qInfo() << "LogicalDpi:" << screen.logicalDpi;
    qInfo() << "SizeHeight:" << screen.sizeHeight;
    qInfo() << "GeometryHeight:" << screen.geometryHeight;
    qInfo() << "AvailableSizeHeight:" << screen.availableSizeHeight;
    qInfo() << "AvailableGeometryHeight:" << screen.availableGeometryHeight;
    qInfo() << "AvailableVirtualGeometryHeight:" << screen.availableVirtualGeometryHeight;
    qInfo() << "AvailableVirtualSizeHeight:" << screen.availableVirtualSizeHeight;
    qInfo() << "VirtualGeometryHeight:" << screen.virtualGeometryHeight;
    qInfo() << "VirtualSizeHeight:" << screen.virtualSizeHeight;
    qInfo() << "CalculatedScaleFactor:" << screen.calculatedScaleFactor;
    qInfo() << "SettingsScaleFactor:" << screen.settingsScaleFactor;
    qInfo() << "ScaleFactor:" << screen.scaleFactor;
}
