// The abstract transport: what port pipes, the downloader and the tray know of the connection to the instrument.
#pragma once

#include <cstdint>

/// One object for the process, owned by the module. The order of the operations is fixed.
class CCommunicationDriver
{
public:
    /// Stops all threads and closes all handles.
    virtual ~CCommunicationDriver() = default;

    /// Drops the connection and starts the connect procedure. Any thread.
    virtual void Reconnect() = 0;

    /// Frames `length` payload bytes for the address (x, y) and queues them. Dropped with a trace when there is no
    /// connection. Any thread; copies the data.
    virtual void Send(std::uint8_t x, std::uint8_t y, const std::uint8_t* data, std::uint32_t length) = 0;

    /// Whether a connection to the instrument is open. Any thread.
    virtual bool IsConnected() = 0;

    /// Whether ports may be served: connected, and no firmware download is needed. Any thread.
    virtual bool IsReady() = 0;

    /// Whether a firmware download is running. Any thread.
    virtual bool IsUpdatingFirmware() = 0;

    /// Bytes written to and read from the instrument so far, modulo 2^32. Any thread.
    virtual std::uint32_t GetTransferredBytes() = 0;

    /// Takes received bytes, in any cut, and delivers the packets that they complete. Reply thread only.
    virtual void DispatchToDevice(const std::uint8_t* data, std::uint32_t length) = 0;
};
