#pragma once

#include <QString>

/// Removes everything in `folder`, hidden and read-only files included, but not the folder itself. Follows no
/// symbolic link and enters no other volume mounted below. What can't be removed stays; false if anything
/// did, or the folder can't be looked into. One implementation per platform.
[[nodiscard]] bool emptyFolder(const QString &folder);
