#pragma once

#include <QVariantMap>

/// Every key of the settings file with its value: text for the program's own keys, any type for the others.
/// Keys that the program needs and the file lacks are written with their defaults first. A file that can't be
/// written still gives the defaults. One that has not changed is not read again. Safe on any thread, and a
/// call sees all of what another one stored or nothing of it.
[[nodiscard]] QVariantMap loadSettings();

/// The same, but writes nothing.
[[nodiscard]] QVariantMap peekSettings();

/// Writes every entry of `settings` to the settings file and leaves its other keys alone. A key that is not
/// the program's own keeps its type if only that differs.
void storeSettings(const QVariantMap &settings);
