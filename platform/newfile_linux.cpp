#include "platform/newfile.h"

#include <QDebug>
#include <QFileInfo>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <thread>
#include <unistd.h>

namespace {

/// Shorter than the program's wait for its jobs at its end.
constexpr std::chrono::milliseconds lockTimeout(1000);
constexpr std::chrono::milliseconds lockPoll(10);

/// Locks the folder, unless another program keeps it locked for longer than this one's moment with it takes.
bool lock(int folder)
{
    const auto deadline = std::chrono::steady_clock::now() + lockTimeout;
    while (::flock(folder, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR)
            return false;
        if (std::chrono::steady_clock::now() >= deadline) {
            qWarning("Another program keeps the destination folder locked.");
            return false;
        }
        std::this_thread::sleep_for(lockPoll);
    }
    return true;
}

/// For file systems that know neither renameat2's flag nor hard links (exFAT through FUSE): a lock on the
/// folder keeps this program's own processes apart while the name is looked up and taken.
Publish renameUnderLock(const QString &from, const QString &to)
{
    const int folder = ::open(QFile::encodeName(QFileInfo(to).absolutePath()).constData(),
                              O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0)
        return Publish::Failed;
    Publish result = Publish::Failed;
    if (lock(folder)) {
        const QFileInfo target(to);
        if (target.exists() || target.isSymLink())
            result = Publish::Exists;
        else if (std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0)
            result = Publish::Done;
    }
    ::close(folder);
    return result;
}

} // namespace

Publish renameNoReplace(const QString &from, const QString &to)
{
    const QByteArray source = QFile::encodeName(from);
    const QByteArray target = QFile::encodeName(to);
    if (::renameat2(AT_FDCWD, source.constData(), AT_FDCWD, target.constData(), RENAME_NOREPLACE) == 0)
        return Publish::Done;
    if (errno == EEXIST)
        return Publish::Exists;
    if (errno != EINVAL && errno != ENOSYS && errno != EPERM)
        return Publish::Failed;

    if (::link(source.constData(), target.constData()) == 0) {
        ::unlink(source.constData());
        return Publish::Done;
    }
    if (errno == EEXIST)
        return Publish::Exists;
    return renameUnderLock(from, to);
}
