#include "check/checkcontroller.h"

#include "app/version.h"
#include "cards/drives.h"
#include "checks/filename.h"
#include "checks/pace.h"

#include <QClipboard>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QGuiApplication>
#include <QJsonObject>
#include <QSaveFile>

#include <atomic>

namespace {

constexpr int cardCount = 3;
constexpr int progressIntervalMs = 200;

/// Checks that were stopped may hang on dead disks; a new one must not wait for them.
constexpr int mostThreads = 64;

} // namespace

/// A check; shared by its thread and the controller.
struct CheckController::Job
{
    StopFlag stop = {};
    VerifyRequest request = {};
    CheckResult asked = {}; ///< what is known before
    QElapsedTimer time = {};
    std::unique_ptr<Verification> verification = nullptr;
    std::atomic<const Verification *> running{nullptr}; ///< the same, once it is made

    [[nodiscard]] CheckResult run();
};

CheckResult CheckController::Job::run()
{
    CheckResult result = asked;
    if (!QDir::isAbsolutePath(result.destination)) {
        result.refusal =
            QStringLiteral("%1 is no full path, from its first \"/\" on.").arg(result.destination);
        return result;
    }
    verification = std::make_unique<Verification>(request, stop);
    result.refusal = verification->refusal();
    if (!result.refusal.isEmpty())
        return result;
    running = verification.get();
    result.verdicts = verification->run();
    result.unreadable = verification->unreadableCopies();
    if (result.seal && !result.verdicts.empty())
        result.sealed = sealVerified(*verification, &result.verdicts, result.destination, result.begun, stop);
    result.stopped = stop.isRaised() || result.verdicts.empty();
    return result;
}

CheckController::CheckController(QObject *parent)
    : QObject(parent)
    , drives_(std::make_unique<Drives>())
{
    pool_.setMaxThreadCount(mostThreads);
    progressTimer_.setInterval(progressIntervalMs);
    connect(&progressTimer_, &QTimer::timeout, this, &CheckController::reportProgress);
}

CheckController::~CheckController()
{
    stop();
}

bool CheckController::end(int milliseconds)
{
    stop();
    return pool_.waitForDone(milliseconds);
}

QVariantList CheckController::getDrives()
{
    return QVariantList{QJsonObject{{QStringLiteral("key"), QString()},
                                    {QStringLiteral("value"), QStringLiteral("No card")}}} +
           drives_->list();
}

QVariant CheckController::getMoviesLocation()
{
    return moviesLocation();
}

QVariant CheckController::getVersion()
{
    return app_version;
}

void CheckController::check(const QStringList &cards, const QStringList &names, const QString &folder,
                            bool seal)
{
    if (job_)
        return;
    job_ = std::make_shared<Job>();
    for (const QString &card : cards)
        job_->request.cards.push_back(pathOf(card));
    job_->request.destination = pathOf(folder);
    job_->request.preparationFiles = preparationFiles();
    job_->asked.names = names;
    job_->asked.destination = folder;
    job_->asked.begun = QDateTime::currentDateTimeUtc();
    job_->asked.seal = seal;
    job_->time.start();
    progressTimer_.start();
    emit begun();
    reportProgress();
    pool_.start([this, job = job_] {
        const CheckResult result = job->run();
        QMetaObject::invokeMethod(
            this, [this, job, result] { finish(job, result); }, Qt::QueuedConnection);
    });
}

void CheckController::stop()
{
    if (!job_)
        return;
    job_->stop.raise();
    CheckResult result = job_->asked;
    result.stopped = true;
    finish(job_, result);
}

void CheckController::reportProgress()
{
    const Verification *verification = job_->running;
    const double seconds = static_cast<double>(job_->time.elapsed()) / 1000.0;
    const bool counted = verification != nullptr && verification->bytesTotal() > 0;
    for (int card = 1; card <= cardCount; ++card) {
        if (job_->asked.names.value(card - 1).isEmpty())
            continue;
        if (!counted) {
            emit progressed(card, 0, QStringLiteral("Looking for files ..."));
        } else {
            const qint64 read = verification->bytesRead(card);
            const qint64 total = verification->bytesTotal(card);
            emit progressed(card, total > 0 ? static_cast<double>(read) / static_cast<double>(total) : 1,
                            read >= total ? QStringLiteral("Read") : paceOf(read, total, seconds).trimmed());
        }
    }
}

/// Ends `job` unless it was stopped before.
void CheckController::finish(const std::shared_ptr<Job> &job, const CheckResult &result)
{
    if (job != job_)
        return;
    job_.reset();
    progressTimer_.stop();
    report_ = reportOf(result);
    emit ended(report_.shown());
}

void CheckController::copyReport() const
{
    QGuiApplication::clipboard()->setText(report_.text());
}

QString CheckController::saveReport(const QString &path) const
{
    QString file = path;
    // A recording that was chosen by mistake must not be replaced.
    if (QFileInfo(path).suffix().compare(QLatin1String("txt"), Qt::CaseInsensitive) != 0) {
        file += QStringLiteral(".txt");
        if (QFileInfo::exists(file))
            return QStringLiteral("Not saved: %1 is there already.").arg(file);
    }
    QSaveFile target(file);
    const QByteArray text = report_.text().toUtf8();
    if (!target.open(QIODevice::WriteOnly) || target.write(text) != text.size() || !target.commit())
        return QStringLiteral("Not saved: %1.").arg(target.errorString());
    return QStringLiteral("Saved as %1.").arg(file);
}
