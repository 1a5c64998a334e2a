#include "platform/copycontent.h"
#include "platform/stopflag.h"
#include "platform/volumeflush.h"

#include <QDateTime>
#include <QFile>
#include <QFileDevice>

#include <algorithm>

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
    target.setPermissions(source.permissions());
    target.setFileTime(source.fileTime(QFileDevice::FileModificationTime), QFileDevice::FileModificationTime);
}

VolumeFlush::~VolumeFlush() = default;

void VolumeFlush::watch(const QString & /*folder*/) {}

Flushed VolumeFlush::finish(const QStringList &files, const StopFlag &stop, QStringList * /*gone*/) const
{
    // No portable call flushes a file; that it is still there can be seen.
    const auto isThere = [](const QString &path) { return QFile::exists(path); };
    return !stop.isRaised() && std::all_of(files.cbegin(), files.cend(), isThere) ? Flushed::All
                                                                                  : Flushed::Failed;
}
