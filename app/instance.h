#pragma once

#include <QLocalServer>
#include <QString>

#include <functional>

/// Keeps a user from running the program twice: both would write one log, and the one that is closed first
/// would turn the other's controller off. In doubt the program starts: nothing that a crash leaves behind may
/// keep an operator from it.
class Instance
{
    Q_DISABLE_COPY(Instance)

public:
    /// Programs with the same `folder`, where the settings are, are one user's.
    explicit Instance(const QString &folder);

    /// Whether the program runs already and was asked to show its window. To be called before the application
    /// object is made; makes one of its own if there is somebody to ask.
    [[nodiscard]] bool askOther() const;

    /// From now on `show` is called when the program is started again. Needs the event loop.
    void answer(const std::function<void()> &show);

    /// Ends that.
    void close();

private:
    QString serverName_;
    QLocalServer server_;
};
