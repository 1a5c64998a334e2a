#pragma once

#include <QFileDevice>
#include <QString>

/// Has what was written to the open file `file` written to its disk. False if it could not be: a full or
/// failing volume may say so only here. A volume that knows no such request says yes.
[[nodiscard]] bool syncToDisk(QFileDevice &file);

/// The same for the names in the folder `folder`; one that can't be listed says yes.
[[nodiscard]] bool syncFolder(const QString &folder);
