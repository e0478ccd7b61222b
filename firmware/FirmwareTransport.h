// What the firmware downloader needs of the transport that it is a part of.
#pragma once

#include <cstdint>
#include <string>

class IFirmwareTransport
{
public:
    virtual ~IFirmwareTransport() = default;

    /// Queues `length` payload bytes for the address (0, 0). Any thread; copies the data. Throws when memory runs
    /// out: a message that is lost in silence would leave the dialogue, and with it all ports, waiting for ever.
    virtual void SubmitFirmware(const std::uint8_t* data, std::uint32_t length) = 0;

    /// Drops every packet that waits to be written, and destroys it. Any thread.
    virtual void ClearCommandQueue() = 0;

    /// Names a trace channel if it has no name yet (main thread only).
    virtual void RegisterDeviceName(const std::wstring& name, std::int32_t device) = 0;
};
