#include "host/TraceFrontEnd.h"

#include "trace/PacketText.h"

#include <array>
#include <cstdio>

void TraceFrontEnd::Publish(const DebugOptionsMap& options)
{
    m_options.ResetAll();
    for (const auto& [device, option] : options) {
        m_options.Set(device, {option.GetMask(), option.MaxPacketLength});
    }
}

// None of these tests is a kernel call; the gate is asked for its mirror. A longer line is cut as by _vsnprintf_s
// with a count of 2055.
void TraceFrontEnd::Write(std::int32_t /*device*/, std::uint32_t effectiveMask, const char* format,
                          std::va_list arguments) noexcept
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
        // A line that cannot be handed over is lost; the thread that traced it has other work to do.
    }
}

bool TraceFrontEnd::Dump(std::int32_t device, std::uint32_t effectiveMask, const std::uint8_t* data,
                         std::uint32_t length, bool hexOnly, std::string& out)
{
    if (!m_output.TracerExists() || m_output.DialogIsVisible() || !m_gate.IsSet()) {
        return false;
    }
    // The options may have changed since the mask was asked for. Mask and length are taken from one reading.
    const TraceOptions options = m_options.Find(device);
    if ((options.mask & effectiveMask) == 0) {
        return false;
    }
    AppendPacketText(data, length, options.maxPacketLength, hexOnly, out);
    return true;
}
