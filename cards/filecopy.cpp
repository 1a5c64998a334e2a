#include "cards/filecopy.h"

#include "app/job.h"
#include "platform/copycontent.h"

#include <QFileInfo>

StagedCopy::StagedCopy(const QString &source, const QString &folder, const StopFlag &stop)
    : file_(folder)
{
    QFile input(source);
    // Only regular files: opening a named pipe would wait for its writer.
    if (!file_.isOpen() || !QFileInfo(source).isFile() ||
        !input.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return;
    whole_ = copyContent(input, file_.file(), stop);
    if (whole_)
        copyAttributes(input, file_.file());
}

Publish StagedCopy::publish(const QString &path)
{
    return whole_ ? file_.publish(path) : Publish::Failed;
}

Publish copyNewFile(const QString &source, const QString &destination, const StopFlag &stop)
{
    if (QFileInfo::exists(destination))
        return Publish::Exists;
    return StagedCopy(source, QFileInfo(destination).absolutePath(), stop).publish(destination);
}
