#pragma once

#include <QtGlobal>

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

/// While it lives, the calling thread obeys the permissions of files, also as root.
class PlainUser
{
    Q_DISABLE_COPY(PlainUser)

public:
    PlainUser()
    {
        ::syscall(SYS_capget, &header_, before_);
        __user_cap_data_struct without[2] = {before_[0], before_[1]};
        without[0].effective &= ~((1U << CAP_DAC_OVERRIDE) | (1U << CAP_DAC_READ_SEARCH));
        ::syscall(SYS_capset, &header_, without);
    }
    ~PlainUser() { ::syscall(SYS_capset, &header_, before_); }

private:
    __user_cap_header_struct header_ = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct before_[2] = {};
};
