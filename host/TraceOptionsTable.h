// The trace options of every device, in a form that any thread reads without waiting.
//
// The options map itself belongs to the main thread. What a trace call needs of it (a mask and a length) is copied
// here, one atomic word a device. Devices are never removed, so a reader may be in any entry at any time.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <forward_list>

struct TraceOptions
{
    std::uint32_t mask = 0; // nothing is traced for an unknown device
    std::uint32_t maxPacketLength = 100;
};

class TraceOptionsTable
{
public:
    /// Any thread, wait-free. The defaults for a device that was never set.
    TraceOptions Find(std::int32_t device) const noexcept
    {
        const Entry* const entry = FindEntry(device);
        return entry != nullptr ? Unpack(entry->options.load(std::memory_order_relaxed)) : TraceOptions();
    }

    /// One writer at a time. Throws std::bad_alloc, and then has changed nothing.
    void Set(std::int32_t device, TraceOptions options);

    /// Gives every device the options of an unknown one. One writer at a time.
    void ResetAll() noexcept;

private:
    struct Entry
    {
        std::int32_t device;
        std::atomic<std::uint64_t> options; // mask in the upper 32 bits, length in the lower
        Entry* next;                        // in its list
    };

    /// Devices whose numbers differ by a multiple of it share a list; an instrument has few devices.
    static constexpr std::size_t Lists = 64;

    static std::size_t ListOf(std::int32_t device) noexcept { return static_cast<std::uint32_t>(device) % Lists; }
    static std::uint64_t Pack(TraceOptions options) noexcept
    {
        return (std::uint64_t{options.mask} << 32) | options.maxPacketLength;
    }
    static TraceOptions Unpack(std::uint64_t word) noexcept
    {
        return {static_cast<std::uint32_t>(word >> 32), static_cast<std::uint32_t>(word)};
    }
    Entry* FindEntry(std::int32_t device) const noexcept
    {
        Entry* entry = m_lists[ListOf(device)].load(std::memory_order_acquire);
        while (entry != nullptr && entry->device != device) {
            entry = entry->next;
        }
        return entry;
    }

    std::array<std::atomic<Entry*>, Lists> m_lists{}; // the newest entry of each; read by any thread
    std::forward_list<Entry> m_entries;               // writer's
};
