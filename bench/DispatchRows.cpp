// The product's parser: CCyUSBDriver::DispatchToDevice with a module that only looks on.
#include "bench/Rows.h"
#include "transport/CCyUSBDriver.h"

namespace bench {

namespace {

/// Takes every packet for a port that is there; nothing else is asked of it.
class WatchingHost final : public IPortDirectory, public IProducts, public IHostWatch, public IDeviceNames
{
public:
    operator TransportHost() { return {*this, *this, *this, *this}; }

    bool SendToPort(PortAddress, CCommunicationDriver*, std::span<const std::uint8_t> payload) override
    {
        (*watch)(payload);
        return true;
    }
    void SendToPorts(std::int32_t, CCommunicationDriver*, std::span<const std::uint8_t>) override {}
    void PacketCompleted(PortAddress) override {}
    void SignalAllPorts() override {}
    bool IsSupportedProduct(std::uint16_t, std::uint16_t) const override { return false; }
    std::int32_t GetBootloaderVersion(std::uint16_t) const override { return 2; }
    void RegisterDeviceName(const std::wstring&, std::int32_t) override {}
    std::uint32_t FindProcess(const std::wstring&) const override { return 0; }
    std::wstring GetFirstHostName() const override { return {}; }
    std::wstring GetSecondHostName() const override { return {}; }
    bool IsStandalone() const override { return true; }
    void RequestQuit() override {}

    const PacketWatch* watch = nullptr;
};

} // namespace

void AddDispatchRows(Table& table, const RunSize& run)
{
    WatchingHost host;
    // Never connects, so its own threads sleep and this one may call what is the reply thread's.
    CCyUSBDriver driver(true, host);
    const auto parse = [&](Span block, const PacketWatch& watch) {
        host.watch = &watch;
        driver.DispatchToDevice(block.data(), static_cast<std::uint32_t>(block.size()));
    };
    AddParsingRows(table, run, parse, "parsing");
}

} // namespace bench
