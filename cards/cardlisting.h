#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

class StopFlag;

/// A file on a card as it was listed.
struct CardFile
{
    QString path;        ///< absolute
    qint64 size = 0;     ///< in bytes; -1 if it can't be told
    qint64 modified = 0; ///< on the clock of the file system

    /// What differs from the listing now.
    enum class Change {
        None,
        Time, ///< the time alone
        Size, ///< or the file is gone
    };

    explicit CardFile(const QString &filePath);
    [[nodiscard]] Change change() const;
};

/// What is on a card.
struct CardListing
{
    QVector<CardFile> files; ///< all regular files, links to such included, in the system's order
    /// Folders that could not be listed to their end, and entries that may be recordings but can't be told:
    /// names that are not valid UTF-8, and entries of an unknown type.
    QStringList unreadable;
};

/// Lists the folder `root` and the folders below it. Hidden files and folders are left out, and links to
/// folders are not followed. Ends early when `stop` is raised.
[[nodiscard]] CardListing listCard(const QString &root, const StopFlag &stop);
