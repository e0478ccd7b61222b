// An auto-reset event that costs a kernel call only while somebody waits for it.
#pragma once

#include "win32/Event.h"

#include <atomic>

namespace win32 {

/// For a setting that one thread takes, mostly without having waited for it. Any thread may call Set; the rest is the
/// taking thread's. Before it waits it listens and then looks once more, so no setting is missed; the event of a setting
/// that it took without waiting may end its next wait for nothing, with nothing to take.
class OnDemandEvent
{
public:
    explicit OnDemandEvent(bool set) noexcept : m_event(Event::Kind::AutoReset, set), m_isSet(set) {}

    void Set() noexcept
    {
        m_isSet.store(true);
        if (m_isListening.exchange(false)) {
            m_event.Set();
        }
    }

    /// Whether there is a setting to take; with `listening` a later one signals the event.
    bool Look(bool listening) noexcept
    {
        m_isListening.store(listening);
        return m_isSet.load();
    }

    /// Takes the setting; false when there is none.
    bool Take() noexcept { return m_isSet.exchange(false); }

    HANDLE Get() const noexcept { return m_event.Get(); }

private:
    Event m_event;
    std::atomic<bool> m_isSet;
    std::atomic<bool> m_isListening{false};
};

} // namespace win32
