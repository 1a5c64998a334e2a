#include "cards/mediaimport.h"

#include "cards/drives.h"
#include "platform/volumewatch.h"

#include <QDebug>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <system_error>
#include <utility>

namespace {

QString summary(int videosCopied, int videos, int photosCopied, int photos)
{
    return QStringLiteral("%1/%2 videos and %3/%4 photos.")
        .arg(videosCopied)
        .arg(videos)
        .arg(photosCopied)
        .arg(photos);
}

QString folderOf(const QString &path)
{
    return QFileInfo(path).absolutePath();
}

/// Creates the folder in which `path` lies. Returns the system's reason if that fails.
QString createFolderOf(const QString &path)
{
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::u8path(folderOf(path).toStdString()), error);
    return error ? QString::fromLocal8Bit(error.message().c_str()) : QString();
}

/// Whether two files can be read and hold the same bytes.
bool sameContent(const QString &first, const QString &second, const StopFlag &stop)
{
    constexpr qint64 pieceSize = qint64{1} << 20;
    QFile a(first);
    QFile b(second);
    if (!a.open(QIODevice::ReadOnly | QIODevice::Unbuffered) ||
        !b.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return false;
    QByteArray piece;
    do {
        piece = a.read(pieceSize);
        if (stop.isRaised() || piece != b.read(pieceSize))
            return false;
    } while (!piece.isEmpty());
    return a.error() == QFileDevice::NoError && b.error() == QFileDevice::NoError;
}

} // namespace

/// A kind of recording: how its files are named and counted, and what is written beside a copy.
struct MediaImport::Kind
{
    enum class Count {
        Videos,
        Photos,
    };
    QString extension; ///< in capitals; files in small letters are no recordings
    Count count;
    bool preview = false;
    ImportProjects::Writer ImportProjects::*writeProject = nullptr;

    /// What replaces the extension in the copy's name. The placeholders are filled one after another, so a
    /// project name with a percent sign and a digit takes part in the later ones.
    [[nodiscard]] QString suffix(int card, const QString &projectName) const
    {
        if (projectName.isEmpty())
            return QStringLiteral("_cam%1").arg(card) + extension;
        if (count == Count::Videos)
            return (QStringLiteral("_%1_cam%2") + extension).arg(projectName).arg(card);
        return QStringLiteral("_%1_cam%2%3").arg(projectName).arg(card).arg(extension);
    }
};

const QVector<MediaImport::Kind> &MediaImport::kinds()
{
    static const QVector<Kind> all = {
        {QStringLiteral(".MOV"), Kind::Count::Videos, true, &ImportProjects::writeVideoProject},
        {QStringLiteral(".DNG"), Kind::Count::Photos, false, &ImportProjects::writePhotoProject},
        {QStringLiteral(".JPG"), Kind::Count::Photos, false, &ImportProjects::writePhotoProject},
    };
    return all;
}

const MediaImport::Kind *MediaImport::kindOf(const QString &path)
{
    for (const Kind &kind : kinds()) {
        if (path.endsWith(kind.extension))
            return &kind;
    }
    return nullptr;
}

/// The names of one file in the destination: the path that it is copied to and the take that it belongs to.
class MediaImport::TakeNames
{
public:
    TakeNames(QString targetPath, const Kind &kind, int card, const QString &projectName)
        : targetPath_(std::move(targetPath))
        , extension_(kind.extension)
        , card_(card)
        , takePath_(targetPath_)
        , copyPath_(with(kind.suffix(card, projectName)))
    {
    }

    [[nodiscard]] const QString &targetPath() const { return targetPath_; }
    [[nodiscard]] const QString &copyPath() const { return copyPath_; }
    [[nodiscard]] const QString &takePath() const { return takePath_; }

    /// Goes on to the next number because the copy's name is taken.
    void advance()
    {
        ++number_;
        copyPath_ = with(QStringLiteral("-%1_cam%2").arg(number_).arg(card_) + extension_);
        takePath_ = with(QStringLiteral("-%1").arg(number_) + extension_);
    }

private:
    [[nodiscard]] QString with(const QString &suffix) const
    {
        return QString(targetPath_).replace(extension_, suffix);
    }

    QString targetPath_;
    QString extension_;
    int card_;
    QString takePath_;
    QString copyPath_;
    int number_ = 0;
};

MediaImport::MediaImport(ImportRequest request, ImportProjects projects, ProgressReport report,
                         const StopFlag &stop)
    : request_(std::move(request))
    , projects_(std::move(projects))
    , report_(std::move(report))
    , stop_(stop)
{
}

bool MediaImport::run()
{
    try {
        return importCard();
    } catch (const std::exception &error) {
        // Without a last report the window would stay locked.
        const QString reason = QString::fromLocal8Bit(error.what());
        qWarning().noquote() << QStringLiteral("Card %1: ").arg(request_.card) + reason;
        report_({0, 1, 1, QStringLiteral("Error: ") + reason});
        // Those of the photos that have their names.
        finishProjects();
        return false;
    }
}

bool MediaImport::importCard()
{
    const QString reason = invalidReason();
    if (!reason.isEmpty()) {
        qWarning().noquote() << QStringLiteral("Card %5: ").arg(request_.card) + reason;
        report_({0, 0, 0, QStringLiteral("Error: ") + reason});
        return false;
    }

    const QVector<CardFile> files = listFiles();
    Counts counts;
    for (int i = 0; i < files.size() && !stop_.isRaised(); ++i)
        copyListed(files, i, &counts);
    return finish(counts);
}

QString MediaImport::invalidReason() const
{
    if (request_.sourceDir.isEmpty() || !QDir(request_.sourceDir).exists())
        return QStringLiteral("Please choose source");
    if (isSystemRoot(request_.sourceDir))
        return QStringLiteral("Invalid source");
    if (request_.targetDir.isEmpty())
        return QStringLiteral("Please choose destination");
    return {};
}

QVector<CardFile> MediaImport::listFiles()
{
    anotherCard_ = watchForAnotherVolume(request_.sourceDir);
    const CardListing listing = listCard(request_.sourceDir, stop_);
    for (const QString &path : listing.unreadable)
        qWarning().noquote() << QStringLiteral("Card %1: can't read %2.").arg(request_.card).arg(path);
    wholeCardSeen_ = listing.unreadable.isEmpty();
    return listing.files;
}

void MediaImport::copyListed(const QVector<CardFile> &files, int index, Counts *counts)
{
    const CardFile &file = files.at(index);
    const int position = index + 1;
    const int totalFiles = files.size();
    sendDeferred();
    report_({0, totalFiles + 1, position, QStringLiteral("Copying ") + file.path});
    deferring_ = position >= totalFiles - 1;
    const Kind *kind = kindOf(file.path);
    if (kind == nullptr)
        return;
    stageAhead(files, index);
    const QString copy = copyRecording(*kind, file.path, position + 1, totalFiles, QDir(request_.sourceDir),
                                       QDir(request_.targetDir));
    const bool video = kind->count == Kind::Count::Videos;
    ++(video ? counts->videos : counts->photos);
    if (copy.isEmpty())
        return;
    ++(video ? counts->videosCopied : counts->photosCopied);
    if (!holdsWhatWasListed(file, copy) && !stop_.isRaised()) {
        changed_ = true;
        qWarning().noquote()
            << QStringLiteral("Card %1: changed since the card was listed: ").arg(request_.card) + file.path;
    }
}

/// Whether `copyPath`, a copy of the size that the source has now, holds the recording that was listed.
bool MediaImport::holdsWhatWasListed(const CardFile &file, const QString &copyPath)
{
    switch (file.change()) {
    case CardFile::Change::None:
        return true;
    case CardFile::Change::Time:
        // Cameras number alike: another card in the reader has recordings of the same names, maybe sizes.
        return !anotherCard_() && sameContent(file.path, copyPath, stop_);
    case CardFile::Change::Size:
        break;
    }
    return false;
}

int MediaImport::copyVideoFile(const QString &sourcePath, int fileIndex, int totalFiles,
                               const QDir &sourceDirectory, const QDir &targetDirectory)
{
    const Kind &kind = *kindOf(QStringLiteral(".MOV"));
    const QString copy =
        copyRecording(kind, sourcePath, fileIndex, totalFiles, sourceDirectory, targetDirectory);
    return copy.isEmpty() ? 0 : 1;
}

int MediaImport::copyPhotoFile(const QString &sourcePath, int fileIndex, int totalFiles,
                               const QDir &sourceDirectory, const QDir &targetDirectory)
{
    const bool raw = sourcePath.endsWith(QStringLiteral(".DNG"));
    const Kind &kind = *kindOf(raw ? QStringLiteral(".DNG") : QStringLiteral(".JPG"));
    const QString copy =
        copyRecording(kind, sourcePath, fileIndex, totalFiles, sourceDirectory, targetDirectory);
    finishProjects();
    return copy.isEmpty() ? 0 : 1;
}

/// Copies one recording and writes its preview and its project. Returns the copy's path; an empty one if the
/// copy failed or is not of the source's size.
QString MediaImport::copyRecording(const Kind &kind, const QString &sourcePath, int fileIndex, int totalFiles,
                                   const QDir &sourceDirectory, const QDir &targetDirectory)
{
    TakeNames names = namesOf(sourcePath, kind, sourceDirectory, targetDirectory);
    const bool copied =
        copyTake(sourcePath, &names) && checkSizes(sourcePath, names.copyPath(), fileIndex, totalFiles);
    if (!request_.templatePath.isEmpty() && (copied || !stop_.isRaised())) {
        if (kind.preview)
            placePicture(names.copyPath(), kind.extension);
        if (kind.writeProject != nullptr &&
            !(projects_.*kind.writeProject)(request_.card, request_.templatePath, names.takePath(),
                                            request_.projectName))
            writeError_ = true;
    }
    return copied ? names.copyPath() : QString();
}

MediaImport::TakeNames MediaImport::namesOf(const QString &sourcePath, const Kind &kind,
                                            const QDir &sourceDirectory, const QDir &targetDirectory) const
{
    QString targetPath = targetDirectory.absoluteFilePath(sourceDirectory.relativeFilePath(sourcePath));
    if (kind.count == Kind::Count::Videos)
        targetPath.replace(kind.extension.toLower(), kind.extension);
    return {targetPath, kind, request_.card, request_.projectName};
}

/// Copies the photos from `files[current]` on before their turn. Each must wait for the disk before it gets
/// its name: with one at a time under way, they would take twice as long.
void MediaImport::stageAhead(const QVector<CardFile> &files, int current)
{
    constexpr int mostFiles = 16;
    constexpr qint64 mostBytes = qint64{16} << 20;
    qint64 bytes = 0;
    for (const Ahead &ahead : ahead_)
        bytes += ahead.file.size;
    nextAhead_ = std::max(nextAhead_, current);
    for (; nextAhead_ < std::min(files.size(), current + mostFiles) && !stop_.isRaised(); ++nextAhead_) {
        const CardFile &file = files.at(nextAhead_);
        const Kind *kind = kindOf(file.path);
        if (kind == nullptr || kind->count != Kind::Count::Photos)
            continue;
        bytes += file.size;
        if (bytes > mostBytes)
            return;
        const TakeNames names = namesOf(file.path, *kind, QDir(request_.sourceDir), QDir(request_.targetDir));
        QString noFolder;
        Ahead ahead = {file, folderOf(names.copyPath()), stage(file.path, names, &noFolder)};
        if (!ahead.copy || !ahead.copy->isWhole()) {
            // What is wrong is found out, and told, in the photos' own turns.
            nextAhead_ = files.size();
            return;
        }
        ahead_.push_back(std::move(ahead));
    }
}

/// The copy of `sourcePath` that was made ahead, if the recording is still the one that was listed. Otherwise
/// it is copied in its turn.
std::unique_ptr<StagedCopy> MediaImport::takeAhead(const QString &sourcePath, const TakeNames &names)
{
    if (ahead_.empty() || ahead_.front().file.path != sourcePath)
        return nullptr;
    Ahead ahead = std::move(ahead_.front());
    ahead_.pop_front();
    const bool usable =
        ahead.folder == folderOf(names.copyPath()) && ahead.file.change() == CardFile::Change::None;
    return usable ? std::move(ahead.copy) : nullptr;
}

/// Copies the recording into the folder where it will stand. Null, with the reason, if there is no folder.
std::unique_ptr<StagedCopy> MediaImport::stage(const QString &sourcePath, const TakeNames &names,
                                               QString *noFolder)
{
    // Also when the copy's own folder is another one: an extension inside a folder's name is rewritten too.
    createFolderOf(names.targetPath());
    *noFolder = createFolderOf(names.copyPath());
    if (!noFolder->isEmpty())
        return nullptr;
    const QString folder = folderOf(names.copyPath());
    flush_.watch(folder);
    if (!folders_.contains(folder)) {
        folders_.insert(folder);
        removeLeftovers(folder);
    }
    return std::make_unique<StagedCopy>(sourcePath, folder, stop_);
}

/// Gives the copy the first of its names that is free.
Publish MediaImport::publish(StagedCopy *copy, TakeNames *names)
{
    Publish result = copy->publish(names->copyPath(), stop_);
    while (result == Publish::Exists) {
        // Another program took the name during the copy.
        names->advance();
        createFolderOf(names->copyPath());
        result = copy->publish(names->copyPath(), stop_);
    }
    return result;
}

/// Copies the file under the first of its names that is free.
bool MediaImport::copyTake(const QString &sourcePath, TakeNames *names)
{
    while (QFileInfo::exists(names->copyPath()))
        names->advance();
    std::unique_ptr<StagedCopy> copy = takeAhead(sourcePath, *names);
    Publish result = copy ? publish(copy.get(), names) : Publish::Failed;
    // One that was made ahead lies in a folder that may have been moved away since.
    if (result == Publish::Failed && !stop_.isRaised()) {
        QString noFolder;
        copy = stage(sourcePath, *names, &noFolder);
        if (!copy) {
            logFailure(sourcePath, names->copyPath(), QStringLiteral("can't create the folder: ") + noFolder);
            return false;
        }
        result = publish(copy.get(), names);
    }
    if (result != Publish::Done) {
        if (copy)
            logFailure(sourcePath, names->copyPath(), copy->error());
        return false;
    }
    written_.append(names->copyPath());
    return true;
}

/// Logs each cause once, with the first recording that it kept from being copied. A full disk would fill the
/// log otherwise.
void MediaImport::logFailure(const QString &sourcePath, const QString &copyPath, const QString &cause)
{
    if (!stop_.isRaised() && ++failures_[cause] == 1)
        qWarning().noquote() << QStringLiteral("Card %1: could not copy %2 to %3: %4")
                                    .arg(QString::number(request_.card), sourcePath, copyPath, cause);
}

bool MediaImport::checkSizes(const QString &sourcePath, const QString &copyPath, int fileIndex,
                             int totalFiles)
{
    if (QFileInfo(sourcePath).size() == QFileInfo(copyPath).size()) {
        qInfo().noquote() << QStringLiteral("Card %1: copied file %2.").arg(request_.card).arg(sourcePath);
        send({0, totalFiles, fileIndex, QStringLiteral("Copied %1 correctly.").arg(sourcePath)});
        return true;
    }
    // The card's number fills both placeholders, so the path does not appear.
    qWarning().noquote()
        << QStringLiteral("Card %1: File size for %1 doesn't match after copy.").arg(request_.card);
    send({0, totalFiles, fileIndex,
          QStringLiteral("Warning: File size for %1 doesn't match after copy.").arg(sourcePath)});
    logFailure(sourcePath, copyPath, QStringLiteral("the copy has another size"));
    return false;
}

/// Puts a preview beside the video, if the template or the templates folder has one.
void MediaImport::placePicture(const QString &videoPath, const QString &extension)
{
    QString picture = QString(request_.templatePath).replace(QStringLiteral(".kava"), QStringLiteral(".jpg"));
    if (!QFileInfo::exists(picture))
        picture = projects_.fallbackPicture();
    const QString target = QString(videoPath).replace(extension, extension + QStringLiteral(".jpg"));
    switch (copyNewFile(picture, target, stop_)) {
    case Publish::Done:
        written_.append(target);
        break;
    case Publish::NotOnDisk:
        writeError_ = true;
        break;
    case Publish::Exists:
    case Publish::Failed:
        break;
    }
}

void MediaImport::send(const Progress &progress)
{
    if (deferring_)
        deferredReports_.append(progress);
    else
        report_(progress);
}

void MediaImport::sendDeferred()
{
    for (const Progress &progress : qAsConst(deferredReports_))
        report_(progress);
    deferredReports_.clear();
}

void MediaImport::finishProjects()
{
    if (projects_.finish && !projects_.finish(stop_))
        writeError_ = true;
}

/// Ends an import that began: waits until the copies are on disk, then sends the last report.
bool MediaImport::finish(const Counts &counts)
{
    finishProjects();
    const QString copied = summary(counts.videosCopied, counts.videos, counts.photosCopied, counts.photos);
    QStringList gone;
    const Flushed flushed = flush_.finish(written_, stop_, &gone);
    for (const QString &path : qAsConst(gone))
        qWarning().noquote() << QStringLiteral("Card %1: moved or deleted during the import: %2")
                                    .arg(QString::number(request_.card), path);
    for (auto one = failures_.cbegin(); one != failures_.cend(); ++one) {
        if (one.value() > 1)
            qWarning().noquote() << QStringLiteral("Card %1: %2 recordings could not be copied: %3")
                                        .arg(QString::number(request_.card), QString::number(one.value()),
                                             one.key());
    }
    if (!stop_.isRaised())
        sendDeferred();
    if (stop_.isRaised() || flushed == Flushed::Failed || writeError_) {
        const QString reason = stop_.isRaised()
                                   ? QStringLiteral("Stopped after ")
                                   : QStringLiteral("The destination reports a write error after ");
        qWarning().noquote() << QStringLiteral("Card %1: ").arg(request_.card) + reason + copied;
        report_({0, 1, 1, QStringLiteral("Error: ") + reason + copied});
        return !stop_.isRaised();
    }
    qInfo().noquote() << QStringLiteral("Card %1: copied ").arg(request_.card) + copied;
    QStringList text;
    if (!wholeCardSeen_)
        text << QStringLiteral("Part of the card could not be read.");
    if (changed_)
        text << QStringLiteral("The card was changed meanwhile.");
    if (flushed == Flushed::AllThatIsThere)
        text << QStringLiteral("Some copies were moved or deleted during the import.");
    if (!text.isEmpty())
        text.prepend(QStringLiteral("Error:"));
    text << QStringLiteral("Copied ") + copied;
    report_({0, 1, 1, text.join(QLatin1Char(' '))});
    return true;
}
