#pragma once

#include "app/job.h"
#include "app/jobwatch.h"
#include "controller/pseaconfig.h"

#include <QDir>
#include <QFuture>
#include <QFutureSynchronizer>
#include <QMap>
#include <QObject>
#include <QString>
#include <QVariant>

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>

class Drives;
class MediaImport;
struct ControllerRequest;
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

    /// Tells `watch` of every job and its reports. It must live until the last job has ended.
    void setJobWatch(JobWatch &watch);

    /// Begins to list the devices on a thread of its own, for the next getDevices(): the first call comes
    /// while the window is being made, and a list of the ports takes a tenth of that time.
    void listDevicesAhead();

    /// Asks the running jobs to end; nothing is started afterwards.
    void stopJobs();
    /// Waits until no job runs. False if one still does after `milliseconds`.
    [[nodiscard]] static bool waitForJobs(int milliseconds);
    /// Asks the running jobs to end and waits for them, as stopJobs() and waitForJobs(); but for a running
    /// flashing tool however long: what else is sent to the controller meanwhile could leave it without
    /// firmware.
    [[nodiscard]] bool endJobs(int milliseconds);

signals:
    // A bar from progressFrom to progressTo at progressValue, and a text. cardNumber is 1 to 3.
    void updateCardProgress(QVariant cardNumber, QVariant progressFrom, QVariant progressTo,
                            QVariant progressValue, QVariant progressText);
    void updateDataProgress(QVariant progressFrom, QVariant progressTo, QVariant progressValue,
                            QVariant progressText);
    void updateCameraSettingsProgress(QVariant progressFrom, QVariant progressTo, QVariant progressValue,
                                      QVariant progressText);
    void updateFirmwareProgress(QVariant progressFrom, QVariant progressTo, QVariant progressValue,
                                QVariant progressText);
    /// The settings that were read from the controller; intervals in seconds, the time-out in minutes.
    void updateCameraSettings(QVariant firmware, QVariant battery, QVariant date, QVariant recLedOn,
                              QVariant videoLoggingInterval, QVariant timelapseInterval,
                              QVariant timelapseTimeout, QVariant e1FirmwareVersion);

public slots:
    QVariantList getDrives();
    QVariantList getDevices();
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
    // Jobs on the controller at the serial port named `port`; each remembers it for the power-off at exit.
    void copyData(QString port, QString targetDir, QString projectName);
    void readCameraSettings(QString port);
    void resetCameraSettings(QString port);
    void turnOff(QString port);
    /// Flashes the controller with the image `filePath`, absolute or in the firmware folder.
    void updateFirmware(QString port, QString filePath);
    /// `date` is "yyyy-MM-dd hh:mm:ss"; `e1FirmwareVersion` is 26, 29 or 30. Leaves the remembered port
    /// alone.
    void saveCameraSettings(QString port, QString date, int recLedOn, double videoLoggingIntervalSeconds,
                            double timelapseIntervalSeconds, double timelapseTimeoutMinutes,
                            int e1FirmwareVersion);
    /// Prepares the cards one after the other, on the calling thread; see CardPreparation.
    void eraseCards(QString card1, QString card2, QString card3, bool eraseCards, bool createSyncConfig);
    void eraseMemory(QString port);
    void exitApp();
    // What a link says goes to the view as the progress of the running job.
    void recvDataMessage(QString message);
    void recvSettingsMessage(QString message);
    void recvFirmwareMessage(QString message);
    /// Binds the view's root window: its requests to these slots, these signals to its functions.
    void init(QQuickWindow *appWindow);
    /// The power-off itself, on the calling thread; also the last act at exit.
    void turnOffWorker(QString port);

private slots:
    QString getTemplateJpg();
    void copyDataWorker(QString port, QString targetDir, QString projectName);
    void readSettingsWorker(QString port);
    void resetCameraSettingsWorker(QString port);
    void eraseMemoryWorker(QString port);
    void saveCameraSettingsWorker(QString port, QString date, PSEAConfig cfg);
    void copyFilesWorker(int cardIndex, QString sourceDir, QString targetDir, QString templatePath,
                         QString projectName);
    void updateFirmwareWorker(QString port, QString filePath);
    int copyVideoFile(QString sourcePath, int cardIndex, int fileIndex, int totalFiles, QDir sourceDirectory,
                      QDir targetDirectory, QString templatePath, QString projectName);
    int copyPhotoFile(QString sourcePath, int cardIndex, int fileIndex, int totalFiles, QDir sourceDirectory,
                      QDir targetDirectory, QString templatePath, QString projectName);

private:
    std::unique_ptr<MediaImport> mediaImport(int cardIndex, const QString &sourceDir,
                                             const QString &targetDir, const QString &templatePath,
                                             const QString &projectName);
    [[nodiscard]] ProgressReport cardReport(int cardIndex);
    [[nodiscard]] QString shownSerial(const QString &port);
    [[nodiscard]] ControllerRequest dataRequest(const QString &port);
    [[nodiscard]] ControllerRequest settingsRequest(const QString &port);
    void countFinishedCard(const QString &targetDir);
    [[nodiscard]] JobWatch::Job beginJob(const QVector<JobWatch::Row> &rows);

    std::unique_ptr<Drives> drives_;
    QDir targetDir_;
    /// Read after the unlock, hence atomic as well.
    std::atomic<int> finishedCards_{0};
    std::mutex finishedCardsMutex_;
    std::atomic<int> runningCards_{0}; ///< of the import that was started last
    QQuickWindow *window_ = nullptr;
    JobWatch *watch_ = nullptr;
    QString version_;
    QString port_;
    std::optional<QFuture<QVariantList>> devicesAhead_;
    QMap<QString, QString> shownSerials_; ///< by port, of the devices that were listed last
    std::mutex shownSerialsMutex_;
    StopFlag stop_;
    QFutureSynchronizer<void> flashing_; ///< last, so that it waits before anything else here goes
};
