// What a fuzz target is: a function that takes any bytes and ends the program when a promise is broken.
#pragma once

#include <cstddef>
#include <cstdint>
#include <source_location>
#include <span>
#include <string_view>

namespace fuzz {

/// The bytes of one run, in an allocation of exactly their size, so that the sanitizers see a read beyond them.
using Input = std::span<const std::uint8_t>;

struct Target
{
    std::string_view name; // also of its folder in tests/fuzz/corpus
    void (*run)(Input);
};

/// All targets, in the order in which they are run.
std::span<const Target> Targets() noexcept;
/// Null when there is none of that name.
const Target* FindTarget(std::string_view name) noexcept;

/// Ends the program with the broken promise and its place unless `holds`.
void Check(bool holds, const char* promise, const std::source_location& where = std::source_location::current());

// The targets.
void Frames(Input input);
void Descriptors(Input input);
void Firmware(Input input);
void PacketText(Input input);
void Registration(Input input);
void InstrumentScript(Input input);
void InstrumentEngine(Input input);
void RouterLog(Input input);

} // namespace fuzz
