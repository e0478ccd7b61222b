// The scheduler below the stand-in's calls: fibers, one at a time, a choice drawn from the seed at each call, and
// a clock that moves only when the scheduler moves it.
#pragma once

#include "simulation/kernel/Fiber.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace sim {

enum class FaultLevel { None, Some, All };

/// One call of the product is to fail, counted from 1 over the calls that can: for the run in which each fails
/// once.
struct Injection
{
    std::uint64_t call = 0; // 0: none
    unsigned error = 0;     // which of its documented errors
};

/// A call of the product that can fail, as a run met it.
struct CallMet
{
    const char* name;
    unsigned errors; // that are documented for it
};

struct Options
{
    std::uint64_t seed = 1;
    FaultLevel faults = FaultLevel::Some;
    Injection injection;
    bool isCalm = false;      // no switch of Windows but the usual way, no time jump: a run to compare others with
    bool countsMemory = true; // what is left at the end is a fault; not where statics may keep something
    bool prints = false;      // every event to standard output
    bool keepsEvents = false; // the last ones, for a report
    int stackFill = 0;        // byte that fresh stacks and memory hold; 0: whatever was there
    int requests = 0;         // for the scenario; 0: drawn
    bool keepsCalls = false;  // those that can fail, for the outcome
    int hours = 1;            // of virtual time at most
};

struct Outcome
{
    std::string fault; // empty: none
    std::uint64_t hash = 0, points = 0, switches = 0, idleUs = 0, virtualUs = 0;
    std::uint64_t productCalls = 0; // that could fail
    std::uint64_t injectedFaults = 0;
    std::string injectedInto; // the last call that was made to fail
    std::size_t fibers = 0;
    std::vector<std::string> lastEvents;
    std::vector<CallMet> calls;                // when they are kept
    std::vector<std::uint32_t> replugAnswerUs; // from each plugging to the first answer of each client
    std::size_t OwnBlocks() const;             // of memory, in this object
    std::uint64_t requests = 0;                // answered; the scenario's own count
};

/// An exception that is not caught ends the run with a fault, not the process. Once a process.
void MakeUncaughtExceptionsFaults() noexcept;

/// Runs `main` as fiber 0 until it and all threads that it started have ended, or a rule was violated.
Outcome Run(const Options& options, const std::function<void()>& main);

// All below belong to the run in hand.

/// Ends the run: a rule was violated. Does not return.
[[noreturn]] void Fault(const std::string& rule);
/// A place at which another fiber may go on.
void Point(const char* what);
/// Into the hash, and out when the run prints.
void Note(const char* text);
void HashWord(std::uint64_t word);

std::uint64_t Random(std::uint64_t below);
bool OneIn(std::uint64_t n); // 0: never
std::uint64_t NowUs();
std::uint64_t IdleUs(); // how much time had to pass since all waited
const Options& TheOptions();
Outcome& TheOutcome();
bool IsRunning(); // false outside a run: static constructors, the command line
Fiber& Current();
bool MayLatencyBeJudged(); // the clock jumps only when all wait, and no fault is injected
void ForbidJudgement();
bool MayFaultsStrike(); // injected ones: what the product then drops is not accounted for

// For the objects.

/// Blocks the running fiber until Wake or until the time has passed (WAIT_TIMEOUT).
DWORD Block(std::uint64_t microseconds, const void* on);
void Wake(Fiber& fiber, DWORD result);
/// The fibers blocked on `what`, beginning with any; `visit` returns whether to go on.
void ForBlocked(const void* what, const std::function<bool(Fiber&)>& visit);
Fiber& StartFiber(std::function<void()> body);
/// Something that Windows does by itself, when the scheduler comes to it.
void Defer(std::function<void()> work);

/// A tick of Windows' clock.
inline constexpr std::uint64_t TickUs = 15'625;

} // namespace sim
