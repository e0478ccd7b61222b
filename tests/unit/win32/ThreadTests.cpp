#include "tests/support/TestSupport.h"
#include "win32/Event.h"
#include "win32/Thread.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace {

using win32::Event;
using win32::Thread;

TEST(Thread, RunsItsBodyOnAnotherThread)
{
    DWORD id = 0;
    Thread thread;
    ASSERT_TRUE(thread.Start([&] { id = ::GetCurrentThreadId(); }));
    const DWORD told = thread.Id();
    thread.Join();
    EXPECT_EQ(id, told);
    EXPECT_NE(id, ::GetCurrentThreadId());
}

TEST(Thread, IsHeldFromStartToJoinAlsoWhenItHasEndedByItself)
{
    Thread thread;
    EXPECT_FALSE(thread.IsHeld());
    ASSERT_TRUE(thread.Start([] {}));
    EXPECT_TRUE(support::WaitFor(thread.Get()));
    EXPECT_TRUE(thread.IsHeld());
    thread.Join();
    EXPECT_FALSE(thread.IsHeld());
    thread.Join();
}

TEST(Thread, DestructionWaitsForTheEnd)
{
    const Event begun(Event::Kind::ManualReset);
    const Event go(Event::Kind::ManualReset);
    bool ended = false;
    {
        Thread thread;
        ASSERT_TRUE(thread.Start([&] {
            begun.Set();
            go.Wait(INFINITE);
            ended = true;
        }));
        EXPECT_TRUE(support::WaitFor(begun.Get()));
        go.Set();
    }
    EXPECT_TRUE(ended);
}

/// Keeps its thread from ending, after the thread's body.
struct LateEnd
{
    const Event* go = nullptr;
    ~LateEnd()
    {
        if (go != nullptr) {
            go->Wait(INFINITE);
        }
    }
};

TEST(Thread, JoinWaitsForTheBodyAndNotForWhatEndsTheThreadLater)
{
    const Event go(Event::Kind::ManualReset);
    win32::KernelHandle handle;
    {
        Thread thread;
        ASSERT_TRUE(thread.Start([&go] {
            thread_local LateEnd late;
            late.go = &go;
        }));
        HANDLE copy = nullptr;
        ::DuplicateHandle(::GetCurrentProcess(), thread.Get(), ::GetCurrentProcess(), &copy, 0, FALSE,
                          DUPLICATE_SAME_ACCESS);
        handle.Reset(copy);
        EXPECT_TRUE(thread.JoinFor(20'000));
        EXPECT_EQ(::WaitForSingleObject(handle.Get(), 0), DWORD{WAIT_TIMEOUT});
    }
    go.Set();
    EXPECT_TRUE(support::WaitFor(handle.Get()));
}

TEST(Thread, JoinForGivesUpOnAThreadThatRunsOn)
{
    const Event go(Event::Kind::ManualReset);
    const Event ended(Event::Kind::ManualReset);
    Thread thread;
    ASSERT_TRUE(thread.Start([&] {
        go.Wait(INFINITE);
        ended.Set();
    }));
    EXPECT_FALSE(thread.JoinFor(1));
    EXPECT_FALSE(thread.IsHeld());
    go.Set();
    EXPECT_TRUE(support::WaitFor(ended.Get()));
}

TEST(Thread, JoinCancellingEndsBlockingCallsAgainAndAgain)
{
    const std::string path = "\\\\.\\pipe\\" + support::UniqueName("Thread");
    const win32::FileHandle server(
        ::CreateNamedPipeA(path.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE, 1, 64, 64, 0, nullptr));
    const win32::FileHandle client(
        ::CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(client);
    int cancelled = 0;
    Thread thread;
    ASSERT_TRUE(thread.Start([&] {
        for (int read = 0; read < 3; ++read) {
            char byte = 0;
            DWORD length = 0;
            const BOOL done = ::ReadFile(client.Get(), &byte, 1, &length, nullptr); // nothing is written
            cancelled += !done && ::GetLastError() == ERROR_OPERATION_ABORTED ? 1 : 0;
        }
    }));
    thread.JoinCancelling(1);
    EXPECT_FALSE(thread.IsHeld());
    EXPECT_EQ(cancelled, 3);
}

TEST(Thread, JoinCancellingWaitsItsTimeBeforeItCancels)
{
    const Event go(Event::Kind::ManualReset);
    Thread thread;
    ASSERT_TRUE(thread.Start([&] { go.Wait(INFINITE); }));
    go.Set();
    thread.JoinCancelling(INFINITE);
    EXPECT_FALSE(thread.IsHeld());
}

TEST(Thread, WhatTheBodyThrowsEndsWithTheThread)
{
    Thread thread;
    ASSERT_TRUE(thread.Start([] { throw std::runtime_error("thrown on purpose"); }));
    EXPECT_TRUE(thread.JoinFor(static_cast<DWORD>(support::DefaultTimeout.count())));
}

TEST(Thread, CanBeStartedAgainAfterJoin)
{
    int runs = 0;
    Thread thread;
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(thread.Start([&] { ++runs; }));
        thread.Join();
    }
    EXPECT_EQ(runs, 3);
}

} // namespace
