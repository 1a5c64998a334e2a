#pragma once

#include <QString>
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

/// What became of a flush.
enum class Flushed {
    All,
    /// What is there is on disk, but some files have been moved or removed since. Not told from
    /// Failed on every platform.
    AllThatIsThere,
    Failed, ///< the volume met a write error or is gone, or the flush was stopped
};

/// The barrier between what was written to a volume and the report that says so.
class VolumeFlush
{
    Q_DISABLE_COPY(VolumeFlush)

public:
    VolumeFlush() = default;
    ~VolumeFlush();

    /// To be called before anything is written there: from here on the volume of the folder `folder` is asked
    /// for write errors. Does nothing for a volume that is watched, or a folder that isn't there, in which
    /// nothing can be written.
    void watch(const QString &folder);

    /// Returns once `files`, all on watched volumes, and the folders that name them are on disk, or `stop` is
    /// raised. Adds those that have been moved or removed to `gone`.
    [[nodiscard]] Flushed finish(const QStringList &files, const StopFlag &stop,
                                 QStringList *gone = nullptr) const;

private:
    struct Volume
    {
        QString folder; ///< one that is on it
        int file = -1;  ///< descriptor on it; -1 if none could be had
    };
    std::map<quint64, Volume> volumes_; ///< by device number, where the platform needs them
};
