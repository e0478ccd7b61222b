#include "instrument/Bootloader.h"

#include "console/Format.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <sstream>
#include <utility>

namespace instrument {

namespace {

using Plan = ResponsePlan;

constexpr std::string_view PrepareWord = "PREPARE_DOWNLOAD ";
constexpr std::string_view ChunkWord = "DOWNLOAD ";
constexpr std::string_view DoneWord = "DOWNLOAD_DONE";

} // namespace

std::string FirmwareReport::Line() const
{
    static constexpr std::array<const char*, 5> states = {"none", "prepared", "receiving", "done", "ended"};
    std::ostringstream line;
    line << "firmware " << states[static_cast<std::size_t>(state)] << ": " << received << " of " << announced
         << " bytes in " << chunks << " chunks";
    if (announced != 0) {
        line << console::Format(", %.1f %%",
                                100.0 * static_cast<double>(received) / static_cast<double>(announced));
    }
    if (chunks > 1) {
        line << console::Format(", %.3f MB/s", BytesPerSecond() / 1e6);
    }
    if (state == State::Done && match == Match::Different) {
        line << ", different from offset " << firstDifference;
    } else if (state == State::Done) {
        line << (match == Match::Same ? ", the same as expected" : ", not compared");
    }
    if (tooLong != 0) {
        line << ", " << tooLong << " chunks too long";
    }
    return line.str();
}

ResponsePlan Bootloader::OnMessage(std::span<const std::uint8_t> message, Time now)
{
    m_report.latest = now;
    const std::string_view text(reinterpret_cast<const char*>(message.data()), message.size());
    if (text.starts_with(PrepareWord)) {
        return OnPrepare(text.substr(PrepareWord.size()));
    }
    const bool isChunk = text.starts_with(ChunkWord);
    if (!isChunk && !text.starts_with(DoneWord)) {
        ++m_report.unknown;
        return Plan::Silence();
    }
    m_report.tooLong += isChunk && std::cmp_greater(message.size(), m_script.chunkSize) ? 1 : 0;
    if (m_report.state != FirmwareReport::State::Prepared && m_report.state != FirmwareReport::State::Receiving) {
        return Plan::Reply("DOWNLOAD_FAIL\r");
    }
    return isChunk ? OnChunk(message.subspan(ChunkWord.size()), now) : OnDone();
}

ResponsePlan Bootloader::OnPrepare(std::string_view size)
{
    m_image.clear();
    m_report = {.state = FirmwareReport::State::Ended,
                .prepares = m_report.prepares + 1,
                .downloads = m_report.downloads,
                .unknown = m_report.unknown,
                .latest = m_report.latest};
    const auto [unused, error] = std::from_chars(size.data(), size.data() + size.size(), m_report.announced);
    if (m_report.prepares <= m_script.unansweredPrepares) {
        return Plan::Silence();
    }
    if (error != std::errc()) {
        return Plan::Reply("DENY\r");
    }
    if (m_script.prepareAnswer) {
        return {.fixedAnswer = m_script.prepareAnswer};
    }
    if (m_script.echoOffset == 0) {
        m_report.state = FirmwareReport::State::Prepared;
    }
    return Plan::Reply("RECEIVE_READY " + std::to_string(m_report.announced + m_script.echoOffset) + " " +
                       std::to_string(m_script.chunkSize) + "\r");
}

ResponsePlan Bootloader::OnChunk(std::span<const std::uint8_t> data, Time now)
{
    if (m_report.chunks++ == 0) {
        m_report.began = now;
    }
    m_report.state = FirmwareReport::State::Receiving;
    m_report.received += data.size();
    m_image.insert(m_image.end(), data.begin(), data.end());
    return AnswerAt(m_report.chunks, m_script.answersChunks ? Plan::Reply("DOWNLOAD_OK\r") : Plan::Silence());
}

ResponsePlan Bootloader::OnDone()
{
    using Match = FirmwareReport::Match;
    const bool whole = m_report.received == m_report.announced;
    m_report.state = FirmwareReport::State::Done;
    ++m_report.downloads;
    if (m_expected) {
        const auto [ours, theirs] = std::ranges::mismatch(m_image, *m_expected);
        const bool same = ours == m_image.end() && theirs == m_expected->end();
        m_report.match = same ? Match::Same : Match::Different;
        m_report.firstDifference = same ? 0 : static_cast<std::uint64_t>(ours - m_image.begin());
    } else {
        m_report.match = whole ? Match::Unknown : Match::Different;
        m_report.firstDifference = std::min(m_report.received, m_report.announced);
    }
    return AnswerAt(FirmwareScript::AtDone, Plan::Reply(whole ? "DOWNLOAD_OK\r" : "DOWNLOAD_FAIL\r"));
}

ResponsePlan Bootloader::AnswerAt(std::uint64_t place, ResponsePlan usual)
{
    if (!m_script.incident || m_script.incident->at != place) {
        return usual;
    }
    const auto incident = std::exchange(m_script.incident, std::nullopt); // the next download goes through
    if (incident->ends && m_report.state != FirmwareReport::State::Done) {
        m_report.state = FirmwareReport::State::Ended;
    }
    return incident->answer;
}

} // namespace instrument
