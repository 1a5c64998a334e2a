#include "controller/settingsjobs.h"

#include "controller/pseacomms.h"

#include <QDateTime>
#include <QLocale>

#include <utility>

namespace {

constexpr int defaultGeneration = 29;

CameraSettings shownSettings(const PSEAComms &link)
{
    constexpr double msPerSecond = 1000.0;
    constexpr unsigned wholeMsPerSecond = 1000;
    CameraSettings shown;
    shown.firmware = link.version_;
    shown.battery = voltsToPercent(link.batteryVoltage_);
    shown.date = QLocale::c().toString(QDateTime::fromSecsSinceEpoch(link.clockTime_),
                                       QStringLiteral("yyyy-MM-dd hh:mm:ss"));
    shown.recLedOn = link.settings_[0];
    shown.loggingIntervalSeconds = link.settings_[1] / msPerSecond;
    shown.timelapseIntervalSeconds = static_cast<unsigned>(link.settings_[2]) / wholeMsPerSecond;
    shown.timelapseTimeoutMinutes = link.settings_[3];
    shown.e1FirmwareVersion = link.settings_[4] != 0 ? link.settings_[4] : defaultGeneration;
    return shown;
}

} // namespace

ReadSettings::ReadSettings(ControllerRequest request, Show show)
    : ControllerJob(std::move(request))
    , show_(std::move(show))
{
}

void ReadSettings::work(PSEAComms &link)
{
    step(QStringLiteral("Reading settings ..."));
    if (!link.readConfig()) {
        done(QStringLiteral("Error getting settings: %1").arg(link.lastError_));
        return;
    }
    done(QStringLiteral("Success. Settings read."));
    show_(shownSettings(link));
}

SaveSettings::SaveSettings(ControllerRequest request, QString date, PSEAConfig config)
    : ControllerJob(std::move(request))
    , date_(std::move(date))
    , config_(std::move(config))
{
}

void SaveSettings::work(PSEAComms &link)
{
    const bool saved = link.setConfig(
        clockValue(date_), static_cast<unsigned>(config_.recLedOn),
        static_cast<unsigned>(config_.loggingInterval), static_cast<unsigned>(config_.timelapseInterval),
        static_cast<unsigned>(config_.timelapseTimeout), static_cast<unsigned>(config_.e1FirmwareVersion));
    done(saved ? QStringLiteral("Success. Settings saved.")
               : QStringLiteral("Error saving settings: %1").arg(link.lastError_));
}

void ResetSettings::work(PSEAComms &link)
{
    step(QStringLiteral("Resetting controller ..."));
    done(link.reset() ? QStringLiteral("Success. Controller reset.")
                      : QStringLiteral("Error resetting controller: %1").arg(link.lastError_));
}
