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

/// How many runs got their file, and how many did not.
struct RunFiles
{
    int written = 0;
    int failed = 0;
};

/// Writes a dump's lines into CSV files, one per run, in `targetDir`. Entries before the first start entry,
/// and those of a run whose file can't be written, are dropped. Of a dump that is not `complete` the last run
/// replaces no file: the one that stands there may be whole.
[[nodiscard]] RunFiles writeRuns(const QStringList &lines, const QString &targetDir,
                                 const QString &projectName, bool complete = true);
