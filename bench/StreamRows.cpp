// One-way streams: requests without waiting, and replies that come many to a block.
#include "bench/DataPath.h"
#include "bench/Rows.h"

#include <stdexcept>

namespace bench {

namespace {

constexpr std::size_t FloodMessage = 512;

/// Messages a second until the last byte is with the instrument.
double StreamRate(PipeEnd& client, const Instrument& instrument, std::size_t size, std::size_t count)
{
    const std::vector<std::uint8_t> message(size, 's');
    instrument.Set(Mode::Sink, size * count);
    const Stopwatch watch;
    for (std::size_t i = 0; i < count; ++i) {
        if (!client.Write(message)) {
            throw std::runtime_error("the stream's pipe broke");
        }
    }
    instrument.AwaitGoal();
    return static_cast<double>(count) / watch.Seconds();
}

void AddRequestRow(Table& table, const RunSize& run, const Instrument& simulator, RunningRouter& router,
                   std::size_t size, bool wholeMessages)
{
    DirectPath direct;
    const std::size_t count = run.Times(5000);
    const auto routed = router.OpenPort(3, 1, wholeMessages ? static_cast<LONG>(size) : UsualReadSize);
    std::uint64_t packets = 0;
    std::uint64_t messages = 0;
    const auto [bare, path] = InTurn(
        run.Rounds(), [&] { return StreamRate(direct.Client(), direct.TheInstrument(), size, count); },
        [&] {
            simulator.Record().packets = 0;
            const double rate = StreamRate(*routed, simulator, size, wholeMessages ? count / 5 : count);
            packets += simulator.Record().packets;
            messages += wholeMessages ? count / 5 : count;
            return rate;
        });
    simulator.Set(Mode::Echo);
    routed->Close();
    router.Unregister(3, 1);
    const double merged = packets != 0 ? static_cast<double>(messages) / static_cast<double>(packets) : 0;
    std::string note = std::to_string(merged);
    note.resize(note.find('.') + 2);
    table.Add(
        {"requests without waiting, " + std::to_string(size) + " B" + (wholeMessages ? ", one packet each" : ""),
         "one-way stream on one pipe",
         {path, "msg/s"},
         Quantity{bare, "msg/s"},
         wholeMessages ? Bound::None : Bound::AtLeast,
         0.5,
         note + " messages to a packet"});
}

/// Messages a second from the request for them to the last one.
double FloodRate(PipeEnd& client, const Instrument& instrument, std::size_t count)
{
    const std::vector<std::uint8_t> request(64, 'r');
    instrument.Set(Mode::Flood, FloodMessage * count);
    const Stopwatch watch;
    if (!client.Write(request) || !client.ReadExactly(FloodMessage * count)) {
        throw std::runtime_error("the replies' pipe broke");
    }
    return static_cast<double>(count) / watch.Seconds();
}

/// How often a port has slept its 100 ms because its last write was not through, by its own trace.
std::size_t Naps(const RouterSession& session)
{
    const std::string log = session.Log();
    std::size_t naps = 0;
    for (std::size_t at = log.find("Write permission denied"); at != std::string::npos;
         at = log.find("Write permission denied", at + 1))
    {
        ++naps;
    }
    return naps;
}

void AddReplyRow(Table& table, const RunSize& run, const Instrument& simulator, RunningRouter& router)
{
    DirectPath direct;
    const std::size_t count = run.Times(5000);
    const auto routed = router.OpenPort(3, 1);
    const auto [bare, path] = InTurn(
        run.Rounds(), [&] { return FloodRate(direct.Client(), direct.TheInstrument(), count); },
        [&] { return FloodRate(*routed, simulator, count); });
    simulator.Set(Mode::Echo);
    routed->Close();
    router.Unregister(3, 1);
    table.Add({"replies to one client, 512 B, many to a block",
               "one-way stream on one pipe",
               {path, "msg/s"},
               Quantity{bare, "msg/s"},
               Bound::AtLeast,
               0.5,
               std::to_string(Naps(router.Session())) + " sleeps of 100 ms in all rounds"});
}

} // namespace

void AddStreamRows(Table& table, const RunSize& run, RouterSession& session)
{
    const Instrument simulator(SimulatorPipe, true);
    RouterSession::SetMask(3, 0x00040000); // a port's life and its naps, into the log
    RunningRouter router(session);
    for (const bool wholeMessages : {false, true}) {
        for (const std::size_t size : {std::size_t{64}, std::size_t{1024}}) {
            AddRequestRow(table, run, simulator, router, size, wholeMessages);
        }
    }
    AddReplyRow(table, run, simulator, router);
}

} // namespace bench
