// The limit of packets that are pending in the transport.
#include "tests/unit/ports/PortPipeFixture.h"

#include <string>

namespace {

class PortPipeAtTheLimit : public PortPipe
{
protected:
    static constexpr std::int32_t Limit = 500;

    static std::string Message(int number)
    {
        std::string text = std::to_string(number);
        text.resize(16, '.'); // fills the read buffer, so that no two are merged
        return text;
    }

    void FillUp()
    {
        Make(16, 16 * (Limit + 10));
        Connect();
        for (int number = 0; number < Limit; ++number) {
            ASSERT_TRUE(client.Write(Message(number))) << client.Error() << " after " << number;
        }
        ASSERT_TRUE(support::WaitUntil([&] { return port->Pending() >= Limit; }));
    }
};

TEST_F(PortPipeAtTheLimit, EachMessageHasArrivedOnceInOrder)
{
    FillUp();
    const auto sent = transport.TheSent();
    for (int number = 0; number < Limit; ++number) {
        ASSERT_EQ(sent[static_cast<std::size_t>(number)].payload, Message(number));
    }
}

TEST_F(PortPipeAtTheLimit, NoFurtherMessageIsReadAndTheLastIsRepeated)
{
    FillUp();
    ASSERT_TRUE(client.Write(Message(Limit)));
    const ULONGLONG begin = ::GetTickCount64();
    ASSERT_TRUE(support::WaitUntil([&] { return transport.Count() >= Limit + 3; }));
    EXPECT_GE(::GetTickCount64() - begin, 150u) << "about every 100 ms; each wait may end a tick early";
    const auto sent = transport.TheSent();
    for (std::size_t number = Limit; number < sent.size(); ++number) {
        EXPECT_EQ(sent[number].payload, Message(Limit - 1));
    }
}

TEST_F(PortPipeAtTheLimit, ACompletionEnablesReadingAgain)
{
    FillUp();
    ASSERT_TRUE(client.Write(Message(Limit)));
    // No more than it takes: repeats count as pending, too.
    ASSERT_TRUE(support::WaitUntil([&] {
        if (port->Pending() >= Limit) {
            port->PacketCompleted();
        }
        return transport.TheSent().back().payload == Message(Limit);
    }));
}

TEST_F(PortPipeAtTheLimit, WithNothingToRepeatACompletionEnablesReading)
{
    Make(16);
    Connect();
    for (int pending = 0; pending < Limit; ++pending) {
        port->OnMessage("pending");
    }
    ASSERT_TRUE(client.Write("")) << "ends the read with nothing to hand over";
    ASSERT_TRUE(client.Write(Message(1)));
    EXPECT_FALSE(support::WaitUntil([&] { return transport.Count() > Limit; }, std::chrono::milliseconds(300)));
    port->PacketCompleted();
    ASSERT_TRUE(support::WaitUntil([&] { return transport.Count() > Limit; }));
    EXPECT_EQ(transport.TheSent().back().payload, Message(1));
}

} // namespace
