// The download dialogue under arbitrary replies, compared step by step with a plain model of it: one that prepares
// all chunks at once and reads the numbers with the C library.
#include "tests/wire/FirmwareRecorder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <deque>
#include <limits>
#include <random>
#include <string>
#include <string_view>
#include <vector>

using namespace firmwaretest;

namespace {

class Model
{
public:
    explicit Model(Recorder& output) : m_output(output) {}

    void Load(const FirmwareImagePtr& loaded) { image = Bytes(loaded, 0, loaded->size); }

    void Start(std::uint32_t tick)
    {
        retries = 0;
        Prepare(tick);
    }
    void Retry(std::uint32_t tick)
    {
        if (state == 2 && retries < 3 && tick - startTick > 3000) {
            Report(
                "FirmwareDownloader::NeedsDownload() retry reached, sending E_DOWNLOAD_START to try and resync");
            ++retries;
            Prepare(tick);
        }
    }
    void Receive(const std::string& bytes)
    {
        const std::string text = bytes.substr(0, std::strlen(bytes.c_str()));
        const auto has = [&text](const char* keyword) { return text.find(keyword) != std::string::npos; };
        if (state == 2 && has("RECEIVE_READY")) {
            Report("FirmwareDownloader::OnReceive RECEIVE_READY");
            std::array<char, 101> word{};
            int echo = 0;
            int chunk = 0;
            std::sscanf(text.c_str(), "%100s %d %d", word.data(), &echo, &chunk);
            if (chunk != 0 && echo == static_cast<int>(image.size())) {
                SendImage(chunk);
                return;
            }
            Report("FirmwareDownloader::OnReceive Firmware unable to receive image");
        } else if (state == 2 && has("DENY")) {
            Report("FirmwareDownloader::OnReceive DENY");
        } else if (state == 4 && has("FIRMWARE_READY")) {
            Report("FirmwareDownloader::OnReceive FIRMWARE_READY");
        } else if (state == 4 && has("DOWNLOAD_FAIL")) {
            Report("FirmwareDownloader::OnReceive DOWNLOAD_FAIL");
        } else if (state == 4 && has("DOWNLOAD_OK")) {
            Report("FirmwareDownloader::OnReceive DOWNLOAD_OK");
            if (!queue.empty()) {
                SendNext();
                return;
            }
        } else if (state == 4 && has("REBOOTING")) {
            Report("FirmwareDownloader::OnReceive REBOOTING");
            Report("FirmwareDownloader::OnReceive() REBOOTING received");
        }
        m_output.Completed();
        state = 0;
    }

    int state = 0;
    int retries = 0;
    bool queued = true;

private:
    void Report(const char* line) { m_output.Report(line); }
    void Submit(const std::string& message)
    {
        m_output.Submit({reinterpret_cast<const std::uint8_t*>(message.data()), message.size()});
    }
    void Prepare(std::uint32_t tick)
    {
        startTick = tick;
        Report("FirmwareDownloader::DownloadStart() Firmware download started");
        Submit("PREPARE_DOWNLOAD " + std::to_string(image.size()) + "\r");
        state = 2;
    }
    void SendImage(int chunk)
    {
        m_output.ClearCommandQueue();
        Report("FirmwareDownloader::DownloadImage() Firmware image download...");
        if (queued) {
            queue.clear();
        }
        const long long room = (static_cast<long long>(chunk) - 9) / 2 * 2;
        for (std::size_t offset = 0; room >= 2 && offset < image.size(); offset += static_cast<std::size_t>(room))
        {
            const std::string data = image.substr(offset, static_cast<std::size_t>(room));
            m_output.ReportChunk(static_cast<std::uint32_t>(offset), static_cast<std::uint32_t>(data.size()));
            Prepared("DOWNLOAD " + data);
        }
        Prepared(std::string(Done));
        if (queued) {
            SendNext();
        }
        state = 4;
    }
    void Prepared(const std::string& message)
    {
        if (queued) {
            queue.push_back(message);
        } else {
            Submit(message);
        }
    }
    void SendNext()
    {
        Submit(queue.front());
        queue.pop_front();
    }

    Recorder& m_output;
    std::string image;
    std::deque<std::string> queue;
    std::uint32_t startTick = 0;
};

class Instrument
{
public:
    explicit Instrument(std::uint32_t seed) : m_random(seed) {}

    std::uint32_t Below(std::uint32_t limit) { return static_cast<std::uint32_t>(m_random() % limit); }

    /// Any bytes at all.
    std::string Noise(std::uint32_t longest)
    {
        std::string noise(Below(longest + 1), '\0');
        std::ranges::generate(noise, [this] { return static_cast<char>(Below(256)); });
        return noise;
    }

    /// Keywords, numbers, blanks, zeros and noise in any order; the numbers fit 32 bits.
    std::string Reply(std::uint32_t imageSize)
    {
        if (Below(3) == 0) {
            return "RECEIVE_READY " + std::to_string(imageSize) + " " + Number(imageSize);
        }
        std::string reply;
        for (std::uint32_t parts = Below(5); parts != 0; --parts) {
            static constexpr std::array<std::string_view, 10> fragments{
                "RECEIVE_READY", "DENY",        "FIRMWARE_READY", "DOWNLOAD_FAIL", "DOWNLOAD_OK",
                "DOWNLOAD_OK",   "DOWNLOAD_OK", "REBOOTING",      "DOWNLOAD",      "\r\n"};
            static constexpr std::string_view separators{" \t\r\0x-+", 7};
            switch (Below(4)) {
            case 0: reply += Number(imageSize); break;
            case 1: reply += Noise(6); break;
            default: reply += fragments[Below(fragments.size())]; break;
            }
            reply += separators[Below(3) == 0 ? Below(separators.size()) : 0];
        }
        return reply;
    }

private:
    std::string Number(std::uint32_t imageSize)
    {
        static constexpr std::array<std::int32_t, 16> edges{
            0,  1,    2,    8,          9,  10, 11,    12,
            13, 1000, 4000, 2147483647, -1, -9, -4000, std::numeric_limits<std::int32_t>::min()};
        switch (Below(3)) {
        case 0: return std::to_string(imageSize);
        case 1: return std::to_string(edges[Below(edges.size())]);
        default: return std::to_string(Below(imageSize + 50));
        }
    }

    std::mt19937 m_random;
};

class FirmwareFuzz : public testing::TestWithParam<std::uint32_t>
{};

TEST_P(FirmwareFuzz, DoesStepByStepWhatThePlainModelDoes)
{
    Instrument instrument(GetParam());
    for (int round = 0; round < 100; ++round) {
        Recorder output;
        Recorder expected;
        DownloadDialogue dialogue(output);
        Model model(expected);
        std::uint32_t tick = instrument.Below(10'000);
        std::uint32_t imageSize = 0;
        for (int step = 0; step < 60; ++step) {
            tick += instrument.Below(2500);
            switch (instrument.Below(24)) {
            case 0: {
                imageSize = instrument.Below(3) == 0 ? instrument.Below(20) : instrument.Below(3000);
                const FirmwareImagePtr image = MakeImage(imageSize, tick);
                Load(dialogue, image);
                model.Load(image);
                break;
            }
            case 1:
            case 2:
            case 3:
                dialogue.Start(tick);
                model.Start(tick);
                break;
            case 4:
                if (instrument.Below(8) == 0) {
                    dialogue.SwitchQueuedModeOff();
                    model.queued = false;
                }
                break;
            case 5:
                dialogue.Reset();
                model.state = 0;
                break;
            case 6:
            case 7:
            case 8:
                dialogue.Retry(tick);
                model.Retry(tick);
                break;
            default:
                const std::string reply = instrument.Reply(imageSize);
                Receive(dialogue, reply);
                model.Receive(reply);
                break;
            }
            ASSERT_EQ(output.log, expected.log) << "round " << round << " step " << step;
            ASSERT_EQ(static_cast<int>(dialogue.CurrentState()), model.state);
            ASSERT_EQ(dialogue.RetryCount(), model.retries);
            output.log.clear();
            expected.log.clear();
            output.messages.clear();
            expected.messages.clear();
        }
    }
}

TEST_P(FirmwareFuzz, TakesAnyBytesInAnyStateAndEndsWhenMemoryRunsOut)
{
    Instrument instrument(GetParam() + 1000);
    Recorder output;
    output.keepChunkLines = false;
    DownloadDialogue dialogue(output);
    Load(dialogue, MakeImage(500));
    for (int step = 0; step < 10'000; ++step) {
        if (instrument.Below(4) == 0) {
            dialogue.Start(0);
        }
        if (instrument.Below(3) == 0) {
            Receive(dialogue, "RECEIVE_READY 500 " + std::to_string(instrument.Below(600)));
        }
        std::string reply = instrument.Below(2) == 0 ? instrument.Noise(300) : instrument.Reply(500);
        // Numbers of any length, also beyond every type.
        for (std::uint32_t digits = instrument.Below(40); digits != 0; --digits) {
            reply.insert(instrument.Below(static_cast<std::uint32_t>(reply.size()) + 1), 1,
                         static_cast<char>('0' + instrument.Below(10)));
        }
        const bool failing = instrument.Below(10) == 0;
        output.callsUntilFailure = failing ? 0 : std::numeric_limits<std::int32_t>::max();
        Receive(dialogue, reply);
        if (failing && output.callsUntilFailure < 0) {
            ASSERT_EQ(dialogue.CurrentState(), DownloadDialogue::State::Idle);
            ASSERT_EQ(output.log.back(), "completed");
        }
        output.callsUntilFailure = std::numeric_limits<std::int32_t>::max();
        output.log.clear();
        output.messages.clear();
    }
}

TEST_P(FirmwareFuzz, AnInstrumentThatAcknowledgesEverythingGetsTheImageByteForByte)
{
    Instrument instrument(GetParam() + 2000);
    for (int round = 0; round < 40; ++round) {
        const bool queued = instrument.Below(3) != 0;
        const std::uint32_t size = instrument.Below(20'000);
        const std::uint32_t chunk = 11 + instrument.Below(instrument.Below(2) == 0 ? 50 : 30'000);
        const FirmwareImagePtr image = MakeImage(size, GetParam());
        Recorder output;
        DownloadDialogue dialogue(output);
        if (!queued) {
            dialogue.SwitchQueuedModeOff();
        }
        Load(dialogue, image);
        dialogue.Start(0);
        Receive(dialogue, "RECEIVE_READY " + std::to_string(size) + " " + std::to_string(chunk) + "\r");
        while (dialogue.IsDownloading()) {
            Receive(dialogue, "DOWNLOAD_OK\r");
        }
        ASSERT_GE(output.messages.size(), 2U);
        EXPECT_EQ(output.messages.back(), Done);
        std::string received;
        for (std::size_t at = 1; at + 1 < output.messages.size(); ++at) {
            ASSERT_LE(output.messages[at].size(), chunk);
            ASSERT_EQ(output.messages[at].substr(0, 9), "DOWNLOAD ");
            received += output.messages[at].substr(9);
        }
        EXPECT_EQ(received, Bytes(image, 0, size));
        EXPECT_EQ(output.Count("completed"), 1U);
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, FirmwareFuzz, testing::Values(1U, 2U, 3U, 4U, 5U));

} // namespace
