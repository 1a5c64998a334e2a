#include "app/renderer.h"

#include "platform/graphics.h"

#include <QQuickWindow>
#include <QSGRendererInterface>

void chooseRenderer()
{
    for (const char *choice : {"QT_QUICK_BACKEND", "QMLSCENE_DEVICE"}) {
        if (qEnvironmentVariableIsSet(choice))
            return;
    }
    if (hasGraphicsProcessor())
        return;
    qInfo("No graphics processor found, drawing without OpenGL");
    QQuickWindow::setSceneGraphBackend(QSGRendererInterface::Software);
}
