#include "checks/audit.h"

#include "cli/commands.h"
#include "cli/output.h"
#include "cli/progress.h"
#include "platform/stopflag.h"

#include <QCommandLineParser>
#include <QJsonArray>

namespace {

void tell(const QString &kind, const QString &key, const QStringList &paths, Output *output)
{
    for (const QString &path : paths)
        output->line(kind + QStringLiteral(": ") + path);
    output->set(key, QJsonArray::fromStringList(paths));
}

} // namespace

Exit auditFolder(const Call &call)
{
    Audit audit(call.arguments.first(), call.stop);
    AuditResult result;
    {
        const ProgressLine progress([&] { return audit.bytesRead(); }, [&] { return audit.bytesTotal(); });
        result = audit.run();
    }
    if (call.stop.isRaised())
        return Exit::Stopped;
    if (!result.problem.isEmpty()) {
        call.output.complain(result.problem);
        return Exit::NotChecked;
    }

    const QStringList damaged = audit.history().problems();
    tell(QStringLiteral("Damaged seal"), QStringLiteral("damaged"), damaged, &call.output);
    tell(QStringLiteral("Never finished"), QStringLiteral("unfinished"), audit.history().unfinished(),
         &call.output);
    tell(QStringLiteral("Altered"), QStringLiteral("altered"), result.altered, &call.output);
    tell(QStringLiteral("Missing"), QStringLiteral("missing"), result.missing, &call.output);
    tell(QStringLiteral("New"), QStringLiteral("new"), result.added, &call.output);
    QJsonArray notChecked;
    for (const AuditResult::NotChecked &file : result.notChecked) {
        call.output.line(QStringLiteral("Not checked: ") + file.path + QStringLiteral(": ") + file.reason);
        notChecked.append(
            QJsonObject{{QStringLiteral("path"), file.path}, {QStringLiteral("reason"), file.reason}});
    }
    const int generations = audit.history().generations();
    call.output.line(
        QStringLiteral("%1 of %2 sealed files are as they were sealed, read from disk. Generations: %3.")
            .arg(result.unchanged)
            .arg(result.files)
            .arg(generations));
    call.output.set(QStringLiteral("notChecked"), notChecked);
    call.output.set(QStringLiteral("files"), result.files);
    call.output.set(QStringLiteral("unchanged"), result.unchanged);
    call.output.set(QStringLiteral("generations"), generations);

    const bool found = !damaged.isEmpty() || !result.altered.isEmpty() || !result.missing.isEmpty() ||
                       !result.added.isEmpty();
    Exit exit = found ? Exit::Finding : Exit::Good;
    if (!found && (!result.notChecked.isEmpty() || result.unchanged == 0))
        exit = Exit::NotChecked;
    if (call.options.isSet(QStringLiteral("seal"))) {
        const QString problem = audit.seal();
        call.output.set(QStringLiteral("sealed"), problem.isEmpty());
        if (problem.isEmpty()) {
            call.output.line(
                QStringLiteral("Added generation %1 to the seal.").arg(audit.history().generations()));
        } else {
            call.output.complain(QStringLiteral("nothing was sealed: ") + problem);
            if (exit == Exit::Good)
                exit = Exit::NotChecked;
        }
    }
    return exit;
}
