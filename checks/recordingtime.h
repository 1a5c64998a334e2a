#pragma once

#include <QString>

/// When a recording was made, as its own file tells it.
struct RecordingTime
{
    qint64 start = 0;   ///< ms since 1970-01-01, by the camera's clock, whatever its time zone
    qint64 length = -1; ///< ms; -1 for photos, and if it can't be told
    QString problem;    ///< why there is no start; empty if there is one
};

/// What is told of a file whose header says nothing of use.
inline RecordingTime failed(const QString &problem)
{
    RecordingTime time;
    time.problem = problem;
    return time;
}
