#include "host/PortTable.h"

#include "ports/CCDevicePortPipe.h"
#include "tests/support/PipeClient.h"
#include "tests/support/TestSupport.h"
#include "tests/unit/host/RecordingOutput.h"
#include "tests/unit/ports/FakeTransport.h"
#include "trace/Trace.h"
#include "win32/Event.h"

#include <gtest/gtest.h>
#include <atomic>
#include <string>
#include <thread>

namespace {

class Ports : public testing::Test
{
protected:
    std::string Add(PortAddress address)
    {
        std::string name = support::UniqueName("PortTable");
        m_table.AddPort(address, Make(address, name));
        return name;
    }
    std::unique_ptr<CCDevicePortPipe> Make(PortAddress address, const std::string& name)
    {
        return std::make_unique<CCDevicePortPipe>(&m_transport, address, name, 256, 256);
    }
    static std::span<const std::uint8_t> BytesOf(const std::string& text)
    {
        return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
    }
    bool SendTo(PortAddress address, const std::string& text)
    {
        return m_table.SendToPort(address, &m_transport, BytesOf(text));
    }
    /// A client of the port that the router counts as connected. A pipe is recreated every 50 ms until a client
    /// is connected, so an opening may be thrown out again.
    std::unique_ptr<support::PipeClient> Connect(PortAddress address, const std::string& name)
    {
        auto client = std::make_unique<support::PipeClient>();
        const auto isConnected = [&] { return m_table.FindPort(address)->IsPipeConnected(); };
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
    Add({3, 1});
    ASSERT_NE(m_table.FindPort({3, 1}), nullptr);
    EXPECT_EQ(m_table.FindPort({3, 1})->DeviceType(), 3);
    EXPECT_EQ(m_table.FindPort({3, 1})->Port(), 1);
    EXPECT_EQ(m_table.FindPort({3, 2}), nullptr);
    EXPECT_EQ(m_table.FindPort({4, 1}), nullptr);
}

TEST_F(Ports, DeviceTypeAndPortAreNotMixedUp)
{
    Add({1, 3});
    EXPECT_EQ(m_table.FindPort({3, 1}), nullptr);
    EXPECT_NE(m_table.FindPort({1, 3}), nullptr);
}

TEST_F(Ports, TheOutermostAddressesAreAddressesOfTheirOwn)
{
    Add({-1, -1});
    Add({-1, 0});
    Add({0, -1});
    EXPECT_NE(m_table.FindPort({-1, -1}), m_table.FindPort({-1, 0}));
    EXPECT_NE(m_table.FindPort({0, -1}), m_table.FindPort({-1, -1}));
    EXPECT_EQ(m_table.FindPort({0, 0}), nullptr);
}

TEST_F(Ports, AnAddressOfAllOnesIsReachedThroughMinusOne)
{
    Add({-1, -1});
    EXPECT_TRUE(m_table.SendToPort({-1, -1}, &m_transport, {}));
}

TEST_F(Ports, AddingAnAddressAgainKeepsTheFirstPort)
{
    Add({3, 1});
    const CCDevicePortPipe* const first = m_table.FindPort({3, 1});
    Add({3, 1});
    EXPECT_EQ(m_table.FindPort({3, 1}), first);
}

TEST_F(Ports, RemovingHandsOverThePortAlive)
{
    Add({3, 1});
    CCDevicePortPipe* const port = m_table.FindPort({3, 1});
    const std::unique_ptr<CCDevicePortPipe> removed = m_table.RemovePort({3, 1});
    EXPECT_EQ(removed.get(), port);
    EXPECT_EQ(removed->Port(), 1);
    EXPECT_EQ(m_table.FindPort({3, 1}), nullptr);
    EXPECT_EQ(m_table.RemovePort({3, 1}), nullptr);
}

TEST_F(Ports, DeletingAllEmptiesTheTable)
{
    Add({3, 1});
    Add({3, 2});
    m_table.DeleteAllPorts();
    EXPECT_EQ(m_table.FindPort({3, 1}), nullptr);
    EXPECT_EQ(m_table.FindPort({3, 2}), nullptr);
}

TEST_F(Ports, TogetherWaitForTheirClientsOnlyUpToTheLimit)
{
    constexpr DWORD LimitMs = 300;
    std::vector<std::unique_ptr<support::PipeClient>> clients;
    for (std::int32_t port = 1; port <= 10; ++port) {
        const std::string name = Add({3, port});
        clients.push_back(Connect({3, port}, name));
        ASSERT_TRUE(SendTo({3, port}, "unread"));
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
    const std::string first = Add({3, 1});
    const std::string second = Add({3, 2});
    const auto client1 = Connect({3, 1}, first);
    const auto client2 = Connect({3, 2}, second);
    EXPECT_TRUE(SendTo({3, 2}, "for two"));
    EXPECT_TRUE(SendTo({3, 1}, "for one"));
    EXPECT_EQ(client1->Read(), "for one");
    EXPECT_EQ(client2->Read(), "for two");
}

TEST_F(Ports, APayloadForAnUnknownAddressIsRefused)
{
    Add({3, 1});
    EXPECT_FALSE(SendTo({4, 1}, "x"));
    EXPECT_FALSE(SendTo({3, 2}, "x"));
}

TEST_F(Ports, AnEmptyPayloadOnlyAsks)
{
    const std::string name = Add({3, 1});
    const auto client = Connect({3, 1}, name);
    EXPECT_TRUE(SendTo({3, 1}, ""));
    EXPECT_FALSE(SendTo({4, 1}, ""));
    EXPECT_TRUE(SendTo({3, 1}, "next"));
    EXPECT_EQ(client->Read(), "next");
}

TEST_F(Ports, ABroadcastReachesThePortOfEveryDeviceType)
{
    const std::string first = Add({3, 1});
    const std::string second = Add({4, 1});
    const std::string other = Add({4, 2});
    const auto client1 = Connect({3, 1}, first);
    const auto client2 = Connect({4, 1}, second);
    const auto client3 = Connect({4, 2}, other);
    const std::string text = "to all of port 1";
    m_table.SendToPorts(1, &m_transport, BytesOf(text));
    EXPECT_EQ(client1->Read(), text);
    EXPECT_EQ(client2->Read(), text);
    SendTo({4, 2}, "only this");
    EXPECT_EQ(client3->Read(), "only this");
}

TEST_F(Ports, SignallingAllMakesEveryPortDropItsClient)
{
    const std::string first = Add({3, 1});
    const std::string second = Add({4, 2});
    const auto client1 = Connect({3, 1}, first);
    const auto client2 = Connect({4, 2}, second);
    m_table.SignalAllPorts();
    EXPECT_TRUE(client1->WaitForBreak());
    EXPECT_TRUE(client2->WaitForBreak());
}

// A port without a name has no worker, which would count again. Every completion counts one packet less.
TEST_F(Ports, ACompletionReachesItsPortOnly)
{
    for (const PortAddress address : {PortAddress{3, 1}, {3, 2}, {4, 1}}) {
        m_table.AddPort(address, Make(address, ""));
    }
    m_table.PacketCompleted({3, 1});
    EXPECT_EQ(m_table.FindPort({3, 1})->PacketCompleted(), -2);
    EXPECT_EQ(m_table.FindPort({3, 2})->PacketCompleted(), -1);
    EXPECT_EQ(m_table.FindPort({4, 1})->PacketCompleted(), -1);
}

TEST_F(Ports, CompletionsOfUnknownPortsAreIgnored)
{
    m_table.PacketCompleted({3, 1});
    m_table.AddPort({3, 1}, Make({3, 1}, ""));
    m_table.PacketCompleted({3, 2});
    m_table.PacketCompleted({4, 1});
    EXPECT_EQ(m_table.FindPort({3, 1})->PacketCompleted(), -1);
}

/// Blocks each thread that traces.
class BlockingOutput final : public ITraceOutput
{
public:
    bool TracerExists() const noexcept override { return true; }
    bool DialogExists() const noexcept override { return true; }
    bool DialogIsVisible() const noexcept override { return false; }
    void AddTrace(std::uint32_t /*mask*/, std::string /*text*/) override
    {
        entered.Set();
        released.Wait(60'000);
    }

    win32::Event entered{win32::Event::Kind::ManualReset};
    win32::Event released{win32::Event::Kind::ManualReset};
};

/// A port without a client traces every packet that it drops, so a transport's thread can be held inside its Send.
class PortInUse : public Ports, public testing::WithParamInterface<void (*)(PortTable&, CCommunicationDriver*)>
{
protected:
    PortInUse()
    {
        const CDebugOptionsLock lock(m_frontEnd.Gate());
        m_frontEnd.Publish(OptionsFor(trace::RouterChannel, trace::DevicePipe));
        m_table.AddPort({3, 1}, Make({3, 1}, ""));
    }

    BlockingOutput m_output;
    TraceFrontEnd m_frontEnd{m_output};
};

TEST_P(PortInUse, IsRemovedAfterTheCallThatUsesIt)
{
    std::thread user([this] { GetParam()(m_table, &m_transport); });
    EXPECT_TRUE(m_output.entered.Wait(60'000));
    std::atomic<bool> removed{false};
    std::unique_ptr<CCDevicePortPipe> port;
    std::thread remover([&] {
        port = m_table.RemovePort({3, 1});
        removed = true;
    });
    EXPECT_FALSE(support::WaitUntil([&] { return removed.load(); }, std::chrono::milliseconds(200)));
    m_output.released.Set();
    user.join();
    remover.join();
    EXPECT_NE(port, nullptr);
}

constexpr std::uint8_t Payload[] = {1, 2, 3};

INSTANTIATE_TEST_SUITE_P(
    Calls, PortInUse,
    testing::Values(
        [](PortTable& table, CCommunicationDriver* transport) { table.SendToPort({3, 1}, transport, Payload); },
        [](PortTable& table, CCommunicationDriver* transport) { table.SendToPorts(1, transport, Payload); }));

} // namespace
