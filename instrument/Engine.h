// A simulated instrument without its cable: takes what the router wrote, gives what the router is to read, says
// when to go away and come back. Portable; the endpoints pass the time in and do the I/O.
// One thread, with times that never run backwards.
#pragma once

#include "instrument/Bootloader.h"
#include "instrument/Output.h"
#include "instrument/Script.h"
#include "ports/packet/ReceiveBuffer.h"
#include "ports/packet/WireFormat.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace instrument {

struct Counters
{
    std::uint64_t connections = 0;
    std::uint64_t requests = 0;       // packets of type 1 that are not for the bootloader
    std::uint64_t controlPackets = 0; // type 238, which get no answer
    std::uint64_t otherPackets = 0;   // of other types, which get none either
    std::uint64_t firmwareMessages = 0;
    std::uint64_t bytesReceived = 0;
    std::uint64_t garbageReceived = 0; // bytes between packets
    std::uint64_t wrongChecksums = 0;  // packets received with one
    std::uint64_t numberGaps = 0;      // packets received whose number is not the one before plus 1 (modulo 256)
    std::uint64_t answers = 0;         // packets sent because of a request
    std::uint64_t unsolicited = 0;     // packets sent without one
    std::uint64_t bytesSent = 0;
    std::uint64_t vanished = 0;
};

/// Takes a line for people about what happens, during a call of the engine or of its endpoint.
using Listener = std::function<void(const std::string& what)>;

class Engine
{
public:
    using Order = Output::Order;

    /// Without a listener no lines are made. `expectedImage`: what a download is compared with.
    explicit Engine(Script script, Listener listener = {}, std::optional<Bytes> expectedImage = std::nullopt)
        : m_script(std::move(script)),
          m_listener(std::move(listener)),
          m_firmware(m_script.firmware, std::move(expectedImage)),
          m_output(m_script),
          m_random(m_script.seed)
    {
    }

    /// The router is there; numbering starts afresh and nothing of an earlier connection is left.
    void Connected(Time now);
    /// The router is gone; what it had not read yet is dropped.
    void Disconnected();

    /// What the router wrote: any bytes in any cut.
    void Receive(std::span<const std::uint8_t> bytes, Time now);

    /// The next thing to do, asked whenever no write is pending. Write: `bytes` (whose old content is dropped)
    /// holds at least one byte, to be written in one go. Vanish: the endpoint takes the instrument away as if
    /// unplugged. Return: it puts it back. After Vanish nothing comes but Return.
    Order Take(Time now, Bytes& bytes);

    /// When Take may give something although nothing was received meanwhile; none: not before a Receive.
    std::optional<Time> NextDue() const;

    bool IsAway() const noexcept { return m_output.IsAway(); }
    /// True while anything that was meant to be sent has not been taken yet.
    bool HasUnsent() const noexcept { return !m_output.IsEmpty(); }
    const Counters& Counted() const noexcept { return m_counters; }
    const FirmwareReport& Firmware() const noexcept { return m_firmware.Report(); }

    /// Tells the listener, if there is one.
    void Say(const std::string& what) const
    {
        if (m_listener) {
            m_listener(what);
        }
    }

private:
    void DropGarbage();
    void OnFrame(const wire::Frame& frame, Time now);
    void OnRequest(const wire::Frame& frame, Time now);
    void OnFirmwareMessage(const wire::Frame& frame, Time now);
    void Perform(const ResponsePlan& plan, Address from, std::span<const std::uint8_t> request, Time now,
                 std::uint64_t& counter);
    void RunTimers(Time now);
    /// Time::max() when there is no flood or it is over.
    Time FloodDue() const;
    void RunFlood(Time now);

    const Script m_script;
    const Listener m_listener;
    Counters m_counters;
    Bootloader m_firmware;
    Output m_output;
    ReceiveBuffer m_received;
    std::minstd_rand m_random;
    std::vector<std::pair<Time, const Rule*>> m_timers; // when each is due; Time::max(): done
    std::optional<std::uint8_t> m_lastNumber;           // of the router's last packet in this connection
    std::uint64_t m_flooded = 0;
    Time m_floodStart{};
    bool m_connected = false;
    Time m_progressSaid{};
    FirmwareReport::State m_stateSaid = FirmwareReport::State::None;
};

} // namespace instrument
