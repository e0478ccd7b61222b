// A transport that keeps what ports submit, for tests of the ports alone.
#pragma once

#include "transport/CCommunicationDriver.h"
#include "win32/Windows.h"

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

class FakeTransport : public CCommunicationDriver
{
public:
    struct Sent
    {
        int x;
        int y;
        std::string payload;
    };

    void Reconnect() override {}
    void Send(std::uint8_t x, std::uint8_t y, const std::uint8_t* data, std::uint32_t length) override
    {
        std::function<void()> hook;
        {
            const std::lock_guard guard(m_lock);
            m_sent.push_back({x, y, std::string(reinterpret_cast<const char*>(data), length)});
            hook = m_onSend;
        }
        if (hook) {
            hook();
        }
    }
    bool IsConnected() override { return ready; }
    bool IsReady() override
    {
        const std::lock_guard guard(m_lock);
        m_askedAt.push_back(::GetTickCount64());
        return ready;
    }
    bool IsUpdatingFirmware() override { return false; }
    std::uint32_t GetTransferredBytes() override { return 0; }
    void DispatchToDevice(const std::uint8_t*, std::uint32_t) override {}

    std::vector<Sent> TheSent() const
    {
        const std::lock_guard guard(m_lock);
        return m_sent;
    }
    std::size_t Count() const
    {
        const std::lock_guard guard(m_lock);
        return m_sent.size();
    }
    /// When IsReady was asked, by GetTickCount64.
    std::vector<ULONGLONG> AskedAt() const
    {
        const std::lock_guard guard(m_lock);
        return m_askedAt;
    }
    /// Called on the port's thread after each Send.
    void OnSend(std::function<void()> hook)
    {
        const std::lock_guard guard(m_lock);
        m_onSend = std::move(hook);
    }

    std::atomic<bool> ready{true};

private:
    mutable std::mutex m_lock;
    std::vector<Sent> m_sent;
    std::vector<ULONGLONG> m_askedAt;
    std::function<void()> m_onSend;
};
