#pragma once

#include <QFile>
#include <QString>

/// What came of giving a file its final name.
enum class Publish {
    Done,
    Exists,    ///< the name was taken; nothing was overwritten
    Failed,    ///< the file could not be written whole, or the file system refused the name
    NotOnDisk, ///< the disk could not take the content
};

/// A file that appears under its final name whole or not at all.
///
/// It is written under a hidden temporary name in the folder where it will stand. publish() gives it its
/// name and never replaces a file that stands there, also when another thread takes the name at the same
/// moment, or another process where the volume has exclusive renames or hard links. A file that is not
/// published is removed on destruction.
class NewFile
{
    Q_DISABLE_COPY(NewFile)

public:
    /// Creates the temporary file in `folder`, which must exist; see isOpen() and error().
    explicit NewFile(const QString &folder);
    ~NewFile();

    [[nodiscard]] bool isOpen() const { return file_.isOpen(); }
    /// The open file, for writing. Owned by this object.
    [[nodiscard]] QFile &file() { return file_; }
    /// What could not be done, with the system's reason; empty while all is well, also after Publish::Exists.
    [[nodiscard]] const QString &error() const { return error_; }

    /// Writes all of `content` to the file, and hands it to the system. False if it could not be.
    [[nodiscard]] bool write(const QByteArray &content);

    /// Closes the file and renames it to `path`, which lies in the same folder. After Publish::Exists it may
    /// be called again with another name.
    [[nodiscard]] Publish publish(const QString &path);

private:
    QFile file_;
    QString error_;
    bool published_ = false;
};

/// Writes `content` to a new file `path`; its folder must exist. The content is on disk before it has its
/// name.
[[nodiscard]] Publish writeNewFile(const QString &path, const QByteArray &content);

/// Removes the temporary files in `folder` that a crash or a power cut left there more than a day ago, with a
/// line in the log.
void removeLeftovers(const QString &folder);

/// Renames the file `from` to `to` in one step unless `to` exists. False with errno: EEXIST,
/// or one for which isUnsupported() holds where the volume knows no such renaming. One implementation per
/// platform.
[[nodiscard]] bool renameExclusively(const QString &from, const QString &to);
