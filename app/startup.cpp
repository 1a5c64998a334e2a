#include "app/startup.h"

#include <QDebug>
#include <QGuiApplication>
#include <QIcon>
#include <QQuickWindow>
#include <QRawFont>

#include <csignal>
#include <cstdio>
#include <cstdlib>

void ignoreSigpipe()
{
#ifdef Q_OS_UNIX
    std::signal(SIGPIPE, SIG_IGN);
#endif
}

void limitTextureAtlas()
{
    for (const char *side : {"QSG_ATLAS_WIDTH", "QSG_ATLAS_HEIGHT"}) {
        if (!qEnvironmentVariableIsSet(side))
            qputenv(side, "512");
    }
}

void exitWithoutDisplay(const char *program, const QString &message)
{
    std::fprintf(stderr, "%s: No window can be opened. %s\n", program,
                 message.simplified().toLocal8Bit().constData());
    std::_Exit(EXIT_FAILURE);
}

QIcon windowIcon()
{
    QIcon icon;
#ifndef Q_OS_MACOS // The bundle has its own.
    for (const char *size : {"16", "32", "48", "128"})
        icon.addFile(QStringLiteral(":/icon/%1.png").arg(QLatin1String(size)));
#endif
    return icon;
}

bool hasFont()
{
    // The toolkit's stand-in for a missing font has no name.
    return !QRawFont::fromFont(QGuiApplication::font()).familyName().isEmpty();
}

void endWithoutWindow(const QString &why)
{
    qCritical().noquote() << "The window can't be made:" << why.simplified();
    QMetaObject::invokeMethod(
        qApp, [] { QCoreApplication::exit(EXIT_FAILURE); }, Qt::QueuedConnection);
}

void quitOnSceneGraphError(const QQuickWindow *window)
{
    if (window == nullptr)
        return;
    QObject::connect(window, &QQuickWindow::sceneGraphError, window,
                     [](QQuickWindow::SceneGraphError, const QString &why) {
                         qCritical().noquote() << "The window can't be drawn:" << why.simplified();
                         QCoreApplication::exit(EXIT_FAILURE);
                     });
}
