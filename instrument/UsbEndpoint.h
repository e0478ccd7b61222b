// The scripted instrument as a USB device, which it plugs in by the remote control of the simulated instruments'
// driver.
#pragma once

#include "instrument/Endpoint.h"
#include "tests/instrument/InstrumentControl.h"
#include "win32/Handle.h"
#include "win32/OverlappedOperation.h"
#include "win32/WaitSet.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace instrument {

/// Used by the thread that runs it. The router is there from its first transfer until it closes the device. The
/// device goes with the process, whichever way that ends.
class UsbEndpoint : public Endpoint
{
public:
    struct Place
    {
        std::uint32_t slot = 0;
        std::uint16_t vendorId = 0x1E4F;
        std::uint16_t productId = 0x0100;
    };

    /// `stop` is borrowed.
    UsbEndpoint(const Place& place, Engine& engine, Observer& observer, HANDLE stop);
    ~UsbEndpoint() override;

private:
    // The written bytes come before the connection's end: what the router wrote before it went is taken.
    enum class Slot : DWORD { Stop, Supplied, Taken, Watched, TimedOut = WAIT_TIMEOUT, Failed = WAIT_FAILED };

    void Begin() override;
    void Await(DWORD milliseconds) override;
    bool IsWriting() const override { return m_supply.IsPending(); }
    void Write(const Bytes& bytes) override;
    void Vanish() override;
    void Return() override;
    void Leave() override;

    bool TakeSlot();
    void Unplug();
    void OnSupplied();
    void OnTaken();
    void OnWatched();
    void SetConnection(std::uint32_t connection);
    /// Of a connection that is over, whose supply the driver ends or has ended.
    void AwaitSupply();
    void StartTaking();
    void StartWatching();
    /// Ends the run when the driver fails a request.
    void OnRefused(const char* what);

    const Place m_place;
    win32::KernelHandle m_slotTurn; // a mutex, ours while the slot is
    bool m_slotOurs = false;
    std::optional<instrumentbus::InstrumentControl> m_control; // whose handle the device goes with
    win32::FileHandle m_remote;
    std::vector<std::uint8_t> m_taken;
    std::vector<std::uint8_t> m_supplied;
    instrumentbus::Connection m_watched{};
    std::uint32_t m_connection = 0;       // 0: none
    std::uint32_t m_latestConnection = 0; // the last that there was
    win32::OverlappedOperation m_supply;
    win32::OverlappedOperation m_take;
    win32::OverlappedOperation m_watch;
    const win32::WaitSet<Slot, 4> m_waits;
};

} // namespace instrument
