// Everything of one run. Created for each, so that nothing of a run is left in the next.
#pragma once

#include "simulation/kernel/Fiber.h"
#include "simulation/kernel/Scheduler.h"
#include "simulation/kernel/Switches.h"

#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace sim {

struct Objects;   // handles
struct Requests;  // overlapped requests that are pending
struct PipeNames; // named pipes
struct Devices;   // the USB bus
struct Storage;   // the registry
struct Disk;      // files
struct Messages;  // to threads

struct World
{
    World();
    ~World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    Options options;
    Outcome outcome;
    Switches switches;
    std::uint64_t random = 0;
    std::uint64_t now = 0; // microseconds
    std::uint64_t nextDeadline = NeverUs;
    std::uint64_t switchOneIn = 4;   // the running fiber is left once in so many points
    std::uint64_t timeJumpOneIn = 0; // time passes although a thread could run, once in so many points
    std::uint64_t faultOneIn = 0;    // a call of the product fails once in so many
    bool mayJudge = true;
    std::uint64_t racesBefore = 0;

    std::vector<std::unique_ptr<Fiber>> fibers;
    std::vector<Fiber*> living;
    std::vector<Fiber*> candidates;
    Fiber* current = nullptr;

    Fiber* windows = nullptr; // performs what was deferred
    std::deque<std::function<void()>> deferred;

    std::deque<std::string> events; // the last ones, when they are kept

    std::unique_ptr<Objects> objects;
    std::unique_ptr<Requests> requests;
    std::unique_ptr<PipeNames> pipes;
    std::unique_ptr<Devices> devices;
    std::unique_ptr<Storage> storage;
    std::unique_ptr<Disk> disk;
    std::unique_ptr<Messages> messages;
};

World& TheWorld();

/// When a run begins.
inline constexpr std::uint64_t FirstUs = 1'000'000;
/// One line of the events, if anybody wants them.
void Tell(const char* what);

} // namespace sim
