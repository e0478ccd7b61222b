// The portable rows, compiled for the machine itself: what the compiler and the C library make of them without
// Wine.
#include "bench/Rows.h"
#include "ports/packet/FrameReader.h"

#include <cstdio>
#include <cstring>
#include <exception>

int main(int count, char** arguments)
{
    bench::RunSize run;
    run.quick = count > 1 && std::strcmp(arguments[1], "--quick") == 0;
    bench::Table table;
    bench::AddDumpAndFramingRows(table, run);
    FrameReader reader; // the reply path's
    const auto parse = [&](bench::Span block, const bench::PacketWatch& watch) {
        reader.Append(block);
        reader.TakeFrames([&](const wire::Frame& frame) { watch(frame.payload); });
    };
    try {
        bench::AddParsingRows(table, run, parse, "parsing, native");
    } catch (const std::exception& fault) {
        std::fprintf(stderr, "bench_native: %s\n", fault.what());
        return 1;
    }
    return 0;
}
