// The client library for a long time: ports opened and closed, the instrument unplugged and the router killed
// under four clients that never stop asking. Each request is answered or reported, and the process stays as large
// as it was.
//
// MORVANE_SOAK_LIBRARY multiplies the rounds: 1 is the short run of 200 opens, 20 unplugs and 10 kills, 50 the
// long one of 10,000, 1,000 and 200.
#include "tests/client/AttachedPort.h"
#include "tests/instrument/InstrumentDriver.h"
#include "tests/support/KilledServer.h"
#include "tests/support/ProcessUsage.h"
#include "tests/support/RouterSession.h"
#include "tests/support/TestSupport.h"
#include "tests/support/UnderWine.h"
#include "tests/system/EchoInstrument.h"
#include "tests/system/SimulatorProcess.h"
#include "win32/Thread.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

namespace {

using morvane::Of;
using morvane::Timeout;

constexpr std::uint32_t Slot = EchoInstrument::Slot;
constexpr std::size_t Clients = 4;
constexpr const wchar_t* RouterName = L"MorvanePortRouter.exe";

int Times(int count)
{
    const char* const factor = std::getenv("MORVANE_SOAK_LIBRARY");
    return factor != nullptr ? count * std::atoi(factor) : count;
}

morvane_options OptionsOf(std::size_t client)
{
    morvane_options options = morvane::Options(static_cast<std::int32_t>(3 + client), 1);
    options.open_timeout = 60'000;
    return options;
}

/// What became of the requests of all clients. Each request is counted once.
struct Account
{
    std::atomic<std::uint32_t> answered{0};
    std::atomic<std::uint32_t> lost{0};    // sent, and reported as not answered
    std::atomic<std::uint32_t> refused{0}; // reported as not sent
    std::atomic<std::uint32_t> late{0};    // no answer in time
    std::atomic<std::uint32_t> wrong{0};   // another answer, or an error that says nothing of this

    void Count(int error, bool isRight)
    {
        switch (error) {
        case MORVANE_OK: isRight ? ++answered : ++wrong; break;
        case MORVANE_E_LOST: ++lost; break;
        case MORVANE_E_NO_PIPE:
        case MORVANE_E_ROUTER_GONE: ++refused; break;
        case MORVANE_E_TIMEOUT: ++late; break;
        default:
            ++wrong;
            std::printf("a request ended with %s\n", morvane_error_name(error));
            break;
        }
    }
};

ProcessUsage OwnUsage()
{
    ProcessUsage usage = UsageOf(::GetCurrentProcessId());
    usage.handles = CountOfHandles();
    return usage;
}

/// Asks as fast as it is answered, and after each failure waits until the port can be used again.
class Asker
{
public:
    Asker(std::size_t client, Account& account) : m_port(OptionsOf(client)), m_account(account)
    {
        m_thread.Start([this, client] {
            for (std::uint32_t number = 0; m_go; ++number) {
                Ask("client " + std::to_string(client) + " request " + std::to_string(number));
            }
        });
    }
    ~Asker()
    {
        m_go = false;
        m_thread.Join();
    }
    Asker(const Asker&) = delete;
    Asker& operator=(const Asker&) = delete;
    std::uint32_t Answers() const { return m_answers; }
    const morvane::Port& Port() const { return m_port; }

private:
    void Ask(const std::string& text)
    {
        int error = MORVANE_OK;
        const morvane::Bytes reply = m_port.Request(Of(text), Timeout(10'000), error);
        const bool isRight = TextOf(reply) == text;
        m_account.Count(error, isRight);
        m_answers += isRight ? 1 : 0;
        if (error == MORVANE_E_TIMEOUT) {
            m_port.Reopen(Timeout(1000), error);
        } else if (error != MORVANE_OK) {
            // The reply to what was lost may come on the next connection: no request before that is over.
            do {
                m_port.WaitReady(Timeout(1000), error);
                m_port.Resync(Timeout(50), Timeout(1000), error);
            } while (error != MORVANE_OK && m_go);
        }
    }

    morvane::Port m_port;
    Account& m_account;
    std::atomic<std::uint32_t> m_answers{0};
    std::atomic<bool> m_go{true};
    win32::Thread m_thread;
};

class LibrarySoakClients : public testing::Test
{
protected:
    void StartClients()
    {
        for (std::size_t i = 0; i < Clients; ++i) {
            askers[i] = std::make_unique<Asker>(i, account);
        }
    }
    void StopClients()
    {
        for (auto& asker : askers) {
            asker.reset();
        }
    }
    /// Each client has got that many answers since now.
    void AwaitAnswers(std::uint32_t count)
    {
        for (const auto& asker : askers) {
            const std::uint32_t before = asker->Answers();
            ASSERT_TRUE(support::WaitUntil([&] { return asker->Answers() >= before + count; },
                                           3 * support::DefaultTimeout));
        }
    }
    void ExpectThatAllWasAnsweredOrReported(const char* what) const
    {
        std::printf("%s: %u answered, %u lost, %u not sent, %u late, %u wrong\n", what, account.answered.load(),
                    account.lost.load(), account.refused.load(), account.late.load(), account.wrong.load());
        EXPECT_EQ(account.wrong, 0u);
        EXPECT_GT(account.answered, 0u);
    }
    /// The first rounds bring what a process needs once. `kept`: handles that Windows keeps, of no object of ours.
    static void ExpectNoGrowth(const char* what, const ProcessUsage& early, DWORD kept = 0)
    {
        const ProcessUsage late = OwnUsage();
        std::printf("%s: handles %lu then %lu, private memory %zu KB then %zu KB\n", what,
                    static_cast<unsigned long>(early.handles), static_cast<unsigned long>(late.handles),
                    early.privateBytes / 1024, late.privateBytes / 1024);
        EXPECT_LE(late.handles, early.handles + 8 + kept);
        EXPECT_LE(late.privateBytes, early.privateBytes + (4u << 20));
    }

    Account account;
    std::array<std::unique_ptr<Asker>, Clients> askers;
};

class LibrarySoak : public LibrarySoakClients
{
protected:
    LibrarySoak()
    {
        EXPECT_EQ(instrumentbus::InstallDriver(instrumentbus::DriverBesideProgram(), support::DefaultTimeout), "");
        bus.emplace();
        bus->Clear();
        bus->Plug(Slot, instrumentbus::Instrument());
        instrument.emplace(EchoInstrument::Payloads::Dropped);
    }
    ~LibrarySoak() override
    {
        StopClients();
        instrument.reset();
        bus->Clear();
    }

    RouterSession session{RouterSession::Transport::Usb};
    std::optional<instrumentbus::InstrumentControl> bus;
    std::optional<EchoInstrument> instrument;
};

/// With the simulated connection: what a dying router cancels in the middle of traffic may take Wine's driver host
/// with it.
class LibrarySoakKills : public LibrarySoakClients
{
protected:
    ~LibrarySoakKills() override { StopClients(); }

    RouterSession session{RouterSession::Transport::Simulation};
    SimulatorProcess simulator{std::wstring()};
};

void OpenAskClose(std::size_t client, Account& account)
{
    int error = MORVANE_OK;
    const morvane::Port port(OptionsOf(client), error);
    ASSERT_EQ(error, MORVANE_OK) << morvane_error_name(error) << " " << std::hex << ::GetLastError();
    const morvane::Bytes reply = port.Request(Of("hello"), Timeout(10'000), error);
    account.Count(error, TextOf(reply) == "hello");
}

TEST_F(LibrarySoak, PortsOpenAndCloseWithoutTrace)
{
    const int starts = Times(4);
    const int opens = Times(200) - starts;
    for (int start = 0; start < starts; ++start) {
        ASSERT_NO_FATAL_FAILURE(OpenAskClose(0, account));
        ASSERT_TRUE(support::WaitUntil([] { return FindProgram(RouterName) == 0; }));
    }
    const morvane::Port keeper(OptionsOf(Clients));
    ProcessUsage early;
    for (const int share : {8, opens - 8}) {
        std::array<win32::Thread, Clients> threads;
        for (std::size_t i = 0; i < Clients; ++i) {
            ASSERT_TRUE(threads[i].Start([this, i, share] {
                for (int round = 0; round < share / static_cast<int>(Clients); ++round) {
                    OpenAskClose(i, account);
                }
            }));
        }
        for (win32::Thread& thread : threads) {
            thread.Join();
        }
        early = early.handles == 0 ? OwnUsage() : early;
    }
    ExpectThatAllWasAnsweredOrReported("opened and closed");
    EXPECT_EQ(account.answered + account.lost, static_cast<std::uint32_t>(starts + opens));
    ExpectNoGrowth("opened and closed", early);
}

TEST_F(LibrarySoak, UnpluggedInstrumentsComeBack)
{
    ASSERT_NO_FATAL_FAILURE(StartClients());
    const int rounds = Times(20);
    ProcessUsage early;
    for (int round = 0; round < rounds; ++round) {
        ASSERT_NO_FATAL_FAILURE(AwaitAnswers(3)) << "round " << round;
        early = round == 4 ? OwnUsage() : early;
        bus->Unplug(Slot);
        bus->Release(Slot);
        ASSERT_TRUE(AwaitEvent(askers[0]->Port(), MORVANE_EVENT_INSTRUMENT_GONE)) << "round " << round;
        // What was written is the instrument's also when it is unplugged by now.
        ASSERT_TRUE(bus->WaitFor(Slot, EchoInstrument::Out, [](const auto& c) { return c.chunks == 0; }));
        bus->Plug(Slot, instrumentbus::Instrument());
    }
    ASSERT_NO_FATAL_FAILURE(AwaitAnswers(3));
    ExpectNoGrowth("unplugged", early);
    StopClients();
    ExpectThatAllWasAnsweredOrReported("unplugged");
}

TEST_F(LibrarySoakKills, KilledRoutersAreStartedAgain)
{
    ASSERT_NO_FATAL_FAILURE(StartClients());
    const int rounds = std::max(10, Times(4));
    ProcessUsage early;
    for (int round = 0; round < rounds; ++round) {
        ASSERT_NO_FATAL_FAILURE(AwaitAnswers(3)) << "round " << round;
        early = round == 3 ? OwnUsage() : early;
        const win32::KernelHandle router(
            ::OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, FindProgram(RouterName)));
        ASSERT_TRUE(::TerminateProcess(router.Get(), 1));
        ASSERT_TRUE(support::WaitFor(router.Get()));
        ForgetKilledServers();
        ASSERT_TRUE(AwaitEvent(askers[0]->Port(), MORVANE_EVENT_ROUTER_BACK)) << "round " << round;
    }
    ASSERT_NO_FATAL_FAILURE(AwaitAnswers(3));
    // Wine keeps handles of the proxies of a server that was killed, also of bare objects that were released: for
    // four of them 11, of events and pipes; here 13.
    ExpectNoGrowth("killed", early, support::IsUnderWine() ? static_cast<DWORD>(16 * (rounds - 3)) : 0);
    StopClients();
    ExpectThatAllWasAnsweredOrReported("killed");
}

} // namespace
