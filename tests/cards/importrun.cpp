#include "tests/cards/importrun.h"

#include <utility>

QString reportLine(int from, int to, int value, const QString &text)
{
    return QString::number(from) + QLatin1Char(' ') + QString::number(to) + QLatin1Char(' ') +
           QString::number(value) + QLatin1Char(' ') + text;
}

QStringList finalReportsIn(const QStringList &reports)
{
    QStringList final;
    for (const QString &line : reports) {
        const bool summary =
            line.startsWith(QStringLiteral("0 1 1 ")) && !line.contains(QStringLiteral("Copying"));
        if (summary || line.contains(QStringLiteral("Error")))
            final.append(line);
    }
    return final;
}

ImportRun::ImportRun(ImportRequest request)
    : request_(std::move(request))
{
}

ImportRun::ImportRun(const Workspace &workspace, int card, const QString &templatePath,
                     const QString &projectName)
    : ImportRun(ImportRequest{card, workspace.path(QStringLiteral("card")),
                              workspace.path(QStringLiteral("dst")), templatePath, projectName})
{
}

bool ImportRun::run()
{
    const auto writer = [this](const QString &kind) {
        return [this, kind](int card, const QString &templatePath, const QString &takePath,
                            const QString &name) {
            QStringList fields{kind, QString::number(card)};
            for (const QString &field : {templatePath, takePath, name})
                fields.append(QLatin1Char('[') + field + QLatin1Char(']'));
            projectCalls_.append(fields.join(QLatin1Char(' ')));
            return true;
        };
    };
    ImportProjects projects;
    projects.fallbackPicture = [this] { return fallbackPicture; };
    projects.writeVideoProject = writer(QStringLiteral("video"));
    projects.writePhotoProject = writer(QStringLiteral("photo"));
    const ProgressReport report = [this](const Progress &progress) {
        reports_.append(reportLine(progress.from, progress.to, progress.value, progress.text));
        if (onReport)
            onReport(progress);
    };
    return MediaImport(request_, std::move(projects), report, stop).run();
}
