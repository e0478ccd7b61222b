// What happened, one record each. Portable.
#pragma once

#include "tools/RouterLog/analysis/LogLine.h"

#include <array>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace routerlog {

enum class IncidentKind : std::uint8_t {
    LogBegins,
    RouterStarted,
    TracingTurnedOn,
    TracingTurnedOff,
    RouterEnded,
    RouterVanished,
    LinesNotWritten,
    LogOverflow,
    LinesMissing,
    ClockSetBack,
    NothingTraced,
    ProgramCame,
    ProgramWent,
    InstrumentConnected,
    InstrumentLost,
    InstrumentReconnected,
    ReadingStopped,
    HostGone,
    FirmwareDownloaded,
    FirmwareRefused,
    FirmwareFailed,
    FirmwareInterrupted,
    FirmwareUnanswered,
    NumberGap,
    WritesAborted,
    SimulatorSlow,
    RequestsDropped,
    RepliesDropped,
    UnknownDestination,
    ReplyError,
    RouterFailure,
    PortOpened,
    PortClosed,
    ClientCame,
    ClientWent,
    ClientCutOff,
    ClientStalled,
};
inline constexpr std::size_t IncidentKindCount = 37;

/// How a firmware dialogue ended, and why a router ended.
enum class Reason : std::uint8_t {
    Unknown,
    Denied,
    SizeRefused,
    DownloadFail,
    FirmwareReady,
    Rebooting,
    UnknownAnswer,
    NoHostProgram,
    LastProgramWent,
};

/// Which fields mean something depends on the kind; SentenceOf says it in words.
struct Incident
{
    IncidentKind kind{};
    TraceClass traceClass = TraceClass::Always; // whose lines told of it
    Where where{};
    std::int64_t duration = -1; // ms; -1: not known
    std::int64_t count = 0;     // packets, lines, bytes, tries
    std::int64_t first = 0;     // error number, expected number, most packets that waited
    std::int64_t second = 0;    // received number, chunks, product
    Reason reason = Reason::Unknown;
    bool simulated = false;            // the instrument is the simulator
    std::optional<PortAddress> port{}; // none: not known
    std::string name{};                // of a pipe; of a failure inside the router, what failed
};

/// Key of the kind in JSON, such as "instrument-lost".
std::string_view KeyOf(IncidentKind kind) noexcept;
/// Whether the kind is a fault to look into, and not only something that happens every day.
bool IsFault(IncidentKind kind) noexcept;

/// The incidents of a log of any length, in bounded memory: the first and the last ones, and how many of each
/// kind.
class IncidentLog
{
public:
    static constexpr std::size_t KeptAtEachEnd = 5'000;

    void Add(Incident incident);

    /// Those that are kept, in the order of their lines.
    std::vector<Incident> InOrder() const;
    /// The `count` that were told last.
    std::vector<Incident> Last(std::size_t count) const;
    std::uint64_t CountOf(IncidentKind kind) const noexcept { return m_counts[static_cast<std::size_t>(kind)]; }
    std::uint64_t LeftOut() const noexcept { return m_leftOut; }

private:
    std::vector<Incident> m_first;
    std::deque<Incident> m_last;
    std::array<std::uint64_t, IncidentKindCount> m_counts{};
    std::uint64_t m_leftOut = 0;
};

/// Like things in quick succession, told as one.
class Burst
{
public:
    /// Joins the burst when it is open and `within` ms have not passed since its last member; otherwise begins
    /// one, after the caller has closed the one before (see IsOver).
    void Join(const Where& where, std::int64_t value = 0);
    bool IsOpen() const noexcept { return m_count > 0; }
    bool IsOver(LogTime now, std::int64_t within) const noexcept { return IsOpen() && now - m_last > within; }
    void Close() noexcept { m_count = 0; }

    const Where& First() const noexcept { return m_first; }
    std::int64_t Duration() const noexcept { return m_last > m_first.time ? m_last - m_first.time : 0; }
    std::int64_t Count() const noexcept { return m_count; }
    std::int64_t Most() const noexcept { return m_most; }

private:
    Where m_first;
    LogTime m_last = 0;
    std::int64_t m_count = 0;
    std::int64_t m_most = 0;
};

} // namespace routerlog
