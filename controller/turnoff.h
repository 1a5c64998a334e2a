#pragma once

#include "controller/controllerjob.h"

/// Switches the controller off. What it may still be sending, such as a dump that another job has left, is
/// dropped first: else those lines would be taken for its answers.
class TurnOff : public ControllerJob
{
public:
    using ControllerJob::ControllerJob;

protected:
    void work(PSEAComms &link) override;
};
