#include "firmware/DownloadDialogue.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <limits>
#include <system_error>
#include <utility>

namespace {

bool Contains(std::string_view text, std::string_view keyword) noexcept
{
    return text.find(keyword) != std::string_view::npos;
}

// A reply is read as "%s %d %d" would: a word, then numbers until one is missing. Each function takes what it
// reads from the front of the text.

constexpr std::string_view Blanks = " \t\n\v\f\r";
constexpr std::size_t LongestWord = 100;

void SkipBlanks(std::string_view& text) noexcept
{
    text.remove_prefix(std::min(text.find_first_not_of(Blanks), text.size()));
}

/// A longer word than the instrument's longest makes the reply unreadable.
bool SkipWord(std::string_view& text) noexcept
{
    SkipBlanks(text);
    const std::size_t length = std::min(text.find_first_of(Blanks), text.size());
    text.remove_prefix(length);
    return length >= 1 && length <= LongestWord;
}

/// A number beyond 32 bits reads as the largest or smallest one. (Taken modulo 2^32 instead, a wrong echo could
/// pass for the right one.)
bool ReadNumber(std::string_view& text, std::int32_t& number) noexcept
{
    SkipBlanks(text);
    if (text.starts_with('+') && !text.starts_with("+-")) {
        text.remove_prefix(1);
    }
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc::result_out_of_range) {
        using Limits = std::numeric_limits<std::int32_t>;
        number = text.starts_with('-') ? Limits::min() : Limits::max();
    }
    text.remove_prefix(static_cast<std::size_t>(rest - text.data()));
    return error != std::errc::invalid_argument;
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
    m_nStartTick = tick;
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
    m_nStartTick = tick;
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
        std::int32_t imageSize = 0;
        m_nChunkSize = 0;
        if (SkipWord(text) && ReadNumber(text, imageSize)) {
            ReadNumber(text, m_nChunkSize);
        }
        if (m_nChunkSize != 0 && static_cast<std::uint32_t>(imageSize) == m_nImageSize) {
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
        DownloadStart();
        m_nState = State::WaitingForReady;
        break;
    case Event::InstrumentReady:
        m_Transport.ClearCommandQueue();
        DownloadImage();
        m_nState = State::SendingImage;
        break;
    case Event::ChunkAcknowledged:
        if (std::vector<std::uint8_t> message; !SubmitNext(m_Chunks, message)) {
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
    m_Transport.SubmitFirmware(
        {reinterpret_cast<const std::uint8_t*>(text.data()), static_cast<std::size_t>(length)});
}

void DownloadDialogue::DownloadImage()
{
    m_Output.Report("FirmwareDownloader::DownloadImage() Firmware image download...");
    ChunkPlan chunks(m_Image, m_nChunkSize);
    std::vector<std::uint8_t> message;
    if (!m_bQueued) {
        // Chunks left by a queued download that broke off stay where they are: acknowledgements send them.
        do {
            ReportChunk(chunks, chunks.Offset());
        } while (SubmitNext(chunks, message));
        return;
    }
    std::uint32_t offset = chunks.Offset();
    while (const std::uint32_t size = ReportChunk(chunks, offset)) {
        offset += size;
    }
    m_Chunks = std::move(chunks);
    SubmitNext(m_Chunks, message);
}

std::uint32_t DownloadDialogue::ReportChunk(const ChunkPlan& chunks, std::uint32_t offset) noexcept
{
    const std::uint32_t size = chunks.SizeAt(offset);
    if (size != 0) {
        m_Output.ReportChunk(offset, size);
    }
    return size;
}

bool DownloadDialogue::SubmitNext(ChunkPlan& chunks, std::vector<std::uint8_t>& message)
{
    if (!chunks.Take(message)) {
        return false;
    }
    m_Transport.SubmitFirmware(message);
    return true;
}
