#include "platform/stopflag.h"
#include "platform/volumeflush.h"

#include <QFile>

#include <algorithm>

struct VolumeFlush::Volumes
{
};

VolumeFlush::VolumeFlush() = default;

VolumeFlush::~VolumeFlush() = default;

void VolumeFlush::watch(const QString & /*folder*/) {}

Flushed VolumeFlush::finish(const QStringList &files, const StopFlag &stop, QStringList * /*gone*/) const
{
    // No portable call flushes a file; that it is still there can be seen.
    const auto isThere = [](const QString &path) { return QFile::exists(path); };
    return !stop.isRaised() && std::all_of(files.cbegin(), files.cend(), isThere) ? Flushed::All
                                                                                  : Flushed::Failed;
}
