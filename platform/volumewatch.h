#pragma once

#include <QString>

#include <functional>

/// Watches `folder` from here on. The result tells whether another volume or folder may have taken its place
/// since: never false when one has; true for good where the system doesn't tell, and after any volume was
/// mounted or unmounted.
[[nodiscard]] std::function<bool()> watchForAnotherVolume(const QString &folder);
