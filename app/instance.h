#pragma once

#include "platform/runlock.h"

#include <QLocalServer>
#include <QString>

#include <functional>

/// Keeps a user from running the program twice: both would write one log, and the one that is closed first
/// would turn the other's controller off. In doubt the program starts: neither what a crash leaves behind nor
/// one that hangs may keep an operator from it.
class Instance
{
    Q_DISABLE_COPY(Instance)

public:
    /// Programs with the same `folder`, where the settings are, are one user's.
    explicit Instance(const QString &folder);

    /// Whether the program runs already and was asked to show its window. Waits for one that is still
    /// starting or closing: that one still writes its log and turns the controller off. To be called before
    /// the application object is made; makes one of its own if there is somebody to ask.
    [[nodiscard]] bool askOther();

    /// From now on `show` is called when the program is started again. Needs the event loop.
    void answer(const std::function<void()> &show);

    /// Ends that. A second start waits from now on until this process has ended.
    void beginClosing();

private:
    QString serverName_;
    RunLock running_;
    QLocalServer server_;
};
