#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

/// A volume in a file, through a loop device; unmounted on destruction.
class LoopVolume
{
    Q_DISABLE_COPY(LoopVolume)

public:
    enum class Kind {
        Exfat, ///< as on a camera's card
        Ext4,
    };

    /// Creates the sparse file `image` of `sizeMiB` mebibytes and the folder `mountPoint`, and mounts the one
    /// on the other.
    LoopVolume(Kind kind, const QString &image, int sizeMiB, const QString &mountPoint);
    /// Mounts the volume that the file `image` holds.
    LoopVolume(Kind kind, const QString &image, const QString &mountPoint);
    ~LoopVolume();

    /// False where this machine can't: skip the test, giving why().
    [[nodiscard]] bool isMounted() const { return mounted_; }
    [[nodiscard]] QString why() const;

private:
    void mountImage(Kind kind, const QString &image);
    bool ran(const QString &program, const QStringList &arguments);

    QString mountPoint_;
    QString why_;
    QByteArray output_;
    bool mounted_ = false;
};
