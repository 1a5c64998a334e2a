#pragma once

#include "platform/newfile.h"
#include "platform/stopflag.h"

/// A copy of a recording that has not got its name yet.
///
/// The content is on its way to the disk, under a temporary name in the destination folder, with the source's
/// permissions and modification time. Without a publish() that succeeds nothing of it stays.
class StagedCopy
{
public:
    /// Copies `source` into `folder`, which must exist; see isWhole(). Ends early when `stop` is raised.
    StagedCopy(const QString &source, const QString &folder, const StopFlag &stop);

    /// Whether everything that the source holds has been copied.
    [[nodiscard]] bool isWhole() const { return state_ != State::NotWhole; }
    /// What failed first, with the system's reason and without a path: "can't read the source: ...",
    /// "stopped" if the flag was raised. Empty while all is well, also after Publish::Exists.
    [[nodiscard]] QString error() const { return error_.isEmpty() ? file_.error() : error_; }

    /// Waits until the content is on disk and gives the copy its name; never replaces a file. May be called
    /// again with another name on Publish::Exists.
    [[nodiscard]] Publish publish(const QString &path, const StopFlag &stop = StopFlag());

private:
    enum class State {
        NotWhole,
        Unwritable, ///< the disk could not take it
        Written,
        OnDisk,
    };
    [[nodiscard]] State unwritable(const StopFlag &stop);

    NewFile file_;
    QString error_;
    State state_ = State::NotWhole;
};

/// Copies `source` to the new file `destination`.
[[nodiscard]] Publish copyNewFile(const QString &source, const QString &destination, const StopFlag &stop);
