// The instrument unplugged and plugged in again, round after round, under the real router with two clients that
// never stop sending.
//
// MORVANE_SOAK_UNPLUGS sets the number of rounds; the default is a short run. A round takes about a second: that
// is how often a port looks whether there is a connection again.
#include "tests/instrument/InstrumentControl.h"
#include "tests/instrument/InstrumentDriver.h"
#include "tests/support/PipeClient.h"
#include "tests/support/RouterSession.h"
#include "tests/support/TestSupport.h"
#include "tests/system/EchoInstrument.h"
#include "tests/system/LongRun.h"
#include "tests/system/RouterLogAccount.h"
#include "win32/RegistryKey.h"
#include "win32/Thread.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <vector>

namespace {

constexpr std::uint32_t Slot = EchoInstrument::Slot;
constexpr std::uint8_t Out = EchoInstrument::Out;

/// A client that sends one numbered packet after the other and waits for each echo, reopening its pipe whenever
/// that breaks.
class Client
{
public:
    Client(char letter, std::string pipe) : m_letter(letter), m_pipe(std::move(pipe))
    {
        m_thread.Start([this] {
            while (m_go) {
                if (m_client.TryOpen(m_pipe)) {
                    Converse();
                    m_client.Close();
                } else {
                    ::Sleep(5); // between two tries: no event announces a pipe
                }
            }
        });
    }
    ~Client() { Stop(); }
    void Stop()
    {
        m_go = false;
        m_thread.Join();
    }
    std::uint32_t Echoes() const { return m_echoes; }

private:
    void Converse()
    {
        while (m_go) {
            char text[16];
            std::snprintf(text, sizeof text, "%c%07u", m_letter, m_next++);
            // An echo may be lost without the pipe breaking; the next packet is sent nevertheless.
            if (!m_client.Write(text) || (!AwaitEcho(text) && m_client.Error() != WAIT_TIMEOUT)) {
                return;
            }
        }
    }
    bool AwaitEcho(const std::string& text)
    {
        for (;;) {
            const auto read = m_client.Read(std::chrono::seconds(3));
            if (!read) {
                return false;
            }
            if (*read == text) {
                ++m_echoes;
                return true;
            }
        }
    }

    const char m_letter;
    const std::string m_pipe;
    support::PipeClient m_client; // the thread's, as the next
    std::uint32_t m_next = 0;
    std::atomic<std::uint32_t> m_echoes{0};
    std::atomic<bool> m_go{true};
    win32::Thread m_thread;
};

class UnplugSoak : public testing::Test
{
protected:
    UnplugSoak()
    {
        EXPECT_EQ(instrumentbus::InstallDriver(instrumentbus::DriverBesideProgram(), support::DefaultTimeout), "");
        // All that becomes of a packet is to be found in one log file.
        RouterSession::SetMask(-1, 0x00090000);
        RouterSession::SetMask(3, 0x00020000);
        win32::RegistryKey::Create(HKEY_LOCAL_MACHINE,
                                   L"Software\\Morvane Biosystems\\Devices\\MorvanePortRouter\\DeviceOptions",
                                   KEY_READ | KEY_WRITE)
            .WriteDword(L"LogFileLimt(MB)", 2'000);
        bus.emplace();
        bus->Clear();
        instrument.emplace();
    }
    ~UnplugSoak() override
    {
        instrument.reset();
        bus->Clear();
    }
    void Start()
    {
        bus->Plug(Slot, instrumentbus::Instrument());
        ASSERT_TRUE(session.Activate());
        for (std::size_t i = 0; i < clients.size(); ++i) {
            const std::string pipe = support::UniqueName("Unplug");
            ASSERT_EQ(session.RegisterPort(3, static_cast<ULONG>(i + 1), {pipe.begin(), pipe.end()}), S_OK);
            clients[i].emplace(static_cast<char>('x' + i), pipe);
        }
    }
    /// Both clients have got that many answers since now.
    void AwaitEchoes(std::uint32_t count)
    {
        const std::uint32_t before[] = {clients[0]->Echoes(), clients[1]->Echoes()};
        ASSERT_TRUE(support::WaitUntil([&] {
            return clients[0]->Echoes() >= before[0] + count && clients[1]->Echoes() >= before[1] + count;
        }));
    }
    /// Every third time with a pending write.
    void Unplug(std::size_t round)
    {
        if (round % 3 == 0) {
            instrumentbus::Rule hold{};
            hold.endpoint = Out;
            hold.actions = instrumentbus::Hold;
            bus->SetRule(hold);
            bus->WaitFor(Slot, Out, [](const instrumentbus::Counters& c) { return c.held == 1; });
        }
        bus->Unplug(Slot);
        bus->Release(Slot);
    }
    /// Every second time before the router has noticed that it was gone.
    void Plug(std::size_t round)
    {
        if (round % 2 == 0) {
            const std::uint32_t closes = bus->Count(Slot).closes;
            bus->WaitFor(
                Slot, Out, [&](const instrumentbus::Counters& c) { return c.closes > closes; },
                std::chrono::milliseconds(100));
        }
        // What was written is the instrument's also when it is unplugged by now.
        ASSERT_TRUE(bus->WaitFor(Slot, Out, [](const instrumentbus::Counters& c) { return c.chunks == 0; }));
        bus->Plug(Slot, instrumentbus::Instrument());
    }

    RouterSession session{RouterSession::Transport::Usb};
    std::optional<instrumentbus::InstrumentControl> bus;
    std::optional<EchoInstrument> instrument;
    std::array<std::optional<Client>, 2> clients;
    longrun::UsageSeries usage; // one sample for each round, always at the same moment of it
};

TEST_F(UnplugSoak, OnlyTracedPacketsAreLostAndTheRouterDoesNotGrow)
{
    ASSERT_NO_FATAL_FAILURE(Start());
    const std::size_t rounds = longrun::Size("MORVANE_SOAK_UNPLUGS", 5);
    longrun::Progress progress("rounds", rounds);
    for (std::size_t round = 0; round < rounds; ++round) {
        ASSERT_NO_FATAL_FAILURE(AwaitEchoes(5)) << "round " << round;
        usage.Add(round, UsageOf(::GetProcessId(session.Process())));
        progress.Show(round, usage.Last());
        Unplug(round);
        ASSERT_NO_FATAL_FAILURE(Plug(round));
    }
    ASSERT_NO_FATAL_FAILURE(AwaitEchoes(5));
    clients[0]->Stop();
    clients[1]->Stop();
    // The last packets are on their way to the instrument; after them an idle packet ends the router's work.
    bus->WaitFor(Slot, Out,
                 [before = bus->Count(Slot, Out).begun](const auto& c) { return c.begun >= before + 2; });
    session.Release();
    EXPECT_EQ(session.WaitForEnd(), 0u);

    const RouterLogAccount account(session.LogFile(), instrument->Stop());
    longrun::PrintFigure("rounds without the instrument", std::to_string(rounds));
    longrun::PrintFigure("rounds, the account of every packet", account.Summary());
    EXPECT_GE(account.Connections(), rounds + 1);
    EXPECT_GT(account.Arrived(), rounds * 10);
    EXPECT_EQ(account.Faults(), "");

    // The first rounds bring what a router needs once.
    const std::size_t part = std::max<std::size_t>(rounds / 4, 1);
    const ProcessUsage early = usage.MedianBetween(part, std::min(2 * part, rounds));
    const ProcessUsage late = usage.MedianBetween(rounds - part, rounds);
    longrun::PrintUsage("rounds", early, late);
    ASSERT_NE(early.handles, 0u);
    EXPECT_LE(late.handles, early.handles + (rounds >= 100 ? 0 : 4));
    EXPECT_LE(late.privateBytes, early.privateBytes + (rounds >= 100 ? 1u << 20 : 16u << 20));
}

} // namespace
