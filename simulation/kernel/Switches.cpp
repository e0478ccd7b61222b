#include "simulation/kernel/Switches.h"

#include "simulation/kernel/Scheduler.h"

namespace sim {

namespace {

constexpr std::array<const char*, SwitchCount> Names = {
    "pending though done",     "event unset at once",  "record pending at once",
    "refusal in record",       "refusal sets event",   "refusal comes late",
    "event after record",      "pipe cancels late",    "device cancels late",
    "device ignores cancel",   "device keeps request", "failure in status",
    "device keeps control",    "device answers late",  "write outlives its end",
    "name busy while open",    "quota rounded up",     "quota is zero",
    "wait returns waker",      "late waiter misses",   "condition wakes for nothing",
    "condition swallows wake", "time-out early",       "time-out late",
    "ticks are coarse",        "thread end held back", "device order changes",
    "device gone at open",
};

// What would hide other things if it were the rule.
constexpr bool IsRare(Switch which)
{
    switch (which) {
    case Switch::DeviceIgnoresCancel:
    case Switch::DeviceKeepsRequest:
    case Switch::ConditionWakesForNothing:
    case Switch::ConditionSwallowsWake:
    case Switch::DeviceGoneAtOpen:
    case Switch::TimeoutLate: return true;
    default: return false;
    }
}

// What a machine does always or never.
constexpr bool IsOfTheMachine(Switch which)
{
    switch (which) {
    case Switch::TicksAreCoarse:
    case Switch::QuotaRoundedUp:
    case Switch::QuotaIsZero:
    case Switch::NameBusyWhileOpen: return true;
    default: return false;
    }
}

} // namespace

const char* NameOf(Switch which) noexcept
{
    return Names[static_cast<std::size_t>(which)];
}

void Switches::Draw()
{
    for (std::size_t i = 0; i < SwitchCount; ++i) {
        if (IsOfTheMachine(static_cast<Switch>(i))) {
            m_oneIn[i] = Random(4) == 0 ? Always : 0;
        } else if (static_cast<Switch>(i) == Switch::DeviceKeepsControl) {
            m_oneIn[i] = Random(16) == 0 ? 32 : 0; // a run in which it happens is judged less
        } else if (IsRare(static_cast<Switch>(i))) {
            m_oneIn[i] = Random(2) == 0 ? 0 : std::uint64_t{4} << (2 * Random(4));
        } else {
            constexpr std::array<std::uint64_t, 5> inclinations = {0, Always, 2, 8, 64};
            m_oneIn[i] = inclinations[Random(inclinations.size())];
        }
    }
}

bool Switches::Take(Switch which)
{
    const auto at = static_cast<std::size_t>(which);
    const bool taken = m_oneIn[at] == Always || (m_oneIn[at] != 0 && Random(m_oneIn[at]) == 0);
    Counts& counts = Total()[at];
    ++(taken ? counts.yes : counts.no);
    return taken;
}

std::array<Switches::Counts, SwitchCount>& Switches::Total()
{
    static std::array<Counts, SwitchCount> total{};
    return total;
}

} // namespace sim
