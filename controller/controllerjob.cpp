#include "controller/controllerjob.h"

#include <QDebug>

#include <exception>
#include <utility>

ControllerJob::ControllerJob(ControllerRequest request)
    : request_(std::move(request))
{
}

ControllerJob::~ControllerJob() = default;

void ControllerJob::run()
{
    try {
        exchange();
    } catch (const std::exception &error) {
        const QString reason = QString::fromLocal8Bit(error.what());
        qWarning().noquote() << "The job failed:" << reason;
        report({0, 1, 1, QStringLiteral("Error: ") + reason});
    }
    // A job that failed half-way must not look as if it still ran: the view would wait for it for ever.
    if (last_.value < last_.to)
        report({last_.from, last_.to, last_.to, last_.text});
}

void ControllerJob::exchange()
{
    // A queued job does nothing once the program is closing.
    if (request_.stop != nullptr && request_.stop->isRaised()) {
        report({0, 1, 1, QStringLiteral("Error: The program is closing.")});
        return;
    }
    PSEAComms link(request_.endsEarly ? request_.stop : nullptr);
    link.timeouts_ = request_.timeouts;
    QObject::connect(&link, &PSEAComms::newMessage, request_.relay);

    if (!request_.refusal.isEmpty()) {
        qInfo().noquote() << "Data:" << request_.refusal;
        report({0, 1, 1, QStringLiteral("Error: ") + request_.refusal});
    } else if (!link.open(request_.port)) {
        report({0, 1, 1, QStringLiteral("Error: Could not open port %1.").arg(request_.port)});
    } else if (!link.beep()) {
        report(request_.greetingFailure);
    } else {
        work(link);
    }
}

void ControllerJob::report(const Progress &progress)
{
    last_ = progress;
    request_.report(progress);
}
