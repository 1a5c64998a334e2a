#include "app/appcontroller.h"
#include "app/commandline.h"
#include "app/instance.h"
#include "app/jobwatch.h"
#include "app/limitednetwork.h"
#include "app/log.h"
#include "app/paths.h"
#include "app/renderer.h"
#include "app/screen.h"
#include "app/settingsfile.h"
#include "app/startup.h"
#include "app/version.h"
#include "platform/desktop.h"

#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QIcon>
#include <QLockFile>
#include <QQmlApplicationEngine>
#include <QQmlContext>
#include <QQmlError>
#include <QQuickWindow>
#include <QUrl>

#include <cstdio>
#include <cstdlib>
#include <optional>

namespace {

/// How long jobs that were asked to stop may keep the process; they test for it far more often.
constexpr int stopTimeoutMs = 1500;

constexpr const char *help = R"(Usage: kelpora360 [OPTION]

Opens the window of Kelpora 360, the companion of an underwater rig of three
cameras and a controller: settings, clock and data log of the controller,
preparation and import of the three memory cards, stitching projects.
)";

QString flag(bool on)
{
    return on ? QStringLiteral("1") : QStringLiteral("0");
}

/// Takes away a lock on the settings that nobody gives back, such as one that another user's run left behind
/// when the power went: the toolkit would wait for it without end. It is held for milliseconds otherwise.
void removeStaleSettingsLock()
{
    constexpr int patienceMs = 2000;
    const QString path = getIniFilePath() + QStringLiteral(".lock");
    // The toolkit would wait for the writer of a pipe, or for a folder to go.
    if (const QFileInfo found(path); found.exists() && !found.isFile()) {
        if (!QFile::remove(path))
            QDir().rmdir(path);
        return;
    }
    QLockFile lock(path);
    lock.setStaleLockTime(0);
    if (!lock.tryLock(patienceMs) && lock.error() == QLockFile::LockFailedError)
        QFile::remove(path);
}

/// Qt reads these switches once, when the application object is made. Leaves all of them in the file.
void applyScaling(SettingsFile &settings, const AppScreen &screen)
{
    const bool autoScale = settings.value(QStringLiteral("EnableAutoScale"), false).toBool();
    if (autoScale)
        qputenv("QT_AUTO_SCREEN_SCALE_FACTOR", "1");
    settings.setValue(QStringLiteral("EnableAutoScale"), flag(autoScale));

    const bool scaleFactor = settings.value(QStringLiteral("EnableScaleFactor"), true).toBool();
    if (scaleFactor)
        qputenv("QT_SCALE_FACTOR", QString::number(screen.scaleFactor, 'g', 6).toLocal8Bit());
    settings.setValue(QStringLiteral("EnableScaleFactor"), flag(scaleFactor));

    const bool highDpi = settings.value(QStringLiteral("EnableHighDpiScaling"), true).toBool();
    if (highDpi)
        QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling, true);
    settings.setValue(QStringLiteral("EnableHighDpiScaling"), flag(highDpi));
}

/// Turns the controller off if a port was chosen.
void shutDownCamera(AppController &controller)
{
    qInfo("Shutting down camera ...");
    if (controller.port().isEmpty()) {
        qInfo("No camera connected");
        return;
    }
    controller.turnOffWorker(controller.port());
    qInfo("Camera shut down");
}

/// Takes the messages while the toolkit looks for a display, where it aborts without one: the operator gets
/// its reason in a line.
void endWithoutDisplay(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (type == QtFatalMsg)
        exitWithoutDisplay("kelpora360", message);
    AppMessageHandler(type, context, message);
}

void bringToFront(QQuickWindow *window)
{
    window->showNormal();
    window->raise();
    window->requestActivate();
    window->alert(0);
}

/// The desktop session closes the window without anybody there who could answer a question.
void tellOfSessionEnd(const QGuiApplication &app, QQuickWindow *window)
{
    if (window != nullptr)
        QObject::connect(&app, &QGuiApplication::commitDataRequest, window,
                         [window] { window->setProperty("sessionEnding", true); });
}

} // namespace

int main(int argc, char *argv[])
{
    if (const std::optional<int> answered = answerCommandLine(argc, argv, "kelpora360", help))
        return *answered;
    ignoreSigpipe();
    setAppPathFromExecutable(QFile::decodeName(argv[0]));
    Instance instance(QFileInfo(getIniFilePath()).absolutePath());
    if (instance.askOther()) {
        std::puts("Kelpora 360 is already running; its window was asked to come to the front.");
        return EXIT_SUCCESS;
    }
    removeStaleSettingsLock();
    SettingsFile settings(getIniFilePath());
    AppScreen screen(settings.value(QStringLiteral("ScaleFactor"), 1.0).toDouble());
    screen.init(argc, argv);
    applyScaling(settings, screen);
    limitTextureAtlas();
    settings.setValue(QStringLiteral("AppVersion"), app_version);
    settings.setValue(QStringLiteral("AppName"), app_name);
    settings.sync();

    resetLog();
    if (qInstallMessageHandler(AppMessageHandler) == nullptr)
        qInstallMessageHandler(nullptr);
    qInfo("Application start");
    logEnvironment(app_name, app_version, screen);

    QCoreApplication::setApplicationName(app_name);
    QCoreApplication::setApplicationVersion(app_version);
    const QtMessageHandler usualHandler = qInstallMessageHandler(endWithoutDisplay);
    QGuiApplication app(argc, argv);
    qInstallMessageHandler(usualHandler);
    setAppPathFromExecutable(QCoreApplication::applicationFilePath());
    QGuiApplication::setDesktopFileName(QStringLiteral("kelpora360"));
    QGuiApplication::setWindowIcon(windowIcon());
    chooseRenderer();
    if (!hasFont()) {
        qCritical("The window can't be drawn: no font is installed.");
        return EXIT_FAILURE;
    }

    AppController controller;
    controller.setVersion(app_version);
    controller.listDevicesAhead();
    LimitedNetwork network;
    QString whyNoWindow;
    QQmlApplicationEngine engine;
    engine.setNetworkAccessManagerFactory(&network);
    engine.rootContext()->setContextProperty(QStringLiteral("appController"), &controller);
    QObject::connect(&engine, &QQmlEngine::warnings, &engine, [&whyNoWindow](const QList<QQmlError> &errors) {
        whyNoWindow = errors.last().description();
    });
    engine.load(QUrl(QStringLiteral("qrc:/views/Main.qml"), QUrl::TolerantMode));
    const QList<QObject *> roots = engine.rootObjects();
    auto *window = qobject_cast<QQuickWindow *>(roots.isEmpty() ? nullptr : roots.first());
    controller.init(window);
    Desktop desktop;
    std::optional<JobWatch> jobs;
    if (window != nullptr)
        controller.setJobWatch(jobs.emplace(desktop, *window));
    else
        endWithoutWindow(whyNoWindow);
    quitOnSceneGraphError(window);
    tellOfSessionEnd(app, window);
    if (window != nullptr)
        instance.answer([window] { bringToFront(window); });

    const int exitCode = QGuiApplication::exec();
    instance.beginClosing();

    // A job that still holds the port must let go of it first.
    bool stopped = controller.endJobs(stopTimeoutMs);
    shutDownCamera(controller);
    // What a job is writing now, such as the files of a download, may be finished meanwhile.
    stopped = stopped || AppController::waitForJobs(stopTimeoutMs);
    if (!stopped)
        qWarning("Leaving while a job still runs.");
    stopped = desktop.close() && stopped;
    qInfo("Application end");
    // A thread that hangs in the system's disk calls, or on a message bus, must not meet destroyed objects,
    // nor be waited for.
    if (!stopped)
        std::_Exit(exitCode);
    return exitCode;
}
