#include "app/renderer.h"

#include "platform/graphics.h"

#include <QQuickWindow>
#include <QSGRendererInterface>

void chooseRenderer()
{
    if (!qEnvironmentVariableIsSet("QT_QUICK_BACKEND") && !hasGraphicsProcessor())
        QQuickWindow::setSceneGraphBackend(QSGRendererInterface::Software);
}
