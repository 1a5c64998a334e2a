#pragma once

#include <QtGlobal>

class AppScreen;
class QMessageLogContext;
class QString;

/// The process-wide message handler: stamps a message with the local time and its level, echoes it on
/// standard error (Latin-1) and appends it to the log file. A fatal message aborts at once and is written
/// nowhere. Safe on any thread; a log file that can't be opened costs only the file's copy.
void AppMessageHandler(QtMsgType type, const QMessageLogContext &context, const QString &message);

/// Deletes the log file, so that it holds only the current run.
void resetLog();

/// Logs one line per fact about the application, the operating system and the screen.
void logEnvironment(const QString &appName, const QString &appVersion, const AppScreen &screen);
