// A fixed list of objects that one thread waits for, any of them.
#pragma once

#include "win32/Windows.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace win32 {

/// What a loop knows about an object before it waits for it.
enum class Expectation {
    Never,  ///< Tells nothing at present: leave it out.
    NotYet, ///< Not signalled as far as is known: wait for it.
    Maybe,  ///< Only the kernel knows.
    Now     ///< It has happened, whatever the object says.
};

constexpr Expectation NowIf(bool happened) noexcept
{
    return happened ? Expectation::Now : Expectation::NotYet;
}

/// `Slot` is an enum over DWORD whose enumerators stand in wait order (which is the priority: of several
/// signalled objects the first counts) and which ends with `TimedOut = WAIT_TIMEOUT` and
/// `Failed = WAIT_FAILED`, so that a switch over it is complete. Used by one thread; borrows the handles.
template <class Slot, std::size_t Count>
class WaitSet
{
public:
    template <class... Handles>
    explicit WaitSet(Handles... handles) noexcept : m_handles{handles...}
    {
        static_assert(sizeof...(Handles) == Count, "one handle for each slot");
        static_assert(static_cast<DWORD>(Slot::TimedOut) == WAIT_TIMEOUT);
        static_assert(static_cast<DWORD>(Slot::Failed) == WAIT_FAILED);
    }

    /// Waits for any object, at most `milliseconds`.
    Slot Any(DWORD milliseconds) const noexcept
    {
        const DWORD result =
            ::WaitForMultipleObjects(static_cast<DWORD>(Count), m_handles.data(), FALSE, milliseconds);
        return result < Count || result == WAIT_TIMEOUT ? static_cast<Slot>(result) : Slot::Failed;
    }

    using Expectations = std::array<Expectation, Count>;

    /// The first slot that is signalled or known to have happened, after at most `milliseconds`. What is known
    /// costs no kernel call, unless an object of higher priority may be signalled: then that is polled.
    Slot Next(const Expectations& expected, DWORD milliseconds) const noexcept
    {
        const auto known =
            static_cast<std::size_t>(std::ranges::find(expected, Expectation::Now) - expected.begin());
        const bool isKnown = known < Count;
        std::array<HANDLE, Count> handles{};
        std::array<Slot, Count> slots{};
        DWORD count = 0;
        for (std::size_t slot = 0; slot < known; ++slot) {
            if (expected[slot] == Expectation::Maybe || (!isKnown && expected[slot] == Expectation::NotYet)) {
                handles[count] = m_handles[slot];
                slots[count++] = static_cast<Slot>(slot);
            }
        }
        if (isKnown && count == 0) {
            return static_cast<Slot>(known);
        }
        const DWORD result = ::WaitForMultipleObjects(count, handles.data(), FALSE, isKnown ? 0 : milliseconds);
        if (result < count) {
            return slots[result];
        }
        if (isKnown) {
            return static_cast<Slot>(known);
        }
        return result == WAIT_TIMEOUT ? Slot::TimedOut : Slot::Failed;
    }

    /// False when an object is missing, because Windows could not create it. Every wait for it would fail.
    bool HasAll() const noexcept
    {
        return std::none_of(m_handles.begin(), m_handles.end(), [](HANDLE handle) { return handle == nullptr; });
    }

private:
    std::array<HANDLE, Count> m_handles;
};

} // namespace win32
