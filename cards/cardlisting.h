#pragma once

#include <QString>
#include <QStringList>

class StopFlag;

/// What is on a card.
struct CardListing
{
    QStringList files; ///< absolute paths of all regular files, links to such included, in the system's order
    QStringList
        unreadable; ///< folders that could not be listed to their end, and names that are no valid text
};

/// Lists the folder `root` and the folders below it. Hidden files and folders are left out, and links to
/// folders are not followed. Ends early when `stop` is raised.
[[nodiscard]] CardListing listCard(const QString &root, const StopFlag &stop);
