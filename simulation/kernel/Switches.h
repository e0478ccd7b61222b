// Where Windows' documents are silent or its versions differ: both ways are taken, by seed, each under a name.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace sim {

enum class Switch {
    PendingThoughDone,   // a start that is complete says ERROR_IO_PENDING, its event being set
    EventUnsetAtOnce,    // what was done at once leaves its event unset
    RecordPendingAtOnce, // and its record says pending
    RefusalInRecord,     // a refused start leaves its error in the record
    RefusalSetsEvent,    // and its event set
    RefusalComesLate,    // a device accepts what it refuses, and fails it
    EventAfterRecord,    // other threads see the record before the event
    PipeCancelsLate,     // CancelIoEx on a pipe returns before the request has ended
    DeviceCancelsLate,   // the same on a device
    DeviceIgnoresCancel, // the request ends in success in spite of it
    DeviceKeepsRequest,  // the request stays until the device is unplugged or long after
    FailureInStatus,     // a transfer of a device that is gone succeeds, its block says that it failed
    DeviceKeepsControl,  // a control request is answered long after the router's limit for it
    DeviceAnswersLate,   // a request that could be answered at once is accepted first
    WriteOutlivesItsEnd, // a closing client's pending write stays readable
    NameBusyWhileOpen,   // the pipe's name is taken as long as a client has its end open
    QuotaRoundedUp,      // a pipe's buffer is rounded up to 4 KB
    QuotaIsZero,         // a pipe's buffer holds nothing
    WaitReturnsWaker,    // of several objects signalled meanwhile the one that woke counts, not the first
    LateWaiterMisses,    // a manual event that was set and reset at once lets no waiter through
    ConditionWakesForNothing,
    ConditionSwallowsWake, // a wake is given to a thread that reports the time-out
    TimeoutEarly,          // by up to a tick
    TimeoutLate,
    TicksAreCoarse,    // GetTickCount64 steps by 15.6 ms
    ThreadEndHeldBack, // a thread whose requests a driver keeps is not signalled
    DeviceOrderChanges,
    DeviceGoneAtOpen, // between the enumeration and CreateFile
    Count
};

inline constexpr std::size_t SwitchCount = static_cast<std::size_t>(Switch::Count);

const char* NameOf(Switch which) noexcept;

/// How each switch is set in one run, and how often it was asked over all runs.
class Switches
{
public:
    /// Draws each switch's inclination from the run's seed.
    void Draw();
    /// Whether the described thing happens now.
    bool Take(Switch which);
    /// Never happens in this run. `Switch::Count`: nothing.
    void Fix(Switch which) { m_oneIn[static_cast<std::size_t>(which)] = 0; }

    struct Counts
    {
        std::uint64_t no = 0, yes = 0;
    };
    static std::array<Counts, SwitchCount>& Total();

private:
    static constexpr std::uint64_t Always = 1;

    std::array<std::uint64_t, SwitchCount> m_oneIn{}; // 0: never
};

} // namespace sim
