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
      m_com(com),
      m_registration(std::make_shared<Registration>(m_settings.registration)),
      m_inbox(m_settings.queueLimit),
      m_pipe(PathOf(m_settings.registration.pipeName), m_interrupt.Get())
{
}

Result Port::Open()
{
    if (!m_worker.Start([this] { Work(); })) {
        return {MORVANE_E_MEMORY, ERROR_SUCCESS};
    }
    if ((m_settings.flags & MORVANE_BACKGROUND) != 0) {
        return {};
    }
    const win32::SectionScope scope(m_lock);
    const Call call(*this, m_settings.openTimeout);
    while (m_link == Link::Down) {
        const bool isFinal = m_why.code == MORVANE_E_HELD || m_why.code == MORVANE_E_NOT_REGISTERED;
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
    ReleaseRouter();
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
    ++m_epoch;
    Interrupt();
    ResetInterrupt();
    return {};
}

Result Port::NextEvent(morvane_event& event, std::uint32_t timeout)
{
    const win32::SectionScope scope(m_lock);
    const Call call(*this, timeout);
    while (m_events.empty()) {
        if (const Result ended = Wait(call); !ended.IsOk()) {
            return ended;
        }
    }
    const std::uint32_t size = event.size;
    event = m_events.front();
    event.size = size;
    m_events.pop_front();
    UpdateReady();
    return {};
}

Result Port::WaitHandle(HANDLE& handle)
{
    const win32::SectionScope scope(m_lock);
    if (!m_ready.Exists()) {
        return {MORVANE_E_MEMORY, ERROR_SUCCESS};
    }
    m_wantsReady = true;
    UpdateReady();
    m_workerWake.WakeOne();
    handle = m_ready.Get();
    return {};
}

} // namespace clientlib
