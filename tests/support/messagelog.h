#pragma once

#include <QString>
#include <QStringList>

/// Collects what is logged while it lives, from every thread, as "level: text" lines ("info: Start.").
class MessageLog
{
    Q_DISABLE_COPY(MessageLog)

public:
    MessageLog();
    ~MessageLog();

    [[nodiscard]] static QStringList lines();
    /// The lines of `level` ("debug", "info", "warning", "critical") without it.
    [[nodiscard]] static QStringList lines(const QString &level);
};
