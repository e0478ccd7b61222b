// The trace options of every device, in a form that any thread reads without waiting.
//
// The options map itself belongs to the main thread. What a trace call needs of it (a mask and a length) is copied
// here: one atomic word a device, in an open-addressing table. A table that gets too full is replaced by one of
// twice the size; the old one is kept until the end, because a reader may still be in it. Sizes double, so all the
// kept ones together are smaller than the one in use.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

struct TraceOptions
{
    std::uint32_t mask = 0; // nothing is traced for an unknown device
    std::uint32_t maxPacketLength = 100;
};

class TraceOptionsTable
{
public:
    TraceOptionsTable();

    /// Any thread, wait-free. The defaults for a device that was never set.
    TraceOptions Find(std::int32_t device) const noexcept
    {
        const std::uint64_t key = KeyOf(device);
        const Table& table = *m_current.load(std::memory_order_acquire);
        for (std::size_t at = table.IndexOf(device);; at = table.Next(at)) {
            const std::uint64_t found = table.slots[at].key.load(std::memory_order_acquire);
            if (found == key) {
                return Unpack(table.slots[at].options.load(std::memory_order_relaxed));
            }
            if (found == NoKey) {
                return {};
            }
        }
    }

    /// One writer at a time. Throws std::bad_alloc, and then has changed nothing.
    void Set(std::int32_t device, TraceOptions options);

    /// Gives every device the options of an unknown one. One writer at a time.
    void ResetAll() noexcept;

private:
    static constexpr std::uint64_t NoKey = 0;
    static constexpr unsigned FirstSizeBits = 4;

    struct Slot
    {
        std::atomic<std::uint64_t> key{NoKey}; // set once, after the options
        std::atomic<std::uint64_t> options{0};
    };
    struct Table
    {
        explicit Table(unsigned bits) : sizeBits(bits), slots(std::size_t{1} << bits) {}

        std::size_t IndexOf(std::int32_t device) const noexcept
        {
            return (static_cast<std::uint32_t>(device) * 0x9E3779B9U) >> (32 - sizeBits);
        }
        std::size_t Next(std::size_t index) const noexcept { return (index + 1) & (slots.size() - 1); }

        const unsigned sizeBits;
        std::vector<Slot> slots;
    };

    static std::uint64_t KeyOf(std::int32_t device) noexcept
    {
        return (std::uint64_t{1} << 32) | static_cast<std::uint32_t>(device);
    }
    static std::uint64_t Pack(TraceOptions options) noexcept
    {
        return (std::uint64_t{options.mask} << 32) | options.maxPacketLength;
    }
    static TraceOptions Unpack(std::uint64_t word) noexcept
    {
        return {static_cast<std::uint32_t>(word >> 32), static_cast<std::uint32_t>(word)};
    }
    static void Insert(Table& table, std::uint64_t key, std::uint64_t options) noexcept;
    void Grow();

    std::atomic<const Table*> m_current;          // read by any thread
    std::vector<std::unique_ptr<Table>> m_tables; // writer's; the last one is in use
    std::size_t m_count = 0;                      // writer's; devices in the table in use
};
