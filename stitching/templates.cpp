#include "stitching/templates.h"

#include "app/paths.h"

#include <QDebug>
#include <QDir>
#include <QJsonObject>

#include <algorithm>

namespace {

QStringList filesNamed(const QDir &folder, const QString &filter)
{
    return folder.entryList({filter}, QDir::Files | QDir::NoSymLinks | QDir::CaseSensitive, QDir::Name);
}

} // namespace

QVariantList listTemplates()
{
    const QDir folder(getTemplateDir());
    QStringList names = filesNamed(folder, QStringLiteral("*.kava"));
    if (names.isEmpty()) {
        qWarning("No templates found");
        return {};
    }
    names.sort(Qt::CaseSensitive);
    std::reverse(names.begin(), names.end());

    QVariantList templates;
    for (const QString &name : qAsConst(names)) {
        qInfo() << "Found template" << name;
        QString path = folder.absoluteFilePath(name);
        QString shown = name;
        templates.append(QJsonObject{
            {QStringLiteral("key"), path.remove(QStringLiteral("file://"))},
            {QStringLiteral("value"), shown.remove(QStringLiteral(".kava"))},
        });
    }
    return templates;
}

QString templatePicture()
{
    const QDir folder(getTemplateDir());
    const QStringList names = filesNamed(folder, QStringLiteral("*.jpg"));
    return names.isEmpty() ? QString() : folder.absoluteFilePath(names.first());
}
