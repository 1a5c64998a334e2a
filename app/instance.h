#pragma once

#include <QLocalServer>
#include <QLockFile>
#include <QString>

#include <functional>

/// Keeps a user from running the program twice: both would write one log, and the one that is closed first
/// would turn the other's controller off.
class Instance
{
    Q_DISABLE_COPY(Instance)

public:
    enum class Start {
        First, ///< this process is the only one, or can't tell
        Shown, ///< another one runs and has brought its window to the front
        Stuck  ///< another one runs, or still closes, and doesn't answer
    };

    /// Programs with the same `folder`, where the settings are, are one user's.
    explicit Instance(const QString &folder);

    /// Takes the place of the only one. Waits for one that is starting or closing, for at most `patienceMs`.
    /// To be called before the application object is made; makes one of its own meanwhile.
    [[nodiscard]] Start begin(int patienceMs = defaultPatienceMs);

    [[nodiscard]] const QString &lockPath() const { return lockPath_; }

    /// From now on `show` is called when the program is started again. Needs the event loop.
    void answer(const std::function<void()> &show);

    /// From now on a start waits until this process has ended.
    void close();

private:
    static constexpr int defaultPatienceMs = 20000;
    [[nodiscard]] bool showOther() const;

    QString lockPath_;
    QLockFile lock_;
    QString serverName_;
    QLocalServer server_;
};
