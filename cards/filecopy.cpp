#include "cards/filecopy.h"

#include "platform/copycontent.h"
#include "platform/filesync.h"
#include "platform/stopflag.h"

#include <QFileInfo>

#include <cerrno>

StagedCopy::StagedCopy(const QString &source, const QString &folder, const StopFlag &stop)
    : file_(folder)
{
    if (!file_.isOpen())
        return;
    const QFileInfo info(source);
    // Opening a named pipe would wait for its writer.
    if (source.isEmpty() || (info.exists() && !info.isFile())) {
        error_ = QStringLiteral("can't open the source: not a regular file");
        return;
    }
    QFile input(source);
    if (!input.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        error_ = QStringLiteral("can't open the source: ") + input.errorString();
        return;
    }
    const CopyResult result = copyContent(input, file_.file(), stop);
    switch (result.end) {
    case CopyResult::End::Whole:
        whole_ = true;
        onDisk_ = syncContent(file_.file(), stop);
        if (onDisk_)
            copyAttributes(input, file_.file());
        else
            error_ = stop.isRaised() ? QStringLiteral("stopped")
                                     : QStringLiteral("can't write the copy: ") + qt_error_string(errno);
        break;
    case CopyResult::End::Stopped:
        error_ = QStringLiteral("stopped");
        break;
    case CopyResult::End::ReadFailed:
        error_ = QStringLiteral("can't read the source: ") + result.reason;
        break;
    case CopyResult::End::WriteFailed:
        error_ = QStringLiteral("can't write the copy: ") + result.reason;
        break;
    }
}

Publish StagedCopy::publish(const QString &path)
{
    if (!whole_)
        return Publish::Failed;
    return onDisk_ ? file_.publish(path) : Publish::NotOnDisk;
}

Publish copyNewFile(const QString &source, const QString &destination, const StopFlag &stop)
{
    if (QFileInfo::exists(destination))
        return Publish::Exists;
    return StagedCopy(source, QFileInfo(destination).absolutePath(), stop).publish(destination);
}
