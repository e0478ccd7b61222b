// One-way streams: requests without waiting, and replies that come many to a block.
#include "bench/DataPath.h"
#include "bench/Rows.h"

namespace bench {

namespace {

constexpr std::size_t FloodMessage = 512;

/// One end of a stream.
struct Stream
{
    PipeEnd& client;
    const Instrument& instrument;
};

/// Messages a second until the last byte is with the instrument.
double RequestRate(const Stream& stream, std::size_t size, std::size_t count)
{
    const std::vector<std::uint8_t> message(size, 's');
    stream.instrument.Set(Mode::Sink, size * count);
    const Stopwatch watch;
    for (std::size_t i = 0; i < count; ++i) {
        Demand(stream.client.Write(message), "the stream's pipe broke");
    }
    stream.instrument.AwaitGoal();
    return static_cast<double>(count) / watch.Seconds();
}

/// Messages a second from the request for them to the last one.
double ReplyRate(const Stream& stream, std::size_t count)
{
    const std::vector<std::uint8_t> request(64, 'r');
    stream.instrument.Set(Mode::Flood, FloodMessage * count);
    const Stopwatch watch;
    Demand(stream.client.Write(request) && stream.client.ReadExactly(FloodMessage * count),
           "the replies' pipe broke");
    return static_cast<double>(count) / watch.Seconds();
}

/// Adds a row about a port of `router` against one pipe. `measure(direct, routed)` returns the row.
template <class Measure>
void AddRow(Table& table, const Instrument& simulator, RunningRouter& router, LONG readSize, Measure&& measure)
{
    DirectPath direct;
    const auto client = router.OpenPort(3, 1, readSize);
    Row row = measure(Stream{direct.Client(), direct.TheInstrument()}, Stream{*client, simulator});
    simulator.Set(Mode::Echo);
    client->Close();
    router.Session().UnregisterPort(3, 1);
    table.Add(std::move(row));
}

Row MeasureRequests(const RunSize& run, const Stream& direct, const Stream& routed, std::size_t size,
                    bool wholeMessages)
{
    const std::size_t count = run.Times(5000);
    const std::size_t routedCount = wholeMessages ? count / 5 : count;
    std::uint64_t packets = 0;
    const auto [bare, path] = InTurn(
        run.Rounds(), [&] { return RequestRate(direct, size, count); },
        [&] {
            routed.instrument.Record().packets = 0;
            const double rate = RequestRate(routed, size, routedCount);
            packets += routed.instrument.Record().packets;
            return rate;
        });
    const double messages = static_cast<double>(routedCount) * run.Rounds();
    std::string merged = std::to_string(packets != 0 ? messages / static_cast<double>(packets) : 0);
    merged.resize(merged.find('.') + 2);
    return {"requests without waiting, " + std::to_string(size) + " B" +
                (wholeMessages ? ", one packet each" : ""),
            "one-way stream on one pipe",
            path,
            bare,
            "msg/s",
            wholeMessages ? Told : AtLeast(0.5),
            merged + " messages to a packet"};
}

/// How often a port has slept its 100 ms because its last write was not through, by its own trace.
std::size_t Naps(const RouterSession& session)
{
    constexpr std::string_view Nap = "Write permission denied";
    const std::string log = session.Log();
    std::size_t naps = 0;
    for (std::size_t at = log.find(Nap); at != std::string::npos; at = log.find(Nap, at + 1)) {
        ++naps;
    }
    return naps;
}

Row MeasureReplies(const RunSize& run, const Stream& direct, const Stream& routed, const RouterSession& session)
{
    const std::size_t count = run.Times(5000);
    const auto [bare, path] =
        InTurn(run.Rounds(), [&] { return ReplyRate(direct, count); }, [&] { return ReplyRate(routed, count); });
    return {"replies to one client, 512 B, many to a block",
            "one-way stream on one pipe",
            path,
            bare,
            "msg/s",
            AtLeast(0.5),
            std::to_string(Naps(session)) + " sleeps of 100 ms in all rounds"};
}

} // namespace

void AddStreamRows(Table& table, const RunSize& run, RouterSession& session)
{
    const Instrument simulator;
    RouterSession::SetMask(3, 0x00040000); // a port's life and its naps, into the log
    RunningRouter router(session);
    for (const bool wholeMessages : {false, true}) {
        for (const std::size_t size : {std::size_t{64}, std::size_t{1024}}) {
            AddRow(table, simulator, router, wholeMessages ? static_cast<LONG>(size) : UsualReadSize,
                   [&](const Stream& direct, const Stream& routed) {
                       return MeasureRequests(run, direct, routed, size, wholeMessages);
                   });
        }
    }
    AddRow(table, simulator, router, UsualReadSize, [&](const Stream& direct, const Stream& routed) {
        return MeasureReplies(run, direct, routed, session);
    });
}

} // namespace bench
