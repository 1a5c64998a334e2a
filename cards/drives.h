#pragma once

#include <QList>
#include <QMap>
#include <QStorageInfo>
#include <QString>
#include <QVariantList>

#include <future>

/// The mounted volumes that may be a card.
class Drives
{
    Q_DISABLE_COPY(Drives)

public:
    enum class Which { Writable, ReadOnlyToo };
    explicit Drives(Which which = Which::Writable)
        : which_(which)
    {
    }

    /// Those that are valid, ready, writable and not the system's root, as JSON objects {"key": root path,
    /// "value": display name} in the order in which the system reports them.
    [[nodiscard]] QVariantList list();

    /// The same volumes; the read-only ones among them where they are asked for.
    ///
    /// Returns in little more than a second. A volume that doesn't answer in one, such as a network share
    /// that is gone, is left out with a line in the log; it is listed again once it has answered.
    [[nodiscard]] QList<QStorageInfo> volumes();

private:
    using Volumes = std::shared_future<QList<QStorageInfo>>;
    Which which_;
    Volumes all_;                       ///< the latest answer for all volumes at once
    QMap<QString, Volumes> unanswered_; ///< by mount, those that did not answer in time
};

/// The card, 1 to 3, for which the window takes a volume of this path and display name by itself; 0 for none.
/// The last volume that fits a card is taken.
[[nodiscard]] int cardOf(const QString &path, const QString &name);

/// The user's movies folder; empty where the platform has none. Neither created nor checked.
[[nodiscard]] QString moviesLocation();

/// Whether `path` is the system's root, however it is written or linked to.
[[nodiscard]] bool isSystemRoot(const QString &path);
