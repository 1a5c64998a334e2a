#include "tests/support/volumes.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <cstring>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

namespace {

bool writeText(const char *path, const QByteArray &text)
{
    QFile file(QString::fromLatin1(path));
    return file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) && file.write(text) == text.size();
}

} // namespace

void enterMountNamespace()
{
    const QByteArray user = QByteArray::number(::getuid());
    const QByteArray group = QByteArray::number(::getgid());
    if (::unshare(CLONE_NEWNS) != 0) {
        if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
            return;
        writeText("/proc/self/setgroups", "deny");
        writeText("/proc/self/uid_map", "0 " + user + " 1");
        writeText("/proc/self/gid_map", "0 " + group + " 1");
    }
    static_cast<void>(::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr));
}

TestVolume::TestVolume(const QString &mountPoint, int sizeKiB, const QString &name)
    : mountPoint_(mountPoint)
{
    QDir().mkpath(mountPoint);
    const QByteArray options = "size=" + QByteArray::number(sizeKiB) + "k";
    mounted_ = ::mount(QFile::encodeName(name).constData(), QFile::encodeName(mountPoint).constData(),
                       "tmpfs", 0, options.constData()) == 0;
    if (!mounted_)
        why_ = QStringLiteral("This machine does not allow mounts: %1")
                   .arg(QString::fromLocal8Bit(std::strerror(errno)));
}

TestVolume::~TestVolume()
{
    if (mounted_)
        static_cast<void>(::umount2(QFile::encodeName(mountPoint_).constData(), MNT_DETACH));
}

bool TestVolume::makeReadOnly()
{
    return ::mount("none", QFile::encodeName(mountPoint_).constData(), nullptr, MS_REMOUNT | MS_RDONLY,
                   nullptr) == 0;
}

bool TestVolume::pull()
{
    mounted_ = ::umount2(QFile::encodeName(mountPoint_).constData(), MNT_DETACH) != 0;
    return !mounted_;
}
