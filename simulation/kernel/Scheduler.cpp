#include "simulation/kernel/Scheduler.h"

#include "simulation/kernel/Memory.h"
#include "simulation/kernel/Objects.h"
#include "simulation/kernel/World.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

namespace sim {

namespace {

// For each hour of virtual time that a run may take. A run as it is usually drawn ends within seconds.
constexpr std::uint64_t PointLimit = 4'000'000;
constexpr std::uint64_t TimeLimitUs = 3'600'000'000;
constexpr std::uint64_t LongestJumpUs = 200'000;

constexpr const char* DataRace = "ThreadSanitizer reports a data race, above";

World* g_world = nullptr;

void Reschedule(bool mayGoOn);

void ReportHang(const char* what)
{
    std::string text = what;
    for (const Fiber* const fiber : g_world->living) {
        text += "; thread " + std::to_string(fiber->id) + " in " + fiber->lastCall;
    }
    Fault(text);
}

void FireTimers()
{
    World& world = *g_world;
    if (world.now < world.nextDeadline) {
        return;
    }
    world.nextDeadline = NeverUs;
    for (Fiber* const fiber : world.living) {
        if (fiber->state != Fiber::State::Blocked) {
            continue;
        }
        if (fiber->deadline <= world.now) {
            Wake(*fiber, WAIT_TIMEOUT);
        } else {
            world.nextDeadline = std::min(world.nextDeadline, fiber->deadline);
        }
    }
}

// To the next deadline, unless that is further away than `atMost`.
bool JumpTime(std::uint64_t atMost)
{
    World& world = *g_world;
    std::uint64_t next = NeverUs;
    for (const Fiber* const fiber : world.living) {
        if (fiber->state == Fiber::State::Blocked) {
            next = std::min(next, fiber->deadline);
        }
    }
    if (next == NeverUs || (next > world.now && next - world.now > atMost)) {
        return false;
    }
    world.now = std::max(world.now, next);
    world.nextDeadline = 0;
    FireTimers();
    return true;
}

void CollectCandidates()
{
    World& world = *g_world;
    world.candidates.clear();
    for (Fiber* const fiber : world.living) {
        if (fiber->state == Fiber::State::Runnable) {
            world.candidates.push_back(fiber);
        }
    }
}

Fiber* NextFiber(bool mayGoOn)
{
    World& world = *g_world;
    if (mayGoOn && !OneIn(world.switchOneIn)) {
        return world.current;
    }
    CollectCandidates();
    while (world.candidates.empty()) {
        const bool onlyWindows = world.living.size() == 1 && world.windows != nullptr;
        if (onlyWindows || world.living.empty()) {
            return nullptr; // all have ended
        }
        const std::uint64_t before = world.now;
        if (!JumpTime(NeverUs)) {
            ReportHang("everybody waits for ever");
        }
        world.outcome.idleUs += world.now - before;
        CollectCandidates();
    }
    return world.candidates[Random(world.candidates.size())];
}

void Reschedule(bool mayGoOn)
{
    World& world = *g_world;
    const auto hours = static_cast<std::uint64_t>(world.options.hours);
    if (++world.outcome.points > PointLimit * hours) {
        ReportHang("no end after millions of points");
    }
    if (world.now > TimeLimitUs * hours) {
        ReportHang("no end after hours");
    }
    world.now += Random(4);
    FireTimers();
    if (OneIn(world.timeJumpOneIn)) {
        JumpTime(LongestJumpUs);
    }
    Fiber* const next = NextFiber(mayGoOn);
    if (next == world.current) {
        return;
    }
    ++world.outcome.switches;
    if (next != nullptr) {
        HashWord(static_cast<std::uint64_t>(next->id) << 32 | world.outcome.points);
    }
    Fiber* const from = world.current;
    world.current = next;
    SwitchContext(from, next);
}

void FiberMain()
{
    Fiber& self = Current();
    self.isWatched = self.isProduct;
    Acquired(self, &self);
    if (!self.isWatched) {
        BeginUnwatched(self);
    }
    self.body();
    BeginUnwatched(self);
    ++self.inKernel;
    self.body = nullptr;
    EndThread(self);
    self.state = Fiber::State::Done;
    std::erase(g_world->living, &self);
    StackIsFree(self);
    Reschedule(false);
    std::abort();
}

// One fiber does all that Windows does by itself.
void WindowsMain()
{
    World& world = *g_world;
    Fiber& self = Current();
    ++self.inKernel;
    for (;;) {
        while (world.deferred.empty()) {
            self.lastCall = "Windows";
            EndUnwatched(self); // the run may end here, and no fiber may end unwatched
            Block(NeverUs, &world.deferred);
            BeginUnwatched(self);
        }
        const std::function<void()> work = std::move(world.deferred.front());
        world.deferred.pop_front();
        work();
        Point("Windows");
    }
}

void DrawManners(World& world)
{
    const Options& options = world.options;
    world.random = options.seed * 0x2545F4914F6CDD1DULL + 0x1234567;
    constexpr std::array<std::uint64_t, 6> rates = {1, 2, 4, 8, 16, 64};
    constexpr std::array<std::uint64_t, 6> jumps = {0, 0, 0, 1000, 300, 60};
    constexpr std::array<std::uint64_t, 4> someFaults = {0, 0, 4000, 600};
    constexpr std::array<std::uint64_t, 4> allFaults = {1000, 300, 100, 40};
    world.switchOneIn = rates[Random(rates.size())];
    const std::uint64_t jump = jumps[Random(jumps.size())];
    const std::size_t fault = Random(someFaults.size());
    world.switches.Draw();
    if (options.isCalm) {
        world.switches = Switches();
    } else {
        world.timeJumpOneIn = jump;
    }
    world.faultOneIn = options.faults == FaultLevel::None ? 0
                     : options.faults == FaultLevel::Some ? someFaults[fault]
                                                          : allFaults[fault];
    world.mayJudge = world.timeJumpOneIn == 0 && world.faultOneIn == 0 && options.injection.call == 0;
}

void EndRun(World& world)
{
    Outcome& outcome = world.outcome;
    outcome.virtualUs = world.now - FirstUs;
    outcome.fibers = world.fibers.size();
    outcome.lastEvents.assign(world.events.begin(), world.events.end());
    const bool isWhole = outcome.fault.empty();
    for (const auto& fiber : world.fibers) {
        ReleaseContext(*fiber, isWhole);
    }
}

} // namespace

World& TheWorld()
{
    return *g_world;
}

bool IsRunning()
{
    return g_world != nullptr && g_world->current != nullptr;
}

Fiber& Current()
{
    return *g_world->current;
}

const Options& TheOptions()
{
    return g_world->options;
}

Outcome& TheOutcome()
{
    return g_world->outcome;
}

std::uint64_t NowUs()
{
    return g_world->now;
}

std::uint64_t IdleUs()
{
    return g_world->outcome.idleUs;
}

bool MayLatencyBeJudged()
{
    return g_world->mayJudge;
}

void ForbidJudgement()
{
    g_world->mayJudge = false;
}

bool MayFaultsStrike()
{
    return g_world->faultOneIn != 0 || g_world->options.injection.call != 0;
}

void Point(const char* what)
{
    if (!IsRunning()) {
        return;
    }
    if (RacesReported() != g_world->racesBefore) {
        Fault(DataRace);
    }
    Current().lastCall = what;
    Tell(what);
    Reschedule(true);
}

DWORD Block(std::uint64_t microseconds, const void* on)
{
    World& world = *g_world;
    Fiber& self = *world.current;
    self.state = Fiber::State::Blocked;
    self.blockedOn = on;
    self.deadline = microseconds == NeverUs ? NeverUs : world.now + microseconds;
    world.nextDeadline = std::min(world.nextDeadline, self.deadline);
    self.result = WAIT_OBJECT_0;
    Reschedule(false);
    return self.result;
}

void Wake(Fiber& fiber, DWORD result)
{
    fiber.state = Fiber::State::Runnable;
    fiber.result = result;
    fiber.deadline = NeverUs;
    fiber.blockedOn = nullptr; // woken once is woken: the next wake is another's
}

void ForBlocked(const void* what, const std::function<bool(Fiber&)>& visit)
{
    const std::vector<Fiber*>& living = g_world->living;
    const std::size_t count = living.size();
    std::size_t at = Random(count);
    for (std::size_t i = 0; i < count; ++i, at = at + 1 < count ? at + 1 : 0) {
        Fiber& fiber = *living[at];
        if (fiber.state == Fiber::State::Blocked && fiber.blockedOn == what && !visit(fiber)) {
            return;
        }
    }
}

Fiber& StartFiber(std::function<void()> body)
{
    World& world = *g_world;
    world.fibers.push_back(std::make_unique<Fiber>());
    Fiber& fiber = *world.fibers.back();
    fiber.id = static_cast<int>(world.fibers.size()) - 1;
    fiber.body = std::move(body);
    fiber.isProduct = world.current != nullptr && world.current->isProduct;
    PrepareContext(fiber, FiberMain, world.options.stackFill);
    if (world.current != nullptr) {
        Released(*world.current, &fiber);
    }
    world.living.push_back(&fiber);
    return fiber;
}

void Defer(std::function<void()> work)
{
    World& world = *g_world;
    if (world.windows == nullptr) {
        world.windows = &StartFiber(WindowsMain);
        world.windows->isProduct = false;
    }
    world.deferred.push_back(std::move(work));
    if (world.windows->state == Fiber::State::Blocked) {
        Wake(*world.windows, WAIT_OBJECT_0);
    }
}

void Fault(const std::string& rule)
{
    g_world->outcome.fault = rule;
    Tell(("VIOLATED: " + rule).c_str());
    // The fibers are left as they stand: thread bodies are noexcept, so nothing can unwind them.
    Fiber* const from = g_world->current;
    g_world->current = nullptr;
    SwitchContext(from, nullptr);
    std::abort();
}

void MakeUncaughtExceptionsFaults() noexcept
{
    std::set_terminate([] {
        if (IsRunning()) {
            Fault("the process ends by an exception that is not caught");
        }
        std::abort();
    });
}

// By design what a driver keeps is never freed.
static std::uint64_t KeptRequests()
{
    const auto taken = [](Switch which) { return Switches::Total()[static_cast<std::size_t>(which)].yes; };
    return taken(Switch::DeviceKeepsRequest) + taken(Switch::DeviceKeepsControl);
}

Outcome Run(const Options& options, const std::function<void()>& main)
{
    const std::size_t blocksBefore = BlocksInUse();
    const std::uint64_t keptBefore = KeptRequests();
    auto world = std::make_unique<World>();
    g_world = world.get();
    world->options = options;
    world->now = FirstUs;
    world->racesBefore = RacesReported();
    DrawManners(*world);
    BeginContexts();
    Fiber& first = StartFiber(main);
    world->current = &first;
    SwitchContext(nullptr, &first);
    EndRun(*world);
    if (world->outcome.fault.empty() && RacesReported() != world->racesBefore) {
        world->outcome.fault = DataRace;
    }
    Outcome outcome = world->outcome;
    if (!outcome.fault.empty()) {
        static_cast<void>(world.release()); // a faulty run is left as it stands
    } else {
        outcome.fault = WhatIsLeftOpen(*world);
    }
    g_world = nullptr;
    world.reset();
    EndContexts();
    static bool isWarm = false; // what is made once in a process is made in its first run
    const bool mayLeak = KeptRequests() != keptBefore;
    if (options.countsMemory && isWarm && !mayLeak && outcome.fault.empty() &&
        BlocksInUse() != blocksBefore + outcome.OwnBlocks())
    {
        outcome.fault = "blocks of memory that are left: " + std::to_string(BlocksInUse() - blocksBefore);
    }
    isWarm = true;
    return outcome;
}

} // namespace sim
