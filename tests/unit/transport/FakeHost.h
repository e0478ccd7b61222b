// A host that records what the transport asks of it.
#pragma once

#include "transport/TransportHost.h"
#include "win32/Event.h"

#include <atomic>
#include <map>
#include <mutex>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

class FakeHost : public IPortDirectory, public IProducts, public IHostWatch, public IDeviceNames
{
public:
    struct Delivery
    {
        std::int32_t deviceType;
        std::int32_t port;
        std::string payload;
    };

    operator TransportHost() { return {*this, *this, *this, *this}; }

    bool SendToPort(PortAddress address, CCommunicationDriver*, std::span<const std::uint8_t> payload) override
    {
        if (address.port == throwsForPort) {
            throw std::runtime_error("thrown by the test");
        }
        const std::lock_guard guard(m_lock);
        if (!m_ports.contains(address)) {
            return false;
        }
        if (!payload.empty()) {
            m_deliveries.push_back(
                {address.deviceType, address.port, std::string(payload.begin(), payload.end())});
        }
        return true;
    }
    void SendToPorts(std::int32_t port, CCommunicationDriver*, std::span<const std::uint8_t> payload) override
    {
        const std::lock_guard guard(m_lock);
        for (const PortAddress address : m_ports) {
            if (address.port == port) {
                m_deliveries.push_back({address.deviceType, port, std::string(payload.begin(), payload.end())});
            }
        }
    }
    void PacketCompleted(PortAddress address) override
    {
        const std::lock_guard guard(m_lock);
        m_completions.push_back(address);
    }
    void SignalAllPorts() override
    {
        ++signals;
        if (throwsAtSignals > 0) {
            --throwsAtSignals;
            throw std::runtime_error("thrown by the test");
        }
    }
    bool IsSupportedProduct(std::uint16_t vendorId, std::uint16_t productId) const override
    {
        if (productId == throwsForProduct) {
            throw std::runtime_error("thrown by the test");
        }
        return vendorId == 0x1E4F && (productId == 0x0100 || productId == 0x0500);
    }
    std::int32_t GetBootloaderVersion(std::uint16_t) const override { return 2; }
    void RegisterDeviceName(const std::wstring& name, std::int32_t device) override
    {
        const std::lock_guard guard(m_lock);
        m_names.emplace(device, name);
    }
    std::uint32_t FindProcess(const std::wstring& name) const override
    {
        const std::lock_guard guard(m_lock);
        m_asked.push_back(name);
        return m_processes.contains(name) ? 1 : 0;
    }
    std::wstring GetFirstHostName() const override { return L"First.exe"; }
    std::wstring GetSecondHostName() const override { return L"Second.exe"; }
    /// Asked once in every quiet second, before anything else is done in it.
    bool IsStandalone() const override
    {
        quietSeconds.Wait(20'000);
        return standalone;
    }
    void RequestQuit() override { ::PostThreadMessageW(mainThread, WM_QUIT, 0, 0); }

    void AddPort(std::int32_t deviceType, std::int32_t port)
    {
        const std::lock_guard guard(m_lock);
        m_ports.insert({deviceType, port});
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
    std::vector<PortAddress> Completions() const
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
    std::set<PortAddress> m_ports;
    std::vector<Delivery> m_deliveries;
    std::vector<PortAddress> m_completions;
    std::map<std::int32_t, std::wstring> m_names;
    std::set<std::wstring> m_processes;
    mutable std::vector<std::wstring> m_asked;
};
