// The whole road over USB: clients, the built router, the kernel driver, the built InstrumentBus.
#include "tests/instrument/InstrumentControl.h"
#include "tests/support/PipeClient.h"
#include "tests/support/RouterSession.h"
#include "tests/support/TestSupport.h"
#include "tests/system/BusProcess.h"
#include "tests/system/ServedPort.h"
#include "usb/ControlCodes.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>

namespace {

using support::PipeClient;

class UsbRoute : public testing::Test
{
protected:
    UsbRoute()
    {
        RouterSession::SetMask(-1, 0x00380000);
        RouterSession::SetMask(3, 0x00060000);
    }
    ~UsbRoute() override
    {
        if (HasFailure()) {
            std::printf("%s\n", session.Log().c_str());
        }
    }
    void Plug(const std::wstring& switches = {})
    {
        bus.emplace(L"--quiet " + switches);
        ASSERT_TRUE(bus->WaitUntilServed()) << bus->Output();
    }
    void Open(PipeClient& client, LONG deviceType, ULONG port)
    {
        const std::string name = served::Register(session, deviceType, port);
        ASSERT_NE(name, "");
        ASSERT_TRUE(served::Open(client, name));
    }

    RouterSession session{RouterSession::Transport::Usb};
    std::optional<BusProcess> bus;
};

TEST_F(UsbRoute, TwoClientsOnTwoPortsGetEachTheirOwnAnswersInOrder)
{
    Plug();
    ASSERT_TRUE(session.Activate());
    std::array<PipeClient, 2> clients;
    Open(clients[0], 3, 1);
    Open(clients[1], 3, 2);
    for (int request = 0; request < 150; ++request) {
        for (std::size_t client = 0; client < clients.size(); ++client) {
            const std::string text = "client " + std::to_string(client) + " request " + std::to_string(request);
            ASSERT_TRUE(clients[client].Write(text));
            ASSERT_EQ(clients[client].Read(), text);
        }
    }
    EXPECT_TRUE(session.WaitForLog("Connection to USB opened, BULK IN on Pipe 2 and OUT on Pipe 1"));
    const std::string summary = bus->Summary();
    EXPECT_NE(summary.find("1 connections"), std::string::npos) << summary;
    EXPECT_NE(summary.find("0 number gaps, 0 wrong checksums, 0 bytes outside packets"), std::string::npos)
        << summary;
}

TEST_F(UsbRoute, ABroadcastReachesEveryPortNumbered2)
{
    Plug(L"--do \"from 3,1: broadcast 41\"");
    ASSERT_TRUE(session.Activate());
    std::array<PipeClient, 3> clients;
    Open(clients[0], 3, 2);
    Open(clients[1], 4, 2);
    Open(clients[2], 3, 1); // which was a request from it already
    EXPECT_EQ(clients[0].Read(), "A");
    EXPECT_EQ(clients[1].Read(), "A");
}

TEST_F(UsbRoute, AFullPayloadOf65535BytesGoesThereAndBack)
{
    Plug();
    ASSERT_TRUE(session.Activate());
    PipeClient client;
    Open(client, 3, 1);
    EXPECT_TRUE(served::EchoesTheLongestPayload(client)) << client.Error();
}

TEST_F(UsbRoute, AfterAnUnplugTheInstrumentIsServedWithNewNumbers)
{
    Plug();
    ASSERT_TRUE(session.Activate());
    PipeClient client;
    const std::string name = served::Register(session, 3, 1);
    ASSERT_TRUE(served::Open(client, name));
    for (int round = 0; round < 3; ++round) {
        const std::string summary = bus->Summary();
        EXPECT_NE(summary.find("1 connections"), std::string::npos) << summary;
        EXPECT_NE(summary.find("0 number gaps"), std::string::npos) << summary;
        ASSERT_TRUE(client.WaitForBreak());
        client.Close();
        Plug();
        ASSERT_TRUE(served::Open(client, name));
    }
}

TEST_F(UsbRoute, ADriverThatKeepsItsRequestsDoesNotKeepTheRouter)
{
    Plug();
    ASSERT_TRUE(session.Activate());
    PipeClient client;
    Open(client, 3, 1);
    instrumentbus::InstrumentControl driver;
    instrumentbus::Rule deaf{};
    deaf.actions = instrumentbus::Hold | instrumentbus::Stubborn;
    constexpr std::uint8_t In = 0x86;
    deaf.endpoint = In;
    driver.SetRule(deaf);
    ASSERT_TRUE(client.Write("the read after its answer is kept"));
    ASSERT_TRUE(driver.WaitFor(0, In, [](const instrumentbus::Counters& c) { return c.held == 1; }));
    for (const std::uint32_t control : {usb::ControlAbortPipe, usb::ControlResetParentPort}) {
        deaf.code = control;
        driver.SetRule(deaf);
    }
    client.Close();
    session.Release();
    EXPECT_EQ(session.WaitForEnd(), 0u);
    EXPECT_EQ(driver.Count(0, In).held, 1u) << "the driver has it still";
    driver.Release(0);
}

TEST_F(UsbRoute, AnInstrumentPluggedAfterTheRouterStartedIsServed)
{
    ASSERT_TRUE(session.Activate());
    const std::string name = served::Register(session, 3, 1);
    ASSERT_TRUE(session.WaitForLog("Connection to USB failed"));
    PipeClient client;
    EXPECT_FALSE(client.TryOpen(name));
    Plug();
    EXPECT_TRUE(served::Open(client, name));
}

TEST_F(UsbRoute, AnInstrumentOfAForeignVendorIsLeftAlone)
{
    Plug(L"--vendor 0x1234");
    ASSERT_TRUE(session.Activate());
    const std::string name = served::Register(session, 3, 1);
    ASSERT_TRUE(session.WaitForLog("Found USB device, VID=4660, PID=256"));
    ASSERT_TRUE(session.WaitForLog("Connection to USB failed"));
    PipeClient client;
    EXPECT_FALSE(client.TryOpen(name));
    EXPECT_NE(bus->Summary().find("0 connections"), std::string::npos);
}

} // namespace
