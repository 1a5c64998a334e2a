#include "controller/datadownload.h"

#include "controller/pseacomms.h"
#include "controller/record.h"

#include <QDebug>
#include <QDir>
#include <QFileInfo>
#include <QLocale>
#include <QSaveFile>

#include <memory>
#include <utility>

namespace {

QString runFileName(const Record &start, const QString &projectName)
{
    const QString date = QLocale::c().toString(start.datetime, QStringLiteral("yyyyMMdd-hhmm00"));
    return projectName.isEmpty() ? QStringLiteral("kelpora360_%1.csv").arg(date)
                                 : QStringLiteral("kelpora360_%1_%2.csv").arg(projectName).arg(date);
}

/// The CSV file of one run; null while none is begun.
using RunFile = std::unique_ptr<QSaveFile>;

RunFile beginRun(const QString &path)
{
    auto file = std::make_unique<QSaveFile>(path);
    if (!file->open(QIODevice::WriteOnly)) {
        qWarning().noquote() << "Data: Could not write" << path + QStringLiteral(": ") + file->errorString();
        return nullptr;
    }
    file->write(Record::headingCSV().toUtf8());
    return file;
}

/// Gives the file of the run that ended its name.
void endRun(RunFile *file, RunFiles *files)
{
    const RunFile ended = std::move(*file);
    if (!ended)
        return;
    if (ended->commit()) {
        ++files->written;
        return;
    }
    ++files->failed;
    qWarning().noquote() << "Data: Could not write"
                         << ended->fileName() + QStringLiteral(": ") + ended->errorString();
}

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
    // A damaged line may be noise; it was a dataset if one is missing in the end.
    const bool complete = link.readData(lines) && (link.damagedLines_ == 0 || lines.size() >= link.numData_);
    const RunFiles files = writeRuns(lines, targetDir_, projectName_, complete);
    QString text;
    if (!complete)
        text = QStringLiteral("Error: The controller did not send all data. ");
    else if (files.failed > 0)
        text = QStringLiteral("Error: Not every file could be written. ");
    text += QStringLiteral("Wrote %1 records to %2 files in %3")
                .arg(lines.size())
                .arg(files.written)
                .arg(targetDir_);
    report({0, 2, 2, text});
}

RunFiles writeRuns(const QStringList &lines, const QString &targetDir, const QString &projectName,
                   bool complete)
{
    RunFiles files;
    RunFile file;
    int startNumber = 0;
    int startTime = 0;
    for (const QString &line : lines) {
        Record record(line);
        if (record.type == 's') {
            endRun(&file, &files);
            startNumber = record.number;
            startTime = record.timestamp;
            file = beginRun(QDir(targetDir).filePath(runFileName(record, projectName)));
            files.failed += file ? 0 : 1;
            continue;
        }
        record.correctTimestamp(startTime);
        record.number -= startNumber;
        if (file)
            file->write(record.toCSV().toUtf8());
    }
    if (file && !complete && QFileInfo::exists(file->fileName())) {
        qWarning().noquote() << "Data: Kept the older" << file->fileName();
        file->cancelWriting();
        ++files.failed;
        file.reset();
    }
    endRun(&file, &files);
    return files;
}
