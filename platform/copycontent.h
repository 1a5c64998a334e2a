#pragma once

#include <QString>

class QFile;
class StopFlag;

/// How a copy ended.
struct CopyResult
{
    enum class End {
        Whole,
        Stopped, ///< the flag was raised
        ReadFailed,
        WriteFailed,
    };
    End end = End::Whole;
    QString reason = {}; ///< what the system says of a read or write that failed
};

/// Copies the whole content of the open file `source` to the open, empty file `target`, without passing
/// through this process where the system can, and has most of a long one written to disk meanwhile. Holes are
/// read as zeros. Of a source that grows or shrinks meanwhile, what it held when it was read. The flag is
/// tested at least every 4 MiB.
[[nodiscard]] CopyResult copyContent(QFile &source, QFile &target, const StopFlag &stop);

/// Gives `target` the permissions and the modification time of `source`, as far as its file system keeps
/// them. To be called when the content is written.
void copyAttributes(QFile &source, QFile &target);
