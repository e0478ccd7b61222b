// What stands around the product's core in a run: the host that it asks, the sink of its traces, and the transport
// as its ports see it. Each passes on and tells the account.
#pragma once

#include "host/PortTable.h"
#include "host/TraceOptionsTable.h"
#include "simulation/scenario/Account.h"
#include "trace/TraceSink.h"
#include "transport/CCommunicationDriver.h"
#include "transport/TransportHost.h"

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace sim {

/// The host: the product's own port table, and the answers of a machine with one supported product.
class Host final : public IPortDirectory, public IProducts, public IHostWatch, public IDeviceNames
{
public:
    static constexpr std::uint16_t VendorId = 0x1E4F, ProductId = 0x0100;

    explicit Host(Account& account) : m_account(account) {}
    operator TransportHost() { return {*this, *this, *this, *this}; }

    bool SendToPort(PortAddress address, CCommunicationDriver* source,
                    std::span<const std::uint8_t> payload) override;
    void SendToPorts(std::int32_t port, CCommunicationDriver* source,
                     std::span<const std::uint8_t> payload) override;
    void PacketCompleted(PortAddress address) override;
    void SignalAllPorts() override;

    bool IsSupportedProduct(std::uint16_t vendorId, std::uint16_t productId) const override
    {
        return vendorId == VendorId && productId == ProductId;
    }
    std::int32_t GetBootloaderVersion(std::uint16_t) const override { return 2; }
    std::uint32_t FindProcess(const std::wstring& name) const override
    {
        return !hostsHaveLeft && name == hostName ? 1 : 0;
    }
    std::wstring GetFirstHostName() const override { return L"first"; }
    std::wstring GetSecondHostName() const override { return L"second"; }
    bool IsStandalone() const override { return isStandalone; }
    void RequestQuit() override { hasAskedToQuit = true; }
    void RegisterDeviceName(const std::wstring&, std::int32_t) override {}

    PortTable table;
    std::wstring hostName;       // which of the two runs,
    bool hostsHaveLeft = false;  // until it has left
    bool isStandalone = true;    // no host program is looked for
    bool hasAskedToQuit = false; // for want of them

private:
    Account& m_account;
};

/// The transport that a port is given: each message that the port hands over passes here.
class CountedTransport final : public CCommunicationDriver
{
public:
    CountedTransport(CCommunicationDriver& inner, Account& account) : m_inner(inner), m_account(account) {}

    void Reconnect() override { m_inner.Reconnect(); }
    void Send(std::uint8_t x, std::uint8_t y, const std::uint8_t* data, std::uint32_t length) override;
    bool IsConnected() override { return m_inner.IsConnected(); }
    bool IsReady() override;
    bool IsUpdatingFirmware() override { return m_inner.IsUpdatingFirmware(); }
    std::uint32_t GetTransferredBytes() override { return m_inner.GetTransferredBytes(); }
    void DispatchToDevice(const std::uint8_t*, std::uint32_t) override {}

private:
    CCommunicationDriver& m_inner;
    Account& m_account;
    std::map<int, std::uint64_t> m_repeats;
};

/// What a line of the trace tells the account. After a loss something that was on its way may be gone.
enum class LineMeaning {
    None,
    Loss,
    LinkOpened,
    Opened,
    Closed,
    TransferFailed,
    Ignored,
    NotConnected,
    NoClient,
    PipeCreated,
    ReadBroken,
    Accepted,
    Connected,
    GivenUp,
    Started,
    CannotRun
};

/// Every line goes into the hash and is read for the account; what the settings say of dumps counts as in the
/// router.
class TraceReader final : public ITraceSink
{
public:
    explicit TraceReader(Account& account);
    ~TraceReader();

    /// The trace has told that a port or the router cannot work.
    bool HasGivenUp() const;
    /// The settings are changed while the router works.
    void ChangeSettings();

    std::uint32_t EffectiveMask(std::int32_t device, std::uint32_t classMask) const noexcept override;
    void Write(std::int32_t device, std::uint32_t effectiveMask, const char* format,
               std::va_list arguments) noexcept override;
    bool Dump(std::int32_t device, std::uint32_t effectiveMask, const std::uint8_t* data, std::uint32_t length,
              bool hexOnly, std::string& out) override;

private:
    struct Format
    {
        const char* text = nullptr;
        bool isOpen = false; // the line itself has to be looked at
        LineMeaning meaning = LineMeaning::None;
    };

    Format& Known(const char* format);
    void Read(std::int32_t device, const char* format, const char* line);

    Account& m_account;
    TraceOptionsTable m_options;
    std::array<Format, 256> m_formats{};
    std::map<std::int32_t, int> m_brokenReads; // of the pipe there is, by device type
    std::map<std::int32_t, int> m_unread;      // clients accepted since one was served, by device type
    bool m_hasStarted = false;                 // the command thread
    bool m_hasGivenUp = false;
};

} // namespace sim
