#include "stitching/pendingproject.h"

#include "platform/filesync.h"
#include "platform/stopflag.h"

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

bool PendingProject::write(const QByteArray &content)
{
    content_ = content;
    file_.emplace(QFileInfo(path_).absolutePath());
    if (!file_->write(content))
        return false;
    started_ = startSync(file_->file());
    return true;
}

Publish PendingProject::publish(const StopFlag &stop)
{
    if (!started_ || !syncContent(file_->file(), stop))
        return Publish::NotOnDisk;
    const Publish result = file_->publish(path_);
    // Its folder may have been moved away since, and made anew.
    return result == Publish::Failed ? writeNewFile(path_, content_) : result;
}
