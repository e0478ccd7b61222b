// A manual-reset event whose state can also be read without asking the kernel.
#pragma once

#include "win32/Event.h"

#include <atomic>

namespace win32 {

/// For a state that threads wait for now and then and test for every packet. Any thread may call any member. When
/// one thread sets and another resets at the same moment the event may end signalled with a mirror that says
/// otherwise, never the other way round: the waiting thread puts that right with its next Set or Reset.
class MirroredEvent
{
public:
    explicit MirroredEvent(bool signalled = false) noexcept
        : m_event(Event::Kind::ManualReset, signalled), m_isSet(signalled)
    {
    }

    void Set() noexcept
    {
        m_isSet.store(true);
        m_event.Set();
    }

    void Reset() noexcept
    {
        m_event.Reset();
        m_isSet.store(false);
    }

    /// The mirror; an event that could not be created counts as set.
    bool IsSet() const noexcept { return m_isSet.load() || !m_event.Exists(); }
    /// Waits for the event itself at most `milliseconds`; true when signalled.
    bool Wait(DWORD milliseconds) const noexcept { return m_event.Wait(milliseconds); }
    HANDLE Get() const noexcept { return m_event.Get(); }

private:
    Event m_event;
    std::atomic<bool> m_isSet;
};

} // namespace win32
