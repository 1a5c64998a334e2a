#include "platform/nativefile_windows.h"
#include "platform/stopflag.h"
#include "platform/volumeflush.h"

#include <algorithm>

struct VolumeFlush::Volumes
{
};

VolumeFlush::VolumeFlush() = default;

VolumeFlush::~VolumeFlush() = default;

void VolumeFlush::watch(const QString & /*folder*/) {}

Flushed VolumeFlush::finish(const QStringList &files, const StopFlag &stop, QStringList * /*gone*/) const
{
    const auto isOnDisk = [&stop](const QString &path) { return !stop.isRaised() && flushToDisk(path); };
    return std::all_of(files.cbegin(), files.cend(), isOnDisk) ? Flushed::All : Flushed::Failed;
}
