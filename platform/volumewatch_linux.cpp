#include "platform/volumewatch.h"

#include <QFile>

#include <memory>
#include <poll.h>
#include <sys/stat.h>
#include <utility>

namespace {

std::pair<dev_t, ino_t> identityOf(const QString &folder)
{
    struct stat status = {};
    if (::stat(QFile::encodeName(folder).constData(), &status) != 0)
        return {};
    return {status.st_dev, status.st_ino};
}

} // namespace

std::function<bool()> watchForAnotherVolume(const QString &folder)
{
    const auto mounts = std::make_shared<QFile>(QStringLiteral("/proc/self/mountinfo"));
    const bool watched = mounts->open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    return [folder, mounts, identity = identityOf(folder), another = !watched]() mutable {
        // The kernel tells of a changed table once. The next card in a reader may show in nothing else: the
        // numbers of devices and files are used again.
        pollfd table = {mounts->handle(), POLLPRI, 0};
        another = another || ::poll(&table, 1, 0) < 0 || (table.revents & (POLLPRI | POLLERR)) != 0 ||
                  identityOf(folder) != identity;
        return another;
    };
}
