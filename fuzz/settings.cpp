// A settings file, which anyone may have edited: opened, one value changed, opened again.

#include "app/settingsfile.h"
#include "fuzz/target.h"

#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QTemporaryDir>

#include <algorithm>

namespace {

QMap<QString, QVariant> valuesOf(const SettingsFile &file)
{
    QMap<QString, QVariant> values;
    for (const QString &key : file.allKeys()) {
        // Those with a group or a name that is empty can't be asked for.
        if (!key.startsWith('/') && !key.endsWith('/') && !key.contains(QLatin1String("//")))
            values.insert(key, file.value(key));
    }
    return values;
}

/// Lines of plain characters, escapes among them, with no quotes and no groups.
bool isOrdinary(const std::uint8_t *data, std::size_t size)
{
    return std::all_of(data, data + size, [](std::uint8_t byte) {
        return byte == '\n' ||
               (byte >= ' ' && byte < 0x7f && byte != '"' && byte != '[' && byte != '%' && byte != '/');
    });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const bool inMemory =
        QFileInfo::exists(QStringLiteral("/dev/shm")) && qputenv("TMPDIR", "/dev/shm");
    static_cast<void>(inMemory);
    // The toolkit takes a file of the same name, size and time for the same file.
    static const QTemporaryDir folder;
    static int inputs = 0;
    const QString path = folder.filePath(QStringLiteral("%1.ini").arg(inputs++));
    const QString key = QStringLiteral("Serialnumber");
    QFile ini(path);
    if (!ini.open(QIODevice::WriteOnly))
        return 0;
    ini.write(reinterpret_cast<const char *>(data), static_cast<qint64>(size));
    ini.close();

    SettingsFile first(path);
    QMap<QString, QVariant> expected = valuesOf(first);
    first.setValue(key, QStringLiteral("@7"));
    expected.insert(key, QStringLiteral("@7"));
    HOLDS(valuesOf(first) == expected);
    first.sync();
    const SettingsFile second(path);
    QFile::remove(path);
    // The toolkit itself doesn't read all that it wrote of a file with half a line or a strange key.
    if (!isOrdinary(data, size))
        return 0;
    HOLDS(first.problem() == second.problem());
    if (first.problem().isEmpty()) {
        for (auto entry = expected.cbegin(); entry != expected.cend(); ++entry)
            HOLDS(second.value(entry.key()) == entry.value());
    }
    return 0;
}
