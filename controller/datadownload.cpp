#include "controller/datadownload.h"

#include "controller/pseacomms.h"
#include "controller/record.h"

#include <QDebug>
#include <QDir>
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

/// Gives the file its name; 1 when it stands there whole.
int endRun(RunFile *file)
{
    const RunFile ended = std::move(*file);
    if (!ended)
        return 0;
    if (ended->commit())
        return 1;
    qWarning().noquote() << "Data: Could not write"
                         << ended->fileName() + QStringLiteral(": ") + ended->errorString();
    return 0;
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
    qWarning("Data: Please choose destination");
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
    const bool complete = link.readData(lines);
    const int files = writeRuns(lines, targetDir_, projectName_);
    const QString wrote =
        QStringLiteral("Wrote %1 records to %2 files in %3").arg(lines.size()).arg(files).arg(targetDir_);
    report({0, 2, 2,
            complete ? wrote : QStringLiteral("Error: The controller did not send all data. ") + wrote});
}

int writeRuns(const QStringList &lines, const QString &targetDir, const QString &projectName)
{
    RunFile file;
    int startNumber = 0;
    int startTime = 0;
    int files = 0;
    for (const QString &line : lines) {
        Record record(line);
        if (record.type == 's') {
            files += endRun(&file);
            startNumber = record.number;
            startTime = record.timestamp;
            file = beginRun(QDir(targetDir).filePath(runFileName(record, projectName)));
            continue;
        }
        record.correctTimestamp(startTime);
        record.number -= startNumber;
        if (file)
            file->write(record.toCSV().toUtf8());
    }
    return files + endRun(&file);
}
