#pragma once

#include "check/report.h"

#include <QObject>
#include <QThreadPool>
#include <QTimer>
#include <QVariant>

#include <memory>

class Drives;

/// The one object that the window calls: lists the volumes, runs one check at a time on a thread of its pool
/// and re-emits what comes of it.
class CheckController : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY(CheckController)

public:
    explicit CheckController(QObject *parent = nullptr);
    /// Stops the check and waits for its thread.
    ~CheckController() override;

    /// Stops the check. False if its thread still runs after `milliseconds`, in a system call of a dead disk.
    [[nodiscard]] bool end(int milliseconds);

signals:
    /// A check begins.
    void begun();
    /// A check runs, and has read `share` (0 to 1) of card `card` and its copies; `text` says how fast. Only
    /// of cards that were chosen.
    void progressed(int card, double share, const QString &text);
    /// The check has ended, with CheckReport::shown(). Exactly once for each check.
    void ended(const QVariantMap &verdict);

public slots:
    /// Objects with "key" and "value": first that for no card, whose key is empty, then as Drives::list().
    QVariantList getDrives();
    QVariant getMoviesLocation();
    QVariant getVersion();

    /// Checks whether the cards `cards`, three root paths of which some may be empty, are stored below
    /// `folder`; `names` is what the operator knows them by. With `seal`, the copies that match are sealed.
    /// Does nothing while a check runs.
    void check(const QStringList &cards, const QStringList &names, const QString &folder, bool seal);
    /// Ends the running check at once; its thread follows as soon as the system lets it.
    void stop();

    /// Puts all of the last report on the clipboard.
    void copyReport() const;
    /// Writes all of the last report to the text file `path`. Returns what came of it, in a line; empty if
    /// all is well.
    [[nodiscard]] QString saveReport(const QString &path) const;

private:
    struct Job;

    void reportProgress();
    void finish(const std::shared_ptr<Job> &job, const CheckResult &result);

    std::unique_ptr<Drives> drives_;
    std::shared_ptr<Job> job_; ///< the running check
    CheckReport report_;       ///< of the last one
    QTimer progressTimer_;
    QThreadPool pool_; ///< last, so that it waits for its threads first
};
