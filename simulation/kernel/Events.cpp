// What a run draws, and its results: its hash and its last events.
#include "simulation/kernel/Scheduler.h"
#include "simulation/kernel/World.h"

#include <algorithm>
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
    // The upper half of the product: without the division, and even.
    return static_cast<std::uint64_t>(static_cast<unsigned __int128>(z ^ (z >> 31)) * below >> 64);
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
    HashWord(length);
    for (std::size_t at = 0; at < length; at += sizeof(std::uint64_t)) {
        std::uint64_t word = 0;
        std::memcpy(&word, text + at, std::min(length - at, sizeof word));
        HashWord(word);
    }
    Tell(text);
}

} // namespace sim
