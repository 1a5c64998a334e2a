#pragma once

#include "checks/recordingtime.h"

#include <QString>
#include <QStringList>
#include <QVector>

#include <array>
#include <optional>

class StopFlag;

constexpr int cameraCount = 3;

/// A recording of one camera.
struct Recording
{
    int camera = 0; ///< 1 to 3
    QString path;   ///< relative to its card, or to the folder that was imported into
    QString take;   ///< what its name says: the path that all three cameras' files of a take share
    RecordingTime time;

    /// Recordings of different kinds are of different takes: the file's extension.
    [[nodiscard]] QString kind() const { return path.section(QLatin1Char('.'), -1); }
};

/// The recordings of cards, or of a folder that was imported into.
struct RecordingList
{
    QVector<Recording> recordings;
    QStringList unreadable; ///< folders and names that can't be listed
};

/// Lists the recordings of three cards and reads their times. An empty path stands for a card that isn't
/// there. Ends early when `stop` is raised.
[[nodiscard]] RecordingList recordingsOnCards(const std::array<QString, cameraCount> &cards,
                                              const StopFlag &stop);

/// Lists what an import wrote into `folder`, told by the names that it gives, and reads the times.
[[nodiscard]] RecordingList recordingsIn(const QString &folder, const StopFlag &stop);

/// Something that is wrong with a take.
struct TakeFinding
{
    enum class Kind {
        Missing,    ///< `camera` has no recording of this moment, or none at all if `files` is empty
        Unpaired,   ///< no camera but `camera` recorded at this moment
        Shifted,    ///< `files` are of one moment, but their names are of different takes
        Short,      ///< `camera` stopped `seconds` before the longest
        Untimed,    ///< when the file was recorded can't be told, so its name alone pairs it
        Unmeasured, ///< how long the movie is can't be told, so neither whether it is short
        Uncertain,  ///< how far the clock of `camera` is ahead is a guess, and with it which files pair; no
                    ///< `files`
    };
    Kind kind = Kind::Missing;
    int camera = 0; ///< 0 if it concerns all
    /// The recordings of the moment by camera; empty where one has none.
    std::array<QString, cameraCount> files;
    std::optional<qint64> start; ///< of the moment, by the clock of TakesReport::reference; ms since 1970
    double seconds = 0;
    QString reason; ///< for Untimed and Uncertain
};

/// What came of matching recordings.
struct TakesReport
{
    int takes = 0;                 ///< moments at which any camera recorded
    QVector<TakeFinding> findings; ///< in the order of time
    /// How far each camera's clock is ahead, in seconds; unknown for a camera whose recordings match no
    /// other's.
    std::array<std::optional<double>, cameraCount> clocks;
    int reference = 0; ///< the camera whose clock the others are compared with: the middle one; 0 without any
};

/// Finds out which recordings are of one moment, whatever their names: the clocks' offsets are estimated from
/// all recordings, then those that started together, or nearly, are of one take. Where times don't decide,
/// names do.
[[nodiscard]] TakesReport matchTakes(const QVector<Recording> &recordings);

/// The finding as one line for people. `clocks` of less than three seconds are not worth one.
[[nodiscard]] QString toText(const TakeFinding &finding);
/// One line for each camera whose clock differs from that of the reference by more than two seconds.
[[nodiscard]] QStringList clockLines(const TakesReport &report);
