#pragma once

class QIcon;
class QQuickWindow;
class QString;

// What the windows' programs do alike when they start. QGuiApplication must be there for all but the first
// three.

/// The lines of a log go to standard error as well; who reads them there may leave before the program does.
void ignoreSigpipe();
/// A window shows a few small icons; the toolkit would reserve four megabytes for them. A variable that is
/// set already holds.
void limitTextureAtlas();
/// To be called with the toolkit's last words where it aborts because there is no display: the operator gets
/// its reason in a line on standard error, and the process ends.
[[noreturn]] void exitWithoutDisplay(const char *program, const QString &message);

/// The program's icon; empty where the system has it elsewhere.
[[nodiscard]] QIcon windowIcon();
/// Whether there is a font to write with. The toolkit would draw a window without any text.
[[nodiscard]] bool hasFont();
/// Ends the event loop that is about to begin, with a line in the log: there is no window.
void endWithoutWindow(const QString &why);
/// Ends the program with a line in its log where nothing can be drawn; the toolkit would abort without one.
void quitOnSceneGraphError(const QQuickWindow *window);
