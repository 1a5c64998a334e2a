#pragma once

#include "platform/newfile.h"

#include <QByteArray>
#include <QString>

#include <optional>

class StopFlag;

/// A project that is written but has no name yet, so that many can be on their way to the disk at once.
///
/// It claims its path: while it lives, no other import of this program writes a project there. Without a
/// publish() that succeeds nothing of it stays.
class PendingProject
{
    Q_DISABLE_COPY(PendingProject)

public:
    explicit PendingProject(const QString &path);
    ~PendingProject();

    /// False if another import writes to the path at this moment.
    [[nodiscard]] bool isClaimed() const { return claimed_; }
    [[nodiscard]] const QString &path() const { return path_; }

    /// Writes the content and has the disk begin with it. False if there is nothing to publish: the file
    /// could not be written.
    [[nodiscard]] bool write(const QByteArray &content);
    /// Waits until the content is on disk, or `stop` is raised, and gives the project its name, unless that
    /// is taken.
    [[nodiscard]] Publish publish(const StopFlag &stop);

private:
    QString path_;
    bool claimed_ = false;
    QByteArray content_;
    std::optional<NewFile> file_;
    bool started_ = false; ///< the disk took what it was given so far
};
