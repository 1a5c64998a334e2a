#pragma once

#include "checks/mhlhistory.h"
#include "platform/diskread.h"

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QVector>

#include <atomic>

/// What an audit found. Paths are relative to the folder.
struct AuditResult
{
    struct NotChecked
    {
        QString path;
        QString reason;
    };
    QString problem;                ///< why there is nothing to audit; empty if there is
    int files = 0;                  ///< that the seal names
    int unchanged = 0;              ///< of these, read from their disk and as they were sealed
    QStringList altered;            ///< another content
    QStringList missing;            ///< named by the seal, but not there
    QStringList added;              ///< there, but in no generation; not told when the seal is damaged
    QVector<NotChecked> notChecked; ///< what could not be read, or not from its disk
};

/// Compares a sealed folder with its seal. Every sealed file is read from its disk.
class Audit
{
    Q_DISABLE_COPY(Audit)

public:
    /// `stop` is tested at least every mebibyte and must outlive this.
    Audit(const QString &folder, const StopFlag &stop);

    /// What is known of the seal before a file is read.
    [[nodiscard]] const MhlHistory &history() const { return history_; }

    /// Audits; of no worth if it was stopped. Blocks.
    [[nodiscard]] AuditResult run();

    /// Adds what run() found to the seal: a generation that says of each file that was read whether it is as
    /// it was sealed. Returns why that failed; empty if it didn't.
    [[nodiscard]] QString seal();

    /// Bytes read so far, and to be read in all; 0 until that is known. May be asked from another thread.
    [[nodiscard]] qint64 bytesRead() const { return bytesRead_; }
    [[nodiscard]] qint64 bytesTotal() const { return bytesTotal_; }

private:
    void check(const QString &path, AuditResult *result);

    QString folder_;
    const StopFlag &stop_;
    MhlHistory history_;
    DiskReader reader_;
    QDateTime begun_;
    QVector<MhlRecord> records_;
    std::atomic<qint64> bytesRead_{0};
    std::atomic<qint64> bytesTotal_{0};
};
