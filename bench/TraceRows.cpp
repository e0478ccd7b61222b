#include "bench/Rows.h"
#include "diag/CDebugThread.h"
#include "diag/TimeStamp.h"
#include "host/TraceFrontEnd.h"
#include "tests/support/TempFolder.h"
#include "tests/support/WaitUntil.h"
#include "trace/Trace.h"

#include <cstdio>
#include <fstream>

namespace bench {

namespace {

constexpr std::int32_t UnwantedChannel = 7; // not enabled
constexpr const char* TracedLine = "CCyUSBDriver::USBCommandProcessThread overlapped write %d bytes, burst %d";

std::wstring g_program; // written before the tracer starts, read by its thread

CDebugThread::Owner NewTracer(const std::filesystem::path& folder)
{
    g_program = (folder / L"bench.exe").wstring();
    TracerSurroundings surroundings;
    surroundings.ProgramPath = [] { return std::optional(g_program); };
    return CDebugThread::Create(surroundings);
}

/// The product's trace front end and tracer, writing into a log of their own. The trace calls of this process go
/// here while it lives; one at a time. Everything that channel -1 traces is wanted by the file, nothing of other
/// channels.
class Tracer
{
public:
    Tracer() : m_tracer(NewTracer(m_folder.Path())), m_output(*m_tracer), m_frontEnd(m_output)
    {
        CDebugOption option(trace::RouterChannel);
        option.SetMask(0xFFFF0000);
        m_frontEnd.Publish({{option.DeviceNumber, option}});
        m_tracer->SetOptions(0xFFFF0000, L"Bench.log", 1000, true);
        Demand(m_tracer->Start(), "the tracer does not start");
    }

    /// Lines in the log that contain `text`.
    std::size_t LinesWith(const std::string& text) const
    {
        std::ifstream log(m_folder.Path() / L"Log" / L"Bench.log", std::ios::binary);
        std::size_t count = 0;
        for (std::string line; std::getline(log, line);) {
            count += line.find(text) != std::string::npos ? 1 : 0;
        }
        return count;
    }

private:
    /// As the module's own, without its dialog.
    struct Output final : ITraceOutput
    {
        explicit Output(CDebugThread& thread) : tracer(thread) {}
        bool TracerExists() const noexcept override { return true; }
        bool DialogExists() const noexcept override { return true; }
        bool DialogIsVisible() const noexcept override { return false; }
        void AddTrace(std::uint32_t mask, std::string text) override { tracer.AddTrace(mask, std::move(text)); }
        CDebugThread& tracer;
    };

    support::TempFolder m_folder;
    CDebugThread::Owner m_tracer;
    Output m_output;
    TraceFrontEnd m_frontEnd;
};

void AddUnwantedRow(Table& table, const RunSize& run)
{
    void (*volatile empty)(int) = [](int) {};
    const std::size_t times = run.Times(3'000'000);
    const auto [call, trace] = InTurn(
        run.Rounds(), [&] { return NanosecondsEach(times, [&](std::size_t i) { empty(static_cast<int>(i)); }); },
        [&] {
            return NanosecondsEach(times, [](std::size_t i) {
                Trace(UnwantedChannel, trace::Usb, TracedLine, static_cast<int>(i), 1);
            });
        });
    table.Add({"trace call that is not enabled", "call of an empty function by pointer", trace, call, "ns",
               AtMost(4), "its kernel calls are counted below"});
}

/// What a producer does for a line, but for handing it over.
double FormattingTime(std::size_t lines)
{
    std::vector<std::string> kept;
    kept.reserve(lines);
    return NanosecondsEach(lines, [&](std::size_t i) {
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): 2 KB a line
        std::array<char, TraceFrontEnd::MaximumLineLength + 1> line;
        std::snprintf(line.data(), line.size(), TracedLine, static_cast<int>(i), 1);
        std::string text(line.data());
        text.insert(0, TimeStampLength, ' ');
        SYSTEMTIME now;
        ::GetLocalTime(&now);
        WriteTimeStamp(text.data(), now);
        kept.push_back(std::move(text));
    });
}

/// Bursts of fewer lines than the tracer's queue is given up at, so none may be lost.
void AddWantedRows(Table& table, const RunSize& run, const Tracer& tracer)
{
    const std::size_t lines = run.Times(4000);
    int burst = 1;
    std::size_t lost = 0;
    std::vector<double> rates; // lines a second, until the last one is in the file
    const auto traceBurst = [&] {
        const std::string mark = "burst " + std::to_string(++burst) + "\r";
        const std::string last = "write " + std::to_string(lines - 1) + " bytes, " + mark;
        const Stopwatch watch;
        const double nanosecondsEach = NanosecondsEach(lines, [burst](std::size_t i) {
            Trace(trace::RouterChannel, trace::Usb, TracedLine, static_cast<int>(i), burst);
        });
        support::WaitUntil([&] { return tracer.LinesWith(last) == 1; });
        rates.push_back(static_cast<double>(lines) / watch.Seconds());
        lost += lines - tracer.LinesWith(mark);
        return nanosecondsEach;
    };
    const auto [formatting, tracing] = InTurn(run.Rounds(), [&] { return FormattingTime(lines); }, traceBurst);
    table.Add({"trace line wanted by the file, producer's side", "the same formatting into memory", tracing,
               formatting, "ns", AtMost(2.5), ""});
    table.Add({"trace lines into the file", "", Median(rates), std::nullopt, "lines/s", Told,
               "bursts of " + std::to_string(lines)});
    table.Add({"trace lines lost below the overflow rule", "", static_cast<double>(lost), std::nullopt, "lines",
               AtMost(0), ""});
}

} // namespace

void TraceUnwanted(int count, const std::function<void(const std::function<double()>&)>& play)
{
    const Tracer tracer;
    play([count] {
        for (int i = 0; i < count; ++i) {
            Trace(UnwantedChannel, trace::Usb, TracedLine, i, 1);
        }
        return 1.0;
    });
}

void AddTraceRows(Table& table, const RunSize& run)
{
    const Tracer tracer;
    AddUnwantedRow(table, run);
    AddWantedRows(table, run, tracer);
}

} // namespace bench
