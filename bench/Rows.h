// The groups of rows. Each measures, adds its rows, and throws std::runtime_error when what it measures does not
// run. Those that want a router register it and leave none. Portable.
#pragma once

#include "bench/Measure.h"
#include "bench/Table.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <span>

namespace bench {

using Bytes = std::vector<std::uint8_t>;
using Span = std::span<const std::uint8_t>;

/// A packet of port 3,1 around `payload`.
Bytes FrameOf(std::uint8_t number, const Bytes& payload);
/// As many packets of that length as fit into one read. Each has number 0, after which the next one's number is
/// not checked: the report of a gap is no part of parsing.
Bytes BlockOf(std::size_t frameLength);

/// Gets the payload of each packet that a parser finds.
using PacketWatch = std::function<void(Span payload)>;
/// Finds the packets in a block, a whole number of them.
using BlockParser = std::function<void(Span block, const PacketWatch& watch)>;

void AddDumpAndFramingRows(Table& table, const RunSize& run);
/// `name` tells whose parser it is.
void AddParsingRows(Table& table, const RunSize& run, const BlockParser& parse, const std::string& name);
void AddDispatchRows(Table& table, const RunSize& run);
void AddTraceRows(Table& table, const RunSize& run);
/// Lets `play` make `count` trace calls that are not enabled; together they count as one.
void TraceUnwanted(int count, const std::function<void(const std::function<double()>& calls)>& play);
void AddUsbRows(Table& table, const RunSize& run);
void AddStartRows(Table& table, const RunSize& run);
/// On a single processor, which the caller sees to, the Wine server's too.
void AddOneProcessorRoundTripRows(Table& table, const RunSize& run);
void AddRoundTripRows(Table& table, const RunSize& run);
void AddStreamRows(Table& table, const RunSize& run);
void AddScalingRows(Table& table, const RunSize& run);
/// Counts instead of timing: plays what is counted and says so in plan.tsv of the folder `results`; adds what was
/// found, from counted.tsv there.
void PlayCountedSections(const RunSize& run, const std::filesystem::path& results);
void AddCountedRows(Table& table, const std::filesystem::path& results);

} // namespace bench
