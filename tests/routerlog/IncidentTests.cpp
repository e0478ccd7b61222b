// Logs of real runs with planted incidents: for each the right sentence, and no other one.
#include "tests/instrument/InstrumentControl.h"
#include "tests/routerlog/PlantedRun.h"
#include "tests/system/BusProcess.h"
#include "tests/system/ServedPort.h"
#include "tools/RouterLog/pc/RouterSettings.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

namespace {

using planted::Expected;
using routerlog::Form;

/// A number in the environment, for the long runs.
int NumberFrom(const char* variable, int otherwise)
{
    const char* const value = std::getenv(variable);
    return value != nullptr ? std::atoi(value) : otherwise;
}

TEST(RealRuns, WithPlantedIncidentsAreToldAsTheyWere)
{
    const int wanted = NumberFrom("MORVANE_INCIDENTS", 13);
    planted::Run run;
    for (int which = 0; run.Planted() < static_cast<std::size_t>(wanted); ++which) {
        run.Plant(which);
    }
    run.Check();
    std::printf("%zu planted incidents\n", run.Planted());
}

TEST(RealRuns, WithoutIncidentsAreToldWithout)
{
    constexpr int Batch = 600; // requests and replies; enough for the numbers to go round
    const int packets = NumberFrom("MORVANE_CLEAN_PACKETS", Batch);
    const support::TempFolder folder;
    RouterSession session(RouterSession::Transport::Simulation);
    RouterSession::SetMask(-1, 0x001D0000);
    RouterSession::SetMask(3, 0x00060000);
    win32::RegistryKey::Create(HKEY_LOCAL_MACHINE, routerlog::settings::DeviceOptions, KEY_READ | KEY_WRITE)
        .WriteDword(routerlog::settings::LogLimit, 1'000);
    const SimulatorProcess simulator(L"--quiet");
    ASSERT_TRUE(simulator.WaitUntilServed());
    ASSERT_TRUE(session.Activate());
    LogWatch watch(session.LogFile());
    // One after the other, so that never more lines wait for the log than it takes.
    for (int sent = 0, programs = 0; sent < packets; sent += Batch) {
        const support::ChildProcess clients(support::ProgramFolder() / L"RouterProbe.exe",
                                            L"measure --quiet --port 3,1 --port 3,2 --reply-timeout 60 --count " +
                                                std::to_wstring(Batch / 4));
        ASSERT_EQ(clients.WaitForExit(std::chrono::minutes(5)), 0U) << clients.Output();
        ASSERT_TRUE(watch.WaitFor(Form::Reply, (sent + Batch) / 2));
        ASSERT_TRUE(watch.WaitFor(Form::ObjectDestroyed, ++programs));
    }
    session.Release();
    ASSERT_TRUE(session.WaitForEnd());
    for (const planted::Told& told : planted::Explain(session.LogFile(), folder.Path())) {
        EXPECT_EQ(told.kind, "client-went") << told.text;
    }
}

/// An instrument on the bus whose bootloader follows a script line, and a router that downloads into it.
class FirmwareRun : public testing::Test
{
protected:
    static constexpr int Product = 0x0100;

    void Download(const std::wstring& line, Form ends)
    {
        RouterSession::SetMask(-1, 0x00080000);
        RouterSession::SetMask(0, 0x00080000);
        session.WriteFirmware(Product, std::string(20'000, 'f'));
        bus.emplace(L"--quiet --do \"firmware " + line + L"\"");
        ASSERT_TRUE(bus->WaitUntilServed()) << bus->Output();
        ASSERT_TRUE(session.Activate());
        LogWatch watch(session.LogFile());
        ASSERT_TRUE(watch.WaitFor(ends, 1)) << session.Log();
        session.Release();
        ASSERT_TRUE(session.WaitForEnd());
    }
    void ExpectTold(const std::vector<Expected>& expected) const
    {
        planted::Compare(expected, planted::Explain(session.LogFile(), folder.Path()));
    }

    support::TempFolder folder;
    RouterSession session{RouterSession::Transport::Usb};
    std::optional<BusProcess> bus;
};

TEST_F(FirmwareRun, ThatIsRefusedIsToldSo)
{
    Download(L"deny", Form::FirmwareCompleted);
    ExpectTold({{"firmware-refused", {"The instrument refused the firmware: the instrument answered DENY."}}});
}

TEST_F(FirmwareRun, OfAWrongSizeIsToldAsRefused)
{
    Download(L"wrong-echo", Form::FirmwareCompleted);
    ExpectTold({{"firmware-refused", {"RECEIVE_READY did not fit the image"}}});
}

TEST_F(FirmwareRun, ThatFailsIsToldWithItsChunks)
{
    Download(L"at 3 fail", Form::FirmwareCompleted);
    ExpectTold({{"firmware-failed", {"after 2 of 6 chunks: the instrument answered DOWNLOAD_FAIL."}}});
}

TEST_F(FirmwareRun, ThatWorksIsToldWithItsTime)
{
    Download(L"accept 4000", Form::FirmwareCompleted);
    ExpectTold({{"firmware-downloaded", {"Firmware downloaded in ", "(20,000 bytes in 6 chunks)."}}});
}

TEST_F(FirmwareRun, OfAnUnpluggedInstrumentIsToldAsInterrupted)
{
    Download(L"at 3 vanish", Form::ReceiveFailed);
    ExpectTold({{"instrument-lost", {"The instrument was unplugged or went away", "while reading"}},
                {"firmware-interrupted", {"after 2 of 6 chunks"}}});
}

/// A client of a router over USB, whose instrument the test disturbs through its driver.
class UsbRun : public testing::Test
{
protected:
    static constexpr std::uint32_t Slot = 0;
    static constexpr std::uint8_t Out = 0x02;

    void SetUp() override
    {
        RouterSession::SetMask(-1, 0x00080000);
        RouterSession::SetMask(3, 0x00040000);
        ASSERT_TRUE(bus.WaitUntilServed()) << bus.Output();
        ASSERT_TRUE(session.Activate());
        ASSERT_TRUE(served::Open(client, served::Register(session, 3, 1)));
        watch.emplace(session.LogFile());
    }
    void End()
    {
        client.Close();
        EXPECT_TRUE(watch->WaitFor(Form::PipeReadBroken, 1));
        session.Release();
        ASSERT_TRUE(session.WaitForEnd());
    }
    /// Other ends of clients than the expected ones are those of attempts to open the pipe.
    std::vector<planted::Told> ToldWithoutClients() const
    {
        std::vector<planted::Told> told = planted::Explain(session.LogFile(), folder.Path());
        std::erase_if(told, [](const planted::Told& each) { return each.kind == "client-went"; });
        return told;
    }

    support::TempFolder folder;
    RouterSession session{RouterSession::Transport::Usb};
    BusProcess bus{L"--quiet"};
    support::PipeClient client;
    std::optional<LogWatch> watch;
};

TEST_F(UsbRun, WithAbortedWritesTellsHowManyPacketsAreLost)
{
    instrumentbus::InstrumentControl control;
    instrumentbus::Rule holdOne{};
    holdOne.slot = Slot;
    holdOne.endpoint = Out;
    holdOne.count = 1;
    holdOne.actions = instrumentbus::Hold;
    constexpr int Stuck = 3;
    for (int packet = 1; packet <= Stuck; ++packet) {
        control.Release(Slot, Out);
        control.SetRule(holdOne);
        ASSERT_TRUE(client.Write("lost"));
        ASSERT_TRUE(control.WaitFor(Slot, Out, [](const auto& counters) { return counters.held == 1; }));
        ASSERT_TRUE(client.Write("next"));
        ASSERT_TRUE(watch->WaitFor(Form::UsbWriteAborted, packet));
        ASSERT_EQ(client.Read(), "next");
    }
    ASSERT_NO_FATAL_FAILURE(End());
    planted::Compare(
        {{"writes-aborted",
          {"The instrument did not take packets in time: 3 writes were aborted", "and their packets are lost."}}},
        ToldWithoutClients());
}

TEST_F(UsbRun, WithAnUnpluggedInstrumentTellsTheErrorAndTheReturn)
{
    bus.Stop();
    ASSERT_TRUE(watch->WaitFor(Form::ReceiveFailed, 1));
    ASSERT_TRUE(watch->WaitFor(Form::ConnectFailed, 1));
    BusProcess again(L"--quiet");
    ASSERT_TRUE(again.WaitUntilServed()) << again.Output();
    ASSERT_TRUE(watch->WaitFor(Form::ConnectOpened, 2));
    session.Release();
    ASSERT_TRUE(session.WaitForEnd());
    planted::Compare(
        {{"instrument-lost", {"The instrument was unplugged", "noticed while reading, Windows error"}},
         {"client-cut-off", {"changed"}},
         {"instrument-reconnected", {"The instrument (product 0x0100) was reconnected after "}}},
        ToldWithoutClients());
}

} // namespace
