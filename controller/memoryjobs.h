#pragma once

#include "controller/controllerjob.h"

/// Erases the controller's data log.
class EraseMemory : public ControllerJob
{
public:
    using ControllerJob::ControllerJob;

protected:
    void work(PSEAComms &link) override;
    [[nodiscard]] bool endsEarly() const override;
};

/// Switches the controller off.
class TurnOff : public ControllerJob
{
public:
    using ControllerJob::ControllerJob;

protected:
    void work(PSEAComms &link) override;
};
