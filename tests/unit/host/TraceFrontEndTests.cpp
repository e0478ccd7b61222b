#include "host/TraceFrontEnd.h"
#include "tests/unit/host/RecordingOutput.h"
#include "trace/Trace.h"

#include <gtest/gtest.h>
#include <atomic>
#include <chrono>
#include <thread>

namespace {

class TraceCall : public testing::Test
{
protected:
    void Publish(const DebugOptionsMap& options)
    {
        const CDebugOptionsLock lock(m_frontEnd.Gate());
        m_frontEnd.Publish(options);
    }

    RecordingOutput m_output;
    TraceFrontEnd m_frontEnd{m_output};
};

TEST_F(TraceCall, ADeviceWithoutOptionsProducesNothing)
{
    Trace(3, 0xFFFFFFFF, "never");
    EXPECT_TRUE(m_output.Lines().empty());
}

TEST_F(TraceCall, TheDeviceMaskSelectsWhatSurvivesOfTheClass)
{
    Publish(OptionsFor(-1, 0x00000001));
    Trace(-1, trace::ReadWrite, "PCR->USB[%d] %s", 3, "A B");
    Publish(OptionsFor(-1, 0x00010000));
    Trace(-1, trace::ReadWrite, "PCR->USB[%d] %s", 4, "C D");
    const std::vector<RecordingOutput::Line> expected{{0x00000001, "PCR->USB[3] A B"},
                                                      {0x00010000, "PCR->USB[4] C D"}};
    EXPECT_EQ(m_output.Lines(), expected);
}

TEST_F(TraceCall, AClassThatTheMaskDoesNotHoldProducesNothing)
{
    Publish(OptionsFor(-1, 0x00010001));
    Trace(-1, trace::Usb, "never");
    EXPECT_TRUE(m_output.Lines().empty());
}

TEST_F(TraceCall, OnlyTheDevicesOwnMaskCounts)
{
    Publish(OptionsFor(3, 0xFFFFFFFF));
    Trace(4, trace::Usb, "never");
    Trace(3, trace::Usb, "once");
    EXPECT_EQ(m_output.Lines(), (std::vector<RecordingOutput::Line>{{0x00080008, "once"}}));
}

TEST_F(TraceCall, ADeviceThatIsTakenOutOfTheOptionsFallsSilent)
{
    Publish(OptionsFor(3, 0xFFFFFFFF));
    Publish(OptionsFor(4, 0xFFFFFFFF));
    Trace(3, trace::Usb, "never");
    EXPECT_TRUE(m_output.Lines().empty());
}

TEST_F(TraceCall, WithoutATracerNothingIsMade)
{
    Publish(OptionsFor(3, 0xFFFFFFFF));
    m_output.tracerExists = false;
    Trace(3, trace::Usb, "never");
    std::string out;
    const std::uint8_t data[] = {0x41};
    EXPECT_FALSE(DumpPacket(3, trace::Usb, data, 1, false, out));
    EXPECT_TRUE(m_output.Lines().empty());
}

TEST_F(TraceCall, WhileTheDialogIsShownNothingIsMade)
{
    Publish(OptionsFor(3, 0xFFFFFFFF));
    m_output.dialogIsVisible = true;
    Trace(3, trace::Usb, "never");
    std::string out;
    const std::uint8_t data[] = {0x41};
    EXPECT_FALSE(DumpPacket(3, trace::Usb, data, 1, false, out));
    EXPECT_TRUE(m_output.Lines().empty());
}

TEST_F(TraceCall, WithoutTheDialogDumpsAreMadeButNoLines)
{
    Publish(OptionsFor(3, 0xFFFFFFFF));
    m_output.dialogExists = false;
    Trace(3, trace::Usb, "never");
    EXPECT_TRUE(m_output.Lines().empty());
    std::string out;
    const std::uint8_t data[] = {0x41};
    EXPECT_TRUE(DumpPacket(3, trace::Usb, data, 1, false, out));
}

TEST_F(TraceCall, WhileTheOptionsChangeLinesAreDroppedNotDelayed)
{
    Publish(OptionsFor(3, 0xFFFFFFFF));
    std::string out;
    const std::uint8_t data[] = {0x41};
    {
        const CDebugOptionsLock lock(m_frontEnd.Gate());
        const auto start = std::chrono::steady_clock::now();
        Trace(3, trace::Usb, "never");
        EXPECT_FALSE(DumpPacket(3, trace::Usb, data, 1, false, out));
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    }
    EXPECT_TRUE(m_output.Lines().empty());
    Trace(3, trace::Usb, "after");
    EXPECT_TRUE(DumpPacket(3, trace::Usb, data, 1, false, out));
    EXPECT_EQ(m_output.Count("after"), 1U);
}

TEST_F(TraceCall, AGateThatIsClosedTwiceOpensWithTheFirstEnd)
{
    Publish(OptionsFor(3, 0xFFFFFFFF));
    const CDebugOptionsLock outer(m_frontEnd.Gate());
    {
        const CDebugOptionsLock inner(m_frontEnd.Gate());
    }
    Trace(3, trace::Usb, "the gate is open");
    EXPECT_EQ(m_output.Count("the gate is open"), 1U);
}

TEST_F(TraceCall, ALineOf3000CharactersIsCutAfter2055)
{
    Publish(OptionsFor(3, 0xFFFFFFFF));
    const std::string text(3000, 'x');
    Trace(3, trace::Usb, "%s", text.c_str());
    ASSERT_EQ(m_output.Lines().size(), 1U);
    EXPECT_EQ(m_output.Lines()[0].second, std::string(2055, 'x'));
}

TEST_F(TraceCall, ALineOf2055CharactersIsWhole)
{
    Publish(OptionsFor(3, 0xFFFFFFFF));
    std::string text(2055, 'x');
    text.back() = '!';
    Trace(3, trace::Usb, "%s", text.c_str());
    ASSERT_EQ(m_output.Lines().size(), 1U);
    EXPECT_EQ(m_output.Lines()[0].second, text);
}

TEST_F(TraceCall, AnEmptyLineReachesTheTracer)
{
    Publish(OptionsFor(3, 0xFFFFFFFF));
    Trace(3, trace::Usb, "%s", "");
    EXPECT_EQ(m_output.Count(""), 1U);
}

TEST_F(TraceCall, AFailureOfTheTracerIsNotTheCallersBusiness)
{
    Publish(OptionsFor(3, 0xFFFFFFFF));
    m_output.failing = true;
    EXPECT_NO_THROW(Trace(3, trace::Usb, "lost"));
}

TEST_F(TraceCall, NumbersOfTheTextsInUseComeOutAsTheyAre)
{
    Publish(OptionsFor(3, 0xFFFFFFFF));
    Trace(3, trace::General, "%s, DebugOptions=0x%X", "Reader", 0x00200020U);
    Trace(3, trace::PacketParsing, "DEV<-PCR[%02d,%02d][%03d] %s", 3, -1, 7, "");
    EXPECT_EQ(m_output.Count("Reader, DebugOptions=0x200020"), 1U);
    EXPECT_EQ(m_output.Count("DEV<-PCR[03,-1][007] "), 1U);
}

TEST(TraceCallWithoutFrontEnd, DoesNothing)
{
    Trace(3, trace::Usb, "never");
    std::string out = "old";
    const std::uint8_t data[] = {0x41};
    EXPECT_FALSE(DumpPacket(3, trace::Usb, data, 1, false, out));
    EXPECT_EQ(out, "");
}

TEST_F(TraceCall, DumpOfNothingIsFalseAndEmpty)
{
    Publish(OptionsFor(3, 0xFFFFFFFF));
    const std::uint8_t data[] = {0x41};
    std::string out = "old";
    EXPECT_FALSE(DumpPacket(3, trace::ReadWrite, data, 0, false, out));
    EXPECT_EQ(out, "");
    out = "old";
    EXPECT_FALSE(DumpPacket(3, trace::ReadWrite, nullptr, 5, false, out));
    EXPECT_EQ(out, "");
}

TEST_F(TraceCall, DumpForADeviceWithoutOptionsOrAnotherClassIsFalseAndEmpty)
{
    Publish(OptionsFor(3, 0x00010001));
    const std::uint8_t data[] = {0x41};
    std::string out = "old";
    EXPECT_FALSE(DumpPacket(4, trace::ReadWrite, data, 1, false, out));
    EXPECT_EQ(out, "");
    out = "old";
    EXPECT_FALSE(DumpPacket(3, trace::PacketParsing, data, 1, false, out));
    EXPECT_EQ(out, "");
}

TEST_F(TraceCall, DumpUsesTheDevicesMaxPacketLengthInEveryClass)
{
    Publish(OptionsFor(3, 0xFFFFFFFF, 2));
    const std::uint8_t data[] = {0x41, 0x42, 0x43};
    std::string out;
    EXPECT_TRUE(DumpPacket(3, trace::PacketParsing, data, 3, false, out));
    EXPECT_EQ(out, "A B  ~more~");
    EXPECT_TRUE(DumpPacket(3, trace::ReadWrite, data, 1, false, out));
    EXPECT_EQ(out, "A ");
}

// What is published always has a mask equal to its length. Each thread asks for one of the two masks, so a dump
// that is made must be of that many bytes.
TEST_F(TraceCall, OptionsChangedWhileEveryThreadTracesAreNeverReadHalfChanged)
{
    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0};
    std::atomic<int> dumps{0};
    std::vector<std::thread> tracers;
    for (const std::uint32_t length : {16U, 32U, 16U}) {
        tracers.emplace_back([&, length] {
            const std::vector<std::uint8_t> data(64, 0x41);
            std::string out;
            while (!stop) {
                if (DumpPacket(5, length, data.data(), 64, false, out)) {
                    ++dumps;
                    wrong += out.size() != 2 * length + 7 ? 1 : 0;
                }
            }
        });
    }
    for (int round = 0; round < 5000 || dumps < 5000; ++round) {
        Publish(OptionsFor(5, round % 2 == 0 ? 16 : 32, round % 2 == 0 ? 16 : 32));
    }
    stop = true;
    for (std::thread& tracer : tracers) {
        tracer.join();
    }
    EXPECT_EQ(wrong, 0);
}

} // namespace
