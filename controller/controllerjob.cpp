#include "controller/controllerjob.h"

#include <utility>

ControllerJob::ControllerJob(ControllerRequest request)
    : request_(std::move(request))
{
}

ControllerJob::~ControllerJob() = default;

void ControllerJob::run()
{
    PSEAComms link(request_.stop);
    link.timeouts_ = request_.timeouts;
    QObject::connect(&link, &PSEAComms::newMessage, request_.relay);

    const Progress refused = refusal();
    if (!refused.text.isEmpty())
        report(refused);
    else if (!link.open(request_.port))
        report({0, 1, 1, QStringLiteral("Error: Could not open port %1.").arg(request_.port)});
    else if (!link.beep())
        report(greetingFailure());
    else
        work(link);
    // A job that failed half-way must not look as if it still ran: the view would wait for it for ever.
    if (last_.value < last_.to)
        report({last_.from, last_.to, last_.to, last_.text});
}

Progress ControllerJob::refusal() const
{
    return {};
}

Progress ControllerJob::greetingFailure() const
{
    return {0, 1, 1, QStringLiteral("Error: Could not send init command.")};
}

void ControllerJob::report(const Progress &progress)
{
    last_ = progress;
    request_.report(progress);
}
