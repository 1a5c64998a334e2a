#pragma once

#include <QString>

/// Where the program's own files lie.
///
/// Each function stores its last answer in the process-wide string beside it and returns a copy. The
/// functions may be called from any thread; the strings themselves are for start-up and for tests.

/// Absolute path of the folder that holds the application (on macOS: the bundle).
extern QString appPath;
/// Absolute path of the per-user folder "Kelpora 360".
extern QString applicationSupportPath;
/// Absolute path of the settings file; once set it stays for the run.
extern QString iniFilePath;
/// Absolute path of the folder of stitching templates.
extern QString templatesPath;
/// Absolute path of the log file.
extern QString logFilePath;

/// Derives `appPath` from the path of the running executable and makes it the current directory.
void setAppPathFromExecutable(const QString &executablePath);

/// `appPath`, derived from QCoreApplication::applicationFilePath() while it is still empty.
[[nodiscard]] QString getAppPath();

/// `applicationSupportPath`; creates the folder. Empty if it never could be created.
[[nodiscard]] QString getApplicationSupportPath();

/// `iniFilePath`, computed at the first call.
[[nodiscard]] QString getIniFilePath();

/// `templatesPath`: "templates" beside the application if that exists, otherwise in the support folder.
/// The folder is neither created nor filled.
[[nodiscard]] QString getTemplateDir();

/// `logFilePath`. Every call appends the line "Logfile path:" to that file.
QString getLogFilePath();

/// "utilities" beside the application; the application folder itself if there is none.
[[nodiscard]] QString getUtilitiesDir();

/// "firmware" beside the application; the application folder itself if there is none.
[[nodiscard]] QString getFirmwareDir();
