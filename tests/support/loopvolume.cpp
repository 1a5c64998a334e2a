#include "tests/support/loopvolume.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>

#include <cerrno>
#include <cstring>
#include <sys/mount.h>

LoopVolume::LoopVolume(Kind kind, const QString &image, int sizeMiB, const QString &mountPoint)
    : mountPoint_(mountPoint)
{
    QFile file(image);
    if (!file.open(QIODevice::WriteOnly) || !file.resize(qint64{sizeMiB} << 20)) {
        why_ = file.errorString();
        return;
    }
    file.close();
    if (kind == Kind::Exfat ? ran(QStringLiteral("mkfs.exfat"), {image})
                            : ran(QStringLiteral("mkfs.ext4"), {QStringLiteral("-q"), image}))
        mountImage(kind, image);
}

LoopVolume::LoopVolume(Kind kind, const QString &image, const QString &mountPoint)
    : mountPoint_(mountPoint)
{
    mountImage(kind, image);
}

void LoopVolume::mountImage(Kind kind, const QString &image)
{
    QDir().mkpath(mountPoint_);
    if (!ran(QStringLiteral("losetup"), {QStringLiteral("-f"), QStringLiteral("--show"), image}))
        return;
    const QString device = QString::fromLocal8Bit(output_).trimmed();
    if (kind == Kind::Exfat) {
        mounted_ = ran(QStringLiteral("mount.exfat-fuse"), {device, mountPoint_});
    } else {
        mounted_ = ::mount(QFile::encodeName(device).constData(), QFile::encodeName(mountPoint_).constData(),
                           "ext4", 0, nullptr) == 0;
        if (!mounted_)
            why_ = QString::fromLocal8Bit(std::strerror(errno));
    }
    // The device goes by itself once the volume is unmounted.
    static_cast<void>(ran(QStringLiteral("losetup"), {QStringLiteral("-d"), device}));
}

LoopVolume::~LoopVolume()
{
    if (mounted_)
        static_cast<void>(::umount2(QFile::encodeName(mountPoint_).constData(), MNT_DETACH));
}

QString LoopVolume::why() const
{
    return QStringLiteral("No volume in a file can be mounted here: ") + why_;
}

bool LoopVolume::ran(const QString &program, const QStringList &arguments)
{
    const QStringList administrators{QStringLiteral("/usr/sbin"), QStringLiteral("/sbin")};
    QString path = QStandardPaths::findExecutable(program);
    if (path.isEmpty())
        path = QStandardPaths::findExecutable(program, administrators);
    QProcess process;
    process.start(path, arguments);
    const bool good = process.waitForFinished(30000) && process.exitStatus() == QProcess::NormalExit &&
                      process.exitCode() == 0;
    output_ = process.readAllStandardOutput();
    if (!good)
        why_ =
            program + QLatin1Char(' ') + QString::fromLocal8Bit(process.readAllStandardError()).simplified();
    return good;
}
