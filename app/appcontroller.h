#pragma once

#include "app/job.h"

#include <QDir>
#include <QObject>
#include <QString>
#include <QVariant>

#include <atomic>
#include <memory>
#include <mutex>

class MediaImport;
class QQuickWindow;

/// The one object that the view calls: answers quick queries at once, starts each long job on the global
/// thread pool and re-emits what the jobs report.
class AppController : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY(AppController)

public:
    explicit AppController(QObject *parent = nullptr);
    /// Asks running jobs to stop; they must have ended, see waitForJobs().
    ~AppController() override;

    /// What getVersion() answers.
    void setVersion(const QString &version);
    /// The serial port last chosen or used; empty if none.
    [[nodiscard]] QString port() const { return port_; }

    /// Asks the running jobs to end; nothing is started afterwards.
    void stopJobs();
    /// Waits until no job runs. False if one still does after `milliseconds`.
    [[nodiscard]] static bool waitForJobs(int milliseconds);

signals:
    void updateCardProgress(QVariant cardNumber, QVariant progressFrom, QVariant progressTo,
                            QVariant progressValue, QVariant progressText);

public slots:
    QVariantList getDrives();
    QVariantList getTemplates();
    QVariantMap getSettings();
    void updateSettings(QVariantMap settings);
    QVariant getMoviesLocation();
    QVariant getVersion();
    void setPort(QVariant port);
    /// Imports three cards at once. `card1` to `card3` are root paths or empty; `templatePath` and
    /// `projectName` may be empty. Nothing is checked here: each card's import reports what it lacks.
    void copyFiles(QString card1, QString card2, QString card3, QString targetDir, QString templatePath,
                   QString projectName);
    void exitApp();
    /// Binds the view's root window: its requests to these slots, these signals to its functions.
    void init(QQuickWindow *appWindow);

private slots:
    QString getTemplateJpg();
    void copyFilesWorker(int cardIndex, QString sourceDir, QString targetDir, QString templatePath,
                         QString projectName);
    int copyVideoFile(QString sourcePath, int cardIndex, int fileIndex, int totalFiles, QDir sourceDirectory,
                      QDir targetDirectory, QString templatePath, QString projectName);
    int copyPhotoFile(QString sourcePath, int cardIndex, int fileIndex, int totalFiles, QDir sourceDirectory,
                      QDir targetDirectory, QString templatePath, QString projectName);

private:
    std::unique_ptr<MediaImport> mediaImport(int cardIndex, const QString &sourceDir,
                                             const QString &targetDir, const QString &templatePath,
                                             const QString &projectName);
    void countFinishedCard(const QString &targetDir);

    QDir targetDir_;
    /// Read after the unlock, hence atomic as well.
    std::atomic<int> finishedCards_{0};
    std::mutex finishedCardsMutex_;
    QQuickWindow *window_ = nullptr;
    QString version_;
    QString port_;
    StopFlag stop_;
};
