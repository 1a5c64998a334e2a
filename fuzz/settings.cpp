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
    for (const QString &key : file.allKeys())
        values.insert(key, file.value(key));
    return values;
}

/// Lines of plain characters, escapes among them, with no quotes.
bool isOrdinary(const std::uint8_t *data, std::size_t size)
{
    return std::all_of(data, data + size, [](std::uint8_t byte) {
        return byte == '\n' || (byte >= ' ' && byte < 0x7f && byte != '"' && byte != '[' && byte != '%');
    });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const bool inMemory =
        QFileInfo::exists(QStringLiteral("/dev/shm")) && qputenv("TMPDIR", "/dev/shm");
    static_cast<void>(inMemory);
    static const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("settings.ini"));
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
    HOLDS(first.problem().isEmpty() == second.problem().isEmpty());
    HOLDS(!first.problem().isEmpty() || second.value(key) == expected.value(key));
    // The toolkit itself doesn't read what it wrote of a file with half a line.
    if (first.problem().isEmpty() && isOrdinary(data, size))
        HOLDS(valuesOf(second) == expected);
    return 0;
}
