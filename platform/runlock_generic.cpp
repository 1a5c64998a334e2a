#include "platform/runlock.h"

class RunLock::Private
{
};

RunLock::RunLock(const QString & /*path*/) {}

RunLock::~RunLock() = default;

RunLock::Answer RunLock::take()
{
    return Answer::CannotTell;
}
