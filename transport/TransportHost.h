// What the transport needs of the module that owns it.
#pragma once

#include <cstdint>
#include <string>

class CCommunicationDriver;

/// Called from the transport's threads; every operation is safe there and returns without waiting. Port
/// operations hold the port only for the call, so a port may be unregistered at any time on the main thread.
class ITransportHost
{
public:
    virtual ~ITransportHost() = default;

    /// Hands a payload to the port registered as (deviceType, port) for its client; false when there is none.
    /// A payload of length 0 only asks.
    virtual bool SendToPort(std::int32_t deviceType, std::int32_t port, CCommunicationDriver* source,
                            const std::uint8_t* data, std::uint32_t length) = 0;

    /// The same to every port numbered `port`, whatever its device type.
    virtual void SendToPorts(std::uint32_t port, CCommunicationDriver* source, const std::uint8_t* data,
                             std::uint32_t length) = 0;

    /// Tells the port at that address, if any, that the write of one of its packets has begun.
    virtual void PacketCompleted(std::int32_t deviceType, std::int32_t port) = 0;

    /// Makes every port create its pipe anew.
    virtual void SignalAllPorts() = 0;

    virtual bool IsSupportedProduct(std::uint16_t vendorId, std::uint16_t productId) = 0;
    /// From the product table; 2 when the product is not listed.
    virtual std::int32_t GetBootloaderVersion(std::uint16_t productId) = 0;
    /// Names a trace channel if it has no name yet (main thread only: while the transport is built).
    virtual void RegisterDeviceName(const std::wstring& name, std::int32_t device, std::uint32_t port) = 0;

    /// Process ID of a running program of exactly that name, 0 when none runs.
    virtual std::uint32_t FindProcess(const std::wstring& name) = 0;
    virtual std::wstring GetFirstHostName() = 0;
    virtual std::wstring GetSecondHostName() = 0;
    /// True when no host program ran at start-up: the host watch never ends such a router.
    virtual bool IsStandalone() = 0;
    /// Posts WM_QUIT to the main thread: no host program is left.
    virtual void RequestQuit() = 0;
};
