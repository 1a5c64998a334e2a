#include "platform/newfile.h"

#include "platform/filesync.h"

#include <QFileInfo>
#include <QRandomGenerator>

#include <cerrno>

namespace {

constexpr int nameTries = 16;

/// Hidden, so that a file left behind by a crash shows up in no listing of templates or recordings.
QString temporaryName(const QString &folder)
{
    const quint64 number = QRandomGenerator::system()->generate64();
    return folder + QStringLiteral("/.kelpora360-%1.part").arg(number, 16, 16, QLatin1Char('0'));
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
        file_.remove();
    }
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
    const Publish result = renameNoReplace(file_.fileName(), path);
    if (result == Publish::Failed)
        error_ = QStringLiteral("can't rename the file: ") + qt_error_string(errno);
    published_ = result == Publish::Done;
    return result;
}

Publish writeNewFile(const QString &path, const QByteArray &content, Durable durable)
{
    NewFile file(QFileInfo(path).absolutePath());
    if (!file.isOpen() || file.file().write(content) != content.size() ||
        (durable == Durable::Named && !syncToDisk(file.file())))
        return Publish::Failed;
    return file.publish(path);
}
