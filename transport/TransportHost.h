// What the transport needs of its host, one interface for each part of the host that knows.
#pragma once

#include "firmware/FirmwareTransport.h"
#include "ports/packet/PortAddress.h"

#include <cstdint>
#include <span>
#include <string>

class CCommunicationDriver;

/// The registered ports. Any thread may call any operation; each returns without waiting. A port is held only for
/// the call, so it may be unregistered at any time on the main thread.
class IPortDirectory
{
public:
    /// Hands a payload to the port registered as `address` for its client; false when there is none. Without a
    /// payload it only asks.
    virtual bool SendToPort(PortAddress address, CCommunicationDriver* source,
                            std::span<const std::uint8_t> payload) = 0;

    /// The same to every port numbered `port`, whatever its device type.
    virtual void SendToPorts(std::int32_t port, CCommunicationDriver* source,
                             std::span<const std::uint8_t> payload) = 0;

    /// Tells the port at that address, if any, that the write of one of its packets has begun.
    virtual void PacketCompleted(PortAddress address) = 0;

    /// Makes every port recreate its pipe.
    virtual void SignalAllPorts() = 0;

protected:
    ~IPortDirectory() = default;
};

/// Which instruments are served. Any thread.
class IProducts
{
public:
    virtual bool IsSupportedProduct(std::uint16_t vendorId, std::uint16_t productId) const = 0;
    /// From the product table; 2 when the product is not listed.
    virtual std::int32_t GetBootloaderVersion(std::uint16_t productId) const = 0;

protected:
    ~IProducts() = default;
};

/// The programs that the router runs for. Any thread.
class IHostWatch
{
public:
    /// Process ID of a running program of exactly that name, 0 when none runs.
    virtual std::uint32_t FindProcess(const std::wstring& name) const = 0;
    virtual std::wstring GetFirstHostName() const = 0;
    virtual std::wstring GetSecondHostName() const = 0;
    /// True when no host program ran at start-up: the host watch never ends such a router.
    virtual bool IsStandalone() const = 0;
    /// Posts WM_QUIT to the main thread: no host program is left.
    virtual void RequestQuit() = 0;

protected:
    ~IHostWatch() = default;
};

/// All of it, borrowed: each must outlive the transport.
struct TransportHost
{
    IPortDirectory& ports;
    IProducts& products;
    IHostWatch& watch;
    IDeviceNames& names;
};
