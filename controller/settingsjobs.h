#pragma once

#include "controller/controllerjob.h"
#include "controller/pseaconfig.h"

/// The controller's settings as the settings page shows them.
struct CameraSettings
{
    QString firmware;
    QString battery; ///< charge as text
    QString date;    ///< local time, "yyyy-MM-dd hh:mm:ss"
    int recLedOn = 0;
    double loggingIntervalSeconds = 0;
    unsigned timelapseIntervalSeconds = 0;
    int timelapseTimeoutMinutes = 0;
    int e1FirmwareVersion = 0;
};

/// Reads the settings; gives them to `show` after the report of success.
class ReadSettings : public ControllerJob
{
public:
    using Show = std::function<void(const CameraSettings &)>;
    ReadSettings(ControllerRequest request, Show show);

protected:
    void work(PSEAComms &link) override;

private:
    Show show_;
};

/// Writes the settings and sets the clock to `date`, see clockValue().
class SaveSettings : public ControllerJob
{
public:
    SaveSettings(ControllerRequest request, QString date, PSEAConfig config);

protected:
    void work(PSEAComms &link) override;

private:
    QString date_;
    PSEAConfig config_;
};

/// Resets the controller to its factory settings.
class ResetSettings : public ControllerJob
{
public:
    using ControllerJob::ControllerJob;

protected:
    void work(PSEAComms &link) override;
};
