#pragma once

#include <QString>

#include <memory>

/// Held by one process at a time until that ends, however it ends: the system lets go of it, and nothing is
/// left behind that would keep the next one from it.
class RunLock
{
    Q_DISABLE_COPY(RunLock)

public:
    enum class Answer {
        Taken,
        HeldByAnother,
        CannotTell, ///< no such lock on this system, or none in that folder
    };

    /// `path` is the file to lock, which stays.
    explicit RunLock(const QString &path);
    ~RunLock();

    /// Tries to take it, without waiting.
    [[nodiscard]] Answer take();

private:
    class Private;
    std::unique_ptr<Private> d_;
};
