#include "platform/mountpoints.h"

#include <QFile>

namespace {

/// Decodes the octal escapes of the table, such as "\040" for a blank.
QByteArray unescaped(const QByteArray &field)
{
    QByteArray text;
    for (int i = 0; i < field.size(); ++i) {
        bool octal = false;
        const int code = field.at(i) == '\\' ? field.mid(i + 1, 3).toInt(&octal, 8) : 0;
        text += octal ? static_cast<char>(code) : field.at(i);
        i += octal ? 3 : 0;
    }
    return text;
}

bool isOfTheSystem(const QString &path, const QByteArray &type)
{
    // The same that QStorageInfo::mountedVolumes() leaves out.
    for (const char *folder : {"/dev", "/proc", "/sys", "/var/run", "/var/lock"}) {
        const QString top = QString::fromLatin1(folder);
        if (path == top || path.startsWith(top + QLatin1Char('/')))
            return true;
    }
    return type == "rootfs";
}

} // namespace

QVector<MountPoint> mountPoints()
{
    QVector<MountPoint> points;
    QFile table(QStringLiteral("/proc/self/mountinfo"));
    if (!table.open(QIODevice::ReadOnly))
        return points;
    const QList<QByteArray> lines = table.readAll().split('\n');
    for (const QByteArray &line : lines) {
        const QList<QByteArray> fields = line.split(' ');
        const QString path = QFile::decodeName(unescaped(fields.value(4)));
        const QByteArray type = fields.value(fields.indexOf("-") + 1);
        if (!path.isEmpty() && !isOfTheSystem(path, type))
            points.append({QString::fromLatin1(fields.first()) + QLatin1Char(' ') + path, path});
    }
    return points;
}
