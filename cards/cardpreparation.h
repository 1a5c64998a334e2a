#pragma once

#include "app/job.h"

#include <QByteArray>
#include <QMap>
#include <QString>

/// Prepares one camera's card for a dive: optionally empties it and writes the cameras' synchronisation
/// configuration, and always marks it with the files that name its slot and keep computers from indexing it.
///
/// Failures of single steps are not reported; every path ends with one final report.
class CardPreparation
{
public:
    /// `card` is 1 to 3 and `root` the card's root folder, which stays.
    CardPreparation(int card, QString root, ProgressReport report);

    void run(bool erase, bool createSyncConfig);

    /// The files that a preparation writes to card `card`: path below its root, content.
    [[nodiscard]] static QMap<QString, QByteArray> files(int card);

private:
    void prepare(bool erase, bool createSyncConfig);
    [[nodiscard]] bool eraseCard() const;
    void writeSyncConfig();
    void writeMarkers();
    bool writeAtStart(const QString &path, const QByteArray &text = {});
    /// Logs `text` with %1 filled by the card's number and %2 by its folder.
    void log(const char *text) const;
    void warn(const char *text) const;

    int card_;
    QString root_;
    ProgressReport report_;
    bool written_ = true; ///< everything so far
};
