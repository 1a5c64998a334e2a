#include "stitching/stitchangles.h"

#include <array>

namespace {

constexpr float radiansPerDegree = 0.017453292F;

constexpr std::array<const char *, 9> angleKeys = {
    "Camera1Yaw",  "Camera1Pitch", "Camera1Roll",  "Camera2Yaw",  "Camera2Pitch",
    "Camera2Roll", "Camera3Yaw",   "Camera3Pitch", "Camera3Roll",
};

} // namespace

QVariantMap stitchSettingsToRadians(const QVariantMap &settings)
{
    QVariantMap result = settings;
    if (!result.value(QStringLiteral("RadiansAngles"), false).toBool())
        return result;
    for (const char *name : angleKeys) {
        const QString key = QString::fromLatin1(name);
        const float angle = result.value(key, 0).toFloat();
        result.insert(key, QVariant::fromValue(angle * radiansPerDegree));
    }
    return result;
}
