// Hours in minutes: four ports that stay, three clients that come and go all the time, one router.
//
// MORVANE_SOAK_PACKETS sets how many packets go over the four ports in all; the default is a short run.
#include "tests/support/PipeClient.h"
#include "tests/support/TestSupport.h"
#include "tests/system/ProcessUsage.h"
#include "tests/system/RouterSession.h"
#include "tests/system/SimulatorProcess.h"
#include "win32/Thread.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace {

constexpr int Ports = 4;
constexpr int Visitors = 3;

int PacketsInAll()
{
    const char* const wanted = std::getenv("MORVANE_SOAK_PACKETS");
    return wanted != nullptr ? std::atoi(wanted) : 6'000;
}

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
    void Run(int id, int requests, std::atomic<int>& answered)
    {
        m_thread.Start([this, id, requests, &answered] {
            for (int request = 0; request < requests; ++request) {
                std::string text = std::to_string(id) + ":" + std::to_string(request) + ":";
                text.resize(20 + static_cast<std::size_t>(request % 700), 'x');
                if (!m_client.Write(text) || m_client.Read() != text) {
                    return;
                }
                ++answered;
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
    std::atomic<int> answered{0};
    std::atomic<bool> go{true};
    std::atomic<int> visits{0};
    std::array<win32::Thread, Visitors> visitors;
    for (int visitor = 0; visitor < Visitors; ++visitor) {
        visitors[static_cast<std::size_t>(visitor)].Start(
            [visitor, &go, &visits] { Visit(visitor + 1, go, visits); });
    }
    for (int port = 0; port < Ports; ++port) {
        residents[static_cast<std::size_t>(port)].Run(port, each, answered);
    }
    // What a router needs once (its log, the visitors' ports and names) it has by a quarter of the run.
    ASSERT_TRUE(support::WaitUntil([&] { return answered >= each && visits >= Visitors; }, std::chrono::hours(1)));
    const ProcessUsage early = UsageOf(::GetProcessId(session.Process()));
    for (Resident& resident : residents) {
        resident.Join();
    }
    const ProcessUsage late = UsageOf(::GetProcessId(session.Process()));
    go = false;
    for (win32::Thread& visitor : visitors) {
        visitor.Join();
    }

    std::printf("%d packets answered, %d visits; handles %lu then %lu, private memory %zu KB then %zu KB\n",
                answered.load(), visits.load(), static_cast<unsigned long>(early.handles),
                static_cast<unsigned long>(late.handles), early.privateBytes / 1024, late.privateBytes / 1024);
    ASSERT_NE(early.handles, 0u);
    ASSERT_NE(early.privateBytes, 0u);
    EXPECT_EQ(answered, each * Ports);
    EXPECT_EQ(SkippedPackets(session), 0u);
    const std::string summary = simulator.Summary();
    EXPECT_NE(summary.find("faults of the router: 0 number gaps, 0 wrong checksums, 0 bytes outside packets"),
              std::string::npos)
        << summary;
    // A visitor that comes or goes at the moment of the count has a port more or less open.
    EXPECT_LE(late.handles, early.handles + 20 * Visitors);
    // Resident memory moves by about 10 MB either way between two moments of the same router; what is leaked for every
    // packet stands out in the long run.
    EXPECT_LE(late.privateBytes, early.privateBytes + (16u << 20));
    session.Release();
}

} // namespace
