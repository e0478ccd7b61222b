// The portable rows, compiled for the machine itself: what the compiler and the C library make of them without
// Wine.
#include "bench/WireRows.h"
#include "ports/packet/ReceiveBuffer.h"
#include "ports/packet/WireFormat.h"

#include <cstdio>
#include <cstring>
#include <exception>

namespace {

/// The reply path's loop over the same two portable parts.
class WireParser final : public bench::BlockParser
{
public:
    void Parse(std::span<const std::uint8_t> block, bench::PacketWatch& watch) override
    {
        m_buffer.Append(block);
        while (m_buffer.Size() >= wire::LeastToLookAt && Sync()) {
            const auto frame = wire::ParseFrame(m_buffer.Bytes());
            if (!frame) {
                return;
            }
            watch.OnPacket(frame->payload);
            m_buffer.Consume(frame->Length());
            Sync();
        }
    }

private:
    bool Sync()
    {
        const auto at = wire::FindSync(m_buffer.Bytes());
        m_buffer.Consume(at.value_or(m_buffer.Size()));
        return at.has_value();
    }

    ReceiveBuffer m_buffer;
};

} // namespace

int main(int count, char** arguments)
{
    bench::RunSize run;
    run.quick = count > 1 && std::strcmp(arguments[1], "--quick") == 0;
    bench::Table table;
    table.announce = [](const std::string& line) { std::puts(line.c_str()); };
    std::puts(bench::Table::Head().c_str());
    bench::AddDumpAndFramingRows(table, run);
    WireParser parser;
    try {
        bench::AddParsingRows(table, run, parser, "parsing, native");
    } catch (const std::exception& fault) {
        std::fprintf(stderr, "bench_native: %s\n", fault.what());
        return 1;
    }
    return 0;
}
