#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

/// `size` bytes that no other `seed` gives.
[[nodiscard]] QByteArray recording(int size, quint32 seed);

/// Whether two files hold the same bytes; read piece by piece. False if either can't be read.
[[nodiscard]] bool sameContent(const QString &first, const QString &second);

/// Every file below `folder`, relative to it and sorted, hidden ones too; links to folders aren't followed.
[[nodiscard]] QStringList filesBelow(const QString &folder);
/// Those of filesBelow() that an import had not finished: hidden temporary files.
[[nodiscard]] QStringList unfinishedBelow(const QString &folder);
/// Those of filesBelow() whose name starts without a dot.
[[nodiscard]] QStringList visibleBelow(const QString &folder);

/// Deletes everything in `folder` but not the folder.
void clearFolder(const QString &folder);
