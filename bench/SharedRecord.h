// What the benchmark and the instrument it plays share while they run.
#pragma once

#include "win32/Handle.h"

#include <atomic>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace bench {

/// How the instrument treats what it gets.
enum class Mode : std::uint32_t {
    Echo,  // gives it back as it came
    Sink,  // counts payload bytes; sets the event at every `goal` of them
    Flood, // answers with `goal` payload bytes in packets of 512
};

/// Lies in memory that both processes see.
struct InstrumentRecord
{
    std::atomic<Mode> mode;
    std::atomic<std::uint64_t> goal;
    std::atomic<std::uint64_t> packets; // so many came, with a payload; what is not framed counts as read
};

/// The record of that name and its auto-reset event; made by whoever comes first.
class SharedInstrument
{
public:
    explicit SharedInstrument(const std::wstring& name)
        : m_memory(::CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(InstrumentRecord),
                                        (name + L"-record").c_str())),
          m_record(static_cast<InstrumentRecord*>(
              ::MapViewOfFile(m_memory.Get(), FILE_MAP_ALL_ACCESS, 0, 0, sizeof(InstrumentRecord)))),
          m_reached(::CreateEventW(nullptr, FALSE, FALSE, (name + L"-reached").c_str()))
    {
        if (m_record == nullptr || !m_reached) {
            throw std::runtime_error("no shared memory for the instrument");
        }
    }
    ~SharedInstrument() { ::UnmapViewOfFile(m_record); }
    SharedInstrument(const SharedInstrument&) = delete;
    SharedInstrument& operator=(const SharedInstrument&) = delete;

    InstrumentRecord& Record() const noexcept { return *m_record; }
    HANDLE Reached() const noexcept { return m_reached.Get(); }

private:
    win32::KernelHandle m_memory;
    InstrumentRecord* m_record;
    win32::KernelHandle m_reached;
};

} // namespace bench
