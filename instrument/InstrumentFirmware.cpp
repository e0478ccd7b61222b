#include "instrument/InstrumentFirmware.h"

#include <algorithm>
#include <charconv>
#include <string>
#include <string_view>
#include <utility>

namespace instrument {

namespace {

constexpr std::string_view PrepareWord = "PREPARE_DOWNLOAD ";
constexpr std::string_view ChunkWord = "DOWNLOAD ";
constexpr std::string_view DoneWord = "DOWNLOAD_DONE";

bool BeginsWith(std::span<const std::uint8_t> message, std::string_view word)
{
    return message.size() >= word.size() &&
           std::equal(word.begin(), word.end(), message.begin(),
                      [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; });
}

Bytes Text(std::string_view text)
{
    return {text.begin(), text.end()};
}

std::optional<std::uint64_t> NumberAt(std::span<const std::uint8_t> text)
{
    const std::string digits(text.begin(), text.end());
    std::uint64_t number = 0;
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return result.ec == std::errc() ? std::optional(number) : std::nullopt;
}

} // namespace

double FirmwareReport::BytesPerSecond() const noexcept
{
    const double seconds = std::chrono::duration<double>(latest - began).count();
    return seconds > 0 ? static_cast<double>(received) / seconds : 0;
}

InstrumentFirmware::InstrumentFirmware(FirmwareScript script, std::optional<Bytes> expectedImage)
    : m_script(std::move(script)), m_expected(std::move(expectedImage))
{
}

InstrumentFirmware::Answer InstrumentFirmware::OnMessage(std::span<const std::uint8_t> message, Time now)
{
    m_report.latest = now;
    if (BeginsWith(message, PrepareWord)) {
        return OnPrepare(message.subspan(PrepareWord.size()));
    }
    if (BeginsWith(message, ChunkWord)) {
        if (static_cast<std::int64_t>(message.size()) > m_script.chunkSize) {
            ++m_report.tooLong;
        }
        return OnChunk(message.subspan(ChunkWord.size()), now);
    }
    if (BeginsWith(message, DoneWord)) {
        return OnDone();
    }
    ++m_report.unknown;
    return {};
}

InstrumentFirmware::Answer InstrumentFirmware::OnPrepare(std::span<const std::uint8_t> size)
{
    ++m_report.prepares;
    m_report.received = 0;
    m_report.chunks = 0;
    m_report.tooLong = 0;
    m_report.match = FirmwareReport::Match::Unknown;
    m_report.state = FirmwareReport::State::Ended;
    m_image.clear();
    const std::optional<std::uint64_t> announced = NumberAt(size);
    m_report.announced = announced.value_or(0);
    if (m_report.prepares <= m_script.unansweredPrepares) {
        return {};
    }
    if (!announced || m_script.prepare == FirmwareScript::Prepare::Deny) {
        return {Text("DENY\r")};
    }
    if (m_script.prepare == FirmwareScript::Prepare::Text) {
        return {m_script.prepareText};
    }
    const bool wrong = m_script.prepare == FirmwareScript::Prepare::WrongEcho;
    if (!wrong) {
        m_report.state = FirmwareReport::State::Prepared;
    }
    return {Text("RECEIVE_READY " + std::to_string(*announced + (wrong ? 1 : 0)) + " " +
                 std::to_string(m_script.chunkSize) + "\r")};
}

InstrumentFirmware::Answer InstrumentFirmware::OnChunk(std::span<const std::uint8_t> data, Time now)
{
    if (m_report.state != FirmwareReport::State::Prepared && m_report.state != FirmwareReport::State::Receiving) {
        return {Text("DOWNLOAD_FAIL\r")};
    }
    if (m_report.chunks++ == 0) {
        m_report.began = now;
    }
    m_report.state = FirmwareReport::State::Receiving;
    m_report.received += data.size();
    m_image.insert(m_image.end(), data.begin(), data.end());
    if (m_script.specialAt == m_report.chunks && IsSpecialDue()) {
        return Special();
    }
    return m_script.answersChunks ? Answer{Text("DOWNLOAD_OK\r")} : Answer{};
}

InstrumentFirmware::Answer InstrumentFirmware::OnDone()
{
    if (m_report.state != FirmwareReport::State::Prepared && m_report.state != FirmwareReport::State::Receiving) {
        return {Text("DOWNLOAD_FAIL\r")};
    }
    Compare();
    m_report.state = FirmwareReport::State::Done;
    ++m_report.downloads;
    if (m_script.specialAt == FirmwareScript::AtDone && IsSpecialDue()) {
        return Special();
    }
    return {Text(m_report.received == m_report.announced ? "DOWNLOAD_OK\r" : "DOWNLOAD_FAIL\r")};
}

InstrumentFirmware::Answer InstrumentFirmware::Special()
{
    m_specialDone = true;
    if (m_script.special != FirmwareScript::Chunk::Silence && m_report.state != FirmwareReport::State::Done) {
        m_report.state = FirmwareReport::State::Ended;
    }
    switch (m_script.special) {
    case FirmwareScript::Chunk::Fail: return {Text("DOWNLOAD_FAIL\r")};
    case FirmwareScript::Chunk::Ready: return {Text("FIRMWARE_READY\r")};
    case FirmwareScript::Chunk::Rebooting: return {Text("REBOOTING\r"), m_script.back.has_value()};
    case FirmwareScript::Chunk::Text: return {m_script.specialText};
    case FirmwareScript::Chunk::Vanish: return {std::nullopt, true};
    case FirmwareScript::Chunk::Silence:
    case FirmwareScript::Chunk::Accept: break;
    }
    return {};
}

void InstrumentFirmware::Compare()
{
    if (!m_expected) {
        m_report.match = m_report.received == m_report.announced ? FirmwareReport::Match::Unknown
                                                                 : FirmwareReport::Match::Different;
        m_report.firstDifference = std::min(m_report.received, m_report.announced);
        return;
    }
    const auto [ours, theirs] =
        std::mismatch(m_image.begin(), m_image.end(), m_expected->begin(), m_expected->end());
    const bool same = ours == m_image.end() && theirs == m_expected->end();
    m_report.match = same ? FirmwareReport::Match::Same : FirmwareReport::Match::Different;
    m_report.firstDifference = same ? 0 : static_cast<std::uint64_t>(ours - m_image.begin());
}

} // namespace instrument
