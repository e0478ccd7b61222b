// A module that records what the transport asks of it.
#pragma once

#include "transport/TransportHost.h"
#include "win32/Event.h"

#include <atomic>
#include <map>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

class FakeHost : public ITransportHost
{
public:
    struct Delivery
    {
        std::int32_t deviceType;
        std::int32_t port;
        std::string payload;
    };

    bool SendToPort(std::int32_t deviceType, std::int32_t port, CCommunicationDriver*, const std::uint8_t* data,
                    std::uint32_t length) override
    {
        if (port == throwsForPort) {
            throw std::runtime_error("thrown by the test");
        }
        const std::lock_guard guard(m_lock);
        if (!m_ports.contains({deviceType, port})) {
            return false;
        }
        if (length != 0) {
            m_deliveries.push_back({deviceType, port, std::string(reinterpret_cast<const char*>(data), length)});
        }
        return true;
    }
    void SendToPorts(std::uint32_t port, CCommunicationDriver*, const std::uint8_t* data,
                     std::uint32_t length) override
    {
        const std::lock_guard guard(m_lock);
        for (const auto& [type, number] : m_ports) {
            if (number == static_cast<std::int32_t>(port)) {
                m_deliveries.push_back({type, number, std::string(reinterpret_cast<const char*>(data), length)});
            }
        }
    }
    void PacketCompleted(std::int32_t deviceType, std::int32_t port) override
    {
        const std::lock_guard guard(m_lock);
        m_completions.emplace_back(deviceType, port);
    }
    void SignalAllPorts() override
    {
        ++signals;
        if (throwsAtSignals > 0) {
            --throwsAtSignals;
            throw std::runtime_error("thrown by the test");
        }
    }
    bool IsSupportedProduct(std::uint16_t vendorId, std::uint16_t productId) override
    {
        if (productId == throwsForProduct) {
            throw std::runtime_error("thrown by the test");
        }
        return vendorId == 0x1E4F && (productId == 0x0100 || productId == 0x0500);
    }
    std::int32_t GetBootloaderVersion(std::uint16_t) override { return 2; }
    void RegisterDeviceName(const std::wstring& name, std::int32_t device, std::uint32_t) override
    {
        const std::lock_guard guard(m_lock);
        m_names.emplace(device, name);
    }
    std::uint32_t FindProcess(const std::wstring& name) override
    {
        const std::lock_guard guard(m_lock);
        m_asked.push_back(name);
        return m_processes.contains(name) ? 1 : 0;
    }
    std::wstring GetFirstHostName() override { return L"First.exe"; }
    std::wstring GetSecondHostName() override { return L"Second.exe"; }
    /// Asked once in every quiet second, before anything else is done in it.
    bool IsStandalone() override
    {
        quietSeconds.Wait(20'000);
        return standalone;
    }
    void RequestQuit() override { ::PostThreadMessageW(mainThread, WM_QUIT, 0, 0); }

    void AddPort(std::int32_t deviceType, std::int32_t port)
    {
        const std::lock_guard guard(m_lock);
        m_ports.emplace(deviceType, port);
    }
    void SetRunning(const std::wstring& name, bool running)
    {
        const std::lock_guard guard(m_lock);
        if (running) {
            m_processes.insert(name);
        } else {
            m_processes.erase(name);
        }
    }
    std::vector<Delivery> Deliveries() const
    {
        const std::lock_guard guard(m_lock);
        return m_deliveries;
    }
    std::vector<std::pair<std::int32_t, std::int32_t>> Completions() const
    {
        const std::lock_guard guard(m_lock);
        return m_completions;
    }
    /// The names that FindProcess was asked for.
    std::vector<std::wstring> Asked() const
    {
        const std::lock_guard guard(m_lock);
        return m_asked;
    }
    std::map<std::int32_t, std::wstring> Names() const
    {
        const std::lock_guard guard(m_lock);
        return m_names;
    }

    /// While reset, a quiet second does not go on: no idle packet gets in front of what the test sends first.
    win32::Event quietSeconds{win32::Event::Kind::ManualReset, true};

    std::atomic<int> signals{0};
    std::atomic<bool> standalone{true};
    std::atomic<DWORD> mainThread{::GetCurrentThreadId()};
    std::atomic<int> throwsForProduct{-1};
    std::atomic<int> throwsAtSignals{0}; // at so many of the next ones
    std::atomic<int> throwsForPort{-2};  // -1 is an address, too

private:
    mutable std::mutex m_lock;
    std::set<std::pair<std::int32_t, std::int32_t>> m_ports;
    std::vector<Delivery> m_deliveries;
    std::vector<std::pair<std::int32_t, std::int32_t>> m_completions;
    std::map<std::int32_t, std::wstring> m_names;
    std::set<std::wstring> m_processes;
    std::vector<std::wstring> m_asked;
};
