#include "trace/Trace.h"

#include "trace/TraceSink.h"

#include <atomic>

namespace {

constinit std::atomic<ITraceSink*> g_sink{nullptr};

/// The installed sink if it wants something of `mask`, which is cut to that; null if not.
ITraceSink* SinkFor(std::int32_t device, std::uint32_t& mask) noexcept
{
    ITraceSink* const sink = g_sink.load(std::memory_order_acquire);
    mask = sink != nullptr ? sink->EffectiveMask(device, mask) : 0;
    return mask != 0 ? sink : nullptr;
}

} // namespace

void InstallTraceSink(ITraceSink& sink) noexcept
{
    g_sink.store(&sink, std::memory_order_release);
}

void RemoveTraceSink(ITraceSink& sink) noexcept
{
    ITraceSink* installed = &sink;
    g_sink.compare_exchange_strong(installed, nullptr);
}

void Trace(std::int32_t device, std::uint32_t classMask, const char* format, ...) noexcept
{
    ITraceSink* const sink = SinkFor(device, classMask);
    if (sink == nullptr) [[likely]] {
        return;
    }
    std::va_list arguments;
    va_start(arguments, format);
    sink->Write(device, classMask, format, arguments);
    va_end(arguments);
}

bool DumpPacket(std::int32_t device, std::uint32_t classMask, const std::uint8_t* data, std::uint32_t length,
                bool hexOnly, std::string& out) noexcept
{
    out.clear();
    ITraceSink* const sink = data != nullptr && length != 0 ? SinkFor(device, classMask) : nullptr;
    if (sink == nullptr) [[likely]] {
        return false;
    }
    try {
        return sink->Dump(device, classMask, data, length, hexOnly, out);
    } catch (...) {
        out.clear();
        return false;
    }
}

std::string PacketDump(std::int32_t device, std::uint32_t classMask, std::span<const std::uint8_t> bytes) noexcept
{
    std::string dump;
    DumpPacket(device, classMask, bytes.data(), static_cast<std::uint32_t>(bytes.size()), false, dump);
    return dump;
}
