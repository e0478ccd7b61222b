// What happens in one run: drawn from its seed.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <vector>

namespace sim {

/// Of the instrument to port 2 of every device.
inline constexpr std::string_view BroadcastText = "all;";

enum class Path { SimulatorPipe, Usb };

/// How a client behaves.
enum class Manner {
    WellBehaved, // one request at a time
    Pipelining,  // several before it reads
    Greedy,      // writes far more than it reads for a while
    Silent,      // connects, writes, and does not read
    Dying        // leaves at any moment, its requests pending
};

struct ClientPlan
{
    Manner manner = Manner::WellBehaved;
    int requests = 0;          // that it wants answered
    int together = 1;          // written before the first answer is read
    int longest = 40;          // bytes of a request
    bool leaves = false;       // and comes back, now and then
    std::uint32_t pauseMs = 0; // between two requests, in which it waits for what comes
    bool hurries = false;      // it connects as soon as its pipe exists, which may not be listening yet
};

struct PortPlan
{
    std::uint8_t deviceType = 0, port = 0;
    int bufferSize = 4096;
    ClientPlan client;
};

struct Plan
{
    Path path = Path::SimulatorPipe;
    std::vector<PortPlan> ports;
    int pulls = 0;                     // of the cable, or of the simulator
    std::uint32_t pullEveryMs = 0;     // 0: at any moment
    std::uint32_t longestAwayMs = 300; // after a pull
    bool endsWithPulls = false;        // the last pull ends it, whatever the clients have
    bool leavesTogether = false;       // a client that leaves takes the instrument along
    bool changesTraces = false;
    bool stopsEarly = false; // the router ends while clients are at work
    bool foreignDevice = false;
    bool stalls = false; // the instrument takes nothing for a while
    /// The product is plugged in with one of its endpoints at first, or has endpoints that the router does not
    /// use.
    bool comesIncomplete = false, hasFurtherEndpoints = false;
    bool hasDeafPort = false;     // one without a read buffer
    bool hasOddName = false;      // the first port's pipe name has a byte below 0x20
    bool writesNothing = false;   // clients write empty messages, too
    bool sendsOtherBytes = false; // the instrument sends garbage, packets of another type and empty transfers, too
    std::uint32_t flushLimitMs = 0;

    // The instrument's answers.
    bool splits = false, merges = false, doubles = false, delays = false, broadcasts = false, skipsNumbers = false;

    /// A connection may end as soon as it has begun: a plug that bounces.
    bool Bounces() const { return path == Path::Usb && pulls == 3; }
    /// The router looks for its host programs.
    bool IsWatched() const { return HostsLeave() || endsWithPulls; }
    /// The router is no longer needed when the clients have their answers.
    bool HostsLeave() const { return path == Path::Usb && foreignDevice && skipsNumbers; }
    /// Some broadcasts have nothing in them.
    bool BroadcastsNothing() const { return broadcasts && doubles; }
    /// The instrument may leave when it has taken nothing for a while, so that a port keeps its last message.
    bool LeavesStalled() const { return stalls && pulls > 0; }
    /// The instrument answers nothing to the port, whose client closes its pipe after each message.
    bool StaysUnanswered(const PortPlan& port) const
    {
        return foreignDevice && !stopsEarly && port.client.manner == Manner::Dying;
    }
    /// A packet may be cut by the end of a connection. By design the router completes it with what the next one
    /// brings.
    bool MayCut() const { return (splits || merges) && (pulls > 0 || leavesTogether); }
    /// Nothing in it excuses an answer that comes by a timeout only.
    bool IsSmooth() const
    {
        return !leavesTogether && !stopsEarly && !delays && !merges && !stalls &&
               !std::ranges::any_of(ports, [this](const PortPlan& port) { return StaysUnanswered(port); });
    }
};

/// `requests`: at least so many in all; 0: drawn.
Plan DrawPlan(int requests);
/// Two clients, one of which leaves and comes back, a pulled cable, a broadcast: a little of everything.
Plan ScriptedPlan(Path path);
/// Two clients that ask now and then, and a cable that is pulled again and again.
Plan UnpluggingPlan(int pulls, std::uint32_t everyMs);

} // namespace sim
