#pragma once

#include "app/job.h"
#include "cards/cardlisting.h"
#include "cards/filecopy.h"
#include "platform/volumeflush.h"

#include <QDir>
#include <QMap>
#include <QSet>
#include <QStringList>
#include <QVector>

#include <deque>
#include <functional>
#include <memory>

/// What one card's import works on. `card` is 1 to 3 and becomes the camera number in file names;
/// `templatePath` and `projectName` may be empty.
struct ImportRequest
{
    int card = 0;
    QString sourceDir;
    QString targetDir;
    QString templatePath;
    QString projectName;
};

/// What the import needs of stitching. The project writers get the card, the template, the take's path in
/// the destination and the project name; they may be called from several imports at once. They return false
/// if the disk could not take what they wrote.
struct ImportProjects
{
    using Writer = std::function<bool(int card, const QString &templatePath, const QString &takePath,
                                      const QString &projectName)>;
    std::function<QString()>
        fallbackPicture; ///< preview for templates without a picture of their own; may be empty
    Writer writeVideoProject;
    Writer writePhotoProject;
    /// Waits for what is still to be written of them; gives up on it when the flag is raised. May be empty.
    std::function<bool(const StopFlag &)> finish;
};

/// Imports one card: copies every video and photo into the destination under its take-and-camera name,
/// keeps the card's folders, and has a stitching project written for every take.
///
/// Runs on one thread from start to end. Never overwrites or deletes a file, nor reports a copy that is not
/// whole.
class MediaImport
{
    Q_DISABLE_COPY(MediaImport)

public:
    /// `report` takes the progress; `stop` is tested before every file and in every copy. Both must outlive
    /// the import.
    MediaImport(ImportRequest request, ImportProjects projects, ProgressReport report, const StopFlag &stop);

    /// Whether a file of that name is copied.
    [[nodiscard]] static bool isRecording(const QString &path) { return kindOf(path) != nullptr; }

    /// Imports the whole card. True when it went through to its end, however many files could not be copied
    /// or brought to the disk; false when the request is invalid or the flag was raised, and after an
    /// exception, which ends here.
    bool run();

    /// Copies one video below `sourceDirectory`; `fileIndex` of `totalFiles` is what the report says. Returns
    /// 1 when the copy was written and has the source's size, else 0.
    int copyVideoFile(const QString &sourcePath, int fileIndex, int totalFiles, const QDir &sourceDirectory,
                      const QDir &targetDirectory);
    /// The same for one photo, ".DNG" or ".JPG".
    int copyPhotoFile(const QString &sourcePath, int fileIndex, int totalFiles, const QDir &sourceDirectory,
                      const QDir &targetDirectory);

private:
    struct Kind;
    class TakeNames;
    /// A photo that was copied before its turn.
    struct Ahead
    {
        CardFile file;
        QString folder; ///< in which the copy lies
        std::unique_ptr<StagedCopy> copy;
    };
    struct Counts
    {
        int videos = 0;
        int videosCopied = 0;
        int photos = 0;
        int photosCopied = 0;
    };

    [[nodiscard]] static const QVector<Kind> &kinds();
    [[nodiscard]] static const Kind *kindOf(const QString &path);
    bool importCard();
    [[nodiscard]] QString invalidReason() const;
    [[nodiscard]] QVector<CardFile> listFiles();
    void copyListed(const QVector<CardFile> &files, int index, Counts *counts);
    QString copyRecording(const Kind &kind, const QString &sourcePath, int fileIndex, int totalFiles,
                          const QDir &sourceDirectory, const QDir &targetDirectory);
    [[nodiscard]] TakeNames namesOf(const QString &sourcePath, const Kind &kind, const QDir &sourceDirectory,
                                    const QDir &targetDirectory) const;
    void stageAhead(const QVector<CardFile> &files, int current);
    [[nodiscard]] std::unique_ptr<StagedCopy> takeAhead(const QString &sourcePath, const TakeNames &names);
    [[nodiscard]] std::unique_ptr<StagedCopy> stage(const QString &sourcePath, const TakeNames &names,
                                                    QString *noFolder);
    [[nodiscard]] Publish publish(StagedCopy *copy, TakeNames *names);
    bool copyTake(const QString &sourcePath, TakeNames *names);
    void logFailure(const QString &sourcePath, const QString &copyPath, const QString &cause);
    [[nodiscard]] bool checkSizes(const QString &sourcePath, const QString &copyPath, int fileIndex,
                                  int totalFiles);
    [[nodiscard]] bool holdsWhatWasListed(const CardFile &file, const QString &copyPath);
    void placePicture(const QString &videoPath, const QString &extension);
    void send(const Progress &progress);
    void sendDeferred();
    void finishProjects();
    bool finish(const Counts &counts);

    ImportRequest request_;
    ImportProjects projects_;
    ProgressReport report_;
    const StopFlag &stop_;
    VolumeFlush flush_;
    std::function<bool()> anotherCard_; ///< whether another card may be in the reader
    std::deque<Ahead> ahead_;           ///< in the card's order
    int nextAhead_ = 0;                 ///< index in the card's list
    QSet<QString> folders_;             ///< that this import has written to
    QStringList written_;
    bool writeError_ = false;     ///< the disk could not take a preview or a project
    QMap<QString, int> failures_; ///< by cause, the number of recordings that could not be copied
    bool wholeCardSeen_ = true;
    bool changed_ = false; ///< a recording was no longer the one that was listed
    /// The reports of the last two files have a value at or past its maximum, which the view takes for the
    /// end of the import. They are deferred until the next file begins, or everything is on disk.
    bool deferring_ = false;
    QVector<Progress> deferredReports_;
};
