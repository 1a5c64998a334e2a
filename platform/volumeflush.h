#pragma once

#include <QString>
#include <QStringList>

#include <memory>

class StopFlag;

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
    VolumeFlush();
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
    struct Volumes; // the platform's own
    std::unique_ptr<Volumes> volumes_;
};
