// The groups of rows. Each measures, adds its rows, and throws std::runtime_error when what it measures does not
// run.
#pragma once

#include "bench/Measure.h"
#include "bench/Table.h"

#include <filesystem>

class RouterSession;

namespace bench {

/// The parser of the product, which is the transport's dispatch.
void AddDispatchRows(Table& table, const RunSize& run);

void AddTraceRows(Table& table, const RunSize& run);

/// These want a registered router in simulation mode that does not run, and leave none.
void AddStartRows(Table& table, const RunSize& run, RouterSession& session);
/// On a single processor, which the caller sees to, the Wine server's too.
void AddOneProcessorRoundTripRows(Table& table, const RunSize& run, RouterSession& session);
void AddRoundTripRows(Table& table, const RunSize& run, RouterSession& session);
void AddStreamRows(Table& table, const RunSize& run, RouterSession& session);
void AddScalingRows(Table& table, const RunSize& run, RouterSession& session);

/// The same in USB mode.
void AddUsbRows(Table& table, const RunSize& run, RouterSession& session);

/// Counts instead of timing, from what the Wine server logs into `serverLog`; from here on everything is slow. The
/// idle router too: what it takes of a processor is not the server's.
/// `calls` gets the list of calls, thread by thread. Wants a router as AddRoundTripRows does.
void AddCountedRows(Table& table, const RunSize& run, RouterSession& session,
                    const std::filesystem::path& serverLog, const std::filesystem::path& calls);

} // namespace bench
