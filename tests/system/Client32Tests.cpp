// A 32-bit client and the built 64-bit router: the registration serves both kinds of client. Skipped where 32-bit
// programs can't run, unless MORVANE_NEEDS_WINE32 is set.
#include "tests/support/KilledServer.h"
#include "tests/support/Programs32.h"
#include "tests/support/RouterSession.h"
#include "tests/support/TestSupport.h"
#include "tests/system/SimulatorProcess.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace {

std::filesystem::path Client()
{
    return support::Program32(L"Client32.exe");
}

class Client32 : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!support::Runs32BitPrograms()) {
            ASSERT_FALSE(support::Needs32BitPrograms()) << "there is no 32-bit Wine";
            GTEST_SKIP() << "there is no 32-bit Wine";
        }
        session.emplace(RouterSession::Transport::Simulation);
        RouterSession::SetMask(3, 0x00020000);
        simulator.emplace(std::wstring());
        ASSERT_TRUE(simulator->WaitUntilServed());
    }
    void TearDown() override
    {
        if (HasFailure() && session) {
            std::printf("%s\n", session->Log().c_str());
            // A client that failed ended its router with its job.
            ForgetKilledServers();
        }
    }
    /// The client starts the router, which ends with its release.
    void ExpectThatItIsServedThrough(const wchar_t* kind) const
    {
        DWORD binary = 0;
        ASSERT_TRUE(::GetBinaryTypeW(Client().c_str(), &binary));
        ASSERT_EQ(binary, static_cast<DWORD>(SCS_32BIT_BINARY));
        const support::ChildProcess client(Client(), std::wstring(kind) + L" " + support::UniqueName(L"Client32"));
        EXPECT_EQ(client.WaitForExit(std::chrono::seconds(60)), 0u) << client.Output();
        EXPECT_NE(client.Output().find("registered, answered and unregistered"), std::string::npos)
            << client.Output();
        // Only now may the client's job end, and under Wine everything that the client started with it.
        EXPECT_TRUE(support::WaitUntil([] { return FindProgram(L"MorvanePortRouter.exe") == 0; }))
            << "the router goes on";
    }

    std::optional<RouterSession> session;
    std::optional<SimulatorProcess> simulator;
};

TEST_F(Client32, IsServedThroughTheVtable)
{
    ExpectThatItIsServedThrough(L"vtable");
}

TEST_F(Client32, IsServedThroughDispatch)
{
    ExpectThatItIsServedThrough(L"dispatch");
}

// Its keyboard is at its end, so the sample closes its port as soon as it is open.
TEST_F(Client32, OpensAPortThroughTheLibrary)
{
    const support::ChildProcess client(support::Program32(L"SampleC.exe"), {});
    EXPECT_EQ(client.WaitForExit(std::chrono::seconds(60)), 0u) << client.Output();
    EXPECT_TRUE(support::WaitUntil([] { return FindProgram(L"MorvanePortRouter.exe") == 0; }))
        << "the router goes on";
}

} // namespace
