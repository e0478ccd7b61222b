#include "host/TraceOptionsTable.h"

void TraceOptionsTable::Set(std::int32_t device, TraceOptions options)
{
    if (Entry* const known = FindEntry(device)) {
        known->options.store(Pack(options), std::memory_order_relaxed);
        return;
    }
    std::atomic<Entry*>& list = m_lists[ListOf(device)];
    Entry* const before = list.load(std::memory_order_relaxed);
    Entry& entry = m_entries.emplace_front(device, Pack(options), before);
    list.store(&entry, std::memory_order_release);
}

void TraceOptionsTable::ResetAll() noexcept
{
    for (Entry& entry : m_entries) {
        entry.options.store(Pack(TraceOptions()), std::memory_order_relaxed);
    }
}
