#pragma once

#include "cards/mediaimport.h"
#include "tests/support/workspace.h"

#include <QStringList>

#include <functional>

/// The lines with which a card's import ends: the summaries and the errors.
[[nodiscard]] QStringList finalReportsIn(const QStringList &reports);

/// "from to value text".
[[nodiscard]] QString reportLine(int from, int to, int value, const QString &text);

/// One card's import with everything written down that it says.
class ImportRun
{
    Q_DISABLE_COPY(ImportRun)

public:
    explicit ImportRun(ImportRequest request);
    /// Of the folder "card" in `workspace` into its folder "dst".
    explicit ImportRun(const Workspace &workspace, int card = 1, const QString &templatePath = {},
                       const QString &projectName = {});

    bool run();

    /// The reports as "from to value text".
    [[nodiscard]] const QStringList &reports() const { return reports_; }
    /// See finalReportsIn().
    [[nodiscard]] QStringList finalReports() const { return finalReportsIn(reports_); }
    /// The calls of the project writers as "video|photo card template take name", each field in brackets.
    [[nodiscard]] const QStringList &projectCalls() const { return projectCalls_; }

    QString fallbackPicture;                        ///< what the templates folder offers
    std::function<void(const Progress &)> onReport; ///< called with every report, on the import's thread
    StopFlag stop;

private:
    ImportRequest request_;
    QStringList reports_;
    QStringList projectCalls_;
};
