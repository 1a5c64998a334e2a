#pragma once

#include "app/job.h"

#include <QString>

#include <functional>

struct FirmwareRequest
{
    QString port;         ///< name of the serial port
    QString filePath;     ///< the image, absolute or in `firmwareDir`
    QString utilitiesDir; ///< holds the flashing tool "bootloader"
    QString firmwareDir;
    ProgressReport report;                      ///< takes the end
    std::function<void(const QString &)> relay; ///< takes what the tool has printed so far
    const StopFlag *stop = nullptr;             ///< once it is raised, no tool is started
};

/// Flashes the controller's firmware with the tool "bootloader".
class FirmwareUpdate
{
public:
    explicit FirmwareUpdate(FirmwareRequest request);

    /// Runs the tool to its end on the calling thread. A tool that has begun is never ended early.
    void run() const;

private:
    FirmwareRequest request_;
};
