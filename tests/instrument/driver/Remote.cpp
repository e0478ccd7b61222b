#include "tests/instrument/driver/Remote.h"

#include "tests/instrument/driver/Transfers.h"

namespace driver {

namespace {

using namespace instrumentbus;

/// The input and output of a remote request, which share their bytes.
struct Call
{
    IRP* irp;
    FILE_OBJECT* file;
    std::uint32_t code;
    std::uint8_t* bytes;
    std::uint32_t in;
    std::uint32_t out;

    /// The input as a T, or null when it is shorter or names a slot that does not exist.
    template <class T>
    const T* Input() const
    {
        const auto* const input = reinterpret_cast<const T*>(bytes);
        return in >= sizeof(T) && input->slot < SlotCount && g_bus.slots[input->slot].started ? input : nullptr;
    }
};

NTSTATUS Answer(const Call& call, const void* answer, std::uint32_t size)
{
    if (call.out < size) {
        return CompleteNow(call.irp, STATUS_BUFFER_TOO_SMALL);
    }
    RtlCopyMemory(call.bytes, answer, size);
    return CompleteNow(call.irp, STATUS_SUCCESS, size);
}

NTSTATUS OnHello(const Call& call)
{
    Hello hello{ProtocolVersion, 0};
    for (const Slot& slot : g_bus.slots) {
        hello.startedSlots += slot.started ? 1 : 0;
    }
    return Answer(call, &hello, sizeof hello);
}

bool Concerns(std::uint32_t target, const Endpoint* endpoint)
{
    return target == AllEndpoints || (endpoint != nullptr && endpoint->address == target);
}

/// Drops the rules of a target and releases what they hold.
void Release(Slot& slot, std::uint32_t target, Batch& batch)
{
    for (LIST_ENTRY* entry = slot.rules.Flink; entry != &slot.rules;) {
        RuleRecord* const record = kernel::FromLink<RuleRecord>(entry);
        entry = entry->Flink;
        if (target == AllEndpoints || (record->rule.code == 0 && record->rule.endpoint == target)) {
            RemoveEntryList(&record->link);
            kernel::Free(record);
        }
    }
    for (LIST_ENTRY* entry = slot.held.Flink; entry != &slot.held; entry = entry->Flink) {
        Request& request = *kernel::FromLink<Request>(entry);
        if (Concerns(target, request.endpoint)) {
            request.due = 0;
        }
    }
    ProceedDue(slot, 0, batch);
}

NTSTATUS OnClear(const Call& call)
{
    for (Slot& slot : g_bus.slots) {
        UnplugSlot(slot);
    }
    Batch batch;
    {
        const LockScope lock(g_bus.lock);
        for (Slot& slot : g_bus.slots) {
            Release(slot, AllEndpoints, batch);
            slot.counters = {};
            for (Endpoint& endpoint : slot.endpoints) {
                FreeChunks(endpoint);
            }
        }
    }
    return CompleteNow(call.irp, STATUS_SUCCESS);
}

NTSTATUS OnPlug(const Call& call)
{
    const Plug* const input = call.Input<Plug>();
    if (input == nullptr || call.in > MaximumPlugBytes) {
        return CompleteNow(call.irp, STATUS_INVALID_PARAMETER);
    }
    auto* const plug = static_cast<Plug*>(kernel::Allocate(call.in));
    if (plug == nullptr) {
        return CompleteNow(call.irp, STATUS_INSUFFICIENT_RESOURCES);
    }
    RtlCopyMemory(plug, input, call.in);
    Slot& slot = g_bus.slots[plug->slot];
    UnplugSlot(slot);
    {
        const LockScope lock(g_bus.lock);
        slot.plug = plug;
        slot.owner = plug->leavesWithHandle != 0 ? call.file : nullptr;
        slot.plugLength = call.in;
        slot.plugged = true;
        slot.vendorDataLength = 0;
        for (Endpoint& endpoint : slot.endpoints) {
            FreeChunks(endpoint);
            endpoint.aborts = endpoint.begun = endpoint.completed = endpoint.failed = 0;
            endpoint.most = endpoint.unfinished; // stubborn ones outlive their device
            endpoint.bytes = 0;
        }
    }
    return CompleteNow(call.irp, IoSetDeviceInterfaceState(&slot.interfaceName, TRUE));
}

NTSTATUS OnUnplug(const Call& call)
{
    const Target* const target = call.Input<Target>();
    if (target == nullptr) {
        return CompleteNow(call.irp, STATUS_INVALID_PARAMETER);
    }
    UnplugSlot(g_bus.slots[target->slot]);
    return CompleteNow(call.irp, STATUS_SUCCESS);
}

Request* NewRequest(const Call& call, Slot& slot)
{
    auto* const request = kernel::New<Request>();
    if (request != nullptr) {
        request->irp = call.irp;
        request->slot = &slot;
        request->file = call.file;
        request->code = call.code;
        request->remote = true;
        request->data = call.bytes;
        request->length = call.out;
    }
    return request;
}

NTSTATUS OnTake(const Call& call)
{
    const Target* const target = call.Input<Target>();
    Request* const request =
        target != nullptr && call.out >= sizeof(Taken) ? NewRequest(call, g_bus.slots[target->slot]) : nullptr;
    if (request == nullptr) {
        return CompleteNow(call.irp, STATUS_INVALID_PARAMETER);
    }
    request->endpoint = EndpointOf(*request->slot, target->endpoint);
    IoMarkIrpPending(call.irp);
    Batch batch;
    const LockScope lock(g_bus.lock);
    Endpoint& endpoint = *request->endpoint;
    Park(*request, endpoint.takers, batch);
    ServeTakers(endpoint, batch);
    return STATUS_PENDING;
}

NTSTATUS OnFeed(const Call& call)
{
    const Target* const target = call.Input<Target>();
    const std::uint32_t length = call.in - static_cast<std::uint32_t>(sizeof(Target));
    auto* const chunk = target != nullptr ? kernel::New<Chunk>(length) : nullptr;
    if (chunk == nullptr) {
        return CompleteNow(call.irp, STATUS_INVALID_PARAMETER);
    }
    chunk->length = length;
    RtlCopyMemory(chunk->Bytes(), call.bytes + sizeof(Target), length);
    Slot& slot = g_bus.slots[target->slot];
    bool fed = false;
    {
        Batch batch;
        const LockScope lock(g_bus.lock);
        Endpoint& endpoint = *EndpointOf(slot, target->endpoint);
        fed = slot.plugged && endpoint.IsIn();
        if (fed) {
            endpoint.chunkBytes += length;
            InsertTailList(&endpoint.chunks, &chunk->link);
            ServeReads(endpoint, batch);
        }
    }
    if (!fed) {
        kernel::Free(chunk);
    }
    return CompleteNow(call.irp, fed ? STATUS_SUCCESS : STATUS_DEVICE_NOT_CONNECTED);
}

/// Ends a request that cannot be served, `request` is what there is of it.
NTSTATUS Reject(const Call& call, Request* request)
{
    if (request != nullptr) {
        kernel::Free(request->written);
        kernel::Free(request);
    }
    return CompleteNow(call.irp, STATUS_INVALID_PARAMETER);
}

NTSTATUS OnSupply(const Call& call)
{
    const Supply* const supply = call.Input<Supply>();
    Request* const request = supply != nullptr ? NewRequest(call, g_bus.slots[supply->slot]) : nullptr;
    if (request == nullptr) {
        return Reject(call, request);
    }
    request->endpoint = EndpointOf(*request->slot, supply->endpoint);
    request->length = call.in - static_cast<std::uint32_t>(sizeof(Supply));
    request->written = kernel::New<Chunk>(request->length);
    if (request->written == nullptr || request->length == 0 || !request->endpoint->IsIn()) {
        return Reject(call, request);
    }
    request->written->length = request->length;
    request->written->connection = supply->connection;
    RtlCopyMemory(request->written->Bytes(), call.bytes + sizeof(Supply), request->length);
    IoMarkIrpPending(call.irp);
    Batch batch;
    const LockScope lock(g_bus.lock);
    if (supply->connection == 0 || supply->connection != request->slot->connection) {
        Finish(*request, STATUS_DEVICE_NOT_CONNECTED, 0, batch);
        return STATUS_PENDING;
    }
    Endpoint& endpoint = *request->endpoint;
    Park(*request, endpoint.suppliers, batch);
    ServeSuppliers(endpoint, batch);
    ServeReads(endpoint, batch);
    return STATUS_PENDING;
}

NTSTATUS OnWatch(const Call& call)
{
    const Watch* const watch = call.Input<Watch>();
    Request* const request =
        watch != nullptr && call.out >= sizeof(Connection) ? NewRequest(call, g_bus.slots[watch->slot]) : nullptr;
    if (request == nullptr) {
        return Reject(call, request);
    }
    request->known = watch->known;
    IoMarkIrpPending(call.irp);
    Batch batch;
    const LockScope lock(g_bus.lock);
    Slot& slot = *request->slot;
    Park(*request, slot.watchers, batch);
    ServeWatchers(slot, batch);
    return STATUS_PENDING;
}

NTSTATUS OnRule(const Call& call)
{
    const Rule* const rule = call.Input<Rule>();
    auto* const record = rule != nullptr ? kernel::New<RuleRecord>() : nullptr;
    if (record == nullptr) {
        return CompleteNow(call.irp, STATUS_INVALID_PARAMETER);
    }
    record->rule = *rule;
    {
        const LockScope lock(g_bus.lock);
        InsertTailList(&g_bus.slots[rule->slot].rules, &record->link);
    }
    return CompleteNow(call.irp, STATUS_SUCCESS);
}

NTSTATUS OnRelease(const Call& call)
{
    const Target* const target = call.Input<Target>();
    if (target == nullptr) {
        return CompleteNow(call.irp, STATUS_INVALID_PARAMETER);
    }
    Slot& slot = g_bus.slots[target->slot];
    {
        Batch batch;
        const LockScope lock(g_bus.lock);
        Release(slot, target->endpoint, batch);
    }
    return CompleteNow(call.irp, STATUS_SUCCESS);
}

template <class Condition>
std::uint32_t CountOf(const LIST_ENTRY& list, Condition condition)
{
    std::uint32_t count = 0;
    for (const LIST_ENTRY* entry = list.Flink; entry != &list; entry = entry->Flink) {
        count += condition(entry) ? 1 : 0;
    }
    return count;
}

std::uint32_t LengthOf(const LIST_ENTRY& list)
{
    return CountOf(list, [](const LIST_ENTRY*) { return true; });
}

/// How many of the slot's held requests are transfers of `endpoint`; null: are other controls.
std::uint32_t HeldBy(const Slot& slot, const Endpoint* endpoint)
{
    return CountOf(slot.held, [&](const LIST_ENTRY* entry) {
        return CONTAINING_RECORD(entry, Request, link)->endpoint == endpoint;
    });
}

NTSTATUS OnCounters(const Call& call)
{
    const Target* const target = call.Input<Target>();
    if (target == nullptr) {
        return CompleteNow(call.irp, STATUS_INVALID_PARAMETER);
    }
    Counters counters{};
    {
        const LockScope lock(g_bus.lock);
        Slot& slot = g_bus.slots[target->slot];
        const Endpoint& endpoint = *EndpointOf(slot, target->endpoint);
        counters = slot.counters;
        counters.endpointAborts = endpoint.aborts;
        counters.begun = endpoint.begun;
        counters.completed = endpoint.completed;
        counters.failed = endpoint.failed;
        counters.mostPending = endpoint.most;
        counters.held = HeldBy(slot, &endpoint);
        counters.controlsHeld = HeldBy(slot, nullptr);
        counters.pending = counters.held + LengthOf(endpoint.waiting);
        counters.chunks = LengthOf(endpoint.chunks);
        counters.bytes = endpoint.bytes;
    }
    return Answer(call, &counters, sizeof counters);
}

} // namespace

NTSTATUS OnRemoteControl(IRP* irp)
{
    const IO_STACK_LOCATION& stack = *IoGetCurrentIrpStackLocation(irp);
    const Call call{irp,
                    stack.FileObject,
                    stack.Parameters.DeviceIoControl.IoControlCode,
                    static_cast<std::uint8_t*>(irp->AssociatedIrp.SystemBuffer),
                    stack.Parameters.DeviceIoControl.InputBufferLength,
                    stack.Parameters.DeviceIoControl.OutputBufferLength};
    switch (call.code) {
    case RemoteHello: return OnHello(call);
    case RemoteClear: return OnClear(call);
    case RemotePlug: return OnPlug(call);
    case RemoteUnplug: return OnUnplug(call);
    case RemoteTake: return OnTake(call);
    case RemoteFeed: return OnFeed(call);
    case RemoteRule: return OnRule(call);
    case RemoteRelease: return OnRelease(call);
    case RemoteCounters: return OnCounters(call);
    case RemoteWatch: return OnWatch(call);
    case RemoteSupply: return OnSupply(call);
    default: return CompleteNow(irp, STATUS_INVALID_DEVICE_REQUEST);
    }
}

void UnplugSlot(Slot& slot)
{
    {
        Batch batch;
        const LockScope lock(g_bus.lock);
        if (!slot.plugged) {
            return;
        }
        slot.plugged = false;
        ++slot.generation;
        FinishAll(slot, STATUS_DEVICE_NOT_CONNECTED, batch,
                  [](const Request& request) { return !request.remote; });
        SetConnection(slot, 0, batch);
        slot.owner = nullptr;
        for (Endpoint& endpoint : slot.endpoints) {
            if (endpoint.IsIn()) {
                FreeChunks(endpoint);
            }
        }
        kernel::Free(slot.plug);
        slot.plug = nullptr;
    }
    IoSetDeviceInterfaceState(&slot.interfaceName, FALSE);
}

void DropFile(FILE_OBJECT* file)
{
    {
        Batch batch;
        const LockScope lock(g_bus.lock);
        for (Slot& slot : g_bus.slots) {
            FinishAll(slot, STATUS_CANCELLED, batch, [&](const Request& request) { return request.file == file; });
        }
    }
    for (Slot& slot : g_bus.slots) {
        if (slot.owner == file) {
            UnplugSlot(slot);
        }
    }
}

} // namespace driver
