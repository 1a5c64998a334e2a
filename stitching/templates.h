#pragma once

#include <QString>
#include <QVariantList>

/// The stitching templates ("*.kava") of the templates folder as JSON objects {"key": absolute path,
/// "value": name without ".kava"}, in descending case-sensitive order of name. Read afresh at every call;
/// an empty or missing folder is logged and gives an empty list.
[[nodiscard]] QVariantList listTemplates();

/// Absolute path of the first "*.jpg" of the templates folder, by name; empty if there is none.
[[nodiscard]] QString templatePicture();
