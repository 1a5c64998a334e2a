#include "cards/drives.h"

#include "platform/mountpoints.h"

#include <QDebug>
#include <QDir>
#include <QFileInfo>
#include <QJsonObject>
#include <QStandardPaths>

#include <chrono>
#include <functional>
#include <thread>
#include <utility>

namespace {

using namespace std::chrono_literals;

/// How long all volumes together may take before each is asked on its own.
constexpr auto usualTime = 250ms;
constexpr auto patience = 1000ms;

bool hasAnswered(const std::shared_future<QList<QStorageInfo>> &answer)
{
    return answer.wait_for(0ms) == std::future_status::ready;
}

/// Asks on a thread of its own, which may hang in the system for ever; nothing waits for it, not even the
/// program's end.
std::shared_future<QList<QStorageInfo>> ask(std::function<QList<QStorageInfo>()> question)
{
    std::packaged_task<QList<QStorageInfo>()> task(std::move(question));
    auto answer = task.get_future().share();
    std::thread(std::move(task)).detach();
    return answer;
}

QList<QStorageInfo> candidatesAmong(const QList<QStorageInfo> &volumes, Drives::Which which)
{
    const QStorageInfo root = QStorageInfo::root();
    QList<QStorageInfo> candidates;
    for (const QStorageInfo &volume : volumes) {
        if (volume.isValid() && volume.isReady() && volume != root &&
            (which == Drives::Which::ReadOnlyToo || !volume.isReadOnly()))
            candidates.append(volume);
    }
    return candidates;
}

QList<QStorageInfo> candidateAt(const QString &mountPoint, Drives::Which which)
{
    const QStorageInfo volume(mountPoint);
    // QStorageInfo::mountedVolumes() leaves out volumes without a size.
    return volume.bytesTotal() == 0 ? QList<QStorageInfo>() : candidatesAmong({volume}, which);
}

/// Left in the system's order on purpose: the operator finds a card where the system lists it.
QVariantList entriesOf(const QList<QStorageInfo> &volumes)
{
    QVariantList entries;
    for (const QStorageInfo &volume : volumes) {
        QString path = volume.rootPath();
        entries.append(QJsonObject{
            {QStringLiteral("key"), path.remove(QStringLiteral("file://"))},
            {QStringLiteral("value"), volume.displayName()},
        });
    }
    return entries;
}

} // namespace

QVariantList Drives::list()
{
    return entriesOf(volumes());
}

QList<QStorageInfo> Drives::volumes()
{
    const QVector<MountPoint> mounts = mountPoints();
    const Volumes earlierAll = all_;
    if (!all_.valid() || hasAnswered(all_)) {
        all_ = ask([which = which_] { return candidatesAmong(QStorageInfo::mountedVolumes(), which); });
        if (all_.wait_for(mounts.isEmpty() ? patience : usualTime) == std::future_status::ready)
            return all_.get();
    }
    if (mounts.isEmpty()) {
        if (earlierAll.valid() && hasAnswered(earlierAll))
            return earlierAll.get();
        qWarning("A volume does not answer; no card can be listed.");
    }

    const auto deadline = std::chrono::steady_clock::now() + patience;
    QVector<Volumes> answers;
    for (const MountPoint &mount : mounts) {
        const Volumes earlier = unanswered_.value(mount.id);
        // A second question to a volume that hangs would cost one more thread.
        const bool hangs = earlier.valid() && !hasAnswered(earlier);
        answers.append(hangs ? Volumes()
                             : ask([path = mount.path, which = which_] { return candidateAt(path, which); }));
    }
    QList<QStorageInfo> volumes;
    for (int i = 0; i < mounts.size(); ++i) {
        const Volumes &answer = answers.at(i);
        const Volumes earlier = unanswered_.take(mounts.at(i).id);
        if (answer.valid() && answer.wait_until(deadline) == std::future_status::ready) {
            volumes += answer.get();
            continue;
        }
        unanswered_.insert(mounts.at(i).id, answer.valid() ? answer : earlier);
        // A slow volume has answered the question of the last refresh.
        if (earlier.valid() && hasAnswered(earlier)) {
            volumes += earlier.get();
            continue;
        }
        qWarning().noquote() << "A volume does not answer and is left out:" << mounts.at(i).path;
    }
    return volumes;
}

int cardOf(const QString &path, const QString &name)
{
    // The rule of CardState.qml.
    const QString mark = QStringLiteral("360");
    if (!path.contains(mark) && !name.contains(mark))
        return 0;
    for (int card = 1; card <= 3; ++card) {
        const QString digit = QString::number(card);
        if (path.endsWith(digit) || name.endsWith(digit))
            return card;
    }
    return 0;
}

QString moviesLocation()
{
    return QStandardPaths::writableLocation(QStandardPaths::MoviesLocation);
}

bool isSystemRoot(const QString &path)
{
    return path == QLatin1String("/") || QFileInfo(path).canonicalFilePath() == QDir::rootPath();
}
