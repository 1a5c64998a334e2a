#include "app/appcontroller.h"

#include "app/paths.h"
#include "app/settings.h"
#include "cards/cardpreparation.h"
#include "cards/destination.h"
#include "cards/drives.h"
#include "cards/filecopy.h"
#include "cards/mediaimport.h"
#include "controller/datadownload.h"
#include "controller/erasememory.h"
#include "controller/firmwareupdate.h"
#include "controller/pseacomms.h"
#include "controller/settingsjobs.h"
#include "controller/turnoff.h"
#include "platform/threadpriority.h"
#include "stitching/autopano.h"
#include "stitching/templates.h"

#include <QCoreApplication>
#include <QDebug>
#include <QException>
#include <QJsonObject>
#include <QQuickWindow>
#include <QThreadPool>
#include <QtConcurrent>

#include <algorithm>
#include <utility>

namespace {

using Row = JobWatch::Row;

constexpr int cardCount = 3;
const QVector<Row> cardRows = {Row::Card1, Row::Card2, Row::Card3};

/// Three imports must run at the same time, also where there are fewer cores, and leave room for a controller
/// job.
constexpr int fewestThreads = cardCount + 1;

/// A folder's name is one line. What is pasted may have line ends, which the field shows as blanks.
void removeLineFeeds(QString *folder)
{
    folder->remove(QLatin1Char('\n'));
    folder->remove(QLatin1Char('\r'));
}

} // namespace

AppController::AppController(QObject *parent)
    : QObject(parent)
    , drives_(std::make_unique<Drives>())
{
    QThreadPool *pool = QThreadPool::globalInstance();
    pool->setMaxThreadCount(std::max(pool->maxThreadCount(), fewestThreads));
}

AppController::~AppController()
{
    stop_.raise();
}

void AppController::setVersion(const QString &version)
{
    version_ = version;
}

void AppController::setJobWatch(JobWatch &watch)
{
    watch_ = &watch;
    // On the thread that reports: the last text is there before the job's end.
    connect(
        this, &AppController::updateCardProgress, &watch,
        [&watch](const QVariant &card, const QVariant &, const QVariant &, const QVariant &,
                 const QVariant &text) { watch.tell(cardRows.at(card.toInt() - 1), text.toString()); },
        Qt::DirectConnection);
    const auto tellOf = [&](auto signal, Row row) {
        connect(
            this, signal, &watch,
            [&watch, row](const QVariant &, const QVariant &, const QVariant &, const QVariant &text) {
                watch.tell(row, text.toString());
            },
            Qt::DirectConnection);
    };
    tellOf(&AppController::updateDataProgress, Row::Data);
    tellOf(&AppController::updateCameraSettingsProgress, Row::Settings);
    tellOf(&AppController::updateFirmwareProgress, Row::Firmware);
}

JobWatch::Job AppController::beginJob(const QVector<JobWatch::Row> &rows)
{
    return watch_ == nullptr ? JobWatch::Job() : watch_->begin(rows);
}

void AppController::stopJobs()
{
    stop_.raise();
}

bool AppController::waitForJobs(int milliseconds)
{
    return QThreadPool::globalInstance()->waitForDone(milliseconds);
}

bool AppController::endJobs(int milliseconds)
{
    stopJobs();
    flashing_.waitForFinished();
    return waitForJobs(milliseconds);
}

QVariantList AppController::getDrives()
{
    return drives_->list();
}

void AppController::listDevicesAhead()
{
    devicesAhead_ = QtConcurrent::run(PSEAComms::getDevices);
}

QVariantList AppController::getDevices()
{
    const QVariantList devices =
        devicesAhead_ ? std::exchange(devicesAhead_, std::nullopt)->result() : PSEAComms::getDevices();
    const std::lock_guard<std::mutex> lock(shownSerialsMutex_);
    shownSerials_.clear();
    for (const QVariant &device : devices) {
        const QJsonObject entry = device.toJsonObject();
        shownSerials_.insert(entry.value(QStringLiteral("name")).toString(),
                             entry.value(QStringLiteral("serial")).toString());
    }
    return devices;
}

QString AppController::shownSerial(const QString &port)
{
    const std::lock_guard<std::mutex> lock(shownSerialsMutex_);
    return shownSerials_.value(port);
}

QVariantList AppController::getTemplates()
{
    return listTemplates();
}

QVariantMap AppController::getSettings()
{
    return loadSettings();
}

void AppController::updateSettings(QVariantMap settings)
{
    storeSettings(settings);
}

QVariant AppController::getMoviesLocation()
{
    return moviesLocation();
}

QVariant AppController::getVersion()
{
    return version_;
}

void AppController::setPort(QVariant port)
{
    port_ = port.toString();
}

void AppController::copyFiles(QString card1, QString card2, QString card3, QString targetDir,
                              QString templatePath, QString projectName)
{
    removeLineFeeds(&targetDir);
    targetDir_.setPath(targetDir);
    warnOfRelative(targetDir);
    if (!targetDir.isEmpty())
        qInfo().noquote() << "Copying to" << targetDir_.absolutePath();
    qInfo("Start.");
    const JobWatch::Job job = beginJob(cardRows);
    const auto isBegun = std::make_shared<std::once_flag>();
    runningCards_ = cardCount;
    int cardIndex = 0;
    for (const QString &card : {card1, card2, card3}) {
        ++cardIndex;
        QtConcurrent::run([this, job, isBegun, cardIndex, card, targetDir, templatePath, projectName] {
            // Three cards fill every core; a window that waits for its turn looks hung.
            lowerThreadPriority();
            std::call_once(*isBegun, [&] { logFreeRoom("Before the import:", targetDir); });
            copyFilesWorker(cardIndex, card, targetDir, templatePath, projectName);
        });
    }
}

void AppController::copyData(QString port, QString targetDir, QString projectName)
{
    port_ = port;
    removeLineFeeds(&targetDir);
    warnOfRelative(targetDir);
    QtConcurrent::run([this, job = beginJob({Row::Data}), port, targetDir, projectName] {
        copyDataWorker(port, targetDir, projectName);
    });
}

void AppController::readCameraSettings(QString port)
{
    port_ = port;
    QtConcurrent::run([this, job = beginJob({Row::Settings}), port] { readSettingsWorker(port); });
}

void AppController::resetCameraSettings(QString port)
{
    port_ = port;
    QtConcurrent::run([this, job = beginJob({Row::Settings}), port] { resetCameraSettingsWorker(port); });
}

void AppController::turnOff(QString port)
{
    port_ = port;
    QtConcurrent::run([this, job = beginJob({Row::Data}), port] { turnOffWorker(port); });
}

void AppController::updateFirmware(QString port, QString filePath)
{
    port_ = port;
    flashing_.addFuture(QtConcurrent::run(
        [this, job = beginJob({Row::Firmware}), port, filePath] { updateFirmwareWorker(port, filePath); }));
}

void AppController::saveCameraSettings(QString port, QString date, int recLedOn,
                                       double videoLoggingIntervalSeconds, double timelapseIntervalSeconds,
                                       double timelapseTimeoutMinutes, int e1FirmwareVersion)
{
    const PSEAConfig config =
        PSEAConfig::fromUser(recLedOn, videoLoggingIntervalSeconds, timelapseIntervalSeconds,
                             timelapseTimeoutMinutes, e1FirmwareVersion);
    QtConcurrent::run([this, job = beginJob({Row::Settings}), port, date, config] {
        saveCameraSettingsWorker(port, date, config);
    });
}

void AppController::eraseCards(QString card1, QString card2, QString card3, bool eraseCards,
                               bool createSyncConfig)
{
    const JobWatch::Job job = beginJob(cardRows);
    int cardIndex = 0;
    for (const QString &card : {card1, card2, card3}) {
        ++cardIndex;
        CardPreparation(cardIndex, card, cardReport(cardIndex)).run(eraseCards, createSyncConfig);
    }
}

void AppController::eraseMemory(QString port)
{
    port_ = port;
    QtConcurrent::run([this, job = beginJob({Row::Data}), port] { eraseMemoryWorker(port); });
}

void AppController::exitApp()
{
    try {
        QCoreApplication::quit();
    } catch (const QException &error) {
        qInfo("%s", error.what());
    }
}

void AppController::recvDataMessage(QString message)
{
    emit updateDataProgress(0, 2, 1, message);
}

void AppController::recvSettingsMessage(QString message)
{
    emit updateCameraSettingsProgress(0, 2, 1, message);
}

void AppController::recvFirmwareMessage(QString message)
{
    emit updateFirmwareProgress(0, 2, 1, message);
}

void AppController::init(QQuickWindow *appWindow)
{
    window_ = appWindow;
    if (window_ == nullptr)
        return;
    connect(window_, SIGNAL(copyFiles(QString, QString, QString, QString, QString, QString)), this,
            SLOT(copyFiles(QString, QString, QString, QString, QString, QString)));
    connect(window_, SIGNAL(eraseCards(QString, QString, QString, bool, bool)), this,
            SLOT(eraseCards(QString, QString, QString, bool, bool)));
    connect(window_, SIGNAL(copyData(QString, QString, QString)), this,
            SLOT(copyData(QString, QString, QString)));
    connect(window_, SIGNAL(readCameraSettings(QString)), this, SLOT(readCameraSettings(QString)));
    connect(window_, SIGNAL(saveCameraSettings(QString, QString, int, double, double, double, int)), this,
            SLOT(saveCameraSettings(QString, QString, int, double, double, double, int)));
    connect(window_, SIGNAL(resetCameraSettings(QString)), this, SLOT(resetCameraSettings(QString)));
    connect(window_, SIGNAL(eraseMemory(QString)), this, SLOT(eraseMemory(QString)));
    connect(window_, SIGNAL(exitApp()), this, SLOT(exitApp()));
    connect(this, SIGNAL(updateCardProgress(QVariant, QVariant, QVariant, QVariant, QVariant)), window_,
            SLOT(updateCardProgress(QVariant, QVariant, QVariant, QVariant, QVariant)));
    connect(this, SIGNAL(updateDataProgress(QVariant, QVariant, QVariant, QVariant)), window_,
            SLOT(updateDataProgress(QVariant, QVariant, QVariant, QVariant)));
    connect(this, SIGNAL(updateFirmwareProgress(QVariant, QVariant, QVariant, QVariant)), window_,
            SLOT(updateFirmwareProgress(QVariant, QVariant, QVariant, QVariant)));
    connect(this, SIGNAL(updateCameraSettingsProgress(QVariant, QVariant, QVariant, QVariant)), window_,
            SLOT(updateCameraSettingsProgress(QVariant, QVariant, QVariant, QVariant)));
    connect(this,
            SIGNAL(updateCameraSettings(QVariant, QVariant, QVariant, QVariant, QVariant, QVariant, QVariant,
                                        QVariant)),
            window_,
            SLOT(updateCameraSettings(QVariant, QVariant, QVariant, QVariant, QVariant, QVariant, QVariant,
                                      QVariant)));
}

// Never ended early: at exit it runs when everything else has been asked to stop.
void AppController::turnOffWorker(QString port)
{
    ControllerRequest request = dataRequest(port);
    request.stop = nullptr;
    TurnOff(std::move(request)).run();
}

QString AppController::getTemplateJpg()
{
    return templatePicture();
}

void AppController::copyDataWorker(QString port, QString targetDir, QString projectName)
{
    DataDownload(dataRequest(port), targetDir, projectName).run();
}

void AppController::readSettingsWorker(QString port)
{
    ReadSettings(settingsRequest(port), [this](const CameraSettings &settings) {
        emit updateCameraSettings(settings.firmware, settings.battery, settings.date, settings.recLedOn,
                                  settings.loggingIntervalSeconds, settings.timelapseIntervalSeconds,
                                  settings.timelapseTimeoutMinutes, settings.e1FirmwareVersion);
    }).run();
}

void AppController::resetCameraSettingsWorker(QString port)
{
    ResetSettings(settingsRequest(port)).run();
}

void AppController::eraseMemoryWorker(QString port)
{
    EraseMemory(dataRequest(port), shownSerial(port)).run();
}

void AppController::saveCameraSettingsWorker(QString port, QString date, PSEAConfig cfg)
{
    SaveSettings(settingsRequest(port), date, cfg).run();
}

void AppController::copyFilesWorker(int cardIndex, QString sourceDir, QString targetDir, QString templatePath,
                                    QString projectName)
{
    const bool finished = mediaImport(cardIndex, sourceDir, targetDir, templatePath, projectName)->run();
    // Before the log is copied.
    if (--runningCards_ == 0)
        logFreeRoom("After the import:", targetDir);
    if (finished)
        countFinishedCard(targetDir);
}

void AppController::updateFirmwareWorker(QString port, QString filePath)
{
    FirmwareUpdate({port, filePath, getUtilitiesDir(), getFirmwareDir(),
                    [this](const Progress &progress) {
                        emit updateFirmwareProgress(progress.from, progress.to, progress.value,
                                                    progress.text);
                    },
                    [this](const QString &message) { recvFirmwareMessage(message); }, &stop_})
        .run();
}

int AppController::copyVideoFile(QString sourcePath, int cardIndex, int fileIndex, int totalFiles,
                                 QDir sourceDirectory, QDir targetDirectory, QString templatePath,
                                 QString projectName)
{
    return mediaImport(cardIndex, sourceDirectory.path(), targetDirectory.path(), templatePath, projectName)
        ->copyVideoFile(sourcePath, fileIndex, totalFiles, sourceDirectory, targetDirectory);
}

int AppController::copyPhotoFile(QString sourcePath, int cardIndex, int fileIndex, int totalFiles,
                                 QDir sourceDirectory, QDir targetDirectory, QString templatePath,
                                 QString projectName)
{
    return mediaImport(cardIndex, sourceDirectory.path(), targetDirectory.path(), templatePath, projectName)
        ->copyPhotoFile(sourcePath, fileIndex, totalFiles, sourceDirectory, targetDirectory);
}

std::unique_ptr<MediaImport> AppController::mediaImport(int cardIndex, const QString &sourceDir,
                                                        const QString &targetDir, const QString &templatePath,
                                                        const QString &projectName)
{
    ImportProjects projects;
    projects.fallbackPicture = [this] { return getTemplateJpg(); };
    const auto autopano = std::make_shared<Autopano>();
    projects.writeVideoProject = [autopano](int card, const QString &templateFile, const QString &take,
                                            const QString &name) {
        return autopano->writeKava(card, templateFile, take, name, loadSettings);
    };
    projects.writePhotoProject = [autopano](int card, const QString &templateFile, const QString &take,
                                            const QString &name) {
        return autopano->writePano(card, templateFile, take, name, loadSettings);
    };
    projects.finish = [autopano](const StopFlag &stop) { return autopano->finish(stop); };
    return std::make_unique<MediaImport>(
        ImportRequest{cardIndex, sourceDir, targetDir, templatePath, projectName}, std::move(projects),
        cardReport(cardIndex), stop_);
}

ProgressReport AppController::cardReport(int cardIndex)
{
    return [this, cardIndex](const Progress &progress) {
        emit updateCardProgress(cardIndex, progress.from, progress.to, progress.value, progress.text);
    };
}

ControllerRequest AppController::dataRequest(const QString &port)
{
    return {port,
            [this](const Progress &progress) {
                emit updateDataProgress(progress.from, progress.to, progress.value, progress.text);
            },
            [this](const QString &message) { recvDataMessage(message); }, &stop_};
}

ControllerRequest AppController::settingsRequest(const QString &port)
{
    return {port,
            [this](const Progress &progress) {
                emit updateCameraSettingsProgress(progress.from, progress.to, progress.value, progress.text);
            },
            [this](const QString &message) { recvSettingsMessage(message); }, &stop_};
}

/// The import during which the third card ends leaves a copy of the log in the destination.
void AppController::countFinishedCard(const QString &targetDir)
{
    {
        const std::lock_guard<std::mutex> lock(finishedCardsMutex_);
        ++finishedCards_;
    }
    if (finishedCards_ != cardCount)
        return;
    try {
        qInfo("Done.");
        static_cast<void>(
            copyNewFile(getLogFilePath(), QDir(targetDir).filePath(QStringLiteral("Kelpora360.log")), stop_));
    } catch (const QException &error) {
        qWarning() << "Error copying log file:" << error.what();
    }
}
