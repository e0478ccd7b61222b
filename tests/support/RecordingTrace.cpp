#include "tests/support/RecordingTrace.h"

#include "host/Trace.h"

#include <algorithm>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <mutex>

namespace support {

namespace {

struct Record
{
    std::mutex lock;
    std::condition_variable changed;
    // Guarded by `lock`.
    std::vector<TraceLine> lines;
    bool dumpsWanted = false;
    std::function<void(const std::string&)> hook;
};

// Never destroyed: threads of the code under test may trace while the process ends.
Record& TheRecord()
{
    static auto* const record = new Record;
    return *record;
}

std::size_t CountIn(const std::vector<TraceLine>& lines, std::string_view part)
{
    return static_cast<std::size_t>(std::ranges::count_if(
        lines, [part](const TraceLine& line) { return line.text.find(part) != std::string::npos; }));
}

} // namespace

void RecordingTrace::Clear()
{
    const std::lock_guard guard(TheRecord().lock);
    TheRecord().lines.clear();
    TheRecord().dumpsWanted = false;
    TheRecord().hook = nullptr;
}

std::vector<TraceLine> RecordingTrace::Lines()
{
    const std::lock_guard guard(TheRecord().lock);
    return TheRecord().lines;
}

std::vector<std::string> RecordingTrace::Texts()
{
    const std::lock_guard guard(TheRecord().lock);
    std::vector<std::string> texts;
    for (const TraceLine& line : TheRecord().lines) {
        texts.push_back(line.text);
    }
    return texts;
}

std::size_t RecordingTrace::Count(std::string_view part)
{
    const std::lock_guard guard(TheRecord().lock);
    return CountIn(TheRecord().lines, part);
}

bool RecordingTrace::WaitForLine(std::string_view part, std::chrono::milliseconds patience, std::size_t times)
{
    std::unique_lock guard(TheRecord().lock);
    return TheRecord().changed.wait_for(guard, patience,
                                        [&] { return CountIn(TheRecord().lines, part) >= times; });
}

void RecordingTrace::WantDumps(bool wanted)
{
    const std::lock_guard guard(TheRecord().lock);
    TheRecord().dumpsWanted = wanted;
}

void RecordingTrace::OnLine(std::function<void(const std::string&)> hook)
{
    const std::lock_guard guard(TheRecord().lock);
    TheRecord().hook = std::move(hook);
}

} // namespace support

void Trace(std::int32_t device, std::uint32_t classMask, const char* format, ...) noexcept
{
    char text[2056];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);

    support::Record& record = support::TheRecord();
    std::function<void(const std::string&)> hook;
    {
        const std::lock_guard guard(record.lock);
        record.lines.push_back({device, classMask, text});
        hook = record.hook;
    }
    record.changed.notify_all();
    if (hook) {
        hook(text);
    }
}

bool DumpPacket(std::int32_t, std::uint32_t, const std::uint8_t* data, std::uint32_t length, bool hexOnly,
                std::string& out) noexcept
{
    {
        const std::lock_guard guard(support::TheRecord().lock);
        if (!support::TheRecord().dumpsWanted) {
            return false;
        }
    }
    out = hexOnly ? "hex" : "text";
    for (std::uint32_t index = 0; index < length; ++index) {
        char pair[4];
        std::snprintf(pair, sizeof pair, " %02X", static_cast<unsigned>(data[index]));
        out += pair;
    }
    return true;
}
