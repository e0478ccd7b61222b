// Finding the instrument among the devices, and releasing it.
#include "tests/support/PatchedImport.h"
#include "tests/unit/transport/Hooks.h"
#include "tests/unit/transport/UsbFixture.h"
#include "usb/ControlCodes.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace usbtransport {

namespace describe = instrumentbus::describe;

class UsbConnect : public UsbTransport
{
protected:
    /// How many lines have `part` between the first line with `from` and the first with `to` after it.
    static std::size_t CountBetween(std::string_view from, std::string_view to, std::string_view part)
    {
        const std::vector<std::string> texts = RecordingTrace::Texts();
        const auto has = [](std::string_view wanted) {
            return [wanted](const std::string& text) { return text.find(wanted) != std::string::npos; };
        };
        const auto begin = std::ranges::find_if(texts, has(from));
        const auto end = std::find_if(begin, texts.end(), has(to));
        return static_cast<std::size_t>(std::count_if(begin, end, has(part)));
    }
    /// A whole scan that began after this call has found nothing.
    void AwaitFailedScan()
    {
        const std::size_t before = RecordingTrace::Count("Connection to USB failed");
        ASSERT_TRUE(RecordingTrace::WaitForLine("Connection to USB failed", support::DefaultTimeout, before + 2));
        EXPECT_FALSE(driver->IsConnected());
    }
    static constexpr int Procedures = 10;
    /// Starts, and of so many times from a line with `from` to the next one with `to` returns the shortest.
    std::chrono::steady_clock::duration ShortestTime(std::string_view from, std::string_view to)
    {
        using Clock = std::chrono::steady_clock;
        struct Times
        {
            std::mutex lock;
            std::optional<Clock::time_point> begun;
            Clock::duration shortest = Clock::duration::max();
            int count = 0;
        } times;
        onLine = [&](const std::string& line) {
            const std::lock_guard guard(times.lock);
            if (line.find(from) != std::string::npos) {
                times.begun = Clock::now();
            } else if (times.begun && line.find(to) != std::string::npos) {
                times.shortest = std::min(times.shortest, Clock::now() - *std::exchange(times.begun, {}));
                ++times.count;
            }
        };
        Start();
        EXPECT_TRUE(support::WaitUntil([&] {
            const std::lock_guard guard(times.lock);
            return times.count >= Procedures;
        }));
        driver.reset();
        return times.shortest;
    }
    /// As a test takes it: a wait may be shorter by a tick of the clock.
    static constexpr std::chrono::milliseconds TenMilliseconds{9};
    /// Starts with an instrument at index 1 that the scan chooses. While it looks at a foreign one after it, all
    /// go, and an instrument comes to index 0 (in slot 3) and `other` to the chosen one's (in slot 4).
    void StartAndReplace(const instrumentbus::Description& other)
    {
        bus.Plug(0, Instrument());
        bus.Plug(1, Instrument(0x1E4F, 0x0500));
        bus.Plug(2, Instrument(0x1234, 0x0100));
        onLine = [other, done = false](const std::string& line) mutable {
            if (line == "Found USB device, VID=4660, PID=256" && !std::exchange(done, true)) {
                instrumentbus::InstrumentControl hand;
                hand.Unplug(0);
                hand.Unplug(1);
                hand.Unplug(2);
                hand.Plug(3, Instrument(0x1E4F, 0x0500));
                hand.Plug(4, other);
            }
        };
        Start();
    }
};

TEST_F(UsbConnect, WithoutADeviceNothingConnectsAndSentPacketsAreDropped)
{
    Start();
    ASSERT_TRUE(RecordingTrace::WaitForLine("Iterate USB devices (Found=0), looking for Morvane Devices"));
    ASSERT_NO_FATAL_FAILURE(AwaitFailedScan());
    EXPECT_FALSE(driver->IsReady());
    EXPECT_EQ(RecordingTrace::Count("Query USB device"), 0u);
    Send("lost");
    EXPECT_EQ(RecordingTrace::Count("CCyUSBDriver::Submit() No connection, ignore all incomcing  requests"), 1u);
    EXPECT_EQ(driver->Queued(), 0);
}

TEST_F(UsbConnect, BeforeTheFirstReconnectNothingIsLookedFor)
{
    bus.Plug(0, Instrument());
    driver.emplace(false, host);
    ASSERT_TRUE(RecordingTrace::WaitForLine("CCyUSBDriver::USBCommandProcessThread() started"));
    EXPECT_EQ(RecordingTrace::Count("looking for"), 0u);
    EXPECT_EQ(bus.Count(0).opens, 1u); // the device object opens the first device when it is made
    driver->Reconnect();
    ASSERT_TRUE(RecordingTrace::WaitForLine("Connection to USB opened"));
}

TEST_F(UsbConnect, EveryTwentiethAttemptIsTraced)
{
    Start();
    ASSERT_TRUE(RecordingTrace::WaitForLine(
        "CCyUSBDriver::USBCommandProcessThread(41th try) looking for USB endpoints..."));
    EXPECT_TRUE(TracedInOrder({
        "CCyUSBDriver::USBCommandProcessThread(1th try) looking for USB endpoints...",
        "CCyUSBDriver::USBCommandProcessThread() 0 pending writes",
        "CCyUSBDriver::USBCommandProcessThread(21th try) looking for USB endpoints...",
        "CCyUSBDriver::USBCommandProcessThread() 0 pending writes",
        "CCyUSBDriver::USBCommandProcessThread(41th try) looking for USB endpoints...",
    }));
    EXPECT_EQ(CountBetween("(1th try)", "(41th try)", "th try)"), 2u);
    EXPECT_EQ(CountBetween("(1th try)", "(21th try)", "Connection to USB failed"), 20u);
    EXPECT_EQ(CountBetween("(21th try)", "(41th try)", "Connection to USB failed"), 20u);
    EXPECT_GE(host.signals, 40); // the ports are told each time
}

TEST_F(UsbConnect, AnInstrumentIsQueriedOpenedAndServedInThisOrder)
{
    Connect();
    EXPECT_TRUE(driver->IsConnected());
    EXPECT_TRUE(driver->IsReady());
    ASSERT_TRUE(RecordingTrace::WaitForLine("CCyUSBDriver::USBReadWaitThread() started"));
    EXPECT_TRUE(TracedInOrder({
        "CCyUSBDriver::USBCommandProcessThread() started",
        "CCyUSBDriver::USBCommandProcessThread(1th try) looking for USB endpoints...",
        "CCyUSBDriver::USBCommandProcessThread() 0 pending writes",
        "CCyUSBDriver::NotifyState(Not Connected)",
        "Iterate USB devices (Found=1), looking for Morvane Devices",
        "Query USB device #1",
        "Found USB device, VID=7759, PID=256",
        "FirmwareDownloader::ReadFirmwareFile()",
        "Connection to USB opened, BULK IN on Pipe 2 and OUT on Pipe 1",
        "CCyUSBDriver::NotifyState(Connected)",
    }));
    for (const support::TraceLine& line : RecordingTrace::Lines()) {
        EXPECT_EQ(line.classMask, trace::Usb) << line.text;
    }
}

TEST_F(UsbConnect, OtherKindsOfEndpointsAreSteppedOverButCountInThePipeNumbers)
{
    Connect(InstrumentWith({describe::Endpoint(0x81, 3, 8), describe::Endpoint(0x86), describe::Endpoint(0x83, 1),
                            describe::Endpoint(0x02), describe::Endpoint(0x88), describe::Endpoint(0x04)}));
    EXPECT_EQ(RecordingTrace::Count("Connection to USB opened, BULK IN on Pipe 2 and OUT on Pipe 4"), 1u);
    Feed(Frame(1, 1, 3, 1, "from the first IN"));
    EXPECT_TRUE(Delivered(1, "from the first IN"));
    EXPECT_EQ(bus.Count(0, 0x88).begun, 0u) << "a second IN is kept and never read";
    Send("to the first OUT");
    EXPECT_TRUE(NextIs("to the first OUT"));
}

TEST_F(UsbConnect, ADeviceOfAnotherVendorIsClosedAgainEachTimeAndNeverServed)
{
    bus.Plug(0, Instrument(0x1234, 0x0100));
    Start();
    ASSERT_TRUE(RecordingTrace::WaitForLine("Found USB device, VID=4660, PID=256", support::DefaultTimeout, 5));
    EXPECT_FALSE(driver->IsConnected());
    ASSERT_TRUE(bus.WaitFor(0, 0, [](const Counters& c) { return c.closes >= 5; }));
    // Once, because the device object opened it when it was made; a look at a foreign device does not reset it.
    EXPECT_EQ(bus.Count(0).resets, 1u);
    EXPECT_EQ(RecordingTrace::Count("ReadFirmwareFile"), 0u);
}

TEST_F(UsbConnect, OnlyListedProductsAreServedAlsoWhenPluggedLater)
{
    bus.Plug(0, Instrument(0x1E4F, 0x0102));
    Start();
    ASSERT_TRUE(RecordingTrace::WaitForLine("Found USB device, VID=7759, PID=258"));
    ASSERT_NO_FATAL_FAILURE(AwaitFailedScan());
    bus.Plug(1, Instrument(0x1E4F, 0x0500));
    ASSERT_NO_FATAL_FAILURE(AwaitConnection(1));
    EXPECT_TRUE(TracedInOrder({"Found USB device, VID=7759, PID=258", "Query USB device #2",
                               "Found USB device, VID=7759, PID=1280", "Connection to USB opened"}));
}

TEST_F(UsbConnect, OfTwoSupportedInstrumentsTheLaterIndexWins)
{
    bus.Plug(0, Instrument(0x1E4F, 0x0100));
    bus.Plug(1, Instrument(0x1E4F, 0x0500));
    Start();
    ASSERT_NO_FATAL_FAILURE(AwaitConnection(1));
    EXPECT_TRUE(TracedInOrder({"(Found=2)", "Query USB device #1", "PID=256", "Query USB device #2", "PID=1280",
                               "Connection to USB opened"}));
    Send("to the second");
    EXPECT_TRUE(NextIs("to the second", 1));
    EXPECT_EQ(bus.Count(0, Out).begun, 0u);
    EXPECT_TRUE(bus.WaitFor(0, 0, [](const Counters& c) { return c.closes == c.opens; })) << "the first is closed";
}

TEST_F(UsbConnect, AForeignDeviceAfterTheInstrumentIsQueriedAndChangesNothing)
{
    bus.Plug(0, Instrument());
    bus.Plug(1, Instrument(0x1234, 0x0100));
    Start();
    ASSERT_NO_FATAL_FAILURE(AwaitConnection());
    EXPECT_TRUE(TracedInOrder({"Query USB device #1", "VID=7759", "Query USB device #2", "VID=4660",
                               "Connection to USB opened, BULK IN on Pipe 2 and OUT on Pipe 1"}));
    Send("to the first");
    EXPECT_TRUE(NextIs("to the first"));
    Feed(Frame(1, 1, 3, 1, "back"));
    EXPECT_TRUE(Delivered(1, "back"));
}

TEST_F(UsbConnect, ADeviceThatCannotBeOpenedIsSkippedWhereverItStands)
{
    bus.Plug(0, Instrument());
    bus.Plug(1, Instrument());
    bus.Plug(2, Instrument());
    for (const std::uint32_t slot : {0u, 2u}) {
        Rule rule = ForControl(instrumentbus::OpenCode, Action::Fail);
        rule.slot = slot;
        rule.status = 0xC0000022; // access denied
        bus.SetRule(rule);
    }
    Start();
    ASSERT_NO_FATAL_FAILURE(AwaitConnection(1));
    EXPECT_TRUE(TracedInOrder({"(Found=3)", "Query USB device #1", "Query USB device #2", "Found USB device",
                               "Query USB device #3", "Connection to USB opened"}));
    Send("to the one in the middle");
    EXPECT_TRUE(NextIs("to the one in the middle", 1));
}

TEST_F(UsbConnect, ADeviceThatOpensButTellsNothingIsSkipped)
{
    bus.Plug(0, Instrument());
    bus.Plug(1, instrumentbus::Description());
    Start();
    ASSERT_NO_FATAL_FAILURE(AwaitConnection());
    Send("to the first");
    EXPECT_TRUE(NextIs("to the first"));
}

TEST_F(UsbConnect, AnExceptionAtOneIndexDoesNotEndTheScan)
{
    host.throwsForProduct = 0x0101;
    bus.Plug(0, Instrument(0x1E4F, 0x0101));
    bus.Plug(1, Instrument());
    bus.Plug(2, Instrument(0x1E4F, 0x0101));
    Start();
    ASSERT_NO_FATAL_FAILURE(AwaitConnection(1));
    EXPECT_TRUE(TracedInOrder({"Query USB device #1", "PID=257", "Query USB device #2", "PID=256",
                               "Query USB device #3", "PID=257", "Connection to USB opened"}));
    Send("to the one in the middle");
    EXPECT_TRUE(NextIs("to the one in the middle", 1));
}

TEST_F(UsbConnect, AnotherProductAtTheChosenIndexWaitsForTheNextScan)
{
    StartAndReplace(Instrument());
    ASSERT_NO_FATAL_FAILURE(AwaitConnection(4));
    EXPECT_TRUE(
        TracedInOrder({"Query USB device #3", "Found USB device, VID=4660", "Connection to USB failed",
                       "(Found=2)", "Query USB device #2", "Firmware_256.Out", "Connection to USB opened"}));
    EXPECT_EQ(RecordingTrace::Count("Connection to USB opened"), 1u);
}

TEST_F(UsbConnect, AForeignDeviceThatHasTakenTheChosenOnesIndexIsNotReset)
{
    StartAndReplace(Instrument(0x9999, 0x0100));
    ASSERT_NO_FATAL_FAILURE(AwaitConnection(3));
    EXPECT_EQ(RecordingTrace::Count("Connection to USB failed"), 1u);
    EXPECT_EQ(bus.Count(4, In).resets, 0u);
}

TEST_F(UsbConnect, AnEqualInstrumentAtTheChosenOnesIndexIsNotTakenForIt)
{
    StartAndReplace(Instrument(0x1E4F, 0x0500)); // as the chosen one, in another slot
    ASSERT_NO_FATAL_FAILURE(AwaitConnection(4));
    EXPECT_EQ(RecordingTrace::Count("Connection to USB failed"), 1u) << "the next scan takes it";
    EXPECT_EQ(RecordingTrace::Count("Connection to USB opened"), 1u);
}

TEST_F(UsbConnect, AFailedScanIsFollowedByTheNextAfterTenMilliseconds)
{
    EXPECT_GE(ShortestTime("Connection to USB failed", "NotifyState(Not Connected)"), TenMilliseconds);
}

TEST_F(UsbConnect, AfterAFailedFirstReadTheProcedureWaitsTenMilliseconds)
{
    bus.Plug(0, Instrument());
    Rule refuses = For(In, Action::Fail);
    refuses.status = StatusIoDeviceError;
    bus.SetRule(refuses);
    EXPECT_GE(ShortestTime("Reply-receive failed(", "NotifyState(Not Connected)"), TenMilliseconds);
}

TEST_F(UsbConnect, ALaterReadThatFailsIsFollowedByTheNextProcedureAtOnce)
{
    bus.Plug(0, Instrument());
    // The second read of each connection fails. A rule does not count what those before it were applied to.
    for (std::uint32_t connection = 1; connection <= 3 * Procedures; ++connection) {
        Rule refuses = For(In, Action::Fail, 1);
        refuses.status = StatusIoDeviceError;
        refuses.skip = connection;
        bus.SetRule(refuses);
        Feed("a block");
        Feed("a block");
    }
    EXPECT_LT(ShortestTime("Reply-receive failed(", "NotifyState(Not Connected)"), TenMilliseconds);
}

TEST_F(UsbConnect, AReadThreadThatCannotStartIsTracedAndTriedAgain)
{
    bus.Plug(0, Instrument());
    onLine = [done = false](const std::string& line) mutable {
        if (line == "CCyUSBDriver::NotifyState(Connected)" && !std::exchange(done, true)) {
            hooks::refusedThreads = 1;
        }
    };
    Start();
    ASSERT_TRUE(RecordingTrace::WaitForLine("CCyUSBDriver::USBReadWaitThread() cannot be started(8)"));
    ASSERT_NO_FATAL_FAILURE(AwaitConnection());
    Send("served");
    EXPECT_TRUE(NextIs("served"));
}

// Replaces CreateEventW, which only the read thread is refused.
const support::PatchedImport* replacedEvents = nullptr;
std::atomic<DWORD> testThread{0};
std::atomic<DWORD> commandThread{0}; // 0: no thread is refused one
std::atomic<int> refusedEvents{0};

HANDLE WINAPI RefuseReadThread(LPSECURITY_ATTRIBUTES security, BOOL manual, BOOL set, LPCWSTR name)
{
    const DWORD thread = ::GetCurrentThreadId();
    if (commandThread != 0 && thread != commandThread && thread != testThread) {
        ++refusedEvents;
        commandThread = 0;
        return nullptr;
    }
    return replacedEvents->Original<decltype(::CreateEventW)>()(security, manual, set, name);
}

TEST_F(UsbConnect, AReadThreadWithoutAnEventIsTracedAndTriedAgain)
{
    const support::PatchedImport patch("CreateEventW", reinterpret_cast<void*>(RefuseReadThread));
    replacedEvents = &patch;
    testThread = ::GetCurrentThreadId();
    refusedEvents = 0;
    bus.Plug(0, Instrument());
    onLine = [done = false](const std::string& line) mutable {
        if (line == "CCyUSBDriver::NotifyState(Connected)" && !std::exchange(done, true)) {
            commandThread = ::GetCurrentThreadId();
        }
    };
    Start();
    ASSERT_TRUE(RecordingTrace::WaitForLine("CCyUSBDriver::USBReadWaitThread() cannot run: "));
    EXPECT_EQ(refusedEvents, 1);
    ASSERT_NO_FATAL_FAILURE(AwaitConnection());
    Send("served");
    EXPECT_TRUE(NextIs("served"));
    driver.reset(); // before the replacement
}

TEST_F(UsbConnect, AnExceptionInTheCommandThreadIsTracedAndANewConnectionMade)
{
    bus.Plug(0, Instrument());
    host.throwsAtSignals = 1;
    Start();
    ASSERT_NO_FATAL_FAILURE(AwaitConnection());
    EXPECT_EQ(RecordingTrace::Count("CCyUSBDriver::USBCommandProcessThread() failed, reconnecting"), 1u);
}

TEST_F(UsbConnect, TheCommandThreadRunsAboveAndTheReplyThreadAtNormalPriority)
{
    std::atomic<int> command{-100};
    std::atomic<int> reply{-100};
    onLine = [&](const std::string& line) {
        if (line == "CCyUSBDriver::NotifyState(Connected)") {
            command = ::GetThreadPriority(::GetCurrentThread());
        } else if (line.find("no valid destination") != std::string::npos) {
            reply = ::GetThreadPriority(::GetCurrentThread());
        }
    };
    Connect();
    Feed(Frame(1, 1, 9, 9, "x"));
    ASSERT_TRUE(RecordingTrace::WaitForLine("no valid destination"));
    EXPECT_TRUE(support::WaitUntil([&] { return reply != -100; }));
    EXPECT_EQ(command, THREAD_PRIORITY_ABOVE_NORMAL);
    EXPECT_EQ(reply, THREAD_PRIORITY_NORMAL);
}

TEST_F(UsbConnect, WithoutABulkOutEndpointThereIsNoConnection)
{
    bus.Plug(0, InstrumentWith({describe::Endpoint(0x86), describe::Endpoint(0x02, 3)}));
    Start();
    ASSERT_NO_FATAL_FAILURE(AwaitFailedScan());
    EXPECT_EQ(RecordingTrace::Count("Connection to USB opened"), 0u);
    EXPECT_EQ(bus.Count(0, In).begun, 0u);
}

TEST_F(UsbConnect, WithoutABulkInEndpointThereIsNoConnection)
{
    bus.Plug(0, InstrumentWith({describe::Endpoint(0x02)}));
    Start();
    ASSERT_NO_FATAL_FAILURE(AwaitFailedScan());
    EXPECT_EQ(RecordingTrace::Count("Connection to USB opened"), 0u);
}

TEST_F(UsbConnect, ALaterInstrumentReplacesTheChoiceEvenWithoutAnEndpoint)
{
    bus.Plug(0, Instrument());
    bus.Plug(1, InstrumentWith({describe::Endpoint(0x86)}, 0x1E4F, 0x0500));
    Start();
    ASSERT_NO_FATAL_FAILURE(AwaitFailedScan());
    bus.Unplug(1);
    ASSERT_NO_FATAL_FAILURE(AwaitConnection());
    Send("alone");
    EXPECT_TRUE(NextIs("alone"));
}

TEST_F(UsbConnect, ThePortIsResetOnlyBeforeTheCloseOfAServedInstrument)
{
    Connect();
    // The device object opened the instrument when it was made, and the first connect procedure closed it.
    EXPECT_TRUE(
        bus.WaitFor(0, 0, [](const Counters& c) { return c.opens == 2 && c.closes == 1 && c.resets == 1; }));

    bus.SetRule(ForControl(usb::ControlResetParentPort, Action::Hold));
    driver->Reconnect();
    ASSERT_TRUE(bus.WaitFor(0, 0, [](const Counters& c) { return c.controlsHeld == 1; }));
    EXPECT_EQ(bus.Count(0).closes, 1u) << "the reset comes first";
    EXPECT_EQ(bus.Count(0, In).pending, 0u) << "and before it the transfers are ended";
    bus.Release(0);
    EXPECT_TRUE(
        bus.WaitFor(0, 0, [](const Counters& c) { return c.opens == 3 && c.closes == 2 && c.resets == 2; }));

    driver.reset();
    EXPECT_TRUE(
        bus.WaitFor(0, 0, [](const Counters& c) { return c.opens == 3 && c.closes == 3 && c.resets == 3; }));
}

TEST_F(UsbConnect, AReconnectRestartsReadThreadAndNumbersAndSignalsPorts)
{
    Connect();
    Send("one");
    Send("two");
    EXPECT_TRUE(NextIs("one"));
    EXPECT_TRUE(NextIs("two"));
    Feed(Frame(200, 1, 3, 1, "number 200"));
    EXPECT_TRUE(Delivered(1, "number 200"));
    const int signals = host.signals;

    ASSERT_NO_FATAL_FAILURE(Reopen());
    EXPECT_GT(host.signals, signals);
    EXPECT_EQ(RecordingTrace::Count("CCyUSBDriver::USBReadWaitThread() ended"), 1u);
    EXPECT_TRUE(
        RecordingTrace::WaitForLine("CCyUSBDriver::USBReadWaitThread() started", support::DefaultTimeout, 2));
    Send("three");
    EXPECT_TRUE(NextIs("three")) << "as number 0, or after idle packets from 0 on";
    Feed(Frame(1, 1, 3, 1, "number 1"));
    EXPECT_TRUE(Delivered(2, "number 1"));
    EXPECT_EQ(RecordingTrace::Count("Packet has packet number"), 0u) << "1 after 200 is no gap now";
}

TEST_F(UsbConnect, TheEndStopsAllThreadsAndAbortsWhatIsPending)
{
    host.quietSeconds.Reset();
    Connect();
    bus.SetRule(For(Out, Action::Hold));
    Send("never taken"); // alone: no other packet makes the transport abort it before
    ASSERT_TRUE(bus.WaitFor(0, Out, [](const Counters& c) { return c.held == 1; }));
    const std::uint32_t aborts = bus.Count(0, Out).endpointAborts;
    host.quietSeconds.Set();
    driver.reset();
    EXPECT_EQ(RecordingTrace::Count("CCyUSBDriver::USBReadWaitThread() ended"), 1u);
    EXPECT_EQ(RecordingTrace::Count("CCyUSBDriver::USBCommandProcessThread() ended"), 1u);
    EXPECT_EQ(bus.Count(0, Out).pending, 0u);
    EXPECT_EQ(bus.Count(0, In).pending, 0u);
    EXPECT_EQ(bus.Count(0, Out).endpointAborts, aborts + 1) << "the close alone would end the transfers as well";
    EXPECT_EQ(bus.Count(0, In).endpointAborts, 2u) << "by the read thread and when the endpoints are released";
}

TEST_F(UsbConnect, TheEndComesWhileThereIsNoInstrument)
{
    Start();
    ASSERT_NO_FATAL_FAILURE(AwaitFailedScan());
    driver.reset();
    EXPECT_EQ(RecordingTrace::Count("CCyUSBDriver::USBCommandProcessThread() ended"), 1u);
    EXPECT_EQ(RecordingTrace::Count("USBReadWaitThread"), 0u);
}

} // namespace usbtransport
