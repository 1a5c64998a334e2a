#include "cards/filecopy.h"

#include "platform/copycontent.h"
#include "platform/filesync.h"

#include <QFileInfo>

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
        state_ = startSync(file_.file()) ? State::Written : unwritable(stop);
        copyAttributes(input, file_.file());
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

Publish StagedCopy::publish(const QString &path, const StopFlag &stop)
{
    if (state_ == State::Written)
        state_ = syncContent(file_.file(), stop) ? State::OnDisk : unwritable(stop);
    switch (state_) {
    case State::OnDisk:
        return file_.publish(path);
    case State::Unwritable:
        return Publish::NotOnDisk;
    case State::Written:
    case State::NotWhole:
        break;
    }
    return Publish::Failed;
}

/// The state after a request to the disk that failed.
StagedCopy::State StagedCopy::unwritable(const StopFlag &stop)
{
    error_ = stop.isRaised() ? QStringLiteral("stopped")
                             : QStringLiteral("can't write the copy: ") + qt_error_string();
    return State::Unwritable;
}

Publish copyNewFile(const QString &source, const QString &destination, const StopFlag &stop)
{
    if (QFileInfo::exists(destination))
        return Publish::Exists;
    return StagedCopy(source, QFileInfo(destination).absolutePath(), stop).publish(destination, stop);
}
