#pragma once

#include "controller/controllerjob.h"

/// Erases the controller's data log.
class EraseMemory : public ControllerJob
{
public:
    /// `serial`: the serial number of the device that the operator chose. A device with another one is not
    /// erased; an empty text allows any device.
    explicit EraseMemory(ControllerRequest request, QString serial = {});

protected:
    void work(PSEAComms &link) override;

private:
    QString serial_;
};
