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
};

/// A job on the controller: opens the port, greets the controller so that it sounds, works, closes the port.
/// Every path ends with one report at its maximum; a failure told below it is repeated there.
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
    /// Whether a raised stop flag ends the job once it has begun; before, it ends every job.
    [[nodiscard]] virtual bool endsEarly() const;
    /// What to report when the request can't be worked on at all; an empty text lets the job begin.
    [[nodiscard]] virtual Progress refusal() const;
    /// What to report when the greeting can't be sent.
    [[nodiscard]] virtual Progress greetingFailure() const;

    void report(const Progress &progress);

private:
    void exchange();

    ControllerRequest request_;
    Progress last_;
};
