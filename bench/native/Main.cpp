// The portable rows, compiled for the machine itself: what the compiler and the C library make of them without
// Wine.
#include "bench/WireRows.h"
#include "ports/packet/ReceiveBuffer.h"
#include "ports/packet/WireFormat.h"

#include <cstdio>
#include <cstring>
#include <exception>

namespace {

/// Drops what stands before a sync pair; false when there is none.
bool Sync(ReceiveBuffer& buffer)
{
    const auto at = wire::FindSync(buffer.Bytes());
    buffer.Consume(at.value_or(buffer.Size()));
    return at.has_value();
}

/// The reply path's loop over the same two portable parts.
void Parse(ReceiveBuffer& buffer, bench::Span block, const bench::PacketWatch& watch)
{
    buffer.Append(block);
    while (buffer.Size() >= wire::LeastToLookAt && Sync(buffer)) {
        const auto frame = wire::ParseFrame(buffer.Bytes());
        if (!frame) {
            return;
        }
        watch(frame->payload);
        buffer.Consume(frame->Length());
        Sync(buffer);
    }
}

} // namespace

int main(int count, char** arguments)
{
    bench::RunSize run;
    run.quick = count > 1 && std::strcmp(arguments[1], "--quick") == 0;
    bench::Table table;
    table.announce = [](const std::string& line) { std::puts(line.c_str()); };
    std::puts(bench::Table::Head().c_str());
    bench::AddDumpAndFramingRows(table, run);
    ReceiveBuffer buffer;
    const auto parse = [&](bench::Span block, const bench::PacketWatch& watch) { Parse(buffer, block, watch); };
    try {
        bench::AddParsingRows(table, run, parse, "parsing, native");
    } catch (const std::exception& fault) {
        std::fprintf(stderr, "bench_native: %s\n", fault.what());
        return 1;
    }
    return 0;
}
