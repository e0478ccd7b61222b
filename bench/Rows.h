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
/// The parser of the product, which is the transport's dispatch.
void AddDispatchRows(Table& table, const RunSize& run);
void AddTraceRows(Table& table, const RunSize& run);
void AddUsbRows(Table& table, const RunSize& run);
void AddStartRows(Table& table, const RunSize& run);
/// On a single processor, which the caller sees to, the Wine server's too.
void AddOneProcessorRoundTripRows(Table& table, const RunSize& run);
void AddRoundTripRows(Table& table, const RunSize& run);
void AddStreamRows(Table& table, const RunSize& run);
void AddScalingRows(Table& table, const RunSize& run);
/// Counts instead of timing, from what the Wine server logs into `serverLog`; from here on everything is slow. The
/// idle router too: what it takes of a processor is not the server's.
/// `calls` gets the list of calls, thread by thread.
void AddCountedRows(Table& table, const RunSize& run, const std::filesystem::path& serverLog,
                    const std::filesystem::path& calls);

} // namespace bench
