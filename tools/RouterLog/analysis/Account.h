// The account of a set of logs: reads them once, line by line, in bounded memory. Portable.
#pragma once

#include "tools/RouterLog/analysis/ConnectionStory.h"
#include "tools/RouterLog/analysis/FirmwareStory.h"
#include "tools/RouterLog/analysis/PortStory.h"
#include "tools/RouterLog/analysis/RouterStory.h"
#include "tools/RouterLog/analysis/SkippedPackets.h"
#include "tools/RouterLog/analysis/Timeline.h"
#include "tools/RouterLog/log/LineReader.h"

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace routerlog {

/// How much of a class the logs hold.
struct ClassUse
{
    std::uint64_t lines = 0;
    LogTime first = 0, last = 0;
    std::optional<bool> declared; // by the start-up summary: whether the class goes to the file
};

/// A line that the router did not write, for show.
struct ForeignLine
{
    Where where;
    std::string text; // cut
};

struct AccountedFile
{
    std::string name;
    std::uint64_t lines = 0;
    std::uint64_t bytes = 0;
};

/// One thread. Files are taken one after the other, in the order in which they were written.
class Account
{
public:
    static constexpr std::size_t ForeignLinesKept = 10;

    Account() = default;
    Account(const Account&) = delete;
    Account& operator=(const Account&) = delete;

    /// A whole file.
    void TakeFile(const std::string& name, IByteSource& source);

    /// The same piece by piece, for a file that grows.
    void BeginFile(const std::string& name);
    void TakeLine(const RawLine& raw);

    /// After the last line: closes what is still open.
    void Finish();

    const std::vector<AccountedFile>& Files() const noexcept { return m_files; }
    const IncidentLog& Incidents() const noexcept { return m_incidents; }
    const RouterStory& Router() const noexcept { return m_router; }
    const ConnectionStory& Connection() const noexcept { return m_connection; }
    const FirmwareStory& Firmware() const noexcept { return m_firmware; }
    const PortStory& Ports() const noexcept { return m_ports; }
    const StateTimeline& States() const noexcept { return m_states; }
    const SkippedPackets& Skipped() const noexcept { return m_skipped; }

    const ClassUse& Use(TraceClass traceClass) const noexcept
    {
        return m_uses[static_cast<std::size_t>(traceClass)];
    }
    bool IsTraced(TraceClass traceClass) const noexcept { return Use(traceClass).lines > 0; }

    std::uint64_t Lines() const noexcept { return m_sequence; }
    std::uint64_t ForeignLineCount() const noexcept { return m_foreignCount; }
    const std::vector<ForeignLine>& ForeignLines() const noexcept { return m_foreign; }
    /// Of the trace log; none without a stamped line.
    std::optional<LogTime> FirstTime() const noexcept { return m_firstTime; }
    LogTime LastTime() const noexcept { return m_last.time; }

private:
    void Take(const LogLine& line);
    void TakeTime(const LogLine& line);
    void TakeForeign(const LogLine& line);
    void CountClass(const LogLine& line);
    void TakeDeclaredMask(const LogLine& line);
    void UpdateState(const LogLine& line);

    const LineGrammar& m_grammar = LineGrammar::Instance();
    IncidentLog m_incidents;
    RouterStory m_router{m_incidents};
    ConnectionStory m_connection{m_incidents};
    FirmwareStory m_firmware{m_incidents};
    PortStory m_ports{m_incidents};
    SkippedPackets m_skipped{m_incidents};
    StateTimeline m_states;
    std::array<ClassUse, TraceClassCount> m_uses{};
    std::vector<AccountedFile> m_files;
    std::vector<ForeignLine> m_foreign;
    std::uint64_t m_foreignCount = 0;
    std::uint64_t m_sequence = 0;
    std::optional<LogTime> m_firstTime;
    Where m_last;
    bool m_finished = false;
};

} // namespace routerlog
