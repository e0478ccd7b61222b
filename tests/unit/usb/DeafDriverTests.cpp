// A driver that keeps requests although they were aborted and cancelled.
#include "tests/unit/usb/UsbFixture.h"
#include "usb/ControlCodes.h"

#include <thread>

namespace usbtest {

constexpr std::uint32_t Deaf = Action::Hold | Action::Stubborn;

/// As a test on a machine under load takes it; far below the 12 s of a request without an answer.
constexpr ULONGLONG SoonMs = 8'000;

class DeafDriver : public UsbTest
{
protected:
    void SetUp() override
    {
        UsbTest::SetUp();
        bus.Plug(0, Instrument());
    }
    void TearDown() override
    {
        bus.Release(0);
        UsbTest::TearDown();
    }
    static void HoldFor(UsbDevice& opened, std::uint8_t endpoint, usb::BulkTransfer& write)
    {
        for (std::size_t i = 1; i < opened.EndpointCount(); ++i) {
            if (opened.Endpoint(i)->Address() == endpoint) {
                auto packet = std::make_unique<Bytes>(Pattern(10));
                const std::span<const std::uint8_t> view(*packet);
                ASSERT_TRUE(write.BeginWrite(*opened.Endpoint(i), usb::Keep(std::move(packet)), view));
            }
        }
    }
    /// How long `call` took, in ms.
    template <class Call>
    static ULONGLONG TimeOf(Call&& call)
    {
        const ULONGLONG begin = ::GetTickCount64();
        call();
        return ::GetTickCount64() - begin;
    }

    const win32::Event stop{win32::Event::Kind::ManualReset};
    usb::CallLimits impatient{nullptr, 50, 50};
    usb::CallLimits stoppable{stop.Get()};
};

TEST_F(DeafDriver, AControlThatIsKeptIsGivenUpAndFreedWhenItEnds)
{
    UsbDevice kept(nullptr, InstrumentInterface, true, impatient);
    bus.SetRule(ForControl(usb::ControlResetParentPort, Deaf));
    kept.ResetParentPort();
    EXPECT_EQ(kept.KeptByDrivers(), 1u);
    EXPECT_EQ(bus.Count(0).controlsHeld, 1u) << "the driver heeds no cancel";
    kept.ResetParentPort();
    EXPECT_EQ(bus.Count(0).controlsHeld, 1u) << "the same is not asked again meanwhile";
    EXPECT_EQ(kept.KeptByDrivers(), 1u);

    bus.Release(0);
    ASSERT_TRUE(bus.WaitFor(0, 0, [](const Counters& c) { return c.resets == 1; }));
    ASSERT_TRUE(support::WaitUntil([&] {
        kept.ResetParentPort();
        return kept.KeptByDrivers() == 0;
    }));
    EXPECT_GE(bus.Count(0).resets, 2u) << "it is asked again after that";
}

TEST_F(DeafDriver, AnAbortThatIsKeptIsGivenUp)
{
    UsbDevice kept(nullptr, InstrumentInterface, true, impatient);
    bus.SetRule(ForControl(usb::ControlAbortPipe, Deaf));
    EXPECT_FALSE(kept.Endpoint(1)->Abort());
    EXPECT_EQ(::GetLastError(), DWORD{ERROR_TIMEOUT});
    EXPECT_EQ(kept.Endpoint(1)->Abandoned().Count(), 1u);
    EXPECT_FALSE(kept.Endpoint(1)->Abort());
    EXPECT_EQ(::GetLastError(), DWORD{ERROR_BUSY});
    kept.Close();
    EXPECT_EQ(kept.KeptByDrivers(), 1u) << "it outlives the endpoint";
}

TEST_F(DeafDriver, AllCallsTogetherHaveASecondWhileStopping)
{
    UsbDevice kept(nullptr, InstrumentInterface, true, stoppable);
    // With a second for each call these would take longer than a busy machine does.
    std::vector<std::unique_ptr<UsbDevice>> further;
    for (ULONGLONG ms = 0; ms < SoonMs; ms += usb::CallLimits::StopMs) {
        further.push_back(std::make_unique<UsbDevice>(nullptr, InstrumentInterface, true, stoppable));
        ASSERT_TRUE(further.back()->IsOpen());
    }
    usb::BulkTransfer write;
    bus.SetRule(For(Out, Deaf));
    HoldFor(kept, Out, write);
    bus.SetRule(ForControl(usb::ControlAbortPipe, Deaf));
    bus.SetRule(ForControl(usb::ControlResetParentPort, Deaf));
    stop.Set();
    EXPECT_LT(TimeOf([&] {
                  kept.Endpoint(1)->Abort();
                  kept.Endpoint(2)->Abort();
                  write.Abandon();
                  kept.ResetParentPort();
                  kept.Close();
                  for (const auto& each : further) {
                      each->ResetParentPort();
                      each->Close();
                  }
              }),
              SoonMs);
    EXPECT_EQ(kept.KeptByDrivers(), 4u);
}

TEST_F(DeafDriver, AStopCutsShortACallThatWaits)
{
    UsbDevice kept(nullptr, InstrumentInterface, true, stoppable);
    bus.SetRule(ForControl(usb::ControlResetParentPort, Deaf));
    ULONGLONG ended = 0;
    std::thread caller([&] {
        kept.ResetParentPort();
        ended = ::GetTickCount64();
    });
    EXPECT_TRUE(bus.WaitFor(0, 0, [](const Counters& c) { return c.controlsHeld == 1; }));
    const ULONGLONG stopped = ::GetTickCount64();
    stop.Set();
    caller.join();
    EXPECT_LT(ended - stopped, SoonMs);
}

TEST_F(DeafDriver, OnlyTheFirstCloseWaitsForWhatIsKept)
{
    usb::CallLimits limits{nullptr, 50, 1'500};
    UsbDevice kept(nullptr, InstrumentInterface, true, limits);
    usb::BulkTransfer write;
    bus.SetRule(For(Out, Deaf));
    HoldFor(kept, Out, write);
    write.Abort();
    EXPECT_GE(TimeOf([&] { kept.Close(); }), 1'400u);
    EXPECT_EQ(kept.KeptByDrivers(), 1u);
    auto shortest = ~0ull;
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(kept.Open(0));
        shortest = std::min(shortest, TimeOf([&] { kept.Close(); }));
    }
    EXPECT_LT(shortest, 1'400u);
    bus.Release(0);
    ASSERT_TRUE(support::WaitUntil([&] {
        kept.Close();
        return kept.KeptByDrivers() == 0;
    }));
}

TEST_F(DeafDriver, NoMoreTransfersAreStartedAtTheLimitOfKeptOnes)
{
    UsbDevice kept(nullptr, InstrumentInterface, true, impatient);
    bus.SetRule(For(Out, Deaf));
    usb::BulkTransfer write;
    for (std::size_t i = 0; i < usb::AbandonedTransfers::Limit; ++i) {
        ASSERT_NO_FATAL_FAILURE(HoldFor(kept, Out, write));
        write.Abandon();
    }
    ASSERT_NO_FATAL_FAILURE(HoldFor(kept, Out, write));
    EXPECT_EQ(End(write).lastError, DWORD{ERROR_NO_SYSTEM_RESOURCES});
    EXPECT_EQ(bus.Count(0, Out).begun, usb::AbandonedTransfers::Limit);

    kept.Close();
    EXPECT_EQ(kept.KeptByDrivers(), usb::AbandonedTransfers::Limit);
    EXPECT_FALSE(kept.Open(0)) << "a connection would only add to them";
    bus.Release(0);
    EXPECT_TRUE(support::WaitUntil([&] { return kept.Open(0); }));
    ASSERT_NO_FATAL_FAILURE(HoldFor(kept, Out, write));
    EXPECT_TRUE(End(write).worked);
    kept.Close();
}

} // namespace usbtest
