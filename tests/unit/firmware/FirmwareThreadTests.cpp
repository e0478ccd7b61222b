// The downloader between its threads.
#include "tests/unit/firmware/FirmwareFixture.h"
#include "win32/Event.h"
#include "win32/Thread.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

using namespace firmwaretest;
using support::RecordingTrace;

namespace {

constexpr auto PatienceMs = static_cast<DWORD>(support::DefaultTimeout.count());

using FirmwareThreads = FirmwareDownloaderTest;

TEST_F(FirmwareThreads, ACompletionOnAnotherThreadThanTheFirstDoesNotWaitForIt)
{
    WriteFile(100);
    downloader->ReadFirmwareFile(Product, 2);
    const win32::Event completed(win32::Event::Kind::ManualReset);
    const win32::Event stop(win32::Event::Kind::ManualReset);
    win32::Thread reply; // completes, and lives on
    ASSERT_TRUE(reply.Start([&] {
        Receive("unasked");
        completed.Set();
        stop.Wait(INFINITE);
    }));
    ASSERT_TRUE(completed.Wait(PatienceMs));

    transport.outOfMemory = true;
    win32::Thread command;
    ASSERT_TRUE(command.Start([&] { downloader->Download(); }));
    const bool ended = command.JoinFor(PatienceMs);
    stop.Set();
    ASSERT_TRUE(ended);
    EXPECT_EQ(RecordingTrace::Count("FirmwareDownloader::Completed() setting event m_hDownloaded"), 2U);
    EXPECT_FALSE(downloader->IsDownloading());
}

TEST_F(FirmwareThreads, ACompletionAfterTheFirstOnesThreadHasEndedCompletes)
{
    for (std::size_t time = 1; time <= 3; ++time) {
        win32::Thread reply;
        ASSERT_TRUE(reply.Start([&] { Receive("unasked"); }));
        ASSERT_TRUE(reply.JoinFor(PatienceMs));
        EXPECT_EQ(RecordingTrace::Count("FirmwareDownloader::Completed() setting event m_hDownloaded"), time);
    }
}

TEST_F(FirmwareThreads, QueriesDoNotWaitForASubmissionThatTakesItsTime)
{
    WriteFile(100);
    downloader->ReadFirmwareFile(Product, 2);
    downloader->Download();
    clockNow += 10'000;
    const win32::Event submitting(win32::Event::Kind::ManualReset);
    const win32::Event release(win32::Event::Kind::ManualReset);
    transport.onSubmit = [&](const std::string&) {
        submitting.Set();
        release.Wait(INFINITE);
    };
    win32::Thread reply;
    ASSERT_TRUE(reply.Start([&] { Receive("RECEIVE_READY 100 4000"); }));
    ASSERT_TRUE(submitting.Wait(PatienceMs));

    win32::Thread port;
    std::atomic<bool> needed{false};
    ASSERT_TRUE(port.Start([&] { needed = downloader->NeedsDownload() && downloader->IsDownloading(); }));
    const bool answered = port.JoinFor(PatienceMs);
    release.Set();
    reply.Join();
    ASSERT_TRUE(answered);
    EXPECT_TRUE(needed);
    EXPECT_EQ(transport.Messages().size(), 2U); // prepare and chunk: no re-send in between
}

TEST_F(FirmwareThreads, OfManyQueriesAtOnceOnlyOneSendsPrepareDownloadAgain)
{
    for (int round = 0; round < 50; ++round) {
        Restart();
        Begin(100);
        clockNow += 3001;
        std::array<win32::Thread, 6> ports;
        for (win32::Thread& port : ports) {
            ASSERT_TRUE(port.Start([&] { EXPECT_TRUE(downloader->NeedsDownload()); }));
        }
        for (win32::Thread& port : ports) {
            port.Join();
        }
        EXPECT_EQ(transport.Messages().size(), 1U);
    }
}

/// Long enough for another thread to do something that it must not do.
constexpr DWORD Temptation = 100;

TEST_F(FirmwareThreads, AReplyBeforeDownloadReturnsAnswersPrepareDownload)
{
    WriteFile(100);
    downloader->ReadFirmwareFile(Product, 2);
    const win32::Event sent(win32::Event::Kind::ManualReset);
    const win32::Event answered(win32::Event::Kind::ManualReset);
    transport.onSubmit = [&](const std::string& message) {
        if (message.starts_with("PREPARE")) {
            sent.Set();
            EXPECT_FALSE(answered.Wait(Temptation));
        }
    };
    win32::Thread reply;
    ASSERT_TRUE(reply.Start([&] {
        sent.Wait(INFINITE);
        Receive("RECEIVE_READY 100 4000");
        answered.Set();
    }));
    downloader->Download();
    reply.Join();
    EXPECT_EQ(transport.Messages().size(), 2U);
    EXPECT_TRUE(downloader->IsDownloading());
}

TEST_F(FirmwareThreads, AnImageIsNotReplacedWhileAnEventIsBeingHandled)
{
    const std::string image = WriteFile(7981);
    downloader->ReadFirmwareFile(Product, 1);
    downloader->Download();
    transport.Forget();
    WriteFile(7981, Product + 1, 2);
    const win32::Event sending(win32::Event::Kind::ManualReset);
    const win32::Event replaced(win32::Event::Kind::ManualReset);
    transport.onSubmit = [&](const std::string&) {
        sending.Set();
        EXPECT_FALSE(replaced.Wait(Temptation));
    };
    win32::Thread command;
    ASSERT_TRUE(command.Start([&] {
        sending.Wait(INFINITE);
        EXPECT_TRUE(downloader->ReadFirmwareFile(Product + 1, 1));
        replaced.Set();
    }));
    Receive("RECEIVE_READY 7981 4000");
    command.Join();
    EXPECT_TRUE(replaced.IsSet());
    EXPECT_EQ(transport.Messages(), (std::vector<std::string>{Chunk(image, 0, 3990), Chunk(image, 3990, 3990),
                                                              Chunk(image, 7980, 1), std::string(Done)}));
}

/// A bootloader that takes messages from any thread and answers them on the thread that asks for answers.
class Bootloader
{
public:
    void Take(const std::string& message)
    {
        {
            const std::lock_guard guard(m_lock);
            m_messages.push_back(message);
        }
        m_changed.notify_one();
    }

    void Stop()
    {
        {
            const std::lock_guard guard(m_lock);
            m_stopped = true;
        }
        m_changed.notify_one();
    }

    /// Waits for the next message and returns the answer; none after Stop.
    std::optional<std::string> Answer(const std::array<std::string, 2>& images)
    {
        std::unique_lock guard(m_lock);
        m_changed.wait(guard, [this] { return m_stopped || !m_messages.empty(); });
        if (m_stopped) {
            return std::nullopt;
        }
        const std::string message = m_messages.front();
        m_messages.pop_front();
        if (message.starts_with("PREPARE_DOWNLOAD ")) {
            m_announced = std::stoul(message.substr(17));
            m_received.clear();
            return "RECEIVE_READY " + std::to_string(m_announced) + " 300\r";
        }
        if (message != Done) {
            EXPECT_TRUE(message.starts_with("DOWNLOAD "));
            m_received += message.substr(9);
        } else if (m_received.size() == m_announced) {
            EXPECT_TRUE(m_received == images[0] || m_received == images[1]);
            ++wholeImages;
        }
        return "DOWNLOAD_OK\r";
    }

    std::atomic<int> wholeImages{0};

private:
    std::mutex m_lock;
    std::condition_variable m_changed;
    // Guarded by m_lock.
    std::deque<std::string> m_messages;
    bool m_stopped = false;
    // Answering thread.
    std::size_t m_announced = 0;
    std::string m_received;
};

TEST_F(FirmwareThreads, ReloadsRestartsQueriesAndRepliesAtOnceNeverMixTwoImages)
{
    const std::array<std::string, 2> images{WriteFile(2901, Product, 1), WriteFile(3502, Product + 1, 2)};
    Bootloader bootloader;
    transport.onSubmit = [&](const std::string& message) { bootloader.Take(message); };

    std::atomic<bool> stop{false};
    win32::Thread reply;
    ASSERT_TRUE(reply.Start([&] {
        while (const std::optional<std::string> answer = bootloader.Answer(images)) {
            Receive(*answer);
        }
    }));
    std::array<win32::Thread, 3> ports;
    for (win32::Thread& port : ports) {
        ASSERT_TRUE(port.Start([&] {
            while (!stop) {
                downloader->NeedsDownload();
                downloader->IsDownloading();
                clockNow += 7;
                std::this_thread::yield();
            }
        }));
    }

    // The command thread: every other connection is let to its end, the others are cut off by the next one.
    bool settled = true;
    for (std::uint16_t connection = 0; connection < 300 && settled; ++connection) {
        const auto product = static_cast<std::uint16_t>(Product + connection % 2);
        EXPECT_TRUE(downloader->ReadFirmwareFile(product, connection < 200 ? 2 : 1));
        downloader->Download();
        if (connection % 4 < 2) {
            settled = support::WaitUntil([&] { return !downloader->IsDownloading(); });
        }
        RecordingTrace::Clear();
        transport.Forget();
    }
    EXPECT_TRUE(settled);
    stop = true;
    for (win32::Thread& port : ports) {
        port.Join();
    }
    bootloader.Stop();
    reply.Join();
    EXPECT_GT(bootloader.wholeImages, 30);
}

} // namespace
