#include "ports/packet/CCommandQueue.h"
#include "ports/packet/CCriticalSectionHelper.h"
#include "tests/support/WaitUntil.h"
#include "tests/unit/ports/CountedCommand.h"
#include "win32/Event.h"
#include "win32/Thread.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

namespace {

const std::uint8_t* Bytes(std::string_view text)
{
    return reinterpret_cast<const std::uint8_t*>(text.data());
}

std::unique_ptr<CSerialPortCommand> Command(std::string_view text, bool withEvent = false)
{
    return std::make_unique<CSerialPortCommand>(Bytes(text), static_cast<std::int32_t>(text.size()), true,
                                                withEvent);
}

bool IsSet(const CCommandQueue& queue)
{
    return ::WaitForSingleObject(queue.GetNotEmptyEvent(), 0) == WAIT_OBJECT_0;
}

TEST(SerialPortCommand, TheByteAtTheLengthOrAfterItIs255AlsoForAnEmptyCommand)
{
    const auto command = Command("ab");
    EXPECT_EQ(command->GetByteAt(1), 'b');
    EXPECT_EQ(command->GetByteAt(2), 255);
    EXPECT_EQ(command->GetByteAt(0xFFFFFFFF), 255);
    EXPECT_EQ(Command("")->GetByteAt(0), 255);
}

TEST(SerialPortCommand, AppendingNothingOrFromNowhereChangesNothing)
{
    const auto command = Command("ab");
    EXPECT_EQ(command->Append(nullptr, 5), 2);
    EXPECT_EQ(command->Append(Bytes("xyz"), 0), 2);
    EXPECT_EQ(command->Append(Bytes("xyz"), -1), 2);
    EXPECT_EQ(command->Append(Bytes("c"), 1), 3);
    EXPECT_EQ(command->GetByteAt(2), 'c');
}

TEST(SerialPortCommand, ACopyOfACommandWithAnEventHasNoneOfItsOwn)
{
    const auto command = Command("abc", true);
    ASSERT_TRUE(command->HasEvent());
    EXPECT_EQ(::WaitForSingleObject(command->GetEvent(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
    const CSerialPortCommand copy(*command);
    EXPECT_FALSE(copy.HasEvent());
    EXPECT_EQ(copy.GetEvent(), nullptr);
    EXPECT_TRUE(copy.GetFlag());
    EXPECT_EQ(copy.GetLength(), 3);
    EXPECT_EQ(copy.GetReplyLength(), 0);
}

TEST(SerialPortCommand, ClearingEmptiesThePacket)
{
    const auto command = Command("abc");
    command->ClearData();
    EXPECT_EQ(command->GetLength(), 0);
}

TEST(SerialPortCommand, FindBoundsTheBeginningOfAMatchNotItsEnd)
{
    const auto command = Command("xxabcxx");
    EXPECT_EQ(command->Find(Bytes("abc"), 3, 0, -1), command->GetData() + 2);
    EXPECT_EQ(command->Find(Bytes("abc"), 3, 3, -1), nullptr);
    // The match begins before offset 3 and ends after it.
    EXPECT_EQ(command->Find(Bytes("abc"), 3, 0, 3), command->GetData() + 2);
    EXPECT_EQ(command->Find(Bytes("abc"), 3, 0, 2), nullptr);
    EXPECT_EQ(command->Find(Bytes("abc"), 3, 0, 0), nullptr);
    EXPECT_EQ(command->Find(Bytes("abc"), 3, 0, 1000), command->GetData() + 2);
}

TEST(SerialPortCommand, FindNeverLooksPastTheData)
{
    const auto command = Command("xxab");
    EXPECT_EQ(command->Find(Bytes("abc"), 3, 0, -1), nullptr);
    EXPECT_EQ(command->Find(Bytes("b"), 1, 3, -1), command->GetData() + 3);
    EXPECT_EQ(command->Find(Bytes("b"), 1, 4, -1), nullptr);
    EXPECT_EQ(command->Find(nullptr, 1, 0, -1), nullptr);
    EXPECT_EQ(command->Find(Bytes("x"), 1, -1, -1), nullptr);
    EXPECT_EQ(Command("")->Find(Bytes("x"), 1, 0, -1), nullptr);
}

TEST(CommandQueue, PoppingAnEmptyQueueGivesNullAndLeavesTheEventReset)
{
    CCommandQueue queue;
    EXPECT_EQ(queue.Pop(), nullptr);
    EXPECT_FALSE(IsSet(queue));
}

TEST(CommandQueue, TheEventStaysSetWhileACommandIsLeft)
{
    CCommandQueue queue;
    queue.Push(Command("1"));
    EXPECT_EQ(queue.Push(Command("2")), 2);
    const std::unique_ptr<CSerialPortCommand> first = queue.Pop();
    EXPECT_EQ(first->GetByteAt(0), '1');
    EXPECT_TRUE(IsSet(queue));
    const std::unique_ptr<CSerialPortCommand> second = queue.Pop();
    EXPECT_EQ(second->GetByteAt(0), '2');
    EXPECT_FALSE(IsSet(queue));
}

TEST(CommandQueue, TakingLeavesTheEventToBeResetLater)
{
    CCommandQueue queue;
    queue.Push(Command("1"));
    const std::unique_ptr<CSerialPortCommand> first = queue.Take();
    EXPECT_EQ(first->GetByteAt(0), '1');
    EXPECT_EQ(queue.GetCount(), 0);
    EXPECT_TRUE(IsSet(queue));
    queue.Push(Command("2"));
    queue.ResetEventIfEmpty();
    EXPECT_TRUE(IsSet(queue)) << "what came in between is still to be taken";
    const std::unique_ptr<CSerialPortCommand> second = queue.Take();
    queue.ResetEventIfEmpty();
    EXPECT_FALSE(IsSet(queue));
    EXPECT_EQ(queue.Take(), nullptr);
}

TEST(CommandQueue, PushingNullIsIgnored)
{
    CCommandQueue queue;
    EXPECT_EQ(queue.Push(nullptr), 0);
    EXPECT_FALSE(IsSet(queue));
}

TEST(CommandQueue, ClearEmptiesTheQueueAndDestroysNoCommand)
{
    CCommandQueue queue;
    int destroyed = 0;
    const std::array<CSerialPortCommand*, 3> commands{new CountedCommand(destroyed), new CountedCommand(destroyed),
                                                      new CountedCommand(destroyed)};
    for (CSerialPortCommand* const command : commands) {
        queue.Push(std::unique_ptr<CSerialPortCommand>(command));
    }
    queue.Clear();
    EXPECT_EQ(queue.GetCount(), 0);
    EXPECT_EQ(queue.Pop(), nullptr);
    EXPECT_FALSE(IsSet(queue));
    ASSERT_EQ(destroyed, 0);
    for (const CSerialPortCommand* const command : commands) {
        delete command;
    }
}

TEST(CommandQueue, DestroyAllTakesTheCommandsOutAndDestroysThem)
{
    CCommandQueue queue;
    int destroyed = 0;
    queue.Push(std::make_unique<CountedCommand>(destroyed));
    queue.Push(std::make_unique<CountedCommand>(destroyed));
    queue.DestroyAll();
    EXPECT_EQ(destroyed, 2);
    EXPECT_EQ(queue.GetCount(), 0);
    EXPECT_FALSE(IsSet(queue));
}

TEST(CommandQueue, CarriesEverythingOnceAndInOrderFromSeveralProducers)
{
    constexpr int Producers = 3;
    constexpr int Each = 5'000;
    CCommandQueue queue;
    std::array<win32::Thread, Producers> threads;
    for (int producer = 0; producer < Producers; ++producer) {
        threads[static_cast<std::size_t>(producer)].Start([&queue, producer] {
            for (int number = 0; number < Each; ++number) {
                const std::array<int, 2> content{producer, number};
                queue.Push(std::make_unique<CSerialPortCommand>(
                    reinterpret_cast<const std::uint8_t*>(content.data()), sizeof content, true, false));
            }
        });
    }
    std::array<int, Producers> next{};
    for (int taken = 0; taken < Producers * Each;) {
        ASSERT_EQ(::WaitForSingleObject(queue.GetNotEmptyEvent(), 20'000), static_cast<DWORD>(WAIT_OBJECT_0));
        const std::unique_ptr<CSerialPortCommand> command = queue.Pop();
        ASSERT_NE(command, nullptr);
        std::array<int, 2> content{};
        std::memcpy(content.data(), command->GetData(), sizeof content);
        ASSERT_EQ(content[1], next[static_cast<std::size_t>(content[0])]++);
        ++taken;
    }
    EXPECT_FALSE(IsSet(queue));
}

TEST(CommandQueue, ALoneConsumerNeedsNoEventAndGetsEverythingInOrder)
{
    constexpr int Commands = 20'000;
    CCommandQueue queue(CCommandQueue::Waiting::Alone);
    EXPECT_EQ(queue.GetNotEmptyEvent(), nullptr);
    win32::Thread producer;
    producer.Start([&queue] {
        for (int number = 0; number < Commands; ++number) {
            queue.Push(std::make_unique<CSerialPortCommand>(reinterpret_cast<const std::uint8_t*>(&number),
                                                            sizeof number, true, false));
            if (number % 3 == 0) {
                ::Sleep(0); // lets the consumer run empty and sleep now and then
            }
        }
    });
    for (int next = 0; next < Commands;) {
        ASSERT_TRUE(queue.AwaitNotEmpty(20'000)) << next;
        const std::unique_ptr<CSerialPortCommand> command = queue.Pop();
        if (!command) {
            continue;
        }
        int number = -1;
        std::memcpy(&number, command->GetData(), sizeof number);
        ASSERT_EQ(number, next++);
    }
    EXPECT_EQ(queue.Pop(), nullptr);
}

TEST(CommandQueue, ALoneConsumerReturnsWhenTheTimeHasPassed)
{
    CCommandQueue queue(CCommandQueue::Waiting::Alone);
    // A wait may end for no reason, but not for ever.
    EXPECT_TRUE(support::WaitUntil([&queue] { return !queue.AwaitNotEmpty(1); }));
}

TEST(CommandQueue, AnInterruptionBeforeTheWaitEndsItAtOnceAndOneDuringItToo)
{
    CCommandQueue queue(CCommandQueue::Waiting::Alone);
    queue.Interrupt();
    EXPECT_TRUE(queue.AwaitNotEmpty(INFINITE));
    win32::Event ended(win32::Event::Kind::ManualReset);
    win32::Thread waiter;
    waiter.Start([&] {
        queue.AwaitNotEmpty(INFINITE);
        ended.Set();
    });
    queue.Interrupt();
    EXPECT_TRUE(ended.Wait(20'000));
}

TEST(CommandQueue, WhatWasDestroyedIsNotWaitedForAnyMore)
{
    CCommandQueue queue(CCommandQueue::Waiting::Alone);
    queue.Push(Command("1"));
    EXPECT_TRUE(queue.AwaitNotEmpty(INFINITE));
    queue.DestroyAll();
    EXPECT_TRUE(support::WaitUntil([&queue] { return !queue.AwaitNotEmpty(1); }));
    EXPECT_EQ(queue.GetCount(), 0);
}

TEST(CriticalSectionHelper, MayBeNestedOnOneThread)
{
    win32::CriticalSection section;
    const CCriticalSectionHelper outer(section);
    const CCriticalSectionHelper inner(section);
    SUCCEED();
}

} // namespace
