// A trace sink for tests: keeps the lines. Installed in each test program that links it.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace support {

struct TraceLine
{
    std::int32_t device;
    std::uint32_t classMask;
    std::string text;
};

/// One record for the whole process, as the trace call is one. Any thread may call any member.
class RecordingTrace
{
public:
    RecordingTrace() = delete;

    /// Forgets all lines and switches dumps off; for the start of a test.
    static void Clear();

    /// All lines since `Clear`, in the order of the calls.
    static std::vector<TraceLine> Lines();

    /// Only their texts.
    static std::vector<std::string> Texts();

    /// How many lines have `part` in their text.
    static std::size_t Count(std::string_view part);

    /// Waits until at least `times` lines have `part` in their text; false when `timeout` is over first.
    static bool WaitForLine(std::string_view part,
                            std::chrono::milliseconds timeout = std::chrono::milliseconds(20'000),
                            std::size_t times = 1);

    /// Whether `DumpPacket` says from now on that dumps are wanted. It then renders "hex 01 02" or "text 01 02",
    /// by the kind that was asked for.
    static void WantDumps(bool wanted);

    /// Calls `hook` on the tracing thread for every line, after it was recorded: a test can act at exactly that
    /// point of the code under test. `Clear` takes it away.
    static void OnLine(std::function<void(const std::string&)> hook);
};

} // namespace support
