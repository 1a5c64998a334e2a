#include "stitching/pendingproject.h"

#include "platform/filesync.h"

#include <QFileInfo>

#include <mutex>
#include <set>

namespace {

struct Claims
{
    std::mutex mutex;
    std::set<QString> paths;
};

Claims &claims()
{
    static Claims all;
    return all;
}

} // namespace

PendingProject::PendingProject(const QString &path)
    : path_(path)
{
    const std::lock_guard<std::mutex> lock(claims().mutex);
    claimed_ = claims().paths.insert(path_).second;
}

PendingProject::~PendingProject()
{
    const std::lock_guard<std::mutex> lock(claims().mutex);
    if (claimed_)
        claims().paths.erase(path_);
}

void PendingProject::write(const QByteArray &content)
{
    file_.emplace(QFileInfo(path_).absolutePath());
    if (!file_->isOpen() || file_->file().write(content) != content.size() || !file_->file().flush())
        return;
    written_ = startSync(file_->file());
    failure_ = Publish::NotOnDisk;
}

Publish PendingProject::publish()
{
    if (!written_)
        return failure_;
    return syncContent(file_->file()) ? file_->publish(path_) : Publish::NotOnDisk;
}
