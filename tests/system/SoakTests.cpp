// Hours in minutes: four ports that stay, three clients that come and go all the time, one router.
//
// MORVANE_SOAK_PACKETS sets how many packets go over the four ports in all; the default is a short run.
#include "tests/support/PipeClient.h"
#include "tests/support/ProcessUsage.h"
#include "tests/support/RouterSession.h"
#include "tests/support/TestSupport.h"
#include "tests/system/SimulatorProcess.h"
#include "win32/Thread.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <vector>

namespace {

constexpr int Ports = 4;
constexpr int Visitors = 3;

int PacketsInAll()
{
    const char* const wanted = std::getenv("MORVANE_SOAK_PACKETS");
    return wanted != nullptr ? std::atoi(wanted) : 6'000;
}

/// Of all residents together.
struct Progress
{
    std::atomic<int> answered{0};
    std::atomic<bool> failed{false};

    bool HasReached(int count) const { return failed || answered >= count; }
};

/// One port that stays: its client sends numbered requests and checks every answer.
class Resident
{
public:
    bool Open(const std::string& name)
    {
        return support::WaitUntil([&] {
            return m_client.Open(name) && m_client.Write("hello") &&
                   m_client.Read(std::chrono::seconds(3)) == "hello";
        });
    }
    void Run(int id, int requests, Progress& progress)
    {
        m_thread.Start([this, id, requests, &progress] {
            for (int request = 0; request < requests; ++request) {
                std::string text = std::to_string(id) + ":" + std::to_string(request) + ":";
                text.resize(20 + static_cast<std::size_t>(request % 700), 'x');
                if (!m_client.Write(text) || m_client.Read() != text) {
                    progress.failed = true;
                    return;
                }
                ++progress.answered;
            }
        });
    }
    void Join() { m_thread.Join(); }

private:
    support::PipeClient m_client;
    win32::Thread m_thread;
};

/// A client that comes, asks, goes and comes again, as a process of its own; every third one is killed.
void Visit(int id, const std::atomic<bool>& go, std::atomic<int>& visits)
{
    const std::wstring switches = L"measure --port 5," + std::to_wstring(id) + L" --count 20 --quiet";
    for (int visit = 0; go; ++visit) {
        const support::ChildProcess probe(support::ProgramFolder() / L"RouterProbe.exe", switches);
        if (visit % 3 == 2) {
            probe.WaitForExit(std::chrono::milliseconds(700));
            probe.Kill();
        }
        probe.WaitForExit();
        ++visits;
    }
}

/// The median of what the router holds, looked at until `over`: visitors come and go, and a single look catches
/// them at any moment of that.
ProcessUsage MedianUsage(const RouterSession& session, const std::function<bool()>& over)
{
    std::vector<DWORD> handles;
    std::vector<std::size_t> bytes;
    // A router that ends takes the residents with it, and so ends this.
    do {
        const ProcessUsage usage = UsageOf(::GetProcessId(session.Process()));
        handles.push_back(usage.handles);
        bytes.push_back(usage.privateBytes);
    } while (!support::WaitFor(session.Process(), std::chrono::milliseconds(50)) && !over());
    const auto middle = static_cast<std::ptrdiff_t>(handles.size() / 2);
    std::nth_element(handles.begin(), handles.begin() + middle, handles.end());
    std::nth_element(bytes.begin(), bytes.begin() + middle, bytes.end());
    return {handles[handles.size() / 2], bytes[bytes.size() / 2]};
}

std::size_t SkippedPackets(const RouterSession& session)
{
    std::ifstream in(session.LogFile().parent_path() / L"USBPortRouterSkippedPacket.log");
    std::size_t gaps = 0;
    for (std::string line; std::getline(in, line);) {
        // The instrument's step from 255 to 0 is always reported.
        gaps += line.find("Previous Packet#   255  Current Packet# 0") == std::string::npos ? 1 : 0;
    }
    return gaps;
}

TEST(Soak, NothingIsLostOnThePortsThatStayAndTheRouterStaysAsLargeAsItWas)
{
    RouterSession session(RouterSession::Transport::Simulation);
    RouterSession::SetMask(-1, 0x00180000);
    const SimulatorProcess simulator{std::wstring()};
    ASSERT_TRUE(simulator.WaitUntilServed());
    ASSERT_TRUE(session.Activate());

    std::array<Resident, Ports> residents;
    for (int port = 0; port < Ports; ++port) {
        const std::string name = support::UniqueName("Soak");
        ASSERT_EQ(session.RegisterPort(3, static_cast<ULONG>(port + 1), {name.begin(), name.end()}), S_OK);
        ASSERT_TRUE(residents[static_cast<std::size_t>(port)].Open(name));
    }

    const int each = PacketsInAll() / Ports;
    const int all = each * Ports;
    Progress progress;
    std::atomic<bool> go{true};
    std::atomic<int> visits{0};
    std::array<win32::Thread, Visitors> visitors;
    for (int visitor = 0; visitor < Visitors; ++visitor) {
        visitors[static_cast<std::size_t>(visitor)].Start(
            [visitor, &go, &visits] { Visit(visitor + 1, go, visits); });
    }
    for (int port = 0; port < Ports; ++port) {
        residents[static_cast<std::size_t>(port)].Run(port, each, progress);
    }
    // What a router needs once (its log, the visitors' ports and names) it has by a quarter of the run.
    ASSERT_TRUE(support::WaitUntil([&] { return progress.HasReached(all / 4) && visits >= Visitors; },
                                   std::chrono::hours(1)));
    const ProcessUsage early = MedianUsage(session, [&] { return progress.HasReached(all / 2); });
    ASSERT_TRUE(support::WaitUntil([&] { return progress.HasReached(all * 3 / 4); }, std::chrono::hours(1)));
    const ProcessUsage late = MedianUsage(session, [&] { return progress.HasReached(all); });
    for (Resident& resident : residents) {
        resident.Join();
    }
    go = false;
    for (win32::Thread& visitor : visitors) {
        visitor.Join();
    }

    std::printf("%d packets answered, %d visits; handles %lu then %lu, private memory %zu KB then %zu KB\n",
                progress.answered.load(), visits.load(), static_cast<unsigned long>(early.handles),
                static_cast<unsigned long>(late.handles), early.privateBytes / 1024, late.privateBytes / 1024);
    ASSERT_NE(early.handles, 0u);
    ASSERT_NE(early.privateBytes, 0u);
    EXPECT_EQ(progress.answered, all);
    EXPECT_EQ(SkippedPackets(session), 0u);
    const std::string summary = simulator.Summary();
    EXPECT_NE(summary.find("faults of the router: 0 number gaps, 0 wrong checksums, 0 bytes outside packets"),
              std::string::npos)
        << summary;
    // A visitor that comes or goes at the moment of the count has a port more or less open.
    EXPECT_LE(late.handles, early.handles + 20 * Visitors);
    // The heap of a young router still grows to its working size, and under Wine, which never cleans up behind a
    // killed client, each of those leaves about 100 KB in it. What is leaked for every packet stands out in the
    // long run.
    EXPECT_LE(late.privateBytes, early.privateBytes + (12u << 20));
    session.Release();
}

} // namespace
