// One-way streams: requests without waiting, and replies that come many to a block.
#include "bench/Ends.h"
#include "bench/Rows.h"

namespace bench {

namespace {

/// The sender of a stream. Raw: otherwise the library waits until the router has read a message before it writes
/// the next, so that nothing merges; these rows are about what is written without waiting.
class Sender
{
public:
    explicit Sender(const std::string& pipe) : m_client(pipe, MORVANE_RAW) {}

    /// Messages a second until the instrument, a sink of `size` * `count` bytes, has the last byte.
    double Rate(std::size_t size, std::size_t count)
    {
        const std::vector<std::uint8_t> message(size, 's');
        const Stopwatch watch;
        for (std::size_t i = 0; i < count; ++i) {
            m_client.Send(message);
        }
        const morvane::View answer = m_client.Receive();
        const double seconds = watch.Seconds();
        m_packets += std::stoull(std::string(answer.begin(), answer.end()));
        return static_cast<double>(count) / seconds;
    }

    /// In which the messages came, all together.
    double Packets() const noexcept { return static_cast<double>(m_packets); }

private:
    Client m_client;
    std::uint64_t m_packets = 0;
};

void AddRequestRow(Table& table, const RunSize& run, RouterSession& session, std::size_t size, bool wholeMessages)
{
    const std::size_t count = run.Times(5000);
    const std::size_t routedCount = wholeMessages ? count / 5 : count;
    const RoleProcess bareSink = BareInstrument({Mode::Sink, size * count});
    const RoleProcess sink = Simulator({Mode::Sink, size * routedCount});
    const RunningRouter router(session);
    const LONG readSize = wholeMessages ? static_cast<LONG>(size) : RunningRouter::UsualReadSize;
    Sender direct(bareSink.Pipe());
    Sender routed(router.RegisterPort(1, readSize));
    const auto [bare, path] = InTurn(
        run.Rounds(), [&] { return direct.Rate(size, count); }, [&] { return routed.Rate(size, routedCount); });
    const double messages = static_cast<double>(routedCount) * run.Rounds();
    std::string merged = std::to_string(messages / routed.Packets());
    merged.resize(merged.find('.') + 2);
    table.Add(
        {"requests without waiting, " + std::to_string(size) + " B" + (wholeMessages ? ", one packet each" : ""),
         "one-way stream on one pipe", path, bare, "msg/s", wholeMessages ? Told : AtLeast(0.5),
         merged + " messages to a packet"});
}

/// Messages a second from the request for them to the last one.
double ReplyRate(Client& client, std::size_t count)
{
    const std::vector<std::uint8_t> request(64, 'r');
    const Stopwatch watch;
    client.Send(request);
    for (std::size_t i = 0; i < count; ++i) {
        Demand(client.Receive().size() == FloodPayload, "a reply is cut");
    }
    return static_cast<double>(count) / watch.Seconds();
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

void AddReplyRow(Table& table, const RunSize& run, RouterSession& session)
{
    const std::size_t count = run.Times(5000);
    const std::size_t napsBefore = Naps(session);
    const RoleProcess bareSource = BareInstrument({Mode::Flood, FloodPayload * count});
    const RoleProcess source = Simulator({Mode::Flood, FloodPayload * count});
    const RunningRouter router(session);
    Client direct(bareSource.Pipe());
    Client routed(router.RegisterPort(1));
    const auto [bare, path] =
        InTurn(run.Rounds(), [&] { return ReplyRate(direct, count); }, [&] { return ReplyRate(routed, count); });
    table.Add({"replies to one client, 512 B, many to a block", "one-way stream on one pipe", path, bare, "msg/s",
               AtLeast(0.7), std::to_string(Naps(session) - napsBefore) + " sleeps of 100 ms in all rounds"});
}

} // namespace

void AddStreamRows(Table& table, const RunSize& run)
{
    RouterSession session(RouterSession::Transport::Simulation);
    RouterSession::SetMask(3, 0x00040000); // a port's life and its naps, into the log
    for (const bool wholeMessages : {false, true}) {
        for (const std::size_t size : {std::size_t{64}, std::size_t{1024}}) {
            AddRequestRow(table, run, session, size, wholeMessages);
        }
    }
    AddReplyRow(table, run, session);
}

} // namespace bench
