#pragma once

#include "platform/stopflag.h"

#include <QFileDevice>
#include <QString>

/// Has the disk begin to write the content of the open file `file`, so that syncContent() finds less to wait
/// for. False with errno, or GetLastError() on Windows, if it could not; no later call need tell that again.
[[nodiscard]] bool startSync(QFileDevice &file);

/// Has the content of the open file `file` written to its disk, so that a name that the file is given
/// afterwards never stands for less, whenever the power goes. False with the same error if it could not be,
/// or if `stop` was raised. On a volume whose journal brings no name before its content (ext4, XFS, Btrfs)
/// this costs no commit of the journal.
[[nodiscard]] bool syncContent(QFileDevice &file, const StopFlag &stop = StopFlag());

/// Has what was written to the open file `file` written to its disk. False if it could not be: a full or
/// failing volume may say so only here. A volume that knows no such request says yes.
[[nodiscard]] bool syncToDisk(QFileDevice &file);

/// The same for the names in the folder `folder`; one that can't be listed says yes.
[[nodiscard]] bool syncFolder(const QString &folder);
