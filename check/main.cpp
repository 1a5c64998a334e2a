#include "app/commandline.h"
#include "app/renderer.h"
#include "app/startup.h"
#include "app/version.h"
#include "check/checkcontroller.h"
#include "platform/desktop.h"

#include <QGuiApplication>
#include <QIcon>
#include <QQmlApplicationEngine>
#include <QQmlContext>
#include <QQmlError>
#include <QQuickWindow>
#include <QUrl>

#include <cstdio>
#include <cstdlib>
#include <optional>

namespace {

/// How long a check that was stopped may keep the process; it tests for it far more often.
constexpr int stopTimeoutMs = 500;

constexpr const char *help = R"(Usage: kelpora360-check [OPTION]

Opens the window of Kelpora 360 Check, which tells before the memory cards are
erased whether every file of theirs is stored in a folder, bit for bit. It is the
command "verify" of kelpora360-cli for people who don't use a terminal.
)";

/// Errors of the libraries go to standard error. The log belongs to the window of Kelpora 360.
void tellWarnings(QtMsgType type, const QMessageLogContext & /*context*/, const QString &message)
{
    if (type != QtDebugMsg && type != QtInfoMsg)
        std::fprintf(stderr, "kelpora360-check: %s\n", message.toLocal8Bit().constData());
}

/// Takes the messages while the toolkit looks for a display.
void endWithoutDisplay(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (type == QtFatalMsg)
        exitWithoutDisplay("kelpora360-check", message);
    tellWarnings(type, context, message);
}

} // namespace

int main(int argc, char *argv[])
{
    if (const std::optional<int> answered = answerCommandLine(argc, argv, "kelpora360-check", help))
        return *answered;
    ignoreSigpipe();
    limitTextureAtlas();
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling, true);
    QCoreApplication::setApplicationName(QStringLiteral("Kelpora 360 Check"));
    QCoreApplication::setApplicationVersion(app_version);
    qInstallMessageHandler(endWithoutDisplay);
    const QGuiApplication app(argc, argv);
    qInstallMessageHandler(tellWarnings);
    QGuiApplication::setDesktopFileName(QStringLiteral("kelpora360-check"));
    QGuiApplication::setWindowIcon(windowIcon());
    chooseRenderer();
    if (!hasFont()) {
        qCritical("The window can't be drawn: no font is installed.");
        return EXIT_FAILURE;
    }

    CheckController controller;
    QString whyNoWindow;
    QQmlApplicationEngine engine;
    engine.rootContext()->setContextProperty(QStringLiteral("checkController"), &controller);
    QObject::connect(&engine, &QQmlEngine::warnings, &engine, [&whyNoWindow](const QList<QQmlError> &errors) {
        whyNoWindow = errors.last().description();
    });
    engine.load(QUrl(QStringLiteral("qrc:/check/Check.qml"), QUrl::TolerantMode));
    const QList<QObject *> roots = engine.rootObjects();
    const auto *window = qobject_cast<QQuickWindow *>(roots.isEmpty() ? nullptr : roots.first());
    if (window == nullptr)
        endWithoutWindow(whyNoWindow);
    quitOnSceneGraphError(window);
    // A check takes as long as an import: the computer must not go to sleep over it.
    Desktop desktop;
    QObject::connect(&controller, &CheckController::begun, &controller,
                     [&desktop] { desktop.preventSleep(QStringLiteral("Checking the cards")); });
    QObject::connect(&controller, &CheckController::ended, &controller, [&](const QVariantMap &verdict) {
        desktop.allowSleep();
        if (window != nullptr && window->isVisible() && !window->isActive())
            desktop.notify(QStringLiteral("Kelpora 360 Check"),
                           verdict.value(QStringLiteral("headline")).toString());
    });

    const int exitCode = QGuiApplication::exec();
    bool ended = controller.end(stopTimeoutMs);
    ended = desktop.close() && ended;
    // A thread that hangs in the system's disk calls must not meet destroyed objects, nor be waited for.
    if (!ended)
        std::_Exit(exitCode);
    return exitCode;
}
