// From the instrument to the ports.
#include "tests/unit/transport/UsbFixture.h"

namespace usbtransport {

class UsbRead : public UsbTransport
{};

TEST_F(UsbRead, APacketIsDeliveredAndCountedAndTheNextReadIsPendingAtOnce)
{
    Connect();
    const std::uint32_t begun = bus.Count(0, In).begun;
    Feed(Frame(1, 1, 3, 1, "reply"));
    EXPECT_TRUE(Delivered(1, "reply"));
    EXPECT_EQ(RecordingTrace::Count("CCyUSBDriver::ApppendToReplyProcessQueue() 19 bytes"), 1u);
    EXPECT_TRUE(bus.WaitFor(0, In, [&](const Counters& c) { return c.pending == 1 && c.begun == begun + 1; }));
    EXPECT_TRUE(support::WaitUntil(
        [&] { return driver->GetTransferredBytes() == 19u + 14u * driver->m_outgoing.NextNumber(); }));
}

TEST_F(UsbRead, APacketSplitOverSeveralReadsIsDeliveredOnceAfterTheLast)
{
    Connect();
    const std::string frame = Frame(1, 1, 3, 1, "in three parts");
    Feed(frame.substr(0, 2));
    Feed(frame.substr(2, 13));
    ASSERT_TRUE(RecordingTrace::WaitForLine("ApppendToReplyProcessQueue() 13 bytes"));
    EXPECT_TRUE(host.Deliveries().empty());
    Feed(frame.substr(15));
    EXPECT_TRUE(Delivered(1, "in three parts"));
}

TEST_F(UsbRead, ManyPacketsInOneReadAreDeliveredInOrder)
{
    Connect();
    std::string block;
    for (int packet = 1; packet <= 250; ++packet) {
        block += Frame(static_cast<std::uint8_t>(packet), 1, 3, 1, "packet " + std::to_string(packet));
    }
    Feed(block);
    ASSERT_TRUE(Delivered(250, "packet 250"));
    const std::vector<FakeHost::Delivery> deliveries = host.Deliveries();
    for (int packet = 1; packet <= 250; ++packet) {
        ASSERT_EQ(deliveries[static_cast<std::size_t>(packet - 1)].payload, "packet " + std::to_string(packet));
    }
    EXPECT_EQ(RecordingTrace::Count("Packet has packet number"), 0u);
}

TEST_F(UsbRead, FullReadsOf65535BytesAreTakenWhole)
{
    Connect();
    std::string stream;
    std::uint8_t number = 1;
    while (stream.size() < 3u * std::size_t{65'535}) {
        stream += Frame(number, 1, 3, 1, std::string(20'000, static_cast<char>('a' + number)));
        ++number;
    }
    for (std::size_t at = 0; at < stream.size(); at += 65'535) {
        Feed(stream.substr(at, 65'535));
    }
    const std::size_t packets = number - 1u;
    EXPECT_TRUE(Delivered(packets, std::string(20'000, static_cast<char>('a' + number - 1))));
    EXPECT_EQ(RecordingTrace::Count("ApppendToReplyProcessQueue() 65535 bytes"), 3u);
    EXPECT_EQ(RecordingTrace::Count("Packet has packet number"), 0u);
}

TEST_F(UsbRead, MoreThanOneReadHoldsComesWithTheNext)
{
    Connect();
    const std::string frame = Frame(1, 1, 3, 1, std::string(65'535, 'p'));
    Feed(frame);
    EXPECT_TRUE(Delivered(1, std::string(65'535, 'p')));
    EXPECT_EQ(RecordingTrace::Count("ApppendToReplyProcessQueue() 65535 bytes"), 1u);
    EXPECT_EQ(RecordingTrace::Count("ApppendToReplyProcessQueue() 14 bytes"), 1u);
}

TEST_F(UsbRead, AReadThatBringsNothingIsFollowedByTheNext)
{
    Connect();
    Feed("");
    Feed(Frame(1, 1, 3, 1, "after nothing"));
    EXPECT_TRUE(Delivered(1, "after nothing"));
    EXPECT_EQ(RecordingTrace::Count("ApppendToReplyProcessQueue() 0 bytes"), 1u);
}

TEST_F(UsbRead, ReceivedBlocksAreDumpedInTheirOwnClassWhenThatIsWanted)
{
    Connect();
    RecordingTrace::WantDumps(true);
    Feed(Frame(7, 1, 3, 1, "B"));
    ASSERT_TRUE(RecordingTrace::WaitForLine("PCR<-USB[15] text 23 23 07 01"));
    for (const support::TraceLine& line : RecordingTrace::Lines()) {
        if (line.text.starts_with("PCR<-USB")) {
            EXPECT_EQ(line.classMask, trace::ReadWrite);
        }
    }
}

TEST_F(UsbRead, AFailureWithAnErrorOfWindowsMakesTheDriverReconnect)
{
    Connect();
    Rule rule = For(In, Action::Fail, 1);
    rule.status = StatusIoDeviceError;
    bus.SetRule(rule);
    const int signals = host.signals;
    Feed(Frame(1, 1, 3, 1, "the last before the failure"));
    EXPECT_TRUE(Delivered(1, "the last before the failure"));
    ASSERT_TRUE(RecordingTrace::WaitForLine("Reply-receive failed(" + std::to_string(ErrorIoDevice) +
                                            "), reconnecting..."));
    ASSERT_NO_FATAL_FAILURE(AwaitConnection());
    EXPECT_GE(host.signals, signals + 2) << "at the failure and in the connect procedure";
    Feed(Frame(1, 1, 3, 1, "after"));
    EXPECT_TRUE(Delivered(2, "after"));
}

TEST_F(UsbRead, AFailureWithoutAnErrorEndsReadingUntilTheNextConnect)
{
    Connect();
    Rule rule = For(In, Action::Fail, 1);
    rule.status = StatusWithoutError;
    bus.SetRule(rule);
    const int signals = host.signals;
    Feed(Frame(1, 1, 3, 1, "the last before the failure"));
    ASSERT_TRUE(RecordingTrace::WaitForLine("Reply-receive failed(0), reconnecting..."));
    Send("writes go on");
    EXPECT_TRUE(NextIs("writes go on"));
    EXPECT_TRUE(driver->IsConnected());
    EXPECT_EQ(host.signals, signals);
    EXPECT_EQ(bus.Count(0, In).pending, 0u) << "no new read was started";
    Feed(Frame(2, 1, 3, 1, "read by the next connection"));
    ASSERT_NO_FATAL_FAILURE(Reopen());
    EXPECT_TRUE(Delivered(2, "read by the next connection"));
}

TEST_F(UsbRead, AnExceptionInDispatchIsTracedAndTheNextBlockHandled)
{
    host.throwsForPort = 5;
    Connect();
    Feed(Frame(1, 1, 3, 5, "throws"));
    ASSERT_TRUE(RecordingTrace::WaitForLine(
        "Error in ReplyProcessThread - ignored to prevent loss of threaded functionality."));
    Feed(Frame(2, 1, 3, 1, "next"));
    EXPECT_TRUE(Delivered(1, "next"));
    EXPECT_EQ(RecordingTrace::Count("Error in ReplyProcessThread"), 1u)
        << "the packet that throws is not met again";
    for (const support::TraceLine& line : RecordingTrace::Lines()) {
        if (line.text.starts_with("Error in ReplyProcessThread")) {
            EXPECT_EQ(line.classMask, trace::ReadWrite);
        }
    }
}

} // namespace usbtransport
