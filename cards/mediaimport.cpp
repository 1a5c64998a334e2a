#include "cards/mediaimport.h"

#include "cards/drives.h"
#include "cards/filecopy.h"

#include <QDebug>
#include <QFileInfo>

#include <exception>
#include <utility>

namespace {

const QString videoExtension = QStringLiteral(".MOV");
const QString rawExtension = QStringLiteral(".DNG");
const QString jpegExtension = QStringLiteral(".JPG");

/// What replaces a file's extension in its names. The placeholders are filled one after another, so a
/// project name with a percent sign and a digit takes part in the later ones.
struct Patterns
{
    QString extension;
    QString suffix;    ///< of the copy
    QString clashCopy; ///< of the copy when the name is taken, "%1" stands for the number
    QString clashTake; ///< of the take when the name is taken, "%1" stands for the number
};

Patterns videoPatterns(int card, const QString &projectName)
{
    return {videoExtension,
            projectName.isEmpty() ? QStringLiteral("_cam%1.MOV").arg(card)
                                  : QStringLiteral("_%1_cam%2.MOV").arg(projectName).arg(card),
            QStringLiteral("-%1_cam") + QString::number(card) + videoExtension, QStringLiteral("-%1.MOV")};
}

Patterns photoPatterns(int card, const QString &projectName, const QString &extension)
{
    return {extension,
            projectName.isEmpty() ? QStringLiteral("_cam%1%2").arg(card).arg(extension)
                                  : QStringLiteral("_%1_cam%2%3").arg(projectName).arg(card).arg(extension),
            QStringLiteral("-%1_cam") + QString::number(card) + extension, QStringLiteral("-%1") + extension};
}

QString summary(int videosCopied, int videos, int photosCopied, int photos)
{
    return QStringLiteral("%1/%2 videos and %3/%4 photos.")
        .arg(videosCopied)
        .arg(videos)
        .arg(photosCopied)
        .arg(photos);
}

void createFolderOf(const QString &path)
{
    const QString folder = QFileInfo(path).absolutePath();
    if (!QFileInfo::exists(folder))
        QDir().mkpath(folder);
}

} // namespace

/// The names of one file in the destination: the path that it is copied to and the take that it belongs to.
class MediaImport::TakeNames
{
public:
    TakeNames(QString targetPath, Patterns patterns)
        : targetPath_(std::move(targetPath))
        , patterns_(std::move(patterns))
        , takePath_(targetPath_)
        , copyPath_(with(patterns_.suffix))
    {
    }

    [[nodiscard]] const QString &targetPath() const { return targetPath_; }
    [[nodiscard]] const QString &copyPath() const { return copyPath_; }
    [[nodiscard]] const QString &takePath() const { return takePath_; }

    /// Goes on to the next number because the copy's name is taken.
    void advance()
    {
        ++number_;
        copyPath_ = with(patterns_.clashCopy.arg(number_));
        takePath_ = with(patterns_.clashTake.arg(number_));
    }

private:
    [[nodiscard]] QString with(const QString &suffix) const
    {
        return QString(targetPath_).replace(patterns_.extension, suffix);
    }

    QString targetPath_;
    Patterns patterns_;
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
        copyListed(files.at(i), i + 1, files.size(), &counts);
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
    const CardListing listing = listCard(request_.sourceDir, stop_);
    for (const QString &path : listing.unreadable)
        qWarning().noquote() << QStringLiteral("Card %1: can't read %2.").arg(request_.card).arg(path);
    wholeCardSeen_ = listing.unreadable.isEmpty();
    return listing.files;
}

void MediaImport::copyListed(const CardFile &file, int position, int totalFiles, Counts *counts)
{
    const QString &path = file.path;
    releaseHeld();
    report_({0, totalFiles + 1, position, QStringLiteral("Copying ") + path});
    holding_ = position >= totalFiles - 1;
    const QDir source(request_.sourceDir);
    const QDir target(request_.targetDir);
    int copied = 0;
    if (path.endsWith(videoExtension)) {
        copied = copyVideoFile(path, position + 1, totalFiles, source, target);
        ++counts->videos;
        counts->videosCopied += copied;
    } else if (path.endsWith(rawExtension) || path.endsWith(jpegExtension)) {
        copied = copyPhotoFile(path, position + 1, totalFiles, source, target);
        ++counts->photos;
        counts->photosCopied += copied;
    }
    // Cameras number alike: another card in the reader has recordings of the same names.
    if (copied > 0 && !file.isUnchanged()) {
        changed_ = true;
        qWarning().noquote()
            << QStringLiteral("Card %1: changed since the card was listed: ").arg(request_.card) + path;
    }
}

int MediaImport::copyVideoFile(const QString &sourcePath, int fileIndex, int totalFiles,
                               const QDir &sourceDirectory, const QDir &targetDirectory)
{
    QString targetPath = targetDirectory.absoluteFilePath(sourceDirectory.relativeFilePath(sourcePath));
    targetPath.replace(QStringLiteral(".mov"), videoExtension);
    TakeNames names(targetPath, videoPatterns(request_.card, request_.projectName));
    int copied = copyTake(sourcePath, &names);
    if (copied > 0)
        copied = checkSizes(sourcePath, names.copyPath(), fileIndex, totalFiles);
    if (!request_.templatePath.isEmpty() && (copied > 0 || !stop_.isRaised())) {
        placePicture(names.copyPath());
        writeProject(projects_.writeVideoProject, names.takePath());
    }
    return copied;
}

int MediaImport::copyPhotoFile(const QString &sourcePath, int fileIndex, int totalFiles,
                               const QDir &sourceDirectory, const QDir &targetDirectory)
{
    const QString extension = sourcePath.endsWith(rawExtension) ? rawExtension : jpegExtension;
    TakeNames names(targetDirectory.absoluteFilePath(sourceDirectory.relativeFilePath(sourcePath)),
                    photoPatterns(request_.card, request_.projectName, extension));
    int copied = copyTake(sourcePath, &names);
    if (copied > 0)
        copied = checkSizes(sourcePath, names.copyPath(), fileIndex, totalFiles);
    if (!request_.templatePath.isEmpty() && (copied > 0 || !stop_.isRaised()))
        writeProject(projects_.writePhotoProject, names.takePath());
    return copied;
}

/// Copies the file under the first of its names that is free; 1 when it stands there.
int MediaImport::copyTake(const QString &sourcePath, TakeNames *names)
{
    createFolderOf(names->targetPath());
    while (QFileInfo::exists(names->copyPath()))
        names->advance();
    // An extension inside a folder's name is rewritten too, which gives the copy a folder of its own.
    createFolderOf(names->copyPath());

    const QString folder = QFileInfo(names->copyPath()).absolutePath();
    flush_.watch(folder);

    StagedCopy copy(sourcePath, folder, stop_);
    Publish result = copy.publish(names->copyPath());
    while (result == Publish::Exists) {
        // Someone else took the name while the content was copied.
        names->advance();
        createFolderOf(names->copyPath());
        result = copy.publish(names->copyPath());
    }
    if (result != Publish::Done)
        return 0;
    written_.append(names->copyPath());
    return 1;
}

int MediaImport::checkSizes(const QString &sourcePath, const QString &copyPath, int fileIndex, int totalFiles)
{
    if (QFileInfo(sourcePath).size() == QFileInfo(copyPath).size()) {
        qInfo().noquote() << QStringLiteral("Card %1: copied file %2.").arg(request_.card).arg(sourcePath);
        tell({0, totalFiles, fileIndex, QStringLiteral("Copied %1 correctly.").arg(sourcePath)});
        return 1;
    }
    // Both placeholders take the card's number; the path then finds none.
    qWarning().noquote()
        << QStringLiteral("Card %1: File size for %1 doesn't match after copy.").arg(request_.card);
    tell({0, totalFiles, fileIndex,
          QStringLiteral("Warning: File size for %1 doesn't match after copy.").arg(sourcePath)});
    return 0;
}

/// Puts a preview beside the video, if the template or the templates folder has one.
void MediaImport::placePicture(const QString &videoPath)
{
    QString picture = QString(request_.templatePath).replace(QStringLiteral(".kava"), QStringLiteral(".jpg"));
    if (!QFileInfo::exists(picture))
        picture = projects_.fallbackPicture();
    const QString target = QString(videoPath).replace(videoExtension, QStringLiteral(".MOV.jpg"));
    if (copyNewFile(picture, target, stop_) == Publish::Done)
        written_.append(target);
}

void MediaImport::writeProject(const ImportProjects::Writer &writer, const QString &takePath) const
{
    writer(request_.card, request_.templatePath, takePath, request_.projectName);
}

void MediaImport::tell(const Progress &progress)
{
    if (holding_)
        held_.append(progress);
    else
        report_(progress);
}

void MediaImport::releaseHeld()
{
    for (const Progress &progress : qAsConst(held_))
        report_(progress);
    held_.clear();
}

/// The one end of an import that began: the summary is given only for what is on disk.
bool MediaImport::finish(const Counts &counts)
{
    const QString copied = summary(counts.videosCopied, counts.videos, counts.photosCopied, counts.photos);
    QStringList gone;
    const Flushed flushed = flush_.finish(written_, stop_, &gone);
    for (const QString &path : qAsConst(gone))
        qWarning().noquote() << QStringLiteral("Card %1: ").arg(request_.card) +
                                    QStringLiteral("no longer where it was put: ") + path;
    if (stop_.isRaised() || flushed == Flushed::Failed) {
        const QString reason = stop_.isRaised()
                                   ? QStringLiteral("Stopped after ")
                                   : QStringLiteral("The destination reports a write error after ");
        qWarning().noquote() << QStringLiteral("Card %1: ").arg(request_.card) + reason + copied;
        report_({0, 1, 1, QStringLiteral("Error: ") + reason + copied});
        return !stop_.isRaised();
    }
    releaseHeld();
    qInfo().noquote() << QStringLiteral("Card %1: copied ").arg(request_.card) + copied;
    QStringList text;
    if (!wholeCardSeen_)
        text << QStringLiteral("Part of the card could not be read.");
    if (changed_)
        text << QStringLiteral("The card was changed meanwhile.");
    if (flushed == Flushed::AllThatIsThere)
        text << QStringLiteral("Not every copy is where it was put.");
    if (!text.isEmpty())
        text.prepend(QStringLiteral("Error:"));
    text << QStringLiteral("Copied ") + copied;
    report_({0, 1, 1, text.join(QLatin1Char(' '))});
    return true;
}
