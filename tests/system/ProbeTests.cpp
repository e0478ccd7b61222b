// The built probe and the built router together: what a service engineer does first.
#include "tests/support/KilledServer.h"
#include "tests/support/RouterSession.h"
#include "tests/support/TestSupport.h"
#include "tests/system/SimulatorProcess.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace {

/// One run of the probe, ended by an event if it does not end by itself. A router that it started has ended before
/// it: under Wine the client itself starts the server, which would then be killed with the job of the probe's
/// process.
class Probe
{
public:
    enum class RouterEnd { Awaited, Ignored };

    explicit Probe(const std::wstring& commandAndSwitches, RouterEnd routerEnd = RouterEnd::Awaited)
        : m_stopName(support::UniqueName(L"ProbeStop")),
          m_stop(::CreateEventW(nullptr, TRUE, FALSE, m_stopName.c_str())),
          m_process(support::ProgramFolder() / L"RouterProbe.exe",
                    commandAndSwitches + L" --stop-event " + m_stopName +
                        (routerEnd == RouterEnd::Awaited ? L" --wait-exit 20" : L""))
    {
    }

    int ExitCode() const { return static_cast<int>(m_process.WaitForExit().value_or(999)); }
    int Stop() const
    {
        ::SetEvent(m_stop.Get());
        return ExitCode();
    }
    void Kill() const
    {
        m_process.Kill();
        m_process.WaitForExit();
    }
    std::string Output() const { return m_process.Output(); }
    bool Says(const std::string& text) const { return Output().find(text) != std::string::npos; }
    bool WaitUntilItSays(const std::string& text) const
    {
        return support::WaitUntil([&] { return Says(text); });
    }

private:
    std::wstring m_stopName;
    win32::KernelHandle m_stop;
    support::ChildProcess m_process;
};

class ProbeAndRouter : public testing::Test
{
protected:
    ProbeAndRouter() { RouterSession::SetMask(3, 0x00020000); }
    void TearDown() override
    {
        if (HasFailure()) {
            std::printf("%s\n", session.Log().c_str());
        }
    }
    void StartSimulator(const std::wstring& switches = {})
    {
        simulator.emplace(switches);
        ASSERT_TRUE(simulator->WaitUntilServed());
    }

    RouterSession session{RouterSession::Transport::Simulation};
    std::optional<SimulatorProcess> simulator;
};

TEST_F(ProbeAndRouter, SendStartsTheRouterPrintsTheReplyAndSeesTheRouterEnd)
{
    StartSimulator();
    const Probe probe(L"send --port 3,1 --text hello");
    EXPECT_EQ(probe.ExitCode(), 0) << probe.Output();
    EXPECT_TRUE(probe.Says("[03,01] reply to request 1 after ")) << probe.Output();
    EXPECT_TRUE(probe.Says("|hello|")) << probe.Output();
    EXPECT_TRUE(probe.Says("router ended with code 0")) << probe.Output();
}

TEST_F(ProbeAndRouter, MeasureLateBoundOverThreePortsFindsEveryEcho)
{
    StartSimulator();
    const Probe probe(L"measure --late-bound --port 3,1 --port 3,2 --port 4,2 --count 100 --size 100");
    EXPECT_EQ(probe.ExitCode(), 0) << probe.Output();
    EXPECT_TRUE(probe.Says("[04,02] 100 answered, 0 lost, 0 twice, 0 wrong, 0 out of order")) << probe.Output();
}

TEST_F(ProbeAndRouter, WithoutAnInstrumentThePortIsNeverServedCode5)
{
    const Probe probe(L"send --port 3,1 --text hello --open-timeout 0.5");
    EXPECT_EQ(probe.ExitCode(), 5) << probe.Output();
}

TEST_F(ProbeAndRouter, AnInstrumentThatIsSilentGivesCode7)
{
    StartSimulator(L"--do \"silence\"");
    const Probe probe(L"send --port 3,1 --text hello --reply-timeout 0.5");
    EXPECT_EQ(probe.ExitCode(), 7) << probe.Output();
}

/// Two probes that want the same port. The test's process starts the router and lets it go once the first probe
/// has it.
class TwoProbesOnOnePort : public ProbeAndRouter
{
protected:
    void SetUp() override
    {
        StartSimulator();
        ASSERT_TRUE(session.Activate());
        first.emplace(L"ping --port 3,1 --count 0 --interval 0.02 --pipe-name " + name, Probe::RouterEnd::Ignored);
        // A pipe that is open may still be recreated before it serves anything.
        ASSERT_TRUE(first->WaitUntilItSays("[03,01] reply ")) << first->Output();
        session.Release();
    }
    /// It goes on being answered, and a pipe that had broken would give code 9.
    void ExpectThatTheFirstNoticedNothing()
    {
        const std::size_t said = first->Output().size();
        EXPECT_TRUE(support::WaitUntil([&] {
            return first->Output().find("[03,01] reply ", said) != std::string::npos;
        })) << first->Output();
        EXPECT_EQ(first->Stop(), 0) << first->Output();
        EXPECT_TRUE(first->Says(" 0 lost, 0 twice, 0 wrong, 0 out of order")) << first->Output();
    }
    void ExpectThatTheRouterEndsWell() { EXPECT_EQ(session.WaitForEnd(), std::optional<DWORD>(0)); }

    const std::wstring name = support::UniqueName(L"Shared");
    std::optional<Probe> first;
};

TEST_F(TwoProbesOnOnePort, SecondOnTheSamePipeEndsWithCode6AndLeavesFirst)
{
    const Probe second(L"send --port 3,1 --text x --open-timeout 60 --pipe-name " + name,
                       Probe::RouterEnd::Ignored);
    EXPECT_EQ(second.ExitCode(), 6) << second.Output();
    EXPECT_TRUE(second.Says("is busy (231): another client holds the port")) << second.Output();
    ExpectThatTheFirstNoticedNothing();
    ExpectThatTheRouterEndsWell();
}

TEST_F(TwoProbesOnOnePort, SecondOnItsOwnPipeEndsWithCode5AndLeavesFirst)
{
    const Probe second(L"send --port 3,1 --text x --open-timeout 1", Probe::RouterEnd::Ignored);
    EXPECT_EQ(second.ExitCode(), 5) << second.Output();
    EXPECT_TRUE(second.Says("no instrument is connected, or the port is registered under another pipe name"))
        << second.Output();
    ExpectThatTheFirstNoticedNothing();
    ExpectThatTheRouterEndsWell();
}

TEST_F(TwoProbesOnOnePort, FirstLeavesAndTheSecondTakesThePortOver)
{
    const Probe second(L"ping --port 3,1 --count 0 --interval 0.02 --keep-going --open-timeout 1 --pipe-name " +
                       name);
    ASSERT_TRUE(second.WaitUntilItSays("another client holds the port; still trying")) << second.Output();
    ExpectThatTheFirstNoticedNothing();
    // It may be served for a moment by the first one's port, which is removed with that one's object.
    EXPECT_TRUE(second.WaitUntilItSays("[03,01] reply 100:")) << second.Output();
    EXPECT_EQ(second.Stop(), 0) << second.Output();
    EXPECT_TRUE(second.Says("router ended with code 0")) << second.Output();
    ExpectThatTheRouterEndsWell();
}

TEST_F(ProbeAndRouter, AClientProcessKilledInMidRequestLeavesItsPortToTheNext)
{
    StartSimulator(L"--do \"from 3,1: silence\"");
    ASSERT_TRUE(session.Activate());
    const std::wstring name = support::UniqueName(L"Killed");
    const std::wstring other = support::UniqueName(L"Staying");
    ASSERT_EQ(session.RegisterPort(3, 1, name), S_OK);
    ASSERT_EQ(session.RegisterPort(3, 2, other), S_OK);
    const Probe staying(L"measure --attach --port 3,2 --for 3600 --pipe-name " + other, Probe::RouterEnd::Ignored);
    ASSERT_TRUE(staying.WaitUntilItSays("[03,02] pipe open"));
    for (int round = 0; round < 3; ++round) {
        const std::string request = "request " + std::to_string(round);
        const Probe killed(L"send --attach --port 3,1 --reply-timeout 60 --pipe-name " + name + L" --text \"" +
                               std::wstring(request.begin(), request.end()) + L"\"",
                           Probe::RouterEnd::Ignored);
        std::string asDumped;
        for (const char character : request) {
            asDumped += character == ' ' ? std::string("..") : std::string(1, character);
            asDumped += ' ';
        }
        ASSERT_TRUE(session.WaitForLog("DEV->PCR[03,01][009] " + asDumped)) << killed.Output();
        killed.Kill();
    }
    EXPECT_EQ(staying.Stop(), 0) << staying.Output();
    EXPECT_TRUE(staying.Says(" 0 lost, 0 twice, 0 wrong, 0 out of order")) << staying.Output();
}

TEST_F(ProbeAndRouter, KeepsGoingOverASimulatorThatIsKilledAndStartedAgain)
{
    StartSimulator();
    const Probe probe(L"ping --port 3,1 --count 0 --interval 0.01 --keep-going");
    ASSERT_TRUE(probe.WaitUntilItSays("reply 3:")) << probe.Output();
    simulator->Kill();
    ASSERT_TRUE(probe.WaitUntilItSays("router or instrument gone")) << probe.Output();
    StartSimulator();
    ASSERT_TRUE(probe.WaitUntilItSays("[03,01] pipe open again")) << probe.Output();
    const std::size_t reopened = probe.Output().find("pipe open again");
    EXPECT_TRUE(support::WaitUntil([&] { return probe.Output().find("] reply ", reopened) != std::string::npos; }))
        << probe.Output();
    EXPECT_EQ(probe.Stop(), 0) << probe.Output();
}

TEST_F(ProbeAndRouter, TheTimeOfARunHoldsAlsoWhileTheRouterCannotBeStartedAgain)
{
    StartSimulator();
    const Probe probe(L"measure --port 3,1 --for 3 --keep-going --open-timeout 1");
    ASSERT_TRUE(probe.WaitUntilItSays("pipe open")) << probe.Output();
    const win32::KernelHandle router(
        ::OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, FindProgram(L"MorvanePortRouter.exe")));
    ASSERT_TRUE(router);
    std::filesystem::rename(session.Program(), session.Program().native() + L".gone");
    ::TerminateProcess(router.Get(), 1);
    EXPECT_NE(probe.ExitCode(), 999) << "it goes on";
    EXPECT_TRUE(probe.Says("starting it again")) << probe.Output();
    EXPECT_FALSE(probe.Says("router started again")) << probe.Output();
    std::filesystem::rename(session.Program().native() + L".gone", session.Program());
    ForgetKilledServers();
}

} // namespace
