#pragma once

#include <QString>

/// Removes everything in `folder`, hidden and read-only files included, but not the folder itself. Follows no
/// symbolic link and enters no other volume mounted below. What can't be removed stays. One implementation
/// per platform.
void emptyFolder(const QString &folder);
