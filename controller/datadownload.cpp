#include "controller/datadownload.h"

#include "controller/pseacomms.h"
#include "controller/record.h"
#include "platform/filesync.h"

#include <QDebug>
#include <QDir>
#include <QFileInfo>
#include <QLocale>
#include <QSaveFile>
#include <QSet>

#include <cerrno>
#include <optional>
#include <utility>

namespace {

QString runFileName(const Record &start, const QString &projectName)
{
    const QString date = QLocale::c().toString(start.datetime, QStringLiteral("yyyyMMdd-hhmm00"));
    return projectName.isEmpty() ? QStringLiteral("kelpora360_%1.csv").arg(date)
                                 : QStringLiteral("kelpora360_%1_%2.csv").arg(projectName).arg(date);
}

/// A name beside `path` for a run that is not whole: the first, second and so on.
QString incompletePath(const QString &path, int attempt)
{
    const QFileInfo file(path);
    const QString number = attempt > 1 ? QStringLiteral("_%1").arg(attempt) : QString();
    return file.dir().filePath(file.completeBaseName() + QStringLiteral("_incomplete") + number +
                               QStringLiteral(".csv"));
}

/// Whether a file with the run's content holds all that the file `path` does.
bool holdsAllOf(const QString &path, const CsvRun &run)
{
    QFile file(path);
    if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly))
        return false;
    const QByteArray older = file.readAll();
    // After a gap the rows may belong to another run.
    return file.error() == QFileDevice::NoError && older.size() == file.size() &&
           (run.whole ? run.content.startsWith(older) : run.content == older);
}

/// Finds the places where data sets are missing in the lines of a dump.
class Sequence
{
public:
    explicit Sequence(const DumpLines &lines)
        : earlier_(lines)
    {
    }

    /// Whether the data set of `line`, which is line `i`, comes right after the one before it; to be asked in
    /// the lines' order. The first entry and a start entry may have any number: a log may begin amid a run. A
    /// line that is sent again doesn't count.
    bool follows(int i, const QString &line, const Record &record)
    {
        const bool next = !previous_ || record.number - *previous_ == 1;
        if (!next && earlier_.contain(line, i))
            return true;
        const std::optional<int> before = std::exchange(previous_, record.number);
        if (next || record.type == 's')
            return true;
        qWarning("Data: Dataset %d came right after dataset %d.", record.number, *before);
        return false;
    }

private:
    EarlierLines earlier_;
    std::optional<int> previous_;
};

/// Writes the runs of one dump.
class RunWriter
{
public:
    explicit RunWriter(DumpState dump)
        : dump_(dump)
    {
    }

    /// Gives the run its file. A `cutOff` one gets no name of a whole run.
    void write(const CsvRun &run, bool cutOff)
    {
        QString path = cutOff ? incompletePath(run.path, 1) : run.path;
        for (int attempt = cutOff ? 2 : 1; !mayWrite(run, path); ++attempt)
            path = incompletePath(run.path, attempt);
        if (path != run.path && QFileInfo::exists(run.path) && !ours_.contains(run.path)) {
            qWarning().noquote() << "Data: Kept the older" << run.path + QStringLiteral(", writing") << path;
            ++files_.beside;
        }
        const bool holdsOlder =
            dump_ != DumpState::Complete && !ours_.contains(path) && QFileInfo::exists(path);
        if (!save(path, run.content)) {
            ++files_.failed;
            return;
        }
        if (!holdsOlder)
            ours_.insert(path);
        ++files_.written;
    }

    [[nodiscard]] const RunFiles &files() const { return files_; }

private:
    /// Whether the run may have the file `path`: with the dump not complete, only one that loses nothing of
    /// another dump's.
    [[nodiscard]] bool mayWrite(const CsvRun &run, const QString &path) const
    {
        return dump_ == DumpState::Complete || ours_.contains(path) || !QFileInfo::exists(path) ||
               holdsAllOf(path, run);
    }

    static bool save(const QString &path, const QByteArray &content)
    {
        QSaveFile file(path);
        errno = 0;
        // Before it has its name: commit() would give it that also when the disk could not take it.
        if (file.open(QIODevice::WriteOnly) && file.write(content) == content.size() && syncToDisk(file) &&
            file.commit() && syncFolder(QFileInfo(path).absolutePath()))
            return true;
        const QString reason = file.error() == QFileDevice::NoError ? qt_error_string() : file.errorString();
        qWarning().noquote() << "Data: Could not write" << path + QStringLiteral(": ") + reason;
        return false;
    }

    DumpState dump_;
    /// Written from this dump: of two runs with one name the second replaces the first, but not one that
    /// holds what an older file held.
    QSet<QString> ours_;
    RunFiles files_;
};

} // namespace

DataDownload::DataDownload(ControllerRequest request, QString targetDir, QString projectName)
    : ControllerJob(std::move(request))
    , targetDir_(std::move(targetDir))
    , projectName_(std::move(projectName))
{
    if (targetDir_.isEmpty())
        request_.refusal = QStringLiteral("Please choose destination");
    request_.greetingFailure.to = 2;
}

void DataDownload::work(PSEAComms &link)
{
    step(QStringLiteral("Counting datasets ..."));
    if (!link.countData()) {
        step(QStringLiteral("Error: Could not read available data."));
        return;
    }
    if (link.numData_ == 0) {
        done(QStringLiteral("No records available."));
        return;
    }
    step(QStringLiteral("Reading %1 datasets ...").arg(link.numData_));
    DumpLines lines;
    const bool ended = link.readData(lines);
    // The files may take long; at exit the power-off needs the port.
    link.close();
    const CsvRuns dumped = runsOf(lines, targetDir_, projectName_);
    // A damaged line may have been the start of the first run.
    const bool gaps = dumped.gaps || (dumped.beginsAmidRun && link.dump_.garbled);
    const DumpState dump = stateOf(link.dump_, link.numData_, ended, gaps);
    const RunFiles files = writeRuns(dumped.runs, dump);
    const bool complete = dump == DumpState::Complete;
    QStringList text;
    if (!complete || files.failed > 0)
        text << QStringLiteral("Error:");
    if (!complete)
        text << QStringLiteral("The controller did not send all data.");
    if (files.beside > 0)
        text << QStringLiteral("Older files were kept.");
    if (files.failed > 0)
        text << QStringLiteral("Not every file could be written.");
    text << QStringLiteral("Wrote %1 records to %2 files in %3")
                .arg(lines.size())
                .arg(files.written)
                .arg(targetDir_);
    done(text.join(QLatin1Char(' ')));
}

DumpState stateOf(const PSEAComms::DumpCounts &dump, int announced, bool ended, bool gaps)
{
    // Some controllers count the lines without a number, others don't: the sum may hide a lost data set.
    const bool sumFits = dump.numbered + dump.unnumbered == announced;
    const bool allArrived = dump.numbered >= announced || (sumFits && ended && !dump.garbled);
    if (!ended && (!allArrived || announced < 1))
        return DumpState::CutOff;
    // What was announced may be too low: a damaged line and a gap stand for a lost data set anyway.
    const bool isWhole = allArrived && (ended || dump.numbered > 0) && !dump.damaged && !gaps;
    return isWhole ? DumpState::Complete : DumpState::Incomplete;
}

CsvRuns runsOf(const DumpLines &lines, const QString &targetDir, const QString &projectName)
{
    CsvRuns dumped;
    Sequence sequence(lines);
    QString startLine;
    int startNumber = 0;
    int startTime = 0;
    for (int i = 0; i < lines.size(); ++i) {
        const QString line = lines.at(i);
        // A start that is sent again must not begin its file anew.
        if (line == startLine)
            continue;
        Record record = dumped.runs.isEmpty() ? Record(line) : Record(line, startTime);
        const bool isWhole = record.id > 0;
        if (!isWhole)
            qWarning().noquote() << "Data: Not a whole dataset:" << line.trimmed();
        if (!isWhole || !sequence.follows(i, line, record)) {
            dumped.gaps = true;
            if (!dumped.runs.isEmpty())
                dumped.runs.last().whole = false;
        }
        if (!isWhole)
            continue;
        if (record.type == 's') {
            startLine = line;
            startNumber = record.number;
            startTime = record.timestamp;
            dumped.runs.append({QDir(targetDir).filePath(runFileName(record, projectName)),
                                Record::headingCSV().toUtf8(), true});
        } else if (!dumped.runs.isEmpty()) {
            record.number -= startNumber;
            dumped.runs.last().content += record.toCSV().toUtf8();
        } else {
            dumped.beginsAmidRun = true;
        }
    }
    return dumped;
}

RunFiles writeRuns(const QVector<CsvRun> &runs, DumpState dump)
{
    RunWriter writer(dump);
    for (int i = 0; i < runs.size(); ++i)
        writer.write(runs[i], dump == DumpState::CutOff && i + 1 == runs.size());
    return writer.files();
}
