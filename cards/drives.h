#pragma once

#include <QString>
#include <QVariantList>

/// The mounted volumes that may be a card: valid, ready, writable and not the system's root. JSON objects
/// {"key": root path, "value": display name} in the order in which the system reports them.
[[nodiscard]] QVariantList listDrives();

/// The user's movies folder; empty where the platform has none. Neither created nor checked.
[[nodiscard]] QString moviesLocation();

/// Whether `path` is the system's root, however it is written or linked to.
[[nodiscard]] bool isSystemRoot(const QString &path);
