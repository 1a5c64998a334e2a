#pragma once

#include <QString>

/// Logs a warning if `folder` has no full path, with the folder that it stands for. Empty is no folder.
void warnOfRelative(const QString &folder);

/// Logs how much room there is for `folder`, which may still have to be made; `when` begins the line. May
/// wait for the volume.
void logFreeRoom(const char *when, const QString &folder);
