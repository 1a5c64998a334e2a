#pragma once

#include "controller/controllerjob.h"

/// Erases the controller's data log.
class EraseMemory : public ControllerJob
{
public:
    /// `serial`: the serial number with which the operator was shown the device at that port, where another
    /// one is left alone; empty if none was shown.
    explicit EraseMemory(ControllerRequest request, QString serial = {});

protected:
    void work(PSEAComms &link) override;

private:
    QString serial_;
};
