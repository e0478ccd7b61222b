#include "tests/support/RecordingTrace.h"

#include "tests/support/WaitUntil.h"
#include "trace/TraceSink.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <mutex>

namespace support {

namespace {

struct Record
{
    std::mutex lock;
    // Guarded by `lock`.
    std::vector<TraceLine> lines;
    bool dumpsWanted = false;
    std::function<void(const std::string&)> hook;
};

class RecordingSink final : public ITraceSink
{
public:
    std::uint32_t EffectiveMask(std::int32_t, std::uint32_t classMask) const noexcept override
    {
        return classMask;
    }

    void Write(std::int32_t device, std::uint32_t classMask, const char* format,
               std::va_list arguments) noexcept override
    {
        char text[2056];
        std::vsnprintf(text, sizeof text, format, arguments);
        std::function<void(const std::string&)> hook;
        {
            const std::lock_guard guard(m_record.lock);
            m_record.lines.push_back({device, classMask, text});
            hook = m_record.hook;
        }
        if (hook) {
            hook(text);
        }
    }

    bool Dump(std::int32_t, std::uint32_t, const std::uint8_t* data, std::uint32_t length, bool hexOnly,
              std::string& out) override
    {
        {
            const std::lock_guard guard(m_record.lock);
            if (!m_record.dumpsWanted) {
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

    Record& TheRecord() noexcept { return m_record; }

private:
    Record m_record;
};

// Never destroyed: threads of the code under test may trace while the process ends.
RecordingSink& TheSink()
{
    static auto* const sink = new RecordingSink;
    return *sink;
}

Record& TheRecord()
{
    return TheSink().TheRecord();
}

// Before main, so that no line of the code under test is missed. A test program that uses RecordingTrace links
// this file; one that does not has no sink.
const bool installed = [] {
    InstallTraceSink(TheSink());
    return true;
}();

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

bool RecordingTrace::WaitForLine(std::string_view part, std::chrono::milliseconds timeout, std::size_t times)
{
    return WaitUntil([&] { return Count(part) >= times; }, timeout);
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
