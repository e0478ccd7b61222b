// The one object that owns the connection to the instrument: a facade over the parts that do the work.
//
// Threads: the command thread (above normal priority) owns the connection and does all writes; a read thread runs
// while a USB connection is open; the reply thread delivers what was received to the ports. Packets are submitted
// on the ports' threads. In simulation mode the command thread writes to the simulator's pipe and reads from it as
// well.
#pragma once

#include "firmware/FirmwareDownloader.h"
#include "firmware/FirmwareTransport.h"
#include "transport/CCommunicationDriver.h"
#include "transport/Connection.h"
#include "transport/Outgoing.h"
#include "transport/Replies.h"
#include "transport/TransportHost.h"
#include "win32/Thread.h"

#include <cstdint>
#include <span>

class CCyUSBDriver : public CCommunicationDriver, private IFirmwareTransport
{
public:
    /// Starts the command and reply threads. Not connected until Reconnect() is called for the first time.
    CCyUSBDriver(bool simulation, const TransportHost& host);
    ~CCyUSBDriver() override;

    void Reconnect() override { m_connection.m_hDisconnected.Set(); }
    void Send(std::uint8_t x, std::uint8_t y, const std::uint8_t* data, std::uint32_t length) override
    {
        m_outgoing.Send(x, y, data, length);
    }
    bool IsConnected() override { return m_connection.IsOpen(); }
    bool IsReady() override;
    bool IsUpdatingFirmware() override { return m_Firmware.IsDownloading(); }
    std::uint32_t GetTransferredBytes() override { return m_connection.TransferredBytes(); }
    void DispatchToDevice(const std::uint8_t* data, std::uint32_t length) override
    {
        m_replies.Dispatch({data, data != nullptr ? length : 0});
    }

protected:
    Connection m_connection;
    Outgoing m_outgoing{m_connection};

private:
    // IFirmwareTransport
    void SubmitFirmware(std::span<const std::uint8_t> message) override
    {
        m_outgoing.Submit(wire::PortTraffic, 0, 0, message, message.size());
    }
    void ClearCommandQueue() override { m_outgoing.Queue().DestroyAll(); }

    // Bodies of the command thread.
    void USBCommandProcessThread();
    void SimulationCommandProcessThread();
    template <class Link, class... Parts>
    void RunCommandThread(Parts&... parts);

    IProducts& m_products;
    IHostWatch& m_watch;
    FirmwareDownloader m_Firmware;
    Replies m_replies{*this, m_connection, m_Firmware};
    const bool m_bSimulation;

    // Last, so that the threads end first.
    win32::Thread m_hReplyThread;
    win32::Thread m_hCommandThread;
};
