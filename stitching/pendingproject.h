#pragma once

#include "platform/newfile.h"

#include <QByteArray>
#include <QString>

#include <optional>

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

    /// Writes the content and has the disk begin with it. What fails is told by publish().
    void write(const QByteArray &content);
    /// Waits until the content is on disk and gives the project its name, unless that is taken.
    [[nodiscard]] Publish publish();

private:
    QString path_;
    bool claimed_ = false;
    std::optional<NewFile> file_;
    Publish failure_ = Publish::Failed;
    bool written_ = false;
};
