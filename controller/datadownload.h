#pragma once

#include "controller/controllerjob.h"

#include <QByteArray>
#include <QVector>

/// Downloads the controller's data log into CSV files in `targetDir`, one per recording run. A file gets its
/// name only when all of it is written; what a dump that was cut off had brought is written too.
class DataDownload : public ControllerJob
{
public:
    DataDownload(ControllerRequest request, QString targetDir, QString projectName);

protected:
    void work(PSEAComms &link) override;

private:
    QString targetDir_;
    QString projectName_;
};

/// What a dump has brought.
enum class DumpState {
    Complete,   ///< everything
    Incomplete, ///< something is missing, anywhere
    CutOff      ///< it stopped before its end
};

/// Judges a dump: `announced` data sets, with or without its end message, with or without gaps in the
/// numbers. In doubt it isn't complete.
[[nodiscard]] DumpState stateOf(const PSEAComms::DumpCounts &dump, int announced, bool ended, bool gaps);

/// One recording run as a CSV file.
struct CsvRun
{
    QString path; ///< of the file that a whole run gets
    QByteArray content;
    bool whole = true; ///< no data set is missing in it, as far as its numbers tell
};

struct CsvRuns
{
    QVector<CsvRun> runs;
    bool gaps = false;          ///< data sets are missing somewhere, as far as the numbers tell
    bool beginsAmidRun = false; ///< entries came before the first start
};

/// Makes a dump's lines into runs, to be written in `targetDir`. Entries before the first start entry and
/// those that are no whole data set are dropped.
[[nodiscard]] CsvRuns runsOf(const DumpLines &lines, const QString &targetDir, const QString &projectName);

/// What became of a dump's runs.
struct RunFiles
{
    int written = 0;
    int failed = 0; ///< the file could not be written
    int beside = 0; ///< written, or failed, under another name, because an older file holds more
};

/// Writes the runs of a dump. One that isn't complete replaces an older file only by a run with the same
/// content, or by one without gaps that goes on from it; another run, and always the last one of a dump that
/// was cut off, is written beside it as "..._incomplete.csv".
[[nodiscard]] RunFiles writeRuns(const QVector<CsvRun> &runs, DumpState dump);
