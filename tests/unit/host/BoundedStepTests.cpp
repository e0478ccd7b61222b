#include "host/BoundedStep.h"

#include "host/TraceFrontEnd.h"
#include "tests/support/PatchedImport.h"
#include "tests/support/TestSupport.h"
#include "tests/unit/host/RecordingOutput.h"
#include "trace/Trace.h"
#include "win32/Event.h"

#include <gtest/gtest.h>
#include <atomic>
#include <cstdint>
#include <memory>
#include <stdexcept>

namespace {

TEST(BoundedStep, AStepThatReturnsIsWaitedFor)
{
    bool done = false;
    EXPECT_TRUE(EndsWithin(60'000, [&] {
        ::Sleep(20); // the time the step takes: what is tested, not what is waited for
        done = true;
    }));
    EXPECT_TRUE(done);
}

TEST(BoundedStep, AStepThatHangsIsLeftToItselfAfterItsLimit)
{
    const auto release = std::make_shared<win32::Event>(win32::Event::Kind::ManualReset);
    const auto ended = std::make_shared<std::atomic<bool>>(false);
    const ULONGLONG begin = ::GetTickCount64();
    EXPECT_FALSE(EndsWithin(200, [release, ended] {
        release->Wait(60'000);
        *ended = true;
    }));
    EXPECT_GE(::GetTickCount64() - begin, 180U) << "less the tick that a wait may be short of";
    EXPECT_FALSE(*ended);
    release->Set();
    EXPECT_TRUE(support::WaitUntil([&] { return ended->load(); })) << "it goes on";
}

std::uintptr_t __cdecl RefuseThread(void*, unsigned, unsigned(__stdcall*)(void*), void*, unsigned, unsigned*)
{
    ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return 0;
}

TEST(BoundedStep, AStepWithoutAThreadRunsOnTheCallersAndIsTraced)
{
    RecordingOutput output;
    TraceFrontEnd frontEnd(output);
    {
        const CDebugOptionsLock lock(frontEnd.Gate());
        frontEnd.Publish(OptionsFor(trace::RouterChannel, trace::General));
    }
    const support::PatchedImport patch("_beginthreadex", reinterpret_cast<void*>(RefuseThread));
    DWORD thread = 0;
    EXPECT_TRUE(EndsWithin(60'000, [&] { thread = ::GetCurrentThreadId(); }));
    EXPECT_EQ(thread, ::GetCurrentThreadId());
    EXPECT_EQ(output.Count("EndsWithin() no thread, error 8"), 1U);
}

TEST(BoundedStep, AStepThatThrowsHasEnded)
{
    EXPECT_TRUE(EndsWithin(60'000, [] { throw std::runtime_error("in the step"); }));
}

} // namespace
