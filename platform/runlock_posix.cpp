#include "platform/descriptor.h"
#include "platform/runlock.h"

#include <sys/file.h>

class RunLock::Private
{
public:
    QString path;
    Descriptor file;
};

RunLock::RunLock(const QString &path)
    : d_(std::make_unique<Private>())
{
    d_->path = path;
}

RunLock::~RunLock() = default;

RunLock::Answer RunLock::take()
{
    constexpr mode_t ownerOnly = 0600;
    if (!d_->file.isOpen())
        d_->file = Descriptor(d_->path, O_RDWR | O_CREAT, ownerOnly);
    if (!d_->file.isOpen())
        return Answer::CannotTell;
    if (::flock(d_->file.get(), LOCK_EX | LOCK_NB) == 0)
        return Answer::Taken;
    return errno == EWOULDBLOCK ? Answer::HeldByAnother : Answer::CannotTell;
}
