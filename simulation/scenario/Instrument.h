// The instrument's side: the scripted engine at the simulator's pipe or at the simulated USB device.
#pragma once

#include "instrument/Engine.h"
#include "simulation/scenario/Account.h"
#include "simulation/scenario/Plan.h"
#include "win32/Event.h"
#include "win32/Handle.h"
#include "win32/OverlappedOperation.h"

#include <array>
#include <cstdint>
#include <optional>
#include <span>

namespace sim {

/// Runs on a thread of its own, until it is told to end.
class Instrument
{
public:
    Instrument(const Plan& plan, Account& account);
    ~Instrument();
    Instrument(const Instrument&) = delete;
    Instrument& operator=(const Instrument&) = delete;

    void Run();
    /// Any thread: ends Run.
    void End();
    /// Any thread: the cable is pulled, or the simulator leaves; it comes back by itself.
    void Pull();

    bool IsThere() const { return m_isThere; }
    std::uint64_t Pulls() const { return m_pulls; }
    std::uint64_t PluggedAt() const { return m_pluggedAt; } // us

private:
    void Receive(std::span<const std::uint8_t> bytes);
    void OnPacket(const wire::Frame& frame);

    void ServePipe();
    void ServePipeConnection(HANDLE pipe);
    void ComeIncomplete();
    void ServeUsb();
    void ServeUsbConnection();
    bool ReadPipe(HANDLE pipe);
    bool WriteDue(HANDLE pipe);
    bool FeedDue();
    bool Write(HANDLE pipe, const instrument::Bytes& bytes);
    void BeginConnection();
    void OnSent(const instrument::Bytes& bytes);
    void StallNowAndThen();
    DWORD WaitTime() const;
    bool MustLeave();
    static instrument::Time Now();

    const Plan& m_plan;
    Account& m_account;
    instrument::Engine m_engine;
    instrument::Bytes m_due;
    ReceiveBuffer m_received;                 // bytes received that form no packet yet
    std::optional<std::uint8_t> m_lastNumber; // received in this connection
    ReceiveBuffer m_sent;                     // bytes sent that form no packet yet
    win32::Event m_wake{win32::Event::Kind::AutoReset};
    std::array<std::uint8_t, 65536> m_buffer{};
    win32::OverlappedOperation m_read;
    win32::OverlappedOperation m_write;
    bool m_ends = false;
    bool m_pulled = false;
    bool m_isThere = false;
    bool m_hasStalled = false;
    std::uint64_t m_pulls = 0;
    std::uint64_t m_pluggedAt = 0, m_unpluggedAt = 0;
    std::uint64_t m_lossesAtFrame = 0;
};

} // namespace sim
