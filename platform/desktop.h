#pragma once

#include <QString>

#include <memory>

/// What the program asks of the desktop around it. No call waits for an answer, and a desktop that is
/// missing, slow or refuses costs a line in the log at most. One thread uses it.
class Desktop
{
    Q_DISABLE_COPY(Desktop)

public:
    Desktop();
    /// Ends everything that close() has not.
    ~Desktop();

    /// Keeps the computer awake until allowSleep(), close() or the end of the process, however that comes.
    /// `reason` is what the desktop may tell its user. The lid and the power button are the desktop's own
    /// affair.
    void preventSleep(const QString &reason);
    void allowSleep();

    /// Shows `text` as a notification under the name `program`. Linux alone: elsewhere nothing is shown,
    /// since no part of Qt that the program uses can show one.
    void notify(const QString &program, const QString &text);

    /// Allows sleep and ends every conversation. False if a message bus holds it up: the process must then
    /// leave without destroying anything.
    [[nodiscard]] bool close();

private:
    class Private;
    std::unique_ptr<Private> d_;
};
