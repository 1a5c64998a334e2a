#include "platform/copycontent.h"
#include "platform/stopflag.h"

#include <QDateTime>
#include <QFile>
#include <QFileDevice>

CopyResult copyContent(QFile &source, QFile &target, const StopFlag &stop)
{
    constexpr qint64 chunkSize = qint64{1} << 20;
    while (!stop.isRaised()) {
        const QByteArray chunk = source.read(chunkSize);
        if (source.error() != QFileDevice::NoError)
            return {CopyResult::End::ReadFailed, source.errorString()};
        if (target.write(chunk) != chunk.size() || (chunk.isEmpty() && !target.flush()))
            return {CopyResult::End::WriteFailed, target.errorString()};
        if (chunk.isEmpty())
            return {};
    }
    return {CopyResult::End::Stopped};
}

void copyAttributes(QFile &source, QFile &target)
{
    // Of the permissions Windows would keep only "read-only": what is so can neither be flushed nor, when its
    // name is refused, be removed.
    target.setFileTime(source.fileTime(QFileDevice::FileModificationTime), QFileDevice::FileModificationTime);
}
