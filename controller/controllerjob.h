#pragma once

#include "app/job.h"
#include "controller/pseacomms.h"

#include <QString>

#include <functional>

/// What a job on the controller is given.
struct ControllerRequest
{
    QString port;                               ///< name of the serial port
    ProgressReport report;                      ///< takes the progress, on the job's thread
    std::function<void(const QString &)> relay; ///< takes what the link says meanwhile
    const StopFlag *stop = nullptr;             ///< ends every wait; null for a job that may not be ended
    PSEAComms::Timeouts timeouts{};

    // The job itself sets these.
    bool endsEarly = true; ///< also once it has begun, when the stop flag is raised
    QString refusal{};     ///< why the request can't be worked on at all; empty if it can
    Progress greetingFailure{0, 1, 1, QStringLiteral("Error: Could not send init command.")};
};

/// A job on the controller: opens the port, greets the controller so that it sounds, works, closes the port.
/// Every path ends with one report at its maximum; a failure reported below it is reported again at it.
class ControllerJob
{
    Q_DISABLE_COPY(ControllerJob)

public:
    explicit ControllerJob(ControllerRequest request);
    virtual ~ControllerJob();

    /// Runs the whole job on the calling thread. Lets no exception out.
    void run();

protected:
    /// The work on the open link, its final report included.
    virtual void work(PSEAComms &link) = 0;

    void report(const Progress &progress);
    void step(const QString &text) { report({0, 2, 1, text}); } ///< the job goes on
    void done(const QString &text) { report({0, 2, 2, text}); } ///< the job has ended, well or not

    ControllerRequest request_;

private:
    void exchange();

    Progress last_;
};
