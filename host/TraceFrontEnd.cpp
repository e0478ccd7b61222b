#include "host/TraceFrontEnd.h"

#include "host/PacketText.h"
#include "host/Trace.h"

#include <array>
#include <cstdio>

constinit std::atomic<TraceFrontEnd*> TraceFrontEnd::s_current{nullptr};

TraceFrontEnd::TraceFrontEnd(ITraceOutput& output) : m_output(output)
{
    s_current.store(this, std::memory_order_release);
}

TraceFrontEnd::~TraceFrontEnd()
{
    TraceFrontEnd* self = this;
    s_current.compare_exchange_strong(self, nullptr);
}

void TraceFrontEnd::Publish(const DebugOptionsMap& options)
{
    m_options.ResetAll();
    for (const auto& [device, option] : options) {
        m_options.Set(device, {option.GetMask(), option.MaxPacketLength});
    }
}

// None of these tests is a kernel call; the gate is asked for its mirror. A longer line is cut as by _vsnprintf_s with a
// count of 2055.
void TraceFrontEnd::Write(std::uint32_t effectiveMask, const char* format, std::va_list arguments) noexcept
{
    if (!m_output.TracerExists() || !m_output.DialogExists() || m_output.DialogIsVisible() || !m_gate.IsSet()) {
        return;
    }
    std::array<char, MaximumLineLength + 1> line; // NOLINT(cppcoreguidelines-pro-type-member-init): 2 KB a line
    line[0] = '\0';
    std::vsnprintf(line.data(), line.size(), format, arguments);
    try {
        m_output.AddTrace(effectiveMask, line.data());
    } catch (...) {
        // A line that cannot be handed over is lost; whoever traced it has other work to do.
    }
}

bool TraceFrontEnd::MayDump() const noexcept
{
    return m_output.TracerExists() && !m_output.DialogIsVisible() && m_gate.IsSet();
}

void Trace(std::int32_t device, std::uint32_t classMask, const char* format, ...) noexcept
{
    TraceFrontEnd* const frontEnd = TraceFrontEnd::Current();
    if (frontEnd == nullptr) {
        return;
    }
    const std::uint32_t effective = classMask & frontEnd->Options(device).mask;
    if (effective == 0) [[likely]] {
        return;
    }
    std::va_list arguments;
    va_start(arguments, format);
    frontEnd->Write(effective, format, arguments);
    va_end(arguments);
}

bool DumpPacket(std::int32_t device, std::uint32_t classMask, const std::uint8_t* data, std::uint32_t length,
                bool hexOnly, std::string& out) noexcept
{
    out.clear();
    TraceFrontEnd* const frontEnd = TraceFrontEnd::Current();
    if (frontEnd == nullptr) {
        return false;
    }
    const TraceOptions options = frontEnd->Options(device);
    if ((classMask & options.mask) == 0 || data == nullptr || length == 0 || !frontEnd->MayDump()) {
        return false;
    }
    try {
        AppendPacketText(data, length, options.maxPacketLength, hexOnly, out);
    } catch (...) {
        out.clear();
        return false;
    }
    return true;
}
