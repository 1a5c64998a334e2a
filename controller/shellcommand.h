#pragma once

#include <QObject>
#include <QPointer>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <cstdio>

/// Runs an external command through the system's shell and tells what it prints.
class ShellCommand : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY(ShellCommand)

public:
    explicit ShellCommand(QObject *parent = nullptr);
    ~ShellCommand() override;

    /// Runs `program` with `arguments`, joined by blanks and neither quoted nor escaped, to its end on the
    /// calling thread. Emits newMessage() with all that was printed so far after every piece. Always returns
    /// false: the command has ended.
    bool run(QString program, QStringList arguments);

    bool running = false;
    /// Set by nothing: how the command ended is not known to it.
    bool success = false;
    /// For the slots below; run() makes none.
    QPointer<QProcess> process;

signals:
    void newMessage(const QString &message);

public slots:
    void onStdoutAvailable() const;
    void onStderrAvailable() const;
    void onError(QProcess::ProcessError error);
    void onFinished(int exitCode, QProcess::ExitStatus exitStatus);
    void onStateChanged(QProcess::ProcessState state);

private:
    void readOutput(std::FILE *pipe);
};
