// What a run draws, and its results: its hash and its last events.
#include "simulation/kernel/Scheduler.h"
#include "simulation/kernel/World.h"

#include <cstdio>
#include <cstring>

namespace sim {

namespace {

constexpr std::size_t KeptEvents = 60;

} // namespace

void Tell(const char* what)
{
    World& world = TheWorld();
    if (!world.options.prints && !world.options.keepsEvents) {
        return;
    }
    char line[240];
    std::snprintf(line, sizeof line, "%10.3f ms  thread %2d  %s", static_cast<double>(world.now - FirstUs) / 1000,
                  Current().id, what);
    if (world.options.prints) {
        std::puts(line);
    } else {
        world.events.emplace_back(line);
        if (world.events.size() > KeptEvents) {
            world.events.pop_front();
        }
    }
}

std::uint64_t Random(std::uint64_t below)
{
    std::uint64_t z = (TheWorld().random += 0x9E3779B97F4A7C15ULL);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return (z ^ (z >> 31)) % below;
}

bool OneIn(std::uint64_t n)
{
    return n != 0 && Random(n) == 0;
}

void HashWord(std::uint64_t word)
{
    TheWorld().outcome.hash = (TheWorld().outcome.hash ^ word) * 0x9E3779B97F4A7C15ULL + 1;
}

void Note(const char* text)
{
    const std::size_t length = std::strlen(text);
    std::uint64_t hash = length;
    for (std::size_t i = 0; i < length; ++i) {
        hash = (hash ^ static_cast<unsigned char>(text[i])) * 0x100000001B3ULL;
    }
    HashWord(hash);
    Tell(text);
}

} // namespace sim
