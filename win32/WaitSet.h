// A fixed list of objects that one thread waits for, any of them.
#pragma once

#include "win32/Windows.h"

#include <array>
#include <cstddef>

namespace win32 {

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

    /// The same for the objects in front of `end`: those behind do not count, signalled or not.
    Slot AnyBefore(Slot end, DWORD milliseconds) const noexcept
    {
        const auto count = static_cast<DWORD>(end);
        const DWORD result = ::WaitForMultipleObjects(count, m_handles.data(), FALSE, milliseconds);
        return result < count || result == WAIT_TIMEOUT ? static_cast<Slot>(result) : Slot::Failed;
    }

    const HANDLE* Handles() const noexcept { return m_handles.data(); }

private:
    std::array<HANDLE, Count> m_handles;
};

} // namespace win32
