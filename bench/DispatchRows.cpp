// The product's parser: CCyUSBDriver::DispatchToDevice with a module that only looks on.
#include "bench/Rows.h"
#include "bench/WireRows.h"
#include "transport/CCyUSBDriver.h"

namespace bench {

namespace {

/// Takes every packet for a port that is there.
class WatchingHost final : public ITransportHost
{
public:
    bool SendToPort(std::int32_t, std::int32_t, CCommunicationDriver*, const std::uint8_t* data,
                    std::uint32_t length) override
    {
        watch->OnPacket({data, length});
        return true;
    }
    void SendToPorts(std::uint32_t, CCommunicationDriver*, const std::uint8_t*, std::uint32_t) override {}
    void PacketCompleted(std::int32_t, std::int32_t) override {}
    void SignalAllPorts() override {}
    bool IsSupportedProduct(std::uint16_t, std::uint16_t) override { return false; }
    std::int32_t GetBootloaderVersion(std::uint16_t) override { return 2; }
    void RegisterDeviceName(const std::wstring&, std::int32_t, std::uint32_t) override {}
    std::uint32_t FindProcess(const std::wstring&) override { return 0; }
    std::wstring GetFirstHostName() override { return {}; }
    std::wstring GetSecondHostName() override { return {}; }
    bool IsStandalone() override { return true; }
    void RequestQuit() override {}

    PacketWatch* watch = nullptr;
};

/// Never connects, so its own threads sleep and this one may call what is the reply thread's.
class DispatchParser final : public BlockParser
{
public:
    void Parse(std::span<const std::uint8_t> block, PacketWatch& watch) override
    {
        m_host.watch = &watch;
        m_driver.DispatchToDevice(block.data(), static_cast<std::uint32_t>(block.size()));
    }

private:
    WatchingHost m_host;
    CCyUSBDriver m_driver{true, m_host};
};

} // namespace

void AddDispatchRows(Table& table, const Effort& effort)
{
    DispatchParser parser;
    AddParsingRows(table, effort, parser, "parsing");
}

} // namespace bench
