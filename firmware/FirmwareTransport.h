// What the firmware downloader needs of the transport that it is a part of, and of the host.
#pragma once

#include <cstdint>
#include <span>
#include <string>

class IFirmwareTransport
{
public:
    virtual ~IFirmwareTransport() = default;

    /// Queues a payload for the address (0, 0). Any thread; copies it. Throws when memory runs out: a message that
    /// is lost in silence would leave the dialogue, and with it all ports, waiting for ever.
    virtual void SubmitFirmware(std::span<const std::uint8_t> message) = 0;

    /// Drops every packet that waits to be written, and destroys it. Any thread.
    virtual void ClearCommandQueue() = 0;
};

/// The names of the trace channels.
class IDeviceNames
{
public:
    /// Names a device's trace channel if it has no name yet. Main thread. Throws std::bad_alloc.
    virtual void RegisterDeviceName(const std::wstring& name, std::int32_t device) = 0;

protected:
    ~IDeviceNames() = default;
};
