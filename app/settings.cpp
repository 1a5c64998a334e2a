#include "app/settings.h"

#include "app/paths.h"

#include <QSettings>
#include <QStringList>

#include <algorithm>
#include <array>
#include <mutex>

namespace {

struct Default
{
    const char *key;
    const char *value;
};

constexpr std::array<Default, 21> defaults = {{
    {"Serialnumber", "000000"}, {"OverwriteAngles", "1"},      {"RadiansAngles", "0"},
    {"EnableAutoScale", "0"},   {"EnableHighDpiScaling", "1"}, {"EnableScaleFactor", "1"},
    {"Camera1Pitch", "0"},      {"Camera1Roll", "-90"},        {"Camera1Yaw", "-0"},
    {"Camera1OffsetX", "-20"},  {"Camera1OffsetY", "0"},       {"Camera2Pitch", "0"},
    {"Camera2Roll", "-90"},     {"Camera2Yaw", "-0"},          {"Camera2OffsetX", "-20"},
    {"Camera2OffsetY", "0"},    {"Camera3Pitch", "0"},         {"Camera3Roll", "-90"},
    {"Camera3Yaw", "-0"},       {"Camera3OffsetX", "-20"},     {"Camera3OffsetY", "0"},
}};

bool isOurs(const QString &key)
{
    return std::any_of(defaults.cbegin(), defaults.cend(),
                       [&key](const Default &entry) { return key == QLatin1String(entry.key); });
}

/// Every QSettings of one path in a process works on the same values, entry by entry: without it a load would
/// see half of what another thread stores.
std::mutex valuesMutex;

} // namespace

QVariantMap loadSettings()
{
    const std::lock_guard<std::mutex> lock(valuesMutex);
    QSettings file(getIniFilePath(), QSettings::IniFormat);
    const QStringList present = file.allKeys();
    for (const Default &entry : defaults) {
        const QString key = QString::fromLatin1(entry.key);
        if (!present.contains(key))
            file.setValue(key, QString::fromLatin1(entry.value));
    }
    file.sync();

    QVariantMap settings;
    const QStringList keys = file.allKeys();
    for (const QString &key : keys) {
        // A comma that was typed into the file by hand makes a list, an "@" anything. What another version of
        // the program has written stays what it is.
        const QVariant value = file.value(key);
        if (value.type() == QVariant::StringList)
            settings.insert(key, value.toStringList().join(QLatin1Char(',')));
        else
            settings.insert(key, isOurs(key) ? QVariant(value.toString()) : value);
    }
    return settings;
}

void storeSettings(const QVariantMap &settings)
{
    const std::lock_guard<std::mutex> lock(valuesMutex);
    QSettings file(getIniFilePath(), QSettings::IniFormat);
    for (auto entry = settings.cbegin(); entry != settings.cend(); ++entry)
        file.setValue(entry.key(), entry.value());
    file.sync();
}
