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
#include "transport/CommandThread.h"
#include "transport/Connection.h"
#include "transport/Outgoing.h"
#include "transport/Replies.h"
#include "transport/TransportHost.h"
#include "win32/Thread.h"

#include <cstdint>

class CCyUSBDriver : public CCommunicationDriver, private IFirmwareTransport
{
public:
    /// Starts the command and reply threads. Not connected until Reconnect() is called for the first time.
    CCyUSBDriver(bool simulation, const TransportHost& host);
    ~CCyUSBDriver() override;
    CCyUSBDriver(const CCyUSBDriver&) = delete;
    CCyUSBDriver& operator=(const CCyUSBDriver&) = delete;

    void Reconnect() override;
    void Send(std::uint8_t x, std::uint8_t y, const std::uint8_t* data, std::uint32_t length) override;
    bool IsConnected() override;
    bool IsReady() override;
    bool IsUpdatingFirmware() override;
    std::uint32_t GetTransferredBytes() override;
    void DispatchToDevice(const std::uint8_t* data, std::uint32_t length) override;

protected:
    Connection m_connection;
    Outgoing m_outgoing{m_connection};

private:
    // IFirmwareTransport
    void SubmitFirmware(std::span<const std::uint8_t> message) override;
    void ClearCommandQueue() override;

    // Bodies of the command thread.
    void USBCommandProcessThread();
    void SimulationCommandProcessThread();
    void RunCommandThread(ILink& link);

    IProducts& m_products;
    IHostWatch& m_watch;
    FirmwareDownloader m_Firmware;
    Replies m_replies{*this, m_connection, m_Firmware};
    const bool m_bSimulation;

    // Last, so that the threads end first.
    win32::Thread m_hReplyThread;
    win32::Thread m_hCommandThread;
};
