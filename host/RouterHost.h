// What the automation objects need of the module that they belong to.
#pragma once

#include "firmware/FirmwareTransport.h"
#include "host/PortTable.h"
#include "ports/PortSettings.h"

/// Main thread only.
class IRouterHost
{
public:
    virtual ~IRouterHost() = default;

    virtual PortTable& Ports() = 0;
    /// Null when it could not be created.
    virtual CCommunicationDriver* Transport() = 0;
    /// What the registry says about all ports.
    virtual PortOptions OptionsOfPorts() const = 0;
    virtual IDeviceNames& Names() = 0;

    /// One for each thing that keeps the process alive. The last release ends it.
    virtual void AddServerLock() = 0;
    virtual void ReleaseServerLock() = 0;
};
