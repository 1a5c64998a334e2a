#include "platform/graphics.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>

bool hasGraphicsProcessor()
{
    const auto isOurs = [](const QString &path) {
        const QFileInfo device(path);
        return device.isReadable() && device.isWritable();
    };
    // Drivers of their own, beside the kernel's.
    for (const char *device : {"/dev/nvidiactl", "/dev/nvhost-gpu", "/dev/dxg", "/dev/mali0", "/dev/kgsl-3d0",
                               "/dev/galcore", "/dev/pvrsrvkm"}) {
        if (isOurs(QString::fromLatin1(device)))
            return true;
    }
    // A card without a render node only shows pictures.
    const QFileInfoList nodes =
        QDir(QStringLiteral("/dev/dri")).entryInfoList({QStringLiteral("renderD*")}, QDir::System);
    return std::any_of(nodes.begin(), nodes.end(),
                       [&](const QFileInfo &node) { return isOurs(node.filePath()); });
}
