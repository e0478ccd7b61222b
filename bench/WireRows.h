// Rows about bytes alone: packet text, framing, parsing. Portable.
#pragma once

#include "bench/Measure.h"
#include "bench/Table.h"

#include <cstdint>
#include <span>

namespace bench {

/// Told of each packet that a parser finds.
class PacketWatch
{
public:
    virtual ~PacketWatch() = default;
    virtual void OnPacket(std::span<const std::uint8_t> payload) = 0;
};

/// Finds the packets in received bytes.
class BlockParser
{
public:
    virtual ~BlockParser() = default;
    /// A whole number of packets; each is shown to `watch`.
    virtual void Parse(std::span<const std::uint8_t> block, PacketWatch& watch) = 0;
};

void AddDumpAndFramingRows(Table& table, const RunSize& run);

/// `name` tells whose parser it is.
void AddParsingRows(Table& table, const RunSize& run, BlockParser& parser, const std::string& name);

} // namespace bench
