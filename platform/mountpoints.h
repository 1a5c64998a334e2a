#pragma once

#include <QString>
#include <QVector>

/// A place where a volume is mounted.
struct MountPoint
{
    QString id; ///< of this mount; not used again while a call on it has not returned
    QString path;
};

/// Where volumes are mounted, in the system's order, without asking any of them; the mounts of the system's
/// own are left out. Empty where the platform offers no such list.
[[nodiscard]] QVector<MountPoint> mountPoints();
