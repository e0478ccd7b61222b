// The download dialogue under any replies, compared step by step with a plain model of it.
//
// Input: choices; see Step. Also whole downloads, in which every image byte arrives.
#include "tests/fuzz/Choices.h"
#include "tests/wire/FirmwareRecorder.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <deque>
#include <limits>
#include <string>
#include <string_view>

namespace fuzz {

namespace {

using namespace firmwaretest;

/// Prepares all chunks at once and reads the numbers with the C library.
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
        m_output.SubmitFirmware({reinterpret_cast<const std::uint8_t*>(message.data()), message.size()});
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

/// Whether the C library can read the numbers of a reply: those beyond 64 bits it leaves open.
bool FitsTheModel(std::string_view text)
{
    std::size_t digits = 0;
    for (const char each : text) {
        digits = each >= '0' && each <= '9' ? digits + 1 : 0;
        if (digits > 9) {
            return false;
        }
    }
    return true;
}

/// A dialogue and its model, in the same state.
class Pair
{
public:
    void Load(std::uint32_t size)
    {
        m_imageSize = size;
        const FirmwareImagePtr image = MakeImage(size, size);
        firmwaretest::Load(m_dialogue, image);
        m_model.Load(image);
    }
    void Start()
    {
        m_dialogue.Start(m_tick);
        m_model.Start(m_tick);
    }
    void Retry()
    {
        m_dialogue.Retry(m_tick);
        m_model.Retry(m_tick);
    }
    void Reset()
    {
        m_dialogue.Reset();
        m_model.state = 0;
    }
    void SwitchQueuedModeOff()
    {
        m_dialogue.SwitchQueuedModeOff();
        m_model.queued = false;
    }
    void Receive(const std::string& reply)
    {
        firmwaretest::Receive(m_dialogue, reply);
        m_model.Receive(reply);
    }
    void Advance(std::uint32_t ticks) { m_tick += ticks; }
    std::uint32_t ImageSize() const noexcept { return m_imageSize; }

    void CheckEqual()
    {
        Check(m_output.log == m_expected.log, "the dialogue does what the model does");
        Check(static_cast<int>(m_dialogue.CurrentState()) == m_model.state, "their states are equal");
        Check(m_dialogue.RetryCount() == m_model.retries, "so are their retries");
        for (Recorder* const recorder : {&m_output, &m_expected}) {
            recorder->log.clear();
            recorder->messages.clear();
        }
    }

private:
    Recorder m_output;
    Recorder m_expected;
    DownloadDialogue m_dialogue{m_output, m_output};
    Model m_model{m_expected};
    std::uint32_t m_tick = 0; // ms
    std::uint32_t m_imageSize = 0;
};

std::string Number(Choices& choices, std::uint32_t imageSize)
{
    static constexpr std::array<std::int32_t, 14> edges{0, 1, 2, 8, 9, 10, 11, 12, 13, 1000, 4000, -1, -9, -4000};
    switch (choices.Below(3)) {
    case 0: return std::to_string(imageSize);
    case 1: return std::to_string(edges[choices.Below(edges.size())]);
    default: return std::to_string(choices.Below(imageSize + 50));
    }
}

/// Keywords, numbers, blanks, zeros and noise in any order.
std::string Reply(Choices& choices, std::uint32_t imageSize)
{
    static constexpr std::array<std::string_view, 8> words{"RECEIVE_READY", "DENY",        "FIRMWARE_READY",
                                                           "DOWNLOAD_FAIL", "DOWNLOAD_OK", "REBOOTING",
                                                           "DOWNLOAD",      "\r\n"};
    static constexpr std::string_view separators{"    \t\r\0x-+", 10};
    if (choices.Below(3) == 0) {
        return "RECEIVE_READY " + std::to_string(imageSize) + " " + Number(choices, imageSize);
    }
    std::string reply;
    for (std::uint32_t parts = choices.Below(5); parts != 0; --parts) {
        switch (choices.Below(4)) {
        case 0: reply += Number(choices, imageSize); break;
        case 1: {
            const Input noise = choices.Bytes(choices.Below(12));
            reply.append(noise.begin(), noise.end());
            break;
        }
        default: reply += words[choices.Below(words.size())]; break;
        }
        reply += separators[choices.Below(separators.size())];
    }
    return reply;
}

void Step(Pair& pair, Choices& choices)
{
    pair.Advance(choices.Below(2500));
    switch (choices.Below(24)) {
    case 0: pair.Load(choices.Below(choices.Below(3) == 0 ? 20 : 3000)); break;
    case 1:
    case 2:
    case 3: pair.Start(); break;
    case 4: pair.Reset(); break;
    case 5: pair.SwitchQueuedModeOff(); break;
    case 6:
    case 7:
    case 8: pair.Retry(); break;
    case 9: pair.Receive("DOWNLOAD_OK\r"); break;
    default: {
        const std::string reply = Reply(choices, pair.ImageSize());
        if (FitsTheModel(reply)) {
            pair.Receive(reply);
        }
    }
    }
    pair.CheckEqual();
}

/// An instrument that acknowledges everything gets the image byte for byte.
void CheckWholeDownload(Choices choices)
{
    const bool queued = choices.Below(2) == 0;
    const std::uint32_t size = choices.Below(5000);
    const std::uint32_t chunk = 11 + choices.Below(3000);
    const FirmwareImagePtr image = MakeImage(size, chunk);
    Recorder output;
    DownloadDialogue dialogue(output, output);
    if (!queued) {
        dialogue.SwitchQueuedModeOff();
    }
    Load(dialogue, image);
    dialogue.Start(0);
    Receive(dialogue, "RECEIVE_READY " + std::to_string(size) + " " + std::to_string(chunk) + "\r");
    for (std::uint32_t replies = 0; dialogue.IsDownloading(); ++replies) {
        Check(replies <= size + 2, "a download ends");
        Receive(dialogue, "DOWNLOAD_OK\r");
    }
    Check(output.messages.size() >= 2 && output.messages.back() == Done, "the closing message comes last");
    std::string received;
    for (std::size_t at = 1; at + 1 < output.messages.size(); ++at) {
        const std::string& message = output.messages[at];
        Check(message.size() <= chunk && message.starts_with("DOWNLOAD "),
              "a chunk is as the instrument wants it");
        received += message.substr(9);
    }
    Check(received == Bytes(image, 0, size), "every byte of the image arrives");
    Check(output.Count("completed") == 1, "a download completes once");
}

/// Any bytes as replies, also when memory runs out meanwhile.
void CheckAnyReplies(Choices choices)
{
    Recorder output;
    output.keepChunkLines = false;
    DownloadDialogue dialogue(output, output);
    Load(dialogue, MakeImage(500));
    while (!choices.AtEnd()) {
        const std::uint8_t todo = choices.Byte();
        if ((todo & 3) == 0) {
            dialogue.Start(0);
        }
        if ((todo & 4) != 0) {
            Receive(dialogue, "RECEIVE_READY 500 " + std::to_string(choices.Below(600)));
        }
        const bool failing = (todo & 0xF0) == 0xF0;
        output.callsUntilFailure = failing ? 0 : std::numeric_limits<std::int32_t>::max();
        const Input noise = choices.Bytes(choices.Below(60));
        Receive(dialogue, {reinterpret_cast<const char*>(noise.data()), noise.size()});
        if (failing && output.callsUntilFailure < 0) {
            Check(dialogue.CurrentState() == DownloadDialogue::State::Idle, "without memory the dialogue ends");
            Check(output.log.back() == "completed", "and says so");
        }
        output.callsUntilFailure = std::numeric_limits<std::int32_t>::max();
        output.log.clear();
        output.messages.clear();
    }
}

} // namespace

void Firmware(Input input)
{
    Choices choices(input);
    CheckWholeDownload(choices);
    CheckAnyReplies(choices);
    Pair pair;
    while (!choices.AtEnd()) {
        Step(pair, choices);
    }
}

} // namespace fuzz
