// The transport's inner operations, for its tests.
#pragma once

#include "transport/CCyUSBDriver.h"

#include <memory>
#include <string>

struct CCyUSBDriverTestAccess
{
    static std::int32_t Queued(CCyUSBDriver& driver) { return driver.m_CommandQueue.GetCount(); }
    static std::unique_ptr<CSerialPortCommand> PopQueued(CCyUSBDriver& driver)
    {
        return std::unique_ptr<CSerialPortCommand>(driver.m_CommandQueue.Pop());
    }
    static std::size_t Buffered(CCyUSBDriver& driver) { return driver.m_ReplyBuffer.Size(); }
    static void SubmitIdle(CCyUSBDriver& driver) { driver.SendIdlePacket(); }
    static void ReadPipe(CCyUSBDriver& driver, HANDLE pipe) { driver.SimulationReadWaitThread(pipe); }
    static void StopRead(CCyUSBDriver& driver) { driver.m_hStopRead.Set(); }
};
