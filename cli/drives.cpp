#include "cards/drives.h"

#include "cli/commands.h"
#include "cli/output.h"

#include <QJsonArray>

Exit listDrives(const Call &call)
{
    QJsonArray drives;
    for (const QVariant &drive : Drives().list()) {
        const QJsonObject entry = drive.toJsonObject();
        const QString path = entry.value(QStringLiteral("key")).toString();
        const QString name = entry.value(QStringLiteral("value")).toString();
        call.output.line(QStringLiteral("%1 (%2)").arg(name, path));
        drives.append(QJsonObject{{QStringLiteral("path"), path}, {QStringLiteral("name"), name}});
    }
    call.output.set(QStringLiteral("drives"), drives);
    return Exit::Good;
}
