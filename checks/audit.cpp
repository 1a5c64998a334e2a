#include "checks/audit.h"

#include "checks/contenthash.h"
#include "checks/filename.h"
#include "checks/filetree.h"
#include "platform/stopflag.h"

#include <QDir>
#include <QFileInfo>
#include <QSet>

#include <algorithm>

namespace fs = std::filesystem;

Audit::Audit(const QString &folder, const StopFlag &stop)
    : folder_(QDir(folder).absolutePath())
    , stop_(stop)
    , history_(folder_)
{
}

/// Reads a sealed file that is there and compares it with its seal.
void Audit::check(const QString &path, AuditResult *result)
{
    const MhlHistory::Sealed sealed = history_.files().value(path);
    if (sealed.hash.isEmpty()) {
        result->notChecked.append({path, QStringLiteral("the seal has no XXH128 of it")});
        return;
    }
    const QString file = folder_ + QLatin1Char('/') + path;
    ContentHash hash;
    qint64 size = 0;
    const DiskRead read = reader_.read(pathOf(file), stop_, [&](const char *data, std::size_t count) {
        hash.add(data, count);
        size += static_cast<qint64>(count);
        bytesRead_ += static_cast<qint64>(count);
    });
    const bool whole = read.end == DiskRead::End::FromDisk || read.end == DiskRead::End::Unproven;
    const QByteArray content = hash.result();
    const bool same = content == sealed.hash;
    if (whole && !same) {
        result->altered.append(path);
    } else if (read.end == DiskRead::End::FromDisk) {
        ++result->unchanged;
    } else {
        const bool changed = read.end == DiskRead::End::Changed;
        result->notChecked.append(
            {path, changed ? QStringLiteral("it changed while it was read") : read.reason});
        return;
    }
    records_.append({path,
                     size,
                     QFileInfo(file).lastModified(),
                     content,
                     same ? MhlAction::Verified : MhlAction::Failed,
                     {}});
}

AuditResult Audit::run()
{
    AuditResult result;
    begun_ = QDateTime::currentDateTimeUtc();
    const std::optional<FileId> root = fileIdOf(pathOf(folder_));
    if (!root || !QFileInfo(folder_).isDir()) {
        result.problem = folder_ + QStringLiteral(" is no folder.");
        return result;
    }
    if (!history_.exists()) {
        result.problem = folder_ + (history_.unfinished().isEmpty()
                                        ? QStringLiteral(" has no seal.")
                                        : QStringLiteral(" has no seal: its first one was never finished."));
        return result;
    }

    const FileTree tree = listTree(pathOf(folder_), stop_);
    QSet<QString> present;
    qint64 total = 0;
    for (const TreeFile &file : tree.files) {
        // A name that is no UTF-8 can be in no seal.
        const QString path = shown(fs::u8path(file.path));
        if (history_.files().contains(path)) {
            present.insert(path);
            total += file.size;
        } else if (!history_.ignores(path) && history_.problems().isEmpty()) {
            result.added.append(path);
        }
    }
    for (const TreeProblem &problem : tree.unreadable)
        result.notChecked.append({shown(fs::u8path(problem.path)), problem.reason});
    bytesTotal_ = total;

    QStringList sealed = history_.files().keys();
    sealed.sort();
    result.added.sort();
    result.files = sealed.size();
    for (const QString &path : qAsConst(sealed)) {
        if (stop_.isRaised())
            return result;
        // A link, or what stands in a folder that can't be listed, is there, but not to be read.
        if (present.contains(path) || QFileInfo(folder_ + QLatin1Char('/') + path).isSymLink() ||
            !tree.unreadable.empty())
            check(path, &result);
        else
            result.missing.append(path);
    }
    // Everything is missing when the disk was pulled.
    const std::optional<FileId> now = fileIdOf(pathOf(folder_));
    if (!now || !(*now == *root))
        result.problem = folder_ + QStringLiteral(" was removed while it was audited.");
    return result;
}

QString Audit::seal()
{
    if (records_.isEmpty())
        return QStringLiteral("no file could be checked");
    return history_.append(records_, QStringLiteral("in-place"), begun_, stop_);
}
