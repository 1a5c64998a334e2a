#pragma once

#include "controller/controllerjob.h"

#include <QStringList>

/// Downloads the controller's data log into CSV files in `targetDir`, one per recording run. A file gets its
/// name only when all of it is written; what a dump that was cut off had brought is written too.
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
    int beside = 0; ///< written, or failed, under another name, because an older file holds more
};

/// Writes a dump's lines into CSV files, one per run, in `targetDir`. Entries before the first start entry,
/// those of a run whose file can't be written, and those that are no whole data set are dropped. A dump that
/// is not `complete` replaces an older file only by a run without gaps that goes on from all that the older
/// one holds; another is written beside it as "..._incomplete.csv".
[[nodiscard]] RunFiles writeRuns(const QStringList &lines, const QString &targetDir,
                                 const QString &projectName, bool complete = true);
