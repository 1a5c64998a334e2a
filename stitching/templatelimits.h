#pragma once

#include <QString>

/// Limits far above any real template (some 100 kB), which bound the memory, time and stack that its DOM
/// takes.

constexpr int maxTemplateBytes = 4 * 1024 * 1024;

/// The limit that the text exceeds, such as "more than 200000 elements, attributes and texts"; empty if none.
/// A text that is not XML is only looked at up to its first error.
[[nodiscard]] QString exceededTemplateLimit(const QString &text);
