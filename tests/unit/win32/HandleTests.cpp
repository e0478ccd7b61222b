#include "tests/support/TestSupport.h"
#include "win32/Event.h"
#include "win32/Handle.h"

#include <gtest/gtest.h>

namespace {

using win32::Event;
using win32::FileHandle;
using win32::KernelHandle;

bool IsOpen(HANDLE handle)
{
    DWORD flags = 0;
    return ::GetHandleInformation(handle, &flags) != FALSE;
}

HANDLE NewEvent()
{
    return ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
}

TEST(UniqueHandle, TheTwoKindsOfNoHandleAreTheirOwn)
{
    EXPECT_EQ(KernelHandle().Get(), nullptr);
    EXPECT_FALSE(KernelHandle());
    EXPECT_EQ(FileHandle().Get(), INVALID_HANDLE_VALUE);
    EXPECT_FALSE(FileHandle());
}

TEST(UniqueHandle, ClosesAtItsEnd)
{
    const HANDLE raw = NewEvent();
    {
        const KernelHandle owner(raw);
        EXPECT_TRUE(IsOpen(raw));
    }
    EXPECT_FALSE(IsOpen(raw));
}

TEST(UniqueHandle, MovingHandsTheHandleOver)
{
    const HANDLE raw = NewEvent();
    KernelHandle first(raw);
    KernelHandle second(std::move(first));
    EXPECT_EQ(second.Get(), raw);
    KernelHandle third;
    third = std::move(second);
    EXPECT_EQ(third.Get(), raw);
    EXPECT_TRUE(IsOpen(raw));
}

TEST(UniqueHandle, AssigningClosesWhatWasHeld)
{
    const HANDLE old = NewEvent();
    KernelHandle owner(old);
    owner = KernelHandle(NewEvent());
    EXPECT_FALSE(IsOpen(old));
    EXPECT_TRUE(IsOpen(owner.Get()));
}

TEST(UniqueHandle, ReleaseGivesUpOwnership)
{
    KernelHandle owner(NewEvent());
    const KernelHandle other(owner.Release());
    EXPECT_FALSE(owner);
    EXPECT_TRUE(owner.Reset());
    EXPECT_TRUE(IsOpen(other.Get()));
}

TEST(UniqueHandle, ResetSaysWhetherTheCloseWorked)
{
    KernelHandle owner(NewEvent());
    EXPECT_TRUE(owner.Reset());
    EXPECT_TRUE(owner.Reset()) << "nothing was held";
    KernelHandle bad(reinterpret_cast<HANDLE>(static_cast<ULONG_PTR>(0x7FFF'FFF0)));
    EXPECT_FALSE(bad.Reset());
}

TEST(Event, AutoResetIsConsumedByAWaitAndManualResetIsNot)
{
    const Event automatic(Event::Kind::AutoReset, true);
    EXPECT_TRUE(automatic.IsSet());
    EXPECT_FALSE(automatic.IsSet());

    const Event manual(Event::Kind::ManualReset, true);
    EXPECT_TRUE(manual.IsSet());
    EXPECT_TRUE(manual.IsSet());
    manual.Reset();
    EXPECT_FALSE(manual.IsSet());
    manual.Set();
    EXPECT_TRUE(manual.Wait(0));
}

} // namespace
