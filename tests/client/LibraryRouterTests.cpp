// The client library and the built router.
#include "tests/client/AttachedPort.h"
#include "tests/support/KilledServer.h"
#include "tests/support/PipeClient.h"
#include "tests/support/RouterSession.h"
#include "tests/support/TestSupport.h"
#include "tests/system/SimulatorProcess.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace {

using morvane::Of;
using morvane::Timeout;

constexpr const wchar_t* RouterName = L"MorvanePortRouter.exe";

bool RouterEnds()
{
    return support::WaitUntil([] { return FindProgram(RouterName) == 0; });
}

void KillRouter()
{
    const win32::KernelHandle router(
        ::OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, FindProgram(RouterName)));
    ASSERT_TRUE(::TerminateProcess(router.Get(), 1));
    ASSERT_TRUE(support::WaitFor(router.Get()));
}

struct LibraryAndRouter : testing::Test
{
    ~LibraryAndRouter() override
    {
        port.Close();
        if (HasFailure()) {
            std::printf("%s\n", session.Log().c_str());
        }
    }
    void StartInstrument() { simulator.emplace(std::wstring()); }
    void Open(const morvane_options& options)
    {
        port = morvane::Port(options, error);
        ASSERT_EQ(error, MORVANE_OK) << morvane_error_name(error) << " " << std::hex << ::GetLastError();
    }
    static morvane_options Options(std::uint32_t number = 1)
    {
        morvane_options options = morvane::Options(3, number);
        options.open_timeout = static_cast<std::uint32_t>(support::DefaultTimeout.count());
        return options;
    }
    /// Of an open that cannot succeed, with a time-out that the router has started within.
    static int ErrorOfOpen()
    {
        morvane_options options = Options();
        morvane_port number = 1;
        int failed = MORVANE_E_TIMEOUT;
        for (options.open_timeout = 3000; failed == MORVANE_E_TIMEOUT && options.open_timeout < 100'000;
             options.open_timeout *= 2)
        {
            failed = morvane_open_ex(&options, &number);
        }
        EXPECT_EQ(number, 0u);
        return failed;
    }
    static std::string Ask(const morvane::Port& asked, std::string_view text)
    {
        int failed = MORVANE_OK;
        const morvane::Bytes reply = asked.Request(Of(text), Patient, failed);
        return failed == MORVANE_OK ? TextOf(reply) : morvane_error_name(failed);
    }

    RouterSession session{RouterSession::Transport::Simulation};
    std::optional<SimulatorProcess> simulator;
    int error = MORVANE_OK;
    morvane::Port port;
};

TEST_F(LibraryAndRouter, OpenStartsTheRouterAndCloseEndsIt)
{
    StartInstrument();
    Open(Options());
    EXPECT_NE(FindProgram(RouterName), 0u);
    EXPECT_EQ(Ask(port, "hello"), "hello");
    EXPECT_EQ(port.Close(), MORVANE_OK);
    EXPECT_TRUE(RouterEnds());
    EXPECT_EQ(session.Log().find("NO_CONNECTION"), std::string::npos);
}

TEST_F(LibraryAndRouter, SeveralPortsWorkAtOnce)
{
    StartInstrument();
    Open(Options(1));
    morvane::Port second(Options(3));
    morvane::Port third(Options(4));
    EXPECT_EQ(Ask(port, "one"), "one");
    EXPECT_EQ(Ask(second, "two"), "two");
    third.Close();
    EXPECT_EQ(Ask(second, "still two"), "still two");
    EXPECT_EQ(Ask(port, std::string(MORVANE_LONGEST_MESSAGE, 'x')), std::string(MORVANE_LONGEST_MESSAGE, 'x'));
}

TEST_F(LibraryAndRouter, OpensWhileTheLastRouterEnds)
{
    StartInstrument();
    for (int round = 0; round < 4; ++round) {
        ASSERT_NO_FATAL_FAILURE(Open(Options())) << "round " << round;
        EXPECT_EQ(Ask(port, "hello"), "hello");
        port.Close();
    }
}

TEST_F(LibraryAndRouter, AnInstrumentThatGoesAndComesBackIsReported)
{
    StartInstrument();
    Open(Options());
    EXPECT_EQ(Ask(port, "one"), "one");
    simulator->Kill();
    EXPECT_TRUE(AwaitEvent(port, MORVANE_EVENT_INSTRUMENT_GONE));
    StartInstrument();
    EXPECT_TRUE(AwaitEvent(port, MORVANE_EVENT_INSTRUMENT_BACK));
    EXPECT_EQ(Ask(port, "two"), "two");
}

TEST_F(LibraryAndRouter, ARouterThatIsKilledIsReportedAndStartedAgain)
{
    StartInstrument();
    Open(Options());
    EXPECT_EQ(Ask(port, "one"), "one");
    ASSERT_NO_FATAL_FAILURE(KillRouter());
    EXPECT_TRUE(AwaitEvent(port, MORVANE_EVENT_ROUTER_GONE));
    ForgetKilledServers();
    EXPECT_TRUE(AwaitEvent(port, MORVANE_EVENT_ROUTER_BACK));
    EXPECT_EQ(Ask(port, "two"), "two");
}

TEST_F(LibraryAndRouter, ARouterThatIsKilledStaysEndedOnRequest)
{
    StartInstrument();
    morvane_options options = Options();
    options.flags = MORVANE_NO_RESTART;
    Open(options);
    EXPECT_EQ(Ask(port, "one"), "one");
    ASSERT_NO_FATAL_FAILURE(KillRouter());
    EXPECT_TRUE(AwaitEvent(port, MORVANE_EVENT_ROUTER_GONE));
    ForgetKilledServers();
    // A new one would be started at once, and again every 250 ms.
    port.WaitReady(Timeout(3000), error);
    EXPECT_EQ(error, MORVANE_E_ROUTER_GONE);
    EXPECT_EQ(FindProgram(RouterName), 0U);
}

TEST_F(LibraryAndRouter, ALateBoundPortNeedsNoTypeLibrary)
{
    StartInstrument();
    // What early binding is marshalled by; the next test registers it again.
    constexpr wchar_t Nowhere[] = L"C:\\nowhere.tlb";
    ASSERT_EQ(
        ::RegSetKeyValueW(HKEY_LOCAL_MACHINE,
                          L"Software\\Classes\\TypeLib\\{B58E0F3C-61D2-4A7E-8C19-5D0A3E6B9F24}\\1.0\\0\\win64",
                          nullptr, REG_SZ, Nowhere, sizeof Nowhere),
        ERROR_SUCCESS);
    morvane_options options = Options();
    options.flags = MORVANE_BACKGROUND;
    Open(options);
    const auto notYet = AwaitEvent(port, MORVANE_EVENT_NOT_YET);
    ASSERT_TRUE(notYet);
    ASSERT_EQ(notYet->error, MORVANE_E_NO_START) << "the test below proves nothing";
    port.Close();
    options = Options();
    options.flags = MORVANE_LATE_BOUND;
    Open(options);
    EXPECT_EQ(Ask(port, "hello"), "hello");
    port.Close();
    // Wine 10 keeps an object whose marshalling failed, and with it the router.
    if (!support::WaitUntil([] { return FindProgram(RouterName) == 0; }, std::chrono::seconds(2))) {
        KillRouter();
        ForgetKilledServers();
    }
}

TEST_F(LibraryAndRouter, APortThatAnotherClientRegisteredIsLeftAlone)
{
    StartInstrument();
    ASSERT_TRUE(session.Activate());
    ASSERT_EQ(session.RegisterPort(3, 1, L"OtherName"), S_OK);
    support::PipeClient other;
    ASSERT_TRUE(other.Open("OtherName"));
    EXPECT_EQ(ErrorOfOpen(), MORVANE_E_NO_PIPE);
    ASSERT_TRUE(other.Write("still here"));
    EXPECT_EQ(other.Read(), "still here") << "the port was unregistered";
    other.Close();
}

TEST_F(LibraryAndRouter, APortIsRegisteredAgainWhenItsFirstOwnerGoes)
{
    StartInstrument();
    ASSERT_TRUE(session.Activate());
    const std::string name = Narrow(support::UniqueName(L"Shared"));
    ASSERT_EQ(session.RegisterPort(3, 1, std::wstring(name.begin(), name.end())), S_OK);
    morvane_options options = Options();
    options.name = name.c_str();
    Open(options);
    EXPECT_EQ(Ask(port, "one"), "one");
    ASSERT_EQ(session.UnregisterPort(3, 1), S_OK);
    EXPECT_TRUE(AwaitEvent(port, MORVANE_EVENT_INSTRUMENT_GONE));
    port.WaitReady(Patient, error);
    EXPECT_EQ(error, MORVANE_OK);
    EXPECT_EQ(Ask(port, "two"), "two");
}

TEST_F(LibraryAndRouter, AnOpenWithoutInstrumentReleasesTheRouter)
{
    EXPECT_EQ(ErrorOfOpen(), MORVANE_E_NO_PIPE);
    EXPECT_TRUE(RouterEnds()) << "the router was not released";
}

TEST_F(LibraryAndRouter, ARouterThatIsNotRegisteredIsToldAtOnce)
{
    ASSERT_EQ(session.Run(L"/UnregServer"), 0u);
    morvane_options options = Options();
    options.open_timeout = MORVANE_FOREVER;
    morvane_port number = 1;
    EXPECT_EQ(morvane_open_ex(&options, &number), MORVANE_E_NOT_REGISTERED);
    EXPECT_EQ(number, 0u);
}

} // namespace
