#include "app/settings.h"

#include "app/paths.h"
#include "app/settingsfile.h"

#include <QDebug>
#include <QStringList>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <system_error>

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

/// Whether `sent` is `stored` as the view sends it back: JavaScript has fewer types, so a list of texts comes
/// back as a list of values and an integer as a double.
bool isSameValue(const QVariant &stored, QVariant sent)
{
    return sent.convert(stored.userType()) && sent == stored;
}

/// Every QSettings of one path in a process works on the same values, entry by entry: without it a load would
/// see half of what another thread stores.
std::mutex valuesMutex;

/// The settings are asked for by every project of an import.
void logOnce(const QString &problem)
{
    static QString logged;
    const QString line = QStringLiteral("The settings file %1 is not used, the defaults hold: %2.")
                             .arg(getIniFilePath(), problem);
    if (!problem.isEmpty() && line != logged)
        qWarning().noquote() << line;
    logged = problem.isEmpty() ? QString() : line;
}

/// How a file looks from outside. One that was written a moment ago may be written again and look the same.
struct Stamp
{
    std::filesystem::file_time_type written;
    std::uintmax_t size = 0;

    bool operator==(const Stamp &other) const { return written == other.written && size == other.size; }
};

std::optional<Stamp> stampOf(const QString &path)
{
    // No file system counts in more than two seconds.
    constexpr auto moment = std::chrono::milliseconds(2100);
    const std::filesystem::path file(path.toStdU16String());
    std::error_code error;
    const auto written = std::filesystem::last_write_time(file, error);
    const std::uintmax_t size = error ? 0 : std::filesystem::file_size(file, error);
    const auto age = std::filesystem::file_time_type::clock::now() - written;
    if (error || age < moment)
        return std::nullopt;
    return Stamp{written, size};
}

/// What loadSettings() gave last, which holds as long as the file looks the same.
struct Loaded
{
    QString path;
    std::optional<Stamp> stamp;
    QVariantMap settings;
};

Loaded loaded;

QVariantMap read(bool storeDefaults)
{
    const std::lock_guard<std::mutex> lock(valuesMutex);
    const QString path = getIniFilePath();
    const std::optional<Stamp> stamp = stampOf(path);
    if (stamp && path == loaded.path && stamp == loaded.stamp)
        return loaded.settings;
    SettingsFile file(path);
    logOnce(file.problem());
    const QStringList present = file.allKeys();
    QVariantMap settings;
    for (const Default &entry : defaults) {
        const QString key = QString::fromLatin1(entry.key);
        if (present.contains(key))
            continue;
        settings.insert(key, QString::fromLatin1(entry.value));
        if (storeDefaults)
            file.setValue(key, settings.value(key));
    }
    // A load is still to write what a peek only names.
    const bool settled = storeDefaults || settings.isEmpty();
    if (storeDefaults)
        file.sync();
    const QStringList keys = file.allKeys();
    for (const QString &key : keys) {
        QVariant value = file.value(key);
        // The program's own values are text, but an unquoted comma in the file makes a list, and an "@" any
        // type.
        if (isOurs(key))
            value = value.type() == QVariant::StringList ? value.toStringList().join(QLatin1Char(','))
                                                         : value.toString();
        settings.insert(key, value);
    }
    loaded = {path, settled && file.isSound() ? stamp : std::nullopt, settings};
    return settings;
}

} // namespace

QVariantMap loadSettings()
{
    return read(true);
}

QVariantMap peekSettings()
{
    return read(false);
}

void storeSettings(const QVariantMap &settings)
{
    const std::lock_guard<std::mutex> lock(valuesMutex);
    loaded.stamp.reset();
    SettingsFile file(getIniFilePath());
    for (auto entry = settings.cbegin(); entry != settings.cend(); ++entry) {
        const QVariant stored = file.value(entry.key());
        // What another version of the program has written keeps its type; ours become text.
        const bool unchanged = isOurs(entry.key())
                                   ? stored == entry.value() && stored.type() == QVariant::String
                                   : isSameValue(stored, entry.value());
        if (!file.contains(entry.key()) || !unchanged)
            file.setValue(entry.key(), entry.value());
    }
    file.sync();
}
