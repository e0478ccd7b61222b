// The whole road in simulation mode: clients, the built router, the built simulator.
#include "tests/support/PipeClient.h"
#include "tests/support/RouterSession.h"
#include "tests/support/TestSupport.h"
#include "tests/system/ServedPort.h"
#include "tests/system/SimulatorProcess.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <fstream>

namespace {

using support::PipeClient;

std::wstring Wide(const std::string& text)
{
    return {text.begin(), text.end()};
}

class Route : public testing::Test
{
protected:
    Route()
    {
        RouterSession::SetMask(-1, 0x00380000);
        RouterSession::SetMask(3, 0x00060000);
    }
    void TearDown() override
    {
        if (HasFailure()) {
            std::printf("%s\n", session.Log().c_str());
        }
    }
    void Start(const std::wstring& simulatorSwitches = {})
    {
        simulator.emplace(simulatorSwitches);
        ASSERT_TRUE(simulator->WaitUntilServed());
        ASSERT_TRUE(session.Activate());
    }
    /// Registers the port and opens its pipe.
    void Open(PipeClient& client, LONG deviceType, ULONG port)
    {
        const std::string name = support::UniqueName("Route");
        ASSERT_EQ(session.RegisterPort(deviceType, port, Wide(name)), S_OK);
        OpenServed(client, name);
    }
    void OpenServed(PipeClient& client, const std::string& name) { ASSERT_TRUE(served::Open(client, name)); }

    RouterSession session{RouterSession::Transport::Simulation};
    std::optional<SimulatorProcess> simulator;
};

TEST_F(Route, TwoClientsOnTwoPortsGetEachTheirOwnAnswersInOrder)
{
    Start();
    std::array<PipeClient, 2> clients;
    Open(clients[0], 3, 1);
    Open(clients[1], 3, 2);
    for (int request = 0; request < 300; ++request) {
        for (std::size_t client = 0; client < clients.size(); ++client) {
            const std::string text = "client " + std::to_string(client) + " request " + std::to_string(request);
            ASSERT_TRUE(clients[client].Write(text));
            ASSERT_EQ(clients[client].Read(), text);
        }
    }
}

TEST_F(Route, ABroadcastReachesEveryPortNumbered2AndNoOther)
{
    Start(L"--do \"from 3,1: broadcast 41\"");
    std::array<PipeClient, 3> clients;
    Open(clients[0], 3, 2);
    Open(clients[1], 4, 2);
    Open(clients[2], 3, 1);
    // The opening of the third port was a request from it, so a broadcast is on its way already.
    EXPECT_EQ(clients[0].Read(), "A");
    EXPECT_EQ(clients[1].Read(), "A");
    ASSERT_TRUE(clients[2].Write("x"));
    EXPECT_EQ(clients[2].Read(), "x");
    EXPECT_EQ(clients[0].Read(), "A");
    EXPECT_EQ(clients[1].Read(), "A");
}

TEST_F(Route, TheLastReleaseEndsTheRouterWithCode0)
{
    Start();
    PipeClient client;
    Open(client, 3, 1);
    client.Close();
    session.Release();
    EXPECT_EQ(session.WaitForEnd(), 0u);
    EXPECT_NE(session.Log().find("********* End Logging *********"), std::string::npos);
}

TEST_F(Route, ASimulatorThatIsKilledAndStartedAgainServesThePortsAgain)
{
    Start();
    const std::string name = support::UniqueName("Route");
    ASSERT_EQ(session.RegisterPort(3, 1, Wide(name)), S_OK);
    PipeClient client;
    OpenServed(client, name);
    for (int round = 0; round < 3; ++round) {
        simulator->Kill();
        EXPECT_TRUE(client.WaitForBreak());
        client.Close();
        simulator.emplace(std::wstring());
        ASSERT_TRUE(simulator->WaitUntilServed());
        OpenServed(client, name);
    }
    EXPECT_TRUE(session.WaitForLog("Reply-receive failed(109), reconnecting..."));
}

TEST_F(Route, APortRegisteredBeforeTheSimulatorRunsIsServedOnceItDoes)
{
    ASSERT_TRUE(session.Activate());
    const std::string name = support::UniqueName("Route");
    ASSERT_EQ(session.RegisterPort(3, 1, Wide(name)), S_OK);
    ASSERT_TRUE(session.WaitForLog("Connection to USB failed"));
    PipeClient client;
    EXPECT_FALSE(client.TryOpen(name));
    simulator.emplace(std::wstring());
    OpenServed(client, name);
}

TEST_F(Route, APortIsUnregisteredAndRegisteredWhileAnotherIsServed)
{
    Start();
    PipeClient staying;
    PipeClient leaving;
    Open(staying, 3, 1);
    for (int round = 0; round < 5; ++round) {
        Open(leaving, 3, 2);
        leaving.Close();
        ASSERT_EQ(session.UnregisterPort(3, 2), S_OK);
        ASSERT_TRUE(staying.Write("still here"));
        ASSERT_EQ(staying.Read(), "still here");
    }
}

TEST_F(Route, AClientThatVanishesInMidRequestLeavesThePortToTheNext)
{
    Start(L"--do \"delay 200\"");
    const std::string name = support::UniqueName("Route");
    ASSERT_EQ(session.RegisterPort(3, 1, Wide(name)), S_OK);
    for (int round = 0; round < 3; ++round) {
        PipeClient client;
        OpenServed(client, name);
        ASSERT_TRUE(client.Write("asked and gone"));
        client.Close();
    }
    PipeClient next;
    ASSERT_TRUE(support::WaitUntil([&] {
        if (!next.Open(name) || !next.Write("last")) {
            return false;
        }
        // The answer to a request of the one before may still come first.
        for (auto answer = next.Read(std::chrono::seconds(3)); answer; answer = next.Read(std::chrono::seconds(3)))
        {
            if (*answer == "last") {
                return true;
            }
        }
        return false;
    }));
}

TEST_F(Route, AFullPayloadOf65535BytesGoesThereAndBack)
{
    Start();
    PipeClient client;
    Open(client, 3, 1);
    EXPECT_TRUE(served::EchoesTheLongestPayload(client)) << client.Error();
}

TEST_F(Route, GarbageChecksumsSplitsAndMergesAreHiddenFromTheClient)
{
    Start(L"--do \"every 3: garbage 40\" --do \"every 5: checksum\" --do \"split 7\" --do \"merge 2 1\"");
    PipeClient client;
    Open(client, 3, 1);
    for (int request = 0; request < 100; ++request) {
        const std::string text = "request " + std::to_string(request);
        ASSERT_TRUE(client.Write(text));
        ASSERT_EQ(client.Read(), text);
    }
}

TEST_F(Route, AGapInTheNumbersIsTracedAndLoggedAndStillDelivered)
{
    Start(L"--do \"every 3: gap\"");
    PipeClient client;
    Open(client, 3, 1);
    for (int request = 0; request < 6; ++request) {
        ASSERT_TRUE(client.Write("x"));
        ASSERT_EQ(client.Read(), "x");
    }
    EXPECT_TRUE(session.WaitForLog("CCyUSBDriver::DispatchToDevice() Packet has packet number 4, expect 3"));
    std::ifstream skipped(session.LogFile().parent_path() / L"USBPortRouterSkippedPacket.log");
    std::string line;
    ASSERT_TRUE(std::getline(skipped, line));
    EXPECT_NE(line.find("Previous Packet#   2  Current Packet# 4"), std::string::npos) << line;
}

TEST_F(Route, TheTraceLogTellsTheRoadOfARequest)
{
    Start();
    PipeClient client;
    Open(client, 3, 1);
    for (const char* part : {
             "******** Begin Logging ********",
             "CMorvaneUSBRouter::CMorvaneUSBRouter()",
             "Connection to USB-Simulation opened (\\\\.\\pipe\\UsbPipeSimulator)",
             "CCDevicePortPipe::PipeProcessThread Started (\\\\.\\pipe\\",
             "DEV->PCR[03,01][005] h e l l o ",
             "CCyUSBDriver::SimulationCommandProcessThread overlapped write 65535 bytes",
             "DEV<-PCR[03,01][005] h e l l o ",
         })
    {
        EXPECT_TRUE(session.WaitForLog(part)) << part;
    }
}

} // namespace
