#pragma once

#include <QVariantMap>

/// A copy of the settings in which the nine camera angles are multiplied by pi/180 when "RadiansAngles" is
/// true, as single-precision floats; otherwise they stay the text that they were. Pure. Offsets pass through.
[[nodiscard]] QVariantMap stitchSettingsToRadians(const QVariantMap &settings);
