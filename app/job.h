#pragma once

#include "platform/stopflag.h"

#include <QString>

#include <functional>

/// What a long job tells the view: a bar from `from` to `to` that stands at `value`, and a line of text.
/// The job has ended once `value` is at least `to`.
struct Progress
{
    int from = 0;
    int to = 0;
    int value = 0;
    QString text;
};

/// Takes a job's reports; called on the job's thread.
using ProgressReport = std::function<void(const Progress &)>;
