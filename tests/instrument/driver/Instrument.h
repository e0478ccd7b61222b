// The state of the simulated instruments: what is plugged where, and the requests that wait.
#pragma once

#include "tests/instrument/InstrumentProtocol.h"
#include "tests/instrument/driver/Kernel.h"

namespace driver {

using kernel::LockScope;

/// What was written by one transfer and not taken yet, or is to be read and was not yet.
struct Chunk
{
    LIST_ENTRY link;
    std::uint32_t connection; // written: of whom; supplied: for whom; fed: 0
    std::uint32_t length;
    std::uint32_t consumed;

    std::uint8_t* Bytes() { return reinterpret_cast<std::uint8_t*>(this + 1); }
};

struct Endpoint
{
    std::uint8_t address;
    LIST_ENTRY waiting; // Requests: reads without data, writes without room
    LIST_ENTRY chunks;
    LIST_ENTRY takers;    // Requests of the remote control
    LIST_ENTRY suppliers; // the same: waiting for room
    std::uint64_t chunkBytes;
    std::uint32_t aborts;
    std::uint32_t begun;
    std::uint32_t completed;
    std::uint32_t failed;
    std::uint32_t unfinished; // transfers begun and not finished
    std::uint32_t most;       // of them at a time
    std::uint64_t bytes;

    bool IsIn() const { return (address & 0x80) != 0; }
};

struct RuleRecord
{
    LIST_ENTRY link;
    instrumentbus::Rule rule;
    std::uint32_t seen;
};

/// One place that an instrument can be plugged into: a device node that shows its interface while one is.
struct Slot
{
    DEVICE_OBJECT* device; // null: the slot is free
    DEVICE_OBJECT* physicalDevice;
    DEVICE_OBJECT* lowerDevice;
    UNICODE_STRING interfaceName;
    bool started;
    bool plugged;
    std::uint32_t generation;  // of pluggings; a handle of an earlier one stays dead
    instrumentbus::Plug* plug; // with its descriptors, as received; null while unplugged
    std::uint32_t plugLength;
    std::uint8_t vendorData[64]; // what the last vendor request wrote to endpoint 0, for the next one to read
    std::uint32_t vendorDataLength;
    FILE_OBJECT* owner;       // whose end unplugs the device; null: none
    std::uint32_t connection; // 0: none
    LIST_ENTRY watchers;      // Requests of the remote control
    LIST_ENTRY rules;         // RuleRecords
    LIST_ENTRY held;          // Requests: held or delayed
    Endpoint endpoints[instrumentbus::EndpointCount];
    instrumentbus::Counters counters; // the part about the device
};

/// The lock guards everything but the device objects, which are set before a slot is started.
struct Bus
{
    kernel::SpinLock lock;
    DEVICE_OBJECT* remote;
    Slot slots[instrumentbus::SlotCount];
    KEVENT delaysChanged; // wakes the thread that ends delays
    PVOID delayThread;
    bool stopping;
};

extern Bus g_bus;

/// A request that the driver answers now or later.
struct Request
{
    LIST_ENTRY link;
    IRP* irp;
    Slot* slot;
    FILE_OBJECT* file;
    std::uint32_t code;
    Endpoint* endpoint;    // of a transfer or a taker; null for other controls
    bool remote;           // of the remote control
    std::uint8_t* block;   // of a buffered request: its bytes, in and out
    std::uint8_t* data;    // to be written or read
    std::uint32_t length;  // of data
    std::uint32_t prefix;  // of the answer, in front of the data
    Chunk* written;        // copy of what a transfer writes or a supplier brings
    std::uint32_t known;   // of a watcher
    std::uint32_t actions; // of the rule that applies, as are the next four
    std::int32_t status;
    std::uint32_t limit;
    std::uint32_t ntStatus;
    std::uint32_t usbdStatus;
    std::uint64_t due; // interrupt time at which a delay ends

    bool Has(std::uint32_t action) const { return (actions & action) != 0; }
};

inline Endpoint* EndpointOf(Slot& slot, std::uint32_t address)
{
    return &slot.endpoints[(address & 15u) | (address & 0x80u ? 16u : 0u)];
}

inline constexpr std::uint64_t Never = ~0ull;

/// Its destructor completes requests: declared before the lock's scope, so that it runs after the lock is free.
class Batch
{
public:
    Batch() { InitializeListHead(&m_done); }
    ~Batch();
    Batch(const Batch&) = delete;
    Batch& operator=(const Batch&) = delete;
    void Add(Request& request) { InsertTailList(&m_done, &request.link); }

private:
    LIST_ENTRY m_done{};
};

} // namespace driver
