#include "app/renderer.h"

#include "platform/graphics.h"

#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <QQuickWindow>
#include <QSGRendererInterface>

namespace {

/// Whether a window can be drawn with OpenGL. A driver that doesn't fit is only found out by a try.
bool hasOpenGl()
{
    QOffscreenSurface surface;
    surface.create();
    QOpenGLContext context;
    return context.create() && context.makeCurrent(&surface);
}

} // namespace

void chooseRenderer()
{
    for (const char *choice : {"QT_QUICK_BACKEND", "QMLSCENE_DEVICE"}) {
        if (qEnvironmentVariableIsSet(choice))
            return;
    }
    if (!hasGraphicsProcessor())
        qInfo("No graphics processor found, drawing without OpenGL");
    else if (!hasOpenGl())
        qInfo("OpenGL fails, drawing without it");
    else
        return;
    QQuickWindow::setSceneGraphBackend(QSGRendererInterface::Software);
}
