#include "host/PortTable.h"

#include "ports/CCDevicePortPipe.h"
#include "tests/support/PipeClient.h"
#include "tests/support/TestSupport.h"
#include "tests/unit/ports/FakeTransport.h"

#include <gtest/gtest.h>
#include <atomic>
#include <string>
#include <thread>

namespace {

class Ports : public testing::Test
{
protected:
    std::string Add(std::int32_t deviceType, std::uint32_t port)
    {
        std::string name = support::UniqueName("PortTable");
        m_table.AddPort(deviceType, port, Make(deviceType, port, name));
        return name;
    }
    std::unique_ptr<CCDevicePortPipe> Make(std::int32_t deviceType, std::uint32_t port, const std::string& name)
    {
        return std::make_unique<CCDevicePortPipe>(&m_transport, deviceType, static_cast<std::int32_t>(port), name,
                                                  256, 256);
    }
    bool SendTo(std::int32_t deviceType, std::uint32_t port, const std::string& text)
    {
        return m_table.SendToPort(deviceType, port, &m_transport,
                                  reinterpret_cast<const std::uint8_t*>(text.data()),
                                  static_cast<std::uint32_t>(text.size()));
    }
    /// A client of the port that the router counts as connected. A pipe is created anew every 50 ms until somebody is
    /// connected, so an opening may be thrown out again.
    std::unique_ptr<support::PipeClient> Connect(std::int32_t deviceType, std::uint32_t port,
                                                 const std::string& name)
    {
        auto client = std::make_unique<support::PipeClient>();
        const auto isConnected = [&] { return m_table.FindPort(deviceType, port)->IsPipeConnected(); };
        EXPECT_TRUE(support::WaitUntil([&] {
            client->Close();
            return client->Open(name) && support::WaitUntil(isConnected, std::chrono::seconds(1));
        }));
        return client;
    }

    FakeTransport m_transport;
    PortTable m_table;
};

TEST_F(Ports, FindsAPortByItsAddressOnly)
{
    Add(3, 1);
    ASSERT_NE(m_table.FindPort(3, 1), nullptr);
    EXPECT_EQ(m_table.FindPort(3, 1)->DeviceType(), 3);
    EXPECT_EQ(m_table.FindPort(3, 1)->Port(), 1);
    EXPECT_EQ(m_table.FindPort(3, 2), nullptr);
    EXPECT_EQ(m_table.FindPort(4, 1), nullptr);
}

TEST_F(Ports, DeviceTypeAndPortAreNotMixedUp)
{
    Add(1, 3);
    EXPECT_EQ(m_table.FindPort(3, 1), nullptr);
    EXPECT_NE(m_table.FindPort(1, 3), nullptr);
}

TEST_F(Ports, TheOutermostAddressesAreAddressesOfTheirOwn)
{
    Add(-1, 0xFFFFFFFF);
    Add(-1, 0);
    Add(0, 0xFFFFFFFF);
    EXPECT_NE(m_table.FindPort(-1, 0xFFFFFFFF), m_table.FindPort(-1, 0));
    EXPECT_NE(m_table.FindPort(0, 0xFFFFFFFF), m_table.FindPort(-1, 0xFFFFFFFF));
    EXPECT_EQ(m_table.FindPort(0, 0), nullptr);
}

TEST_F(Ports, AnAddressOfAllOnesIsReachedThroughMinusOne)
{
    Add(-1, 0xFFFFFFFF);
    EXPECT_TRUE(m_table.SendToPort(-1, static_cast<std::uint32_t>(-1), &m_transport, nullptr, 0));
}

TEST_F(Ports, AddingAnAddressAgainKeepsTheFirstPort)
{
    Add(3, 1);
    const CCDevicePortPipe* const first = m_table.FindPort(3, 1);
    Add(3, 1);
    EXPECT_EQ(m_table.FindPort(3, 1), first);
}

TEST_F(Ports, RemovingHandsOverThePortAlive)
{
    Add(3, 1);
    CCDevicePortPipe* const port = m_table.FindPort(3, 1);
    const std::unique_ptr<CCDevicePortPipe> removed = m_table.RemovePort(3, 1);
    EXPECT_EQ(removed.get(), port);
    EXPECT_EQ(removed->Port(), 1);
    EXPECT_EQ(m_table.FindPort(3, 1), nullptr);
    EXPECT_EQ(m_table.RemovePort(3, 1), nullptr);
}

TEST_F(Ports, DeletingAllEmptiesTheTable)
{
    Add(3, 1);
    Add(3, 2);
    m_table.DeleteAllPorts();
    EXPECT_EQ(m_table.FindPort(3, 1), nullptr);
    EXPECT_EQ(m_table.FindPort(3, 2), nullptr);
}

TEST_F(Ports, TogetherWaitForTheirClientsOnlyUpToTheLimit)
{
    constexpr DWORD LimitMs = 300;
    std::vector<std::unique_ptr<support::PipeClient>> clients;
    for (std::uint32_t port = 1; port <= 10; ++port) {
        const std::string name = Add(3, port);
        clients.push_back(Connect(3, port, name));
        ASSERT_TRUE(SendTo(3, port, "unread"));
        ASSERT_TRUE(support::WaitUntil([&] { return clients.back()->Available() > 0; }));
    }
    const ULONGLONG begin = ::GetTickCount64();
    m_table.BeginStopAllPorts(LimitMs);
    EXPECT_LT(::GetTickCount64() - begin, LimitMs) << "returns at once";
    m_table.DeleteAllPorts();
    const ULONGLONG passed = ::GetTickCount64() - begin;
    EXPECT_GE(passed, LimitMs - 20); // the clock may tick in 16 ms
    EXPECT_LT(passed, 5 * LimitMs) << "not one after the other";
}

TEST_F(Ports, APayloadReachesTheClientOfItsPortOnly)
{
    const std::string first = Add(3, 1);
    const std::string second = Add(3, 2);
    const auto client1 = Connect(3, 1, first);
    const auto client2 = Connect(3, 2, second);
    EXPECT_TRUE(SendTo(3, 2, "for two"));
    EXPECT_TRUE(SendTo(3, 1, "for one"));
    EXPECT_EQ(client1->Read(), "for one");
    EXPECT_EQ(client2->Read(), "for two");
}

TEST_F(Ports, APayloadForAnUnknownAddressIsRefused)
{
    Add(3, 1);
    EXPECT_FALSE(SendTo(4, 1, "x"));
    EXPECT_FALSE(SendTo(3, 2, "x"));
}

TEST_F(Ports, AnEmptyPayloadOnlyAsks)
{
    const std::string name = Add(3, 1);
    const auto client = Connect(3, 1, name);
    EXPECT_TRUE(SendTo(3, 1, ""));
    EXPECT_FALSE(SendTo(4, 1, ""));
    EXPECT_TRUE(SendTo(3, 1, "next"));
    EXPECT_EQ(client->Read(), "next");
}

TEST_F(Ports, ABroadcastReachesThePortOfEveryDeviceType)
{
    const std::string first = Add(3, 1);
    const std::string second = Add(4, 1);
    const std::string other = Add(4, 2);
    const auto client1 = Connect(3, 1, first);
    const auto client2 = Connect(4, 1, second);
    const auto client3 = Connect(4, 2, other);
    const std::string text = "to all of port 1";
    m_table.SendToPorts(1, &m_transport, reinterpret_cast<const std::uint8_t*>(text.data()),
                        static_cast<std::uint32_t>(text.size()));
    EXPECT_EQ(client1->Read(), text);
    EXPECT_EQ(client2->Read(), text);
    SendTo(4, 2, "only this");
    EXPECT_EQ(client3->Read(), "only this");
}

TEST_F(Ports, SignallingAllMakesEveryPortDropItsClient)
{
    const std::string first = Add(3, 1);
    const std::string second = Add(4, 2);
    const auto client1 = Connect(3, 1, first);
    const auto client2 = Connect(4, 2, second);
    m_table.SignalAllPorts();
    EXPECT_TRUE(client1->WaitForBreak());
    EXPECT_TRUE(client2->WaitForBreak());
}

TEST_F(Ports, CompletionsOfUnknownPortsAreIgnored)
{
    m_table.PacketCompleted(9, 9);
    Add(3, 1);
    m_table.PacketCompleted(3, 2);
    EXPECT_NE(m_table.FindPort(3, 1), nullptr);
}

// What a port that was deleted under a caller's feet would do here is a crash, or a report of the checked build.
TEST_F(Ports, PortsComeAndGoWhileTransportThreadsUseThem)
{
    std::atomic<bool> stop{false};
    std::atomic<int> reached{0};
    std::vector<std::thread> users;
    for (int i = 0; i < 2; ++i) {
        users.emplace_back([&] {
            const std::uint8_t data[] = {1, 2, 3};
            while (!stop) {
                reached += m_table.SendToPort(3, 1, &m_transport, data, sizeof data) ? 1 : 0;
                m_table.SendToPorts(1, &m_transport, data, sizeof data);
                m_table.PacketCompleted(3, 1);
                m_table.SignalAllPorts();
            }
        });
    }
    for (int round = 0; round < 50 || reached == 0; ++round) {
        Add(3, 1);
        m_table.RemovePort(3, 1);
    }
    stop = true;
    for (std::thread& user : users) {
        user.join();
    }
    EXPECT_GT(reached, 0);
}

} // namespace
