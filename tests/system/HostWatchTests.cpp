// The end of a router whose host programs are gone, with real processes of those names.
#include "tests/support/PipeClient.h"
#include "tests/support/RouterSession.h"
#include "tests/support/TestSupport.h"
#include "tests/system/BusProcess.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>

namespace {

using namespace std::chrono_literals;

constexpr const char* EndLine = "Host application does not exist..So termintating port router...";

/// A program of any name that does nothing until it is ended.
class HostProgram
{
public:
    HostProgram(const support::TempFolder& folder, const std::wstring& name)
        : m_pipe(support::UniqueName(L"Host")), m_process(Copy(folder, name), L"--quiet --pipe " + m_pipe)
    {
    }

    /// Once it is in the process list.
    bool IsRunning(const std::wstring& name) const
    {
        return support::WaitUntil([&] { return FindProgram(name) == m_process.Id(); });
    }
    void End() const
    {
        m_process.Kill();
        m_process.WaitForExit();
    }

private:
    static std::filesystem::path Copy(const support::TempFolder& folder, const std::wstring& name)
    {
        std::filesystem::path copy = folder.Path() / name;
        std::filesystem::copy_file(support::ProgramFolder() / L"InstrumentSimulator.exe", copy);
        return copy;
    }

    std::wstring m_pipe;
    support::ChildProcess m_process;
};

/// The watch looks once in each quiet second of a connected router; where it goes on, an idle packet follows.
class HostWatch : public testing::Test
{
protected:
    HostWatch() { RouterSession::SetMask(-1, 0x00380000); }
    ~HostWatch() override
    {
        if (HasFailure()) {
            std::printf("%s\n", session.Log().c_str());
        }
    }
    void Start()
    {
        ASSERT_TRUE(bus.WaitUntilServed()) << bus.Output();
        ASSERT_TRUE(session.Activate());
        ASSERT_TRUE(session.WaitForLog("Connection to USB opened"));
    }
    std::size_t IdlePackets() const
    {
        const std::string output = bus.Output();
        std::size_t count = 0;
        for (std::size_t at = 0; (at = output.find(" type 238 ", at)) != std::string::npos; ++at) {
            ++count;
        }
        return count;
    }
    /// Whether the router goes on after looking twice more at least.
    bool GoesOn() const
    {
        const std::size_t before = IdlePackets();
        return support::WaitUntil([&] { return IdlePackets() >= before + 3; }) &&
               session.Log().find(EndLine) == std::string::npos;
    }
    /// Whether the router ends with code 0, soon and saying why.
    void ExpectEnd()
    {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(session.WaitForEnd(), 0u);
        EXPECT_LT(std::chrono::steady_clock::now() - start, 6s) << "a second, and what a loaded machine adds";
        EXPECT_NE(session.Log().find(EndLine), std::string::npos);
        EXPECT_NE(session.Log().find("********* End Logging *********"), std::string::npos);
    }

    support::TempFolder folder;
    RouterSession session{RouterSession::Transport::Usb};
    BusProcess bus{L""};
};

TEST_F(HostWatch, TheRouterEndsOnceLumivistaHasEnded)
{
    HostProgram host(folder, L"Lumivista.exe");
    ASSERT_TRUE(host.IsRunning(L"Lumivista.exe"));
    Start();
    ASSERT_TRUE(GoesOn());
    host.End();
    ExpectEnd();
}

TEST_F(HostWatch, TheLastOfSeveralHostProgramsCountsWhicheverItIs)
{
    HostProgram first(folder, L"Lumivista.exe");
    HostProgram second(folder, L"RouterProbe.exe");
    ASSERT_TRUE(first.IsRunning(L"Lumivista.exe"));
    ASSERT_TRUE(second.IsRunning(L"RouterProbe.exe"));
    Start();
    first.End();
    ASSERT_TRUE(GoesOn());
    second.End();
    ExpectEnd();
}

TEST_F(HostWatch, WithoutAHostProgramAtItsStartTheRouterIsStandaloneForGood)
{
    Start();
    ASSERT_TRUE(GoesOn());
    {
        HostProgram late(folder, L"Lumivista.exe");
        ASSERT_TRUE(late.IsRunning(L"Lumivista.exe"));
        ASSERT_TRUE(GoesOn());
    }
    EXPECT_TRUE(GoesOn());
    session.Release();
    EXPECT_EQ(session.WaitForEnd(), 0u) << "by the release, as ever";
}

TEST_F(HostWatch, ANameInOtherCaseIsNoHostProgram)
{
    HostProgram other(folder, L"lumivista.exe");
    ASSERT_TRUE(other.IsRunning(L"lumivista.exe"));
    Start();
    other.End();
    EXPECT_TRUE(GoesOn());
}

} // namespace
