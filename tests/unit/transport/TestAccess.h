// The transport's inner operations, for its tests.
#pragma once

#include "ports/packet/CCriticalSectionHelper.h"
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
    /// Ends the driver's threads, so that nothing but the test submits packets: left alone, the command thread sends
    /// an idle packet after every quiet second, also into a test that a busy machine has stopped for that long.
    static void EndThreads(CCyUSBDriver& driver) { driver.EndThreads(); }
    static int CommandThreadPriority(CCyUSBDriver& driver)
    {
        return ::GetThreadPriority(driver.m_hCommandThread.Get());
    }
    static int ReplyThreadPriority(CCyUSBDriver& driver)
    {
        return ::GetThreadPriority(driver.m_hReplyThread.Get());
    }
    /// The number that the next packet will have.
    static std::uint8_t NextNumber(CCyUSBDriver& driver)
    {
        const CCriticalSectionHelper lock(driver.m_Lock);
        return driver.m_nNextPacketNumber;
    }
    /// To tell afterwards whether the numbering has begun anew.
    static void SetNextNumber(CCyUSBDriver& driver, std::uint8_t number)
    {
        const CCriticalSectionHelper lock(driver.m_Lock);
        driver.m_nNextPacketNumber = number;
    }
    static bool FirstReadFailed(CCyUSBDriver& driver) { return driver.m_bFirstReadFailed; }
    static std::size_t Buffered(CCyUSBDriver& driver) { return driver.m_ReplyBuffer.Size(); }
    /// As a producer does that comes to it only when its packet is written already.
    static void SetNotEmptyLate(CCyUSBDriver& driver) { ::SetEvent(driver.m_CommandQueue.GetNotEmptyEvent()); }
    static bool IsNotEmptySet(CCyUSBDriver& driver)
    {
        return ::WaitForSingleObject(driver.m_CommandQueue.GetNotEmptyEvent(), 0) == WAIT_OBJECT_0;
    }
    static void Receive(CCyUSBDriver& driver, const std::string& block)
    {
        driver.ApppendToReplyProcessQueue(reinterpret_cast<const std::uint8_t*>(block.data()),
                                          static_cast<std::uint32_t>(block.size()));
    }
    static void PassQuietReplySecond(CCyUSBDriver& driver) { driver.OnQuietReplySecond(); }
    static void SubmitIdle(CCyUSBDriver& driver) { driver.SendIdlePacket(); }
    static void ReadPipe(CCyUSBDriver& driver, HANDLE pipe) { driver.SimulationReadWaitThread(pipe); }
    static void StopRead(CCyUSBDriver& driver) { driver.m_hStopRead.Set(); }
};
