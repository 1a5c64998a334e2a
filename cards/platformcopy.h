#pragma once

#include <QStringList>

#include <map>

class QFile;
class StopFlag;

/// What differs by platform below the copying of recordings. One implementation file per platform.

/// Copies the whole content of the open file `source` to the open, empty file `target`, without passing
/// through this process where the system can, with holes kept as holes where the system tells of them, and
/// starts writing it to disk. False on a read or write error, a full disk, or a raised flag, which is tested
/// at least every 4 MiB.
[[nodiscard]] bool copyContent(QFile &source, QFile &target, const StopFlag &stop);

/// Gives `target` the permissions and the modification time of `source`, as far as its file system keeps
/// them. To be called when the content is written.
void copyAttributes(QFile &source, QFile &target);

/// The barrier between what was written to a volume and the report that says so.
class VolumeFlush
{
    Q_DISABLE_COPY(VolumeFlush)

public:
    VolumeFlush() = default;
    ~VolumeFlush();

    /// To be called before anything is written there: from here on the volume of the existing folder `folder`
    /// is asked for write errors. Does nothing for a volume that is watched.
    void watch(const QString &folder);

    /// Returns once `files`, all on watched volumes, and the folders that name them are on disk. False if the
    /// volume has met a write error, a file is gone (as with a volume that was pulled out), or `stop` is
    /// raised first.
    [[nodiscard]] bool finish(const QStringList &files, const StopFlag &stop) const;

private:
    std::map<quint64, int> volumes_; ///< descriptors by device number, where the platform needs them
};
