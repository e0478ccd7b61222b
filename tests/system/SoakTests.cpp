// Hours in minutes: four ports that stay, while clients come, go and are killed; and ports that are registered and
// removed without end.
//
// MORVANE_SOAK_PACKETS sets how many packets go over the four ports in all, MORVANE_SOAK_REGISTRATIONS how often a
// port is registered and removed; the defaults are short runs.
#include "tests/support/ProcessUsage.h"
#include "tests/support/RouterSession.h"
#include "tests/support/TestSupport.h"
#include "tests/system/LongRun.h"
#include "tests/system/Resident.h"
#include "tests/system/SimulatorProcess.h"
#include "win32/Thread.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <fstream>
#include <memory>
#include <optional>
#include <vector>

namespace {

constexpr std::size_t Ports = 4;
constexpr int Visitors = 3;
/// From so many packets on what the router needs once no longer shows.
constexpr std::size_t LongRunPackets = 100'000;
/// Bytes that Wine 8 leaves in a server for each object that a client made and released: about 2 KB. The router's
/// own objects leave none, see RouterObject.KeepsNoMemoryOfObjectsThatCameAndWent.
constexpr std::size_t KeptByWine = 3u << 10;

/// Clients that come, ask, go and come again, as processes of their own. Every third one is killed in the middle
/// of its requests.
class Visitor
{
public:
    /// The one to be killed opens a pipe that this process has registered: Wine never releases the object of a
    /// client that was killed, and the router would keep its port.
    Visitor(int id, std::string sharedPipe)
        : m_id(std::to_wstring(id)), m_pipe(sharedPipe.begin(), sharedPipe.end())
    {
        m_thread.Start([this] {
            for (int visit = 0; m_go; ++visit) {
                visit % 3 == 2 ? VisitAndDie() : Visit();
            }
        });
    }
    int Visits() const { return m_visits; }
    int Deaths() const { return m_deaths; }
    int Faults() const { return m_faults; }
    void Stop()
    {
        m_go = false;
        m_thread.Join();
    }

private:
    void Visit()
    {
        const support::ChildProcess probe(Program(), L"measure --port 5," + m_id + L" --count 20 --quiet");
        const std::optional<DWORD> code = probe.WaitForExit(std::chrono::minutes(2));
        if (code != 0u) {
            AddFault("visit", code, probe);
        }
        ++m_visits;
    }
    void VisitAndDie()
    {
        const std::wstring ready = support::UniqueName(L"VisitorReady");
        const win32::KernelHandle event(::CreateEventW(nullptr, TRUE, FALSE, ready.c_str()));
        const support::ChildProcess probe(Program(),
                                          L"measure --count 0 --quiet --attach --open-timeout 60 --port 6," +
                                              m_id + L" --pipe-name " + m_pipe + L" --ready-event " + ready);
        const bool isReady = support::WaitFor(event.Get(), std::chrono::minutes(2));
        // It does not end, it sends meanwhile.
        const std::optional<DWORD> code = probe.WaitForExit(std::chrono::milliseconds(50));
        if (!isReady || code) {
            AddFault("visit to be killed", code, probe);
        }
        probe.Kill();
        probe.WaitForExit();
        ++m_deaths;
    }
    /// Prints the fault with the output of the client. Prints it immediately, because the run continues.
    void AddFault(const char* what, std::optional<DWORD> code, const support::ChildProcess& probe)
    {
        ++m_faults;
        std::printf("visitor %ls, %s %d: %s: %s\n", m_id.c_str(), what, m_visits + m_deaths + 1,
                    code ? ("exit code " + std::to_string(*code)).c_str() : "no end", probe.Output().c_str());
        std::fflush(stdout);
    }
    static std::filesystem::path Program() { return support::ProgramFolder() / L"RouterProbe.exe"; }

    const std::wstring m_id;
    const std::wstring m_pipe;
    std::atomic<int> m_visits{0};
    std::atomic<int> m_deaths{0};
    std::atomic<int> m_faults{0};
    std::atomic<bool> m_go{true};
    win32::Thread m_thread;
};

class Soak : public testing::Test
{
protected:
    /// Starts a simulated instrument, the router and the residents.
    void Start(std::size_t requestsEach)
    {
        RouterSession::SetMask(-1, 0x00180000);
        simulator.emplace(std::wstring());
        ASSERT_TRUE(simulator->WaitUntilServed());
        ASSERT_TRUE(session.Activate());
        for (std::size_t port = 0; port < Ports; ++port) {
            residents.push_back(std::make_unique<Resident>(requestsEach));
            ASSERT_TRUE(residents.back()->Open(served::Register(session, 3, static_cast<ULONG>(port + 1))));
        }
        for (std::size_t port = 0; port < Ports; ++port) {
            residents[port]->Run(static_cast<int>(port), answered, go);
        }
    }
    void Join()
    {
        for (const auto& resident : residents) {
            resident->Join();
        }
    }
    ProcessUsage Usage() const { return UsageOf(::GetProcessId(session.Process())); }
    std::size_t SkippedPackets() const
    {
        std::ifstream in(session.LogFile().parent_path() / L"USBPortRouterSkippedPacket.log");
        std::size_t gaps = 0;
        for (std::string line; std::getline(in, line);) {
            // The instrument's step from 255 to 0 is always reported.
            gaps += line.find("Previous Packet#   255  Current Packet# 0") == std::string::npos ? 1 : 0;
        }
        return gaps;
    }
    void ExpectNothingLost()
    {
        EXPECT_FALSE(answered.failed);
        EXPECT_EQ(SkippedPackets(), 0u);
        const std::string summary = simulator->Summary();
        EXPECT_NE(summary.find("faults of the router: 0 number gaps, 0 wrong checksums, 0 bytes outside packets"),
                  std::string::npos)
            << summary;
    }
    /// `objects`: automation objects that clients made and released between the two.
    static void ExpectSteady(const ProcessUsage& early, const ProcessUsage& late, bool longRun,
                             std::size_t objects = 0)
    {
        ASSERT_NE(early.handles, 0u);
        ASSERT_NE(early.privateBytes, 0u);
        // In a short run a visitor that connects or leaves just then shows with some megabytes, and the handles of
        // Wine, which counts the space it has for them, may double. What is leaked for every packet stands out in
        // the long run.
        EXPECT_LE(late.handles, longRun ? early.handles + 4 : 2 * early.handles + 20 * Visitors);
        const std::size_t room = (longRun ? 1u << 20 : 24u << 20) + objects * KeptByWine;
        EXPECT_LE(late.privateBytes, early.privateBytes + room);
    }
    /// Medians of the first and of the last tenth, which a long run must not let drift apart by a tenth.
    static void ExpectSteady(const char* what, std::int64_t first, std::int64_t last, bool longRun)
    {
        longrun::PrintFigure(what, std::to_string(first) + " us in the first tenth, " + std::to_string(last) +
                                       " us in the last");
        EXPECT_GT(first, 0);
        if (longRun) {
            EXPECT_LE(last, first + first / 10);
        }
    }

    RouterSession session{RouterSession::Transport::Simulation};
    std::optional<SimulatorProcess> simulator;
    Answered answered;
    std::atomic<bool> go{true};
    std::vector<std::unique_ptr<Resident>> residents;
    longrun::UsageSeries usage;
};

TEST_F(Soak, NothingIsLostWhileClientsComeGoAndAreKilled)
{
    const std::size_t each = longrun::Size("MORVANE_SOAK_PACKETS", 6'000) / Ports;
    const std::size_t all = each * Ports;
    ASSERT_NO_FATAL_FAILURE(Start(each));
    std::vector<std::unique_ptr<Visitor>> visitors;
    for (int id = 1; id <= Visitors; ++id) {
        visitors.push_back(std::make_unique<Visitor>(id, served::Register(session, 6, static_cast<ULONG>(id))));
    }

    longrun::Progress progress("packets", all);
    // A router that ends takes the residents with it, and so ends this.
    while (!answered.HasReached(all) && !support::WaitFor(session.Process(), std::chrono::milliseconds(50))) {
        usage.Add(answered.count, Usage());
        progress.Show(answered.count, usage.Last());
    }
    Join();
    usage.Add(answered.count, Usage());
    // In the shortest of runs the visitors are still at their first visit.
    EXPECT_TRUE(support::WaitUntil([&] { return visitors[0]->Deaths() > 0; }, std::chrono::minutes(2)));
    int visits = 0;
    int deaths = 0;
    for (const auto& visitor : visitors) {
        visitor->Stop();
        visits += visitor->Visits();
        deaths += visitor->Deaths();
        EXPECT_EQ(visitor->Faults(), 0);
    }

    longrun::PrintFigure("packets answered", std::to_string(answered.count) + " of " + std::to_string(all));
    longrun::PrintFigure("packets, clients meanwhile", std::to_string(visits) + " that came and went, " +
                                                           std::to_string(deaths) + " that were killed");
    EXPECT_EQ(answered.count, all);
    ExpectNothingLost();
    // A short run may be through its second quarter between two looks.
    const bool longRun = all >= LongRunPackets;
    const ProcessUsage early = usage.MedianBetween(all / 4, longRun ? all / 2 : all + 1);
    const ProcessUsage late = usage.MedianBetween(all * 3 / 4, all + 1);
    longrun::PrintUsage("packets", early, late);
    ExpectSteady(early, late, longRun, static_cast<std::size_t>(visits) / 2);
    std::vector<std::int64_t> first;
    std::vector<std::int64_t> last;
    for (const auto& resident : residents) {
        const auto& times = resident->Times();
        first.insert(first.end(), times.FirstTenth().begin(), times.FirstTenth().end());
        last.insert(last.end(), times.LastTenth().begin(), times.LastTenth().end());
    }
    ExpectSteady("packets, median answer time", longrun::Median(first), longrun::Median(last), longRun);
    visitors.clear();
    session.Release();
    EXPECT_EQ(session.WaitForEnd(), 0u);
}

TEST_F(Soak, PortsAreRegisteredAndRemovedUnderTraffic)
{
    const std::size_t rounds = longrun::Size("MORVANE_SOAK_REGISTRATIONS", 60);
    ASSERT_NO_FATAL_FAILURE(Start(SIZE_MAX));
    longrun::AnswerTimes times(rounds);
    longrun::Progress progress("registrations", rounds);
    for (std::size_t round = 0; round < rounds && !answered.failed; ++round) {
        const auto start = std::chrono::steady_clock::now();
        const std::string pipe = served::Register(session, 7, static_cast<ULONG>(round % 200 + 1));
        ASSERT_NE(pipe, "");
        if (round % 10 == 0) {
            support::PipeClient client;
            ASSERT_TRUE(served::Open(client, pipe)) << round;
        }
        ASSERT_EQ(session.UnregisterPort(7, static_cast<ULONG>(round % 200 + 1)), S_OK);
        if (round % 10 != 0) {
            times.Add(round, std::chrono::duration_cast<std::chrono::microseconds>(
                                 std::chrono::steady_clock::now() - start));
        }
        usage.Add(round, Usage());
        progress.Show(round, usage.Last());
    }
    const std::size_t meanwhile = answered.count;
    EXPECT_TRUE(support::WaitUntil([&] { return answered.HasReached(meanwhile + 40); }));
    go = false;
    Join();
    longrun::PrintFigure("registrations and removals", std::to_string(rounds) + " while " +
                                                           std::to_string(answered.count) +
                                                           " packets were answered");
    ExpectNothingLost();
    const ProcessUsage early = usage.MedianBetween(rounds / 4, rounds / 2);
    const ProcessUsage late = usage.MedianBetween(rounds * 3 / 4, rounds);
    longrun::PrintUsage("registrations", early, late);
    ExpectSteady(early, late, rounds >= 1'000);
    ExpectSteady("registrations, median time of both calls", longrun::Median(times.FirstTenth()),
                 longrun::Median(times.LastTenth()), rounds >= 1'000);
    session.Release();
    EXPECT_EQ(session.WaitForEnd(), 0u);
}

} // namespace
