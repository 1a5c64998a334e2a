#pragma once

#include "app/job.h"

#include <QString>

#include <functional>

/// Flashes the controller's firmware with the tool "bootloader" of the utilities folder.
class FirmwareUpdate
{
public:
    /// `filePath`: the image, absolute or in the firmware folder. `relay` takes what the tool has printed so
    /// far.
    FirmwareUpdate(QString port, QString filePath, ProgressReport report,
                   std::function<void(const QString &)> relay);

    /// Runs the tool to its end on the calling thread.
    void run();

private:
    QString port_;
    QString filePath_;
    ProgressReport report_;
    std::function<void(const QString &)> relay_;
};
