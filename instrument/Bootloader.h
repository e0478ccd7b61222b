// The instrument's side of a firmware download: a bootloader that rebuilds the image it is sent. Portable.
#pragma once

#include "instrument/Script.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>

namespace instrument {

/// How far a download has come. Numbers are of the last download begun.
struct FirmwareReport
{
    enum class State { None, Prepared, Receiving, Done, Ended };
    enum class Match { Unknown, Same, Different };

    State state = State::None;   // Done: the closing message came. Ended: refused or broken off by the instrument
    std::uint64_t prepares = 0;  // requests to prepare since the start of the program
    std::uint64_t downloads = 0; // downloads that came to their closing message since the start of the program
    std::uint64_t announced = 0; // bytes
    std::uint64_t received = 0;  // bytes
    std::uint64_t chunks = 0;
    std::uint64_t tooLong = 0;    // chunk messages longer than the chunk size that was asked for
    std::uint64_t unknown = 0;    // messages that say nothing known, since the start of the program
    Time began{};                 // first chunk
    Time latest{};                // latest message
    Match match = Match::Unknown; // Unknown: not done yet, or nothing to compare with but the size, which fits
    std::uint64_t firstDifference = 0; // offset, when Different

    /// Image bytes per second from the first chunk to the latest message; 0 before any time has passed.
    double BytesPerSecond() const noexcept
    {
        const double seconds = std::chrono::duration<double>(latest - began).count();
        return seconds > 0 ? static_cast<double>(received) / seconds : 0;
    }
    /// How far the download is or has come, in one line for people.
    std::string Line() const;
};

class Bootloader
{
public:
    Bootloader(FirmwareScript script, std::optional<Bytes> expectedImage)
        : m_script(std::move(script)), m_expected(std::move(expectedImage))
    {
    }

    /// One message of the router, without its frame. What it does then: a fixed answer or silence, maybe a
    /// vanishing.
    ResponsePlan OnMessage(std::span<const std::uint8_t> message, Time now);

    const FirmwareReport& Report() const noexcept { return m_report; }

private:
    ResponsePlan OnPrepare(std::string_view size);
    ResponsePlan OnChunk(std::span<const std::uint8_t> data, Time now);
    ResponsePlan OnDone();
    ResponsePlan AnswerAt(std::uint64_t place, ResponsePlan usual);

    FirmwareScript m_script;
    const std::optional<Bytes> m_expected;
    FirmwareReport m_report;
    Bytes m_image;
};

} // namespace instrument
