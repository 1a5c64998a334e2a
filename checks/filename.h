#pragma once

#include <QString>

#include <filesystem>

/// `path` for a line of text or for JSON: bytes that are no valid UTF-8, and control characters, as "\xHH".
[[nodiscard]] QString shown(const std::filesystem::path &path);

/// `path`, as an operator chose or typed it.
[[nodiscard]] std::filesystem::path pathOf(const QString &path);
