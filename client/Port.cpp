#include "client/PortScopes.h"

#include <utility>

namespace clientlib {

namespace {

/// So long the router may take to read what was written last before a port closes.
constexpr DWORD LongestFlushMs = 1000;

std::wstring PathOf(const std::wstring& name)
{
    return LR"(\\.\pipe\)" + name;
}

} // namespace

Port::Port(Settings settings, ComThread& com)
    : m_settings(std::move(settings)),
      m_router(com, m_settings.registration),
      m_inbox(m_settings.queueLimit),
      m_outbox(m_settings.queueLimit, m_settings.Has(MORVANE_RAW)),
      m_pipe(PathOf(m_settings.registration.pipeName), m_stopReading.Get(), m_stopWriting.Get())
{
}

Result Port::Open()
{
    const win32::SectionScope scope(m_lock);
    if (!m_closed.Exists() || !m_stopReading.Exists() || !m_stopWriting.Exists() || !m_pipe.IsUsable() ||
        !m_worker.Start([this] { Work(); }))
    {
        return {MORVANE_E_MEMORY, ERROR_SUCCESS};
    }
    if (m_settings.Has(MORVANE_BACKGROUND)) {
        return {};
    }
    const Call call(*this, m_settings.openTimeout);
    while (m_link == Link::Down) {
        const bool isFinal = m_why.code == MORVANE_E_HELD || m_why.code == MORVANE_E_NOT_REGISTERED;
        const bool mayTryFirst =
            m_why.code == MORVANE_E_NO_PIPE || (m_why.code == MORVANE_E_TIMEOUT && m_settings.Has(MORVANE_ATTACH));
        if (call.IsOver() && mayTryFirst && !m_events.HasReason()) {
            // The first try has not begun, or is still pending and will end within a second: only then is it known
            // whether another client holds the port.
            m_changed.Wait(m_lock, INFINITE);
            continue;
        }
        const Result ended = isFinal ? m_why : Wait(call);
        if (!ended.IsOk()) {
            return ended.code == MORVANE_E_TIMEOUT ? m_why : ended;
        }
    }
    return {};
}

void Port::Close() noexcept
{
    win32::Thread* sender = nullptr;
    {
        const win32::SectionScope scope(m_lock);
        if (std::exchange(m_closing, true)) {
            return;
        }
        Interrupt();
        m_closed.Set();
        m_workerWake.WakeOne();
        m_senderWake.WakeOne();
        while (m_calls != 0) {
            m_changed.Wait(m_lock, INFINITE);
        }
        sender = &m_sender;
    }
    // No call is left that could start it.
    sender->JoinCancelling(LongestFlushMs);
    m_worker.JoinCancelling(LongestFlushMs);
    // The router waits for the end of a pipe's client when it removes the port: the pipe is closed by now.
    if (!m_settings.Has(MORVANE_ATTACH)) {
        m_router.Release();
    }
}

Result Port::WaitReady(std::uint32_t timeout)
{
    const win32::SectionScope scope(m_lock);
    const Call call(*this, timeout);
    while (m_link == Link::Down || m_reopening) {
        if (const Result ended = Wait(call); !ended.IsOk()) {
            return ended.code == MORVANE_E_TIMEOUT ? m_why : ended;
        }
    }
    return Ended(call);
}

Result Port::Reopen(std::uint32_t timeout)
{
    {
        const win32::SectionScope scope(m_lock);
        m_step = Step::InWhenReopened;
        if (m_link == Link::Up && !m_closing) {
            ++m_epoch;
            m_reopening = true;
            Interrupt();
            m_workerWake.WakeOne();
        }
    }
    return WaitReady(timeout);
}

Result Port::Cancel()
{
    const win32::SectionScope scope(m_lock);
    const Call call(*this, 0);
    if (m_closing) {
        return {MORVANE_E_CLOSED, ERROR_SUCCESS};
    }
    ++m_epoch;
    InterruptReading();
    if (m_writing && !m_sending) {
        m_stopWriting.Set(); // a call's message; what is queued is no call's
    }
    ResetInterrupt();
    return {};
}

Result Port::NextEvent(morvane_event& event, std::uint32_t timeout)
{
    const win32::SectionScope scope(m_lock);
    const Call call(*this, timeout);
    while (m_events.IsEmpty()) {
        if (const Result ended = Wait(call); !ended.IsOk()) {
            return ended;
        }
    }
    const std::uint32_t size = event.size;
    event = m_events.Take();
    event.size = size;
    UpdateReady();
    return {};
}

Result Port::WaitHandle(HANDLE& handle)
{
    const win32::SectionScope scope(m_lock);
    if (m_closing) {
        return {MORVANE_E_CLOSED, ERROR_SUCCESS};
    }
    handle = m_ready.Want();
    UpdateReady();
    m_workerWake.WakeOne();
    return {handle != nullptr ? MORVANE_OK : MORVANE_E_MEMORY, ERROR_SUCCESS};
}

} // namespace clientlib
