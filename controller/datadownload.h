#pragma once

#include "controller/controllerjob.h"

#include <QStringList>

/// Downloads the controller's data log into CSV files in `targetDir`, one per recording run. A file gets its
/// name, and replaces one of that name, only when it is whole.
class DataDownload : public ControllerJob
{
public:
    DataDownload(ControllerRequest request, QString targetDir, QString projectName);

protected:
    void work(PSEAComms &link) override;
    [[nodiscard]] Progress refusal() const override;
    [[nodiscard]] Progress greetingFailure() const override;

private:
    QString targetDir_;
    QString projectName_;
};

/// What became of a dump's runs.
struct RunFiles
{
    int written = 0;
    int failed = 0; ///< the file could not be written
    int kept = 0;   ///< an older file was left alone
};

/// Writes a dump's lines into CSV files, one per run, in `targetDir`. Entries before the first start entry,
/// and those of a run whose file can't be written, are dropped. A dump that is not `complete` replaces an
/// older file only by a run without gaps that goes on from all that the older one holds.
[[nodiscard]] RunFiles writeRuns(const QStringList &lines, const QString &targetDir,
                                 const QString &projectName, bool complete = true);
