#include "firmware/DownloadDialogue.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>
#include <utility>
#include <vector>

namespace {

bool Contains(std::string_view text, std::string_view keyword) noexcept
{
    return text.find(keyword) != std::string_view::npos;
}

/// Reads a reply as "%s %d %d" would: a word, then numbers until one is missing.
class ReplyReader
{
public:
    explicit ReplyReader(std::string_view text) noexcept : m_Rest(text) {}

    /// A longer word than the instrument's longest makes the reply unreadable.
    bool SkipWord() noexcept
    {
        SkipBlanks();
        const std::size_t length = std::min(m_Rest.find_first_of(Blanks), m_Rest.size());
        m_Rest.remove_prefix(length);
        return length >= 1 && length <= LongestWord;
    }

    /// A number beyond 32 bits reads as the largest or smallest one. (Taken modulo 2^32 instead, a wrong echo
    /// could pass for the right one.)
    bool ReadNumber(std::int32_t& number) noexcept
    {
        SkipBlanks();
        const bool negative = !m_Rest.empty() && m_Rest.front() == '-';
        if (negative || (!m_Rest.empty() && m_Rest.front() == '+')) {
            m_Rest.remove_prefix(1);
        }
        const std::int64_t least = std::numeric_limits<std::int32_t>::min();
        const std::int64_t limit = negative ? -least : std::numeric_limits<std::int32_t>::max();
        std::int64_t value = 0;
        bool found = false;
        for (; !m_Rest.empty() && m_Rest.front() >= '0' && m_Rest.front() <= '9'; m_Rest.remove_prefix(1)) {
            value = std::min(value * 10 + (m_Rest.front() - '0'), limit);
            found = true;
        }
        if (found) {
            number = static_cast<std::int32_t>(negative ? -value : value);
        }
        return found;
    }

private:
    static constexpr std::string_view Blanks = " \t\n\v\f\r";
    static constexpr std::size_t LongestWord = 100;

    void SkipBlanks() noexcept { m_Rest.remove_prefix(std::min(m_Rest.find_first_not_of(Blanks), m_Rest.size())); }

    std::string_view m_Rest;
};

struct ReadyReply
{
    std::int32_t imageSize = 0;
    std::int32_t chunkSize = 0;
};

ReadyReply ParseReadyReply(std::string_view text) noexcept
{
    ReadyReply reply;
    ReplyReader reader(text);
    if (reader.SkipWord() && reader.ReadNumber(reply.imageSize)) {
        reader.ReadNumber(reply.chunkSize);
    }
    return reply;
}

} // namespace

void DownloadDialogue::SetImage(FirmwareImagePtr image) noexcept
{
    m_Image = std::move(image);
    m_bImage = m_Image != nullptr;
}

void DownloadDialogue::Start(std::uint32_t tick) noexcept
{
    m_nRetries = 0;
    m_nNow = tick;
    Dispatch(Event::Start);
}

void DownloadDialogue::Retry(std::uint32_t tick) noexcept
{
    if (!IsRetryDue(tick)) {
        return;
    }
    m_Output.Report(
        "FirmwareDownloader::NeedsDownload() retry reached, sending E_DOWNLOAD_START to try and resync");
    ++m_nRetries;
    m_nNow = tick;
    Dispatch(Event::Start);
}

bool DownloadDialogue::IsDownloading() const noexcept
{
    const State state = m_nState;
    return state != State::Idle && state != State::Unused;
}

bool DownloadDialogue::IsRetryDue(std::uint32_t tick) const noexcept
{
    return m_nState == State::WaitingForReady && m_nRetries < MaxRetries && tick - m_nStartTick > RetryAfter;
}

void DownloadDialogue::Receive(std::string_view reply) noexcept
{
    const std::string_view text = reply.substr(0, reply.find('\0'));
    switch (m_nState) {
    case State::WaitingForReady: ReceiveWhileWaiting(text); break;
    case State::SendingImage: ReceiveWhileSending(text); break;
    case State::Idle:
    case State::Unused:
        // Whatever the instrument says unasked means that it is past its download.
        Dispatch(Event::End);
        break;
    }
}

void DownloadDialogue::ReceiveWhileWaiting(std::string_view text) noexcept
{
    if (Contains(text, "RECEIVE_READY")) {
        m_Output.Report("FirmwareDownloader::OnReceive RECEIVE_READY");
        const ReadyReply reply = ParseReadyReply(text);
        m_nChunkSize = reply.chunkSize;
        if (reply.chunkSize != 0 && static_cast<std::uint32_t>(reply.imageSize) == m_nImageSize) {
            Dispatch(Event::InstrumentReady);
            return;
        }
        m_Output.Report("FirmwareDownloader::OnReceive Firmware unable to receive image");
    } else if (Contains(text, "DENY")) {
        m_Output.Report("FirmwareDownloader::OnReceive DENY");
    }
    Dispatch(Event::End);
}

void DownloadDialogue::ReceiveWhileSending(std::string_view text) noexcept
{
    if (Contains(text, "FIRMWARE_READY")) {
        m_Output.Report("FirmwareDownloader::OnReceive FIRMWARE_READY");
    } else if (Contains(text, "DOWNLOAD_FAIL")) {
        m_Output.Report("FirmwareDownloader::OnReceive DOWNLOAD_FAIL");
    } else if (Contains(text, "DOWNLOAD_OK")) {
        m_Output.Report("FirmwareDownloader::OnReceive DOWNLOAD_OK");
        Dispatch(Event::ChunkAcknowledged);
        return;
    } else if (Contains(text, "REBOOTING")) {
        m_Output.Report("FirmwareDownloader::OnReceive REBOOTING");
        m_Output.Report("FirmwareDownloader::OnReceive() REBOOTING received");
    }
    Dispatch(Event::End);
}

void DownloadDialogue::Dispatch(Event event) noexcept
{
    try {
        Handle(event);
    } catch (...) {
        // Out of memory: the ports are released, as when the instrument had refused. The end allocates nothing.
        m_Output.Report("FirmwareDownloader: out of memory, the download ends");
        Handle(Event::End);
    }
}

void DownloadDialogue::Handle(Event event)
{
    switch (event) {
    case Event::Start:
        m_nStartTick = m_nNow;
        DownloadStart();
        m_nState = State::WaitingForReady;
        break;
    case Event::InstrumentReady:
        m_Output.ClearCommandQueue();
        DownloadImage();
        m_nState = State::SendingImage;
        break;
    case Event::ChunkAcknowledged:
        if (!SubmitNextChunk()) {
            Handle(Event::End);
        }
        break;
    case Event::End:
        m_Output.Completed();
        m_nState = State::Idle;
        break;
    }
}

void DownloadDialogue::DownloadStart()
{
    m_Output.Report("FirmwareDownloader::DownloadStart() Firmware download started");
    std::array<char, 100> text{};
    // "%d" also for images beyond 2 GB: the instrument echoes the number as it got it.
    const int length =
        std::snprintf(text.data(), text.size(), "PREPARE_DOWNLOAD %d\r", static_cast<std::int32_t>(m_nImageSize));
    m_Output.Submit({reinterpret_cast<const std::uint8_t*>(text.data()), static_cast<std::size_t>(length)});
}

void DownloadDialogue::DownloadImage()
{
    m_Output.Report("FirmwareDownloader::DownloadImage() Firmware image download...");
    ChunkPlan chunks(m_Image, m_nChunkSize);
    if (!m_bQueued) {
        // Chunks left by a queued download that broke off stay where they are: acknowledgements send them.
        SubmitAll(std::move(chunks));
        return;
    }
    m_Chunks = std::move(chunks);
    ReportChunks();
    SubmitNextChunk();
}

void DownloadDialogue::ReportChunks() noexcept
{
    std::uint32_t offset = m_Chunks.Offset();
    while (const std::uint32_t size = m_Chunks.SizeAt(offset)) {
        m_Output.ReportChunk(offset, size);
        offset += size;
    }
}

void DownloadDialogue::SubmitAll(ChunkPlan chunks)
{
    std::vector<std::uint8_t> message;
    for (;;) {
        const std::uint32_t offset = chunks.Offset();
        if (const std::uint32_t size = chunks.SizeAt(offset); size != 0) {
            m_Output.ReportChunk(offset, size);
        }
        if (!chunks.Take(message)) {
            return;
        }
        m_Output.Submit(message);
    }
}

bool DownloadDialogue::SubmitNextChunk()
{
    std::vector<std::uint8_t> message;
    if (!m_Chunks.Take(message)) {
        return false;
    }
    m_Output.Submit(message);
    return true;
}
