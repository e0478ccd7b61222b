#include "host/TraceOptionsTable.h"

TraceOptionsTable::TraceOptionsTable()
{
    m_tables.push_back(std::make_unique<Table>(FirstSizeBits));
    m_current.store(m_tables.back().get(), std::memory_order_release);
}

void TraceOptionsTable::Set(std::int32_t device, TraceOptions options)
{
    const std::uint64_t key = KeyOf(device);
    Table* table = m_tables.back().get();
    for (std::size_t at = table->IndexOf(device);; at = table->Next(at)) {
        const std::uint64_t found = table->slots[at].key.load(std::memory_order_relaxed);
        if (found == key) {
            table->slots[at].options.store(Pack(options), std::memory_order_relaxed);
            return;
        }
        if (found == NoKey) {
            break;
        }
    }
    // At most half full: a search always meets an empty slot, and soon.
    if (2 * (m_count + 1) > table->slots.size()) {
        Grow();
        table = m_tables.back().get();
    }
    Insert(*table, key, Pack(options));
    ++m_count;
}

void TraceOptionsTable::ResetAll() noexcept
{
    for (Slot& slot : m_tables.back()->slots) {
        slot.options.store(Pack(TraceOptions()), std::memory_order_relaxed);
    }
}

void TraceOptionsTable::Insert(Table& table, std::uint64_t key, std::uint64_t options) noexcept
{
    std::size_t at = table.IndexOf(static_cast<std::int32_t>(key));
    while (table.slots[at].key.load(std::memory_order_relaxed) != NoKey) {
        at = table.Next(at);
    }
    table.slots[at].options.store(options, std::memory_order_relaxed);
    table.slots[at].key.store(key, std::memory_order_release);
}

void TraceOptionsTable::Grow()
{
    const Table& old = *m_tables.back();
    auto bigger = std::make_unique<Table>(old.sizeBits + 1);
    for (const Slot& slot : old.slots) {
        const std::uint64_t key = slot.key.load(std::memory_order_relaxed);
        if (key != NoKey) {
            Insert(*bigger, key, slot.options.load(std::memory_order_relaxed));
        }
    }
    m_tables.push_back(std::move(bigger));
    m_current.store(m_tables.back().get(), std::memory_order_release);
}
