#include "checks/takes.h"

#include "cli/commands.h"
#include "cli/output.h"
#include "platform/stopflag.h"

#include <QDateTime>
#include <QFileInfo>
#include <QJsonArray>

#include <algorithm>

namespace {

QString nameOf(TakeFinding::Kind kind)
{
    switch (kind) {
    case TakeFinding::Kind::Missing:
        return QStringLiteral("missing");
    case TakeFinding::Kind::Unpaired:
        return QStringLiteral("unpaired");
    case TakeFinding::Kind::Shifted:
        return QStringLiteral("shifted");
    case TakeFinding::Kind::Short:
        return QStringLiteral("short");
    case TakeFinding::Kind::Untimed:
        return QStringLiteral("untimed");
    case TakeFinding::Kind::Unmeasured:
        return QStringLiteral("unmeasured");
    case TakeFinding::Kind::Uncertain:
        return QStringLiteral("uncertain");
    }
    return {};
}

QJsonObject toJson(const TakeFinding &finding)
{
    QJsonObject object = {{QStringLiteral("kind"), nameOf(finding.kind)},
                          {QStringLiteral("text"), toText(finding)}};
    if (finding.camera != 0)
        object.insert(QStringLiteral("camera"), finding.camera);
    if (finding.start) {
        const QDateTime start = QDateTime::fromMSecsSinceEpoch(*finding.start, Qt::UTC);
        object.insert(QStringLiteral("start"), start.toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss.zzz")));
    }
    if (finding.kind == TakeFinding::Kind::Short)
        object.insert(QStringLiteral("seconds"), finding.seconds);
    if (!finding.reason.isEmpty())
        object.insert(QStringLiteral("reason"), finding.reason);
    QJsonArray files;
    for (const QString &file : finding.files)
        files.append(file.isEmpty() ? QJsonValue() : QJsonValue(file));
    object.insert(QStringLiteral("files"), files);
    return object;
}

/// What keeps the folders from being checked; empty if nothing does.
QString problemWith(const QStringList &folders)
{
    QStringList seen;
    for (const QString &folder : folders) {
        const QFileInfo info(folder);
        if (!info.isDir())
            return folder + QStringLiteral(" is no folder.");
        if (seen.contains(info.canonicalFilePath()))
            return folder + QStringLiteral(" is given twice.");
        seen.append(info.canonicalFilePath());
    }
    return {};
}

} // namespace

Exit checkTakes(const Call &call)
{
    if (call.arguments.size() == 2) {
        call.output.complain(
            QStringLiteral("takes needs one folder or three cards. See kelpora360-cli takes --help."));
        return Exit::Usage;
    }
    const QString problem = problemWith(call.arguments);
    if (!problem.isEmpty()) {
        call.output.complain(problem);
        return Exit::NotChecked;
    }
    const QStringList &folders = call.arguments;
    const RecordingList list =
        folders.size() == 1 ? recordingsIn(folders.first(), call.stop)
                            : recordingsOnCards({folders.at(0), folders.at(1), folders.at(2)}, call.stop);
    if (call.stop.isRaised())
        return Exit::Stopped;
    const TakesReport report = matchTakes(list.recordings);

    QJsonArray findings;
    bool found = false;
    bool unknown = false;
    for (const TakeFinding &finding : report.findings) {
        const bool notChecked = finding.kind == TakeFinding::Kind::Untimed ||
                                finding.kind == TakeFinding::Kind::Unmeasured ||
                                finding.kind == TakeFinding::Kind::Uncertain;
        (notChecked ? unknown : found) = true;
        call.output.line(toText(finding));
        findings.append(toJson(finding));
    }
    QJsonArray unreadable;
    for (const QString &path : list.unreadable) {
        unknown = true;
        call.output.line(QStringLiteral("Not checked: %1 can't be read.").arg(path));
        unreadable.append(path);
    }
    for (const QString &line : clockLines(report))
        call.output.line(line);
    QJsonArray clocks;
    for (const std::optional<double> &clock : report.clocks)
        clocks.append(clock ? QJsonValue(*clock) : QJsonValue());

    call.output.set(QStringLiteral("takes"), report.takes);
    call.output.set(QStringLiteral("recordings"), list.recordings.size());
    call.output.set(QStringLiteral("findings"), findings);
    call.output.set(QStringLiteral("clocks"), clocks);
    call.output.set(QStringLiteral("unreadable"), unreadable);
    if (found)
        return Exit::Finding;
    if (list.recordings.isEmpty()) {
        call.output.complain(QStringLiteral("there are no recordings."));
        return Exit::NotChecked;
    }
    return unknown ? Exit::NotChecked : Exit::Good;
}
