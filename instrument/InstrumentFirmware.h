// The bootloader's side of a firmware download: answers the router's text messages, rebuilds the image and compares
// it. Portable, without I/O.
#pragma once

#include "instrument/InstrumentScript.h"

#include <cstdint>
#include <optional>
#include <span>

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
    double BytesPerSecond() const noexcept;
};

class InstrumentFirmware
{
public:
    struct Answer
    {
        std::optional<Bytes> text; // none: silence
        bool vanish = false;       // after the text, if any
    };

    InstrumentFirmware(FirmwareScript script, std::optional<Bytes> expectedImage);

    /// One message of the router, without its frame.
    Answer OnMessage(std::span<const std::uint8_t> message, Time now);

    const FirmwareScript& Settings() const noexcept { return m_script; }
    const FirmwareReport& Report() const noexcept { return m_report; }
    std::span<const std::uint8_t> Image() const noexcept { return m_image; }

private:
    Answer OnPrepare(std::span<const std::uint8_t> size);
    Answer OnChunk(std::span<const std::uint8_t> data, Time now);
    Answer OnDone();
    Answer Special();
    void Compare();
    bool IsSpecialDue() const noexcept
    {
        return !m_specialDone && m_script.special != FirmwareScript::Chunk::Accept;
    }

    const FirmwareScript m_script;
    const std::optional<Bytes> m_expected;
    FirmwareReport m_report;
    Bytes m_image;
    bool m_specialDone = false; // it happens once; the next download goes through
};

} // namespace instrument
