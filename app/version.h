#pragma once

#include <QString>

/// The program's name as the user sees it; also the name of its support folder.
extern const QString app_name;

/// The program's version, "major.minor.patch".
extern const QString app_version;
