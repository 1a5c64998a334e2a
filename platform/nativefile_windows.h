#pragma once

#include <QString>

#include <string>

/// `path` as the calls of Windows take it, also if it is longer than 260 characters.
[[nodiscard]] std::wstring nativePath(const QString &path);

/// Has what any handle wrote to the file written to its disk, past the disk's own cache. False with
/// GetLastError() if it could not be; a read-only file can't be asked for.
[[nodiscard]] bool flushToDisk(const QString &path);
