#include "tests/windows/Row.h"

#include "host/PortTable.h"
#include "instrument/Endpoint.h"
#include "ports/CCDevicePortPipe.h"
#include "tests/support/PipeClient.h"
#include "tests/support/ProcessUsage.h"
#include "tests/support/UniqueName.h"
#include "transport/CCyUSBDriver.h"
#include "win32/Thread.h"

#include <array>
#include <atomic>
#include <memory>

namespace windowscheck {

namespace {

constexpr wchar_t InstrumentPipe[] = LR"(\\.\pipe\UsbPipeSimulator)";
constexpr int Clients = 4;

/// What the transport asks of its host besides the ports: nothing that matters to a simulated instrument.
class Host final : public IProducts, public IHostWatch, public IDeviceNames
{
public:
    bool IsSupportedProduct(std::uint16_t, std::uint16_t) const override { return false; }
    std::int32_t GetBootloaderVersion(std::uint16_t) const override { return 2; }
    std::uint32_t FindProcess(const std::wstring&) const override { return 0; }
    std::wstring GetFirstHostName() const override { return {}; }
    std::wstring GetSecondHostName() const override { return {}; }
    bool IsStandalone() const override { return true; }
    void RequestQuit() override {}
    void RegisterDeviceName(const std::wstring&, std::int32_t) override {}
};

/// Echoes every packet, on a thread of its own.
class Instrument
{
public:
    Instrument()
    {
        m_thread.Start([this] {
            instrument::Engine engine({});
            const auto endpoint = instrument::MakePipeEndpoint(InstrumentPipe, engine, m_stop.Get());
            m_isTaken = endpoint->Run({}, [] {}, [] {}) != instrument::Endpoint::End::Stopped;
        });
    }
    ~Instrument()
    {
        m_stop.Set();
        m_thread.Join();
    }
    Instrument(const Instrument&) = delete;
    Instrument& operator=(const Instrument&) = delete;
    bool IsTaken() const { return m_isTaken; }

private:
    win32::Event m_stop{win32::Event::Kind::ManualReset};
    std::atomic<bool> m_isTaken{false};
    win32::Thread m_thread;
};

struct Counts
{
    std::atomic<int> answered{0};
    std::atomic<int> lost{0};
    std::atomic<int> visits{0};
    std::atomic<bool> go{true};
};

/// A client that sends until the end, and opens its pipe again after every 500 requests.
void Converse(const std::string& pipe, Counts& counts)
{
    support::PipeClient client;
    for (int request = 0; counts.go; ++request) {
        if (request % 500 == 0) {
            client.Close();
            const bool opened = support::WaitUntil([&] {
                return client.Open(pipe) && client.Write("hello") &&
                       client.Read(std::chrono::seconds(3)) == "hello";
            });
            ++(opened ? counts.visits : counts.lost);
        }
        const std::string text(static_cast<std::size_t>(request % 2'000 + 1), 's');
        ++(client.Write(text) && client.Read() == text ? counts.answered : counts.lost);
        if (counts.lost > 20) {
            return;
        }
    }
}

} // namespace

Found RunShortSoak(int seconds, std::string& figures)
{
    const win32::FileHandle served(
        ::CreateFileW(InstrumentPipe, GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    if (served || ::GetLastError() == ERROR_PIPE_BUSY) {
        return Skipped("another program plays the simulated instrument");
    }
    Host host;
    PortTable ports;
    Counts counts;
    ProcessUsage early;
    ProcessUsage late;
    {
        const Instrument instrument;
        CCyUSBDriver transport(true, {ports, host, host, host});
        transport.Reconnect();
        std::array<win32::Thread, Clients> clients;
        for (int id = 0; id < Clients; ++id) {
            const std::string pipe = support::UniqueName("WindowsCheck");
            const PortAddress address{3, id + 1};
            ports.AddPort(address, std::make_unique<CCDevicePortPipe>(&transport, address, pipe, 4096, 4096));
            clients[static_cast<std::size_t>(id)].Start([pipe, &counts] { Converse(pipe, counts); });
        }
        // What is allocated once is there after a quarter of the time.
        ::Sleep(static_cast<DWORD>(seconds) * 250); // the soak's own length: no event ends it
        early = UsageOf(::GetCurrentProcessId());
        ::Sleep(static_cast<DWORD>(seconds) * 750); // the rest of it
        late = UsageOf(::GetCurrentProcessId());
        if (instrument.IsTaken()) {
            return Skipped("another program plays the simulated instrument");
        }
        counts.go = false;
        for (win32::Thread& client : clients) {
            client.Join();
        }
        ports.DeleteAllPorts();
    }
    figures = std::to_string(counts.answered) + " packets answered, " + std::to_string(counts.lost) +
              " lost, pipes opened " + std::to_string(counts.visits) + " times; handles " +
              std::to_string(early.handles) + " then " + std::to_string(late.handles) + ", private KB " +
              std::to_string(early.privateBytes / 1024) + " then " + std::to_string(late.privateBytes / 1024);
    return HoldsIf(counts.answered > 0 && counts.lost == 0 && late.handles <= early.handles + 20 &&
                       late.privateBytes <= early.privateBytes + (8u << 20),
                   "packets were lost, or the process grew");
}

} // namespace windowscheck
