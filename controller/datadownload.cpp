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

/// Whether `content` is all that the file holds, and perhaps more.
bool continues(const QByteArray &content, const QString &path)
{
    QFile file(path);
    if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly))
        return false;
    const QByteArray older = file.readAll();
    return file.error() == QFileDevice::NoError && older.size() == file.size() && content.startsWith(older);
}

/// Writes the runs of one dump, each when it has ended.
class RunWriter
{
public:
    /// A dump that isn't `complete` may lack lines in any run, which shift what follows them.
    explicit RunWriter(bool complete)
        : complete_(complete)
    {
    }

    void begin(const QString &path)
    {
        path_ = path;
        content_ = Record::headingCSV().toUtf8();
        whole_ = true;
    }

    /// The entry that comes next doesn't follow the last one: a start may be among those that are missing.
    void skip() { whole_ = false; }

    void add(const Record &record)
    {
        if (!path_.isEmpty())
            content_ += record.toCSV().toUtf8();
    }

    /// Gives the run that ended its file.
    void end()
    {
        if (path_.isEmpty())
            return;
        const QString named = path_;
        for (int attempt = 1; !mayWrite(); ++attempt)
            path_ = incompletePath(named, attempt);
        if (path_ != named) {
            qWarning().noquote() << "Data: Kept the older" << named + QStringLiteral(", writing") << path_;
            ++files_.beside;
        }
        const bool holdsOlder = !complete_ && !ours_.contains(path_) && QFileInfo::exists(path_);
        if (write()) {
            if (!holdsOlder)
                ours_.insert(path_);
            ++files_.written;
        } else {
            ++files_.failed;
        }
        path_.clear();
    }

    [[nodiscard]] const RunFiles &files() const { return files_; }

private:
    /// Whether the run may have its file: with the dump not complete, only one that loses nothing of another
    /// dump's.
    [[nodiscard]] bool mayWrite() const
    {
        return complete_ || ours_.contains(path_) || !QFileInfo::exists(path_) ||
               (whole_ && continues(content_, path_));
    }

    [[nodiscard]] bool write() const
    {
        QSaveFile file(path_);
        errno = 0;
        // Before it has its name: commit() would give it that also when the disk could not take it.
        if (file.open(QIODevice::WriteOnly) && file.write(content_) == content_.size() && syncToDisk(file) &&
            file.commit() && syncFolder(QFileInfo(path_).absolutePath()))
            return true;
        const QString reason =
            file.error() == QFileDevice::NoError ? qt_error_string(errno) : file.errorString();
        qWarning().noquote() << "Data: Could not write" << path_ + QStringLiteral(": ") + reason;
        return false;
    }

    bool complete_;
    QString path_; ///< empty while no run is begun
    QByteArray content_;
    bool whole_ = true; ///< no entry missing so far
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
}

Progress DataDownload::refusal() const
{
    if (!targetDir_.isEmpty())
        return {};
    qInfo("Data: Please choose destination");
    return {0, 1, 1, QStringLiteral("Error: Please choose destination")};
}

Progress DataDownload::greetingFailure() const
{
    return {0, 2, 1, QStringLiteral("Error: Could not send init command.")};
}

void DataDownload::work(PSEAComms &link)
{
    report({0, 2, 1, QStringLiteral("Counting datasets ...")});
    if (!link.countData()) {
        report({0, 2, 1, QStringLiteral("Error: Could not read available data.")});
        return;
    }
    if (link.numData_ == 0) {
        report({0, 2, 2, QStringLiteral("No records available.")});
        return;
    }
    report({0, 2, 1, QStringLiteral("Reading %1 datasets ...").arg(link.numData_)});
    QStringList lines;
    // A damaged line may have been noise, and an end message may come too early or not at all: what counts is
    // whether all that was announced is here.
    const bool ended = link.readData(lines);
    const bool complete = (ended || link.numData_ > 0) && link.dataReceived_ >= link.numData_;
    const RunFiles files = writeRuns(lines, targetDir_, projectName_, complete);
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
    report({0, 2, 2, text.join(QLatin1Char(' '))});
}

RunFiles writeRuns(const QStringList &lines, const QString &targetDir, const QString &projectName,
                   bool complete)
{
    RunWriter runs(complete);
    int startNumber = 0;
    int startTime = 0;
    int previous = 0;
    for (const QString &line : lines) {
        Record record(line);
        if (record.id < 1) {
            qWarning().noquote() << "Data: Not a whole dataset:" << line.trimmed();
            runs.skip();
            continue;
        }
        if (!complete && record.type != 's' && record.number - previous != 1) {
            qWarning("Data: Nothing between the datasets %d and %d.", previous, record.number);
            runs.skip();
        }
        previous = record.number;
        if (record.type == 's') {
            runs.end();
            startNumber = record.number;
            startTime = record.timestamp;
            runs.begin(QDir(targetDir).filePath(runFileName(record, projectName)));
            continue;
        }
        record.correctTimestamp(startTime);
        record.number -= startNumber;
        runs.add(record);
    }
    runs.end();
    return runs.files();
}
