#include "platform/newfile.h"

#include "platform/filesync.h"
#include "platform/unsupported.h"

#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QRegularExpression>

#include <cerrno>
#include <cstdio>
#include <mutex>

namespace {

constexpr int nameTries = 16;

/// Hidden, so that a file left behind by a crash shows up in no listing of templates or recordings.
QString temporaryName(const QString &folder)
{
    const quint64 number = QRandomGenerator::system()->generate64();
    return folder + QStringLiteral("/.kelpora360-%1.part").arg(number, 16, 16, QLatin1Char('0'));
}

/// After Publish::Failed errno says why.
Publish renameUnlessTaken(const QString &from, const QString &to)
{
    if (renameExclusively(from, to))
        return Publish::Done;
    if (errno == EEXIST)
        return Publish::Exists;
    if (!isUnsupported(errno))
        return Publish::Failed;
    // The volume has only the plain rename, which replaces (exFAT through FUSE). The lock keeps the imports
    // of this program apart; a name that another program takes between the look and the rename is replaced.
    static std::mutex mutex;
    const std::lock_guard<std::mutex> lock(mutex);
    const QFileInfo taken(to);
    if (taken.exists() || taken.isSymLink())
        return Publish::Exists;
    // QFile would copy where it can't rename, and leave a part of the file there when it is ended.
    const QByteArray source = QFile::encodeName(from);
    const QByteArray target = QFile::encodeName(to);
    return std::rename(source.constData(), target.constData()) == 0 ? Publish::Done : Publish::Failed;
}

} // namespace

NewFile::NewFile(const QString &folder)
{
    for (int tried = 0; tried < nameTries; ++tried) {
        file_.setFileName(temporaryName(folder));
        if (file_.open(QIODevice::WriteOnly | QIODevice::NewOnly))
            return;
        if (!file_.exists())
            break;
    }
    error_ = QStringLiteral("can't create a temporary file: ") + file_.errorString();
}

NewFile::~NewFile()
{
    if (!published_ && !file_.fileName().isEmpty()) {
        file_.close();
        // A second time, because a failing disk may refuse once.
        if (!file_.remove())
            file_.remove();
    }
}

bool NewFile::write(const QByteArray &content)
{
    return isOpen() && file_.write(content) == content.size() && file_.flush();
}

Publish NewFile::publish(const QString &path)
{
    if (file_.isOpen()) {
        // close() forgets an earlier error.
        if (!file_.flush() || file_.error() != QFileDevice::NoError)
            error_ = QStringLiteral("can't write the file: ") + file_.errorString();
        file_.close();
        if (error_.isEmpty() && file_.error() != QFileDevice::NoError)
            error_ = QStringLiteral("can't write the file: ") + file_.errorString();
    }
    if (!error_.isEmpty())
        return Publish::Failed;
    const Publish result = renameUnlessTaken(file_.fileName(), path);
    if (result == Publish::Failed)
        error_ = QStringLiteral("can't rename the file: ") + qt_error_string();
    published_ = result == Publish::Done;
    return result;
}

Publish writeNewFile(const QString &path, const QByteArray &content)
{
    NewFile file(QFileInfo(path).absolutePath());
    if (!file.write(content))
        return Publish::Failed;
    return syncContent(file.file()) ? file.publish(path) : Publish::NotOnDisk;
}

void removeLeftovers(const QString &folder)
{
    static const QRegularExpression ours(QStringLiteral("^\\.kelpora360-[0-9a-f]{16}\\.part$"));
    const QDateTime yesterday = QDateTime::currentDateTime().addDays(-1);
    const QFileInfoList hidden = QDir(folder).entryInfoList(
        {QStringLiteral(".kelpora360-*.part")}, QDir::Files | QDir::Hidden | QDir::System | QDir::NoSymLinks);
    for (const QFileInfo &file : hidden) {
        // Not the time of the content: a copy that is about to get its name has that of its recording.
        if (ours.match(file.fileName()).hasMatch() && file.metadataChangeTime() < yesterday &&
            QFile::remove(file.filePath()))
            qInfo().noquote() << "Removed what an interrupted import left:" << file.filePath();
    }
}
