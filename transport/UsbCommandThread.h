// The command thread over USB: finds and opens the instrument, does all writes, watches the host programs.
#pragma once

#include "transport/CCyUSBDriver.h"
#include "usb/BulkTransfer.h"
#include "usb/CallLimits.h"
#include "usb/UsbDevice.h"
#include "win32/TimerResolution.h"
#include "win32/WaitSet.h"

#include <cstdint>
#include <string>

/// What USBCommandProcessThread does, and its state; lives on that thread and is used by it alone. The IN endpoint is
/// lent to the read thread, which is joined before the device is closed.
class UsbCommandThread
{
public:
    /// Throws std::bad_alloc also when there is no event for the writes: every wait would fail.
    explicit UsbCommandThread(CCyUSBDriver& driver);
    ~UsbCommandThread();

    /// Runs until the driver stops or no host program is left.
    void Run();

private:
    /// In wait order: of several signalled objects the first counts.
    enum class Slot : DWORD {
        Stop,
        Disconnected,
        WriteDone,
        CommandQueued,
        TimedOut = WAIT_TIMEOUT,
        Failed = WAIT_FAILED
    };

    /// The bulk endpoints of one device and their places in its list.
    struct Endpoints
    {
        CCyUSBEndPoint* in = nullptr;
        CCyUSBEndPoint* out = nullptr;
        CCyUSBEndPoint* secondIn = nullptr; // kept, never read from
        int inIndex = 0;
        int outIndex = 0;
    };

    /// A supported device of a scan. Known again by its path: another enumeration may have another device at its index.
    struct Choice
    {
        std::uint8_t index;
        std::string path;
    };

    void Handle(Slot slot);
    void OnStop();
    void OnDisconnected();
    void OnWriteDone();
    void OnCommandQueued();
    void OnQuietSecond();

    void ScanDevices();
    bool Query(std::uint8_t index);
    void ReopenChosen(const Choice& chosen);
    void OnOpened();
    void OnBusy();
    void WriteNext();
    void AbortWrite();
    bool HostIsGone();
    void ReleaseEndpoints();
    void CloseDevice();
    static Endpoints ChooseEndpoints(const UsbDevice& device);

    CCyUSBDriver& m_driver;
    usb::CallLimits m_limits; // of this thread and the read thread
    UsbDevice m_device;
    Endpoints m_endpoints; // of m_device; valid until it closes
    usb::BulkTransfer m_write;
    win32::TimerResolution m_timerResolution;

    bool m_running = true;
    bool m_writeInFlight = false;
    int m_connectAttempts = 0;
    int m_busyPasses = 0;
    int m_idlePasses = 0;
    int m_totalAborted = 0;

    const win32::WaitSet<Slot, 4> m_waits;
};
