#include "instrument/Bootloader.h"

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

Bootloader::Answer Text(std::string_view text)
{
    return {Bytes(text.begin(), text.end()), std::nullopt};
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

Bootloader::Bootloader(FirmwareScript script, std::optional<Bytes> expectedImage)
    : m_script(std::move(script)), m_expected(std::move(expectedImage))
{
}

Bootloader::Answer Bootloader::OnMessage(std::span<const std::uint8_t> message, Time now)
{
    m_report.latest = now;
    if (BeginsWith(message, PrepareWord)) {
        return OnPrepare(message.subspan(PrepareWord.size()));
    }
    if (BeginsWith(message, ChunkWord)) {
        m_report.tooLong += std::cmp_greater(message.size(), m_script.chunkSize) ? 1 : 0;
        return OnChunk(message.subspan(ChunkWord.size()), now);
    }
    if (BeginsWith(message, DoneWord)) {
        return OnDone();
    }
    ++m_report.unknown;
    return {};
}

Bootloader::Answer Bootloader::OnPrepare(std::span<const std::uint8_t> size)
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
    if (!announced) {
        return Text("DENY\r");
    }
    if (m_script.prepareAnswer) {
        return {m_script.prepareAnswer, std::nullopt};
    }
    if (m_script.echoOffset == 0) {
        m_report.state = FirmwareReport::State::Prepared;
    }
    return Text("RECEIVE_READY " + std::to_string(*announced + m_script.echoOffset) + " " +
                std::to_string(m_script.chunkSize) + "\r");
}

bool Bootloader::IsDownloading() const noexcept
{
    return m_report.state == FirmwareReport::State::Prepared || m_report.state == FirmwareReport::State::Receiving;
}

Bootloader::Answer Bootloader::OnChunk(std::span<const std::uint8_t> data, Time now)
{
    if (!IsDownloading()) {
        return Text("DOWNLOAD_FAIL\r");
    }
    if (m_report.chunks++ == 0) {
        m_report.began = now;
    }
    m_report.state = FirmwareReport::State::Receiving;
    m_report.received += data.size();
    m_image.insert(m_image.end(), data.begin(), data.end());
    if (HasIncidentAt(m_report.chunks)) {
        return TakeIncident();
    }
    return m_script.answersChunks ? Text("DOWNLOAD_OK\r") : Answer{};
}

Bootloader::Answer Bootloader::OnDone()
{
    if (!IsDownloading()) {
        return Text("DOWNLOAD_FAIL\r");
    }
    Compare();
    m_report.state = FirmwareReport::State::Done;
    ++m_report.downloads;
    if (HasIncidentAt(FirmwareScript::AtDone)) {
        return TakeIncident();
    }
    return Text(m_report.received == m_report.announced ? "DOWNLOAD_OK\r" : "DOWNLOAD_FAIL\r");
}

bool Bootloader::HasIncidentAt(std::uint64_t place) const noexcept
{
    return m_script.incident && m_script.incident->at == place;
}

Bootloader::Answer Bootloader::TakeIncident()
{
    const FirmwareScript::Incident incident = std::move(*m_script.incident);
    m_script.incident.reset(); // the next download goes through
    if (incident.ends && m_report.state != FirmwareReport::State::Done) {
        m_report.state = FirmwareReport::State::Ended;
    }
    return {incident.text, incident.vanishing};
}

void Bootloader::Compare()
{
    using Match = FirmwareReport::Match;
    if (!m_expected) {
        m_report.match = m_report.received == m_report.announced ? Match::Unknown : Match::Different;
        m_report.firstDifference = std::min(m_report.received, m_report.announced);
        return;
    }
    const auto [ours, theirs] = std::ranges::mismatch(m_image, *m_expected);
    const bool same = ours == m_image.end() && theirs == m_expected->end();
    m_report.match = same ? Match::Same : Match::Different;
    m_report.firstDifference = same ? 0 : static_cast<std::uint64_t>(ours - m_image.begin());
}

} // namespace instrument
