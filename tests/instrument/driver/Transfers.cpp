#include "tests/instrument/driver/Transfers.h"

#include "tests/instrument/driver/Wire.h"

namespace driver {

namespace {

using namespace instrumentbus;

// What may be written and not taken; further writes wait, as they do for an instrument that does not read.
constexpr std::uint64_t MaximumUntaken = 16u << 20;

// What may be supplied and not read; further supplies wait, as an instrument does whose reader does not ask.
constexpr std::uint64_t MaximumUnread = 1u << 20;

std::uint32_t Smaller(std::uint32_t a, std::uint32_t b)
{
    return a < b ? a : b;
}

bool IsTransfer(std::uint32_t code)
{
    return code == wire::Direct || code == wire::Buffered;
}

/// The direct transfer's block is only looked at here and its data, when it writes, is copied here: this is the
/// requester's own context. What is read is put straight to UserBuffer later on; Wine, which this driver is for,
/// runs it in a process of its own and hands it a copy there. Under Windows that address would have to be locked
/// and mapped first.
NTSTATUS SetUpDirect(Request& request, const IO_STACK_LOCATION& stack)
{
    const auto* const block = static_cast<const std::uint8_t*>(stack.Parameters.DeviceIoControl.Type3InputBuffer);
    if (block == nullptr || stack.Parameters.DeviceIoControl.InputBufferLength < wire::HeaderSize) {
        return STATUS_INVALID_PARAMETER;
    }
    request.endpoint = EndpointOf(*request.slot, block[wire::Address]);
    request.data = static_cast<std::uint8_t*>(request.irp->UserBuffer);
    request.length = stack.Parameters.DeviceIoControl.OutputBufferLength;
    return STATUS_SUCCESS;
}

NTSTATUS SetUpBuffered(Request& request, std::uint32_t room)
{
    if (room < wire::HeaderSize) {
        return STATUS_INVALID_PARAMETER;
    }
    const std::uint32_t offset = wire::Number(request.block + wire::DataOffset);
    const std::uint32_t length = wire::Number(request.block + wire::DataLength);
    if (offset < wire::HeaderSize || offset > room || length > room - offset) {
        return STATUS_INVALID_PARAMETER;
    }
    request.endpoint = EndpointOf(*request.slot, request.block[wire::Address]);
    request.data = request.block + offset;
    request.length = length;
    request.prefix = offset;
    return STATUS_SUCCESS;
}

NTSTATUS CopyWritten(Request& request)
{
    request.written = kernel::New<Chunk>(request.length);
    if (request.written == nullptr) {
        return STATUS_INSUFFICIENT_RESOURCES;
    }
    request.written->length = request.length;
    RtlCopyMemory(request.written->Bytes(), request.data, request.length);
    return STATUS_SUCCESS;
}

NTSTATUS SetUp(Request& request, IRP* irp)
{
    const IO_STACK_LOCATION& stack = *IoGetCurrentIrpStackLocation(irp);
    request.irp = irp;
    request.file = stack.FileObject;
    request.code = stack.Parameters.DeviceIoControl.IoControlCode;
    if (request.code == wire::Direct) {
        const NTSTATUS status = SetUpDirect(request, stack);
        return NT_SUCCESS(status) && !request.endpoint->IsIn() ? CopyWritten(request) : status;
    }
    const std::uint32_t room = Smaller(stack.Parameters.DeviceIoControl.InputBufferLength,
                                       stack.Parameters.DeviceIoControl.OutputBufferLength);
    request.block = static_cast<std::uint8_t*>(irp->AssociatedIrp.SystemBuffer);
    request.length = room;
    request.data = request.block;
    if (request.code == wire::Buffered) {
        const NTSTATUS status = SetUpBuffered(request, room);
        return NT_SUCCESS(status) && !request.endpoint->IsIn() ? CopyWritten(request) : status;
    }
    return STATUS_SUCCESS;
}

bool Concerns(const Rule& rule, std::uint32_t code, const Endpoint* endpoint)
{
    return endpoint != nullptr ? rule.code == 0 && rule.endpoint == endpoint->address : rule.code == code;
}

/// The rule that applies to this request, which counts as seen by the rules in front of it too. May be null.
const Rule* Apply(Slot& slot, std::uint32_t code, const Endpoint* endpoint)
{
    for (LIST_ENTRY* entry = slot.rules.Flink; entry != &slot.rules; entry = entry->Flink) {
        RuleRecord& record = *kernel::FromLink<RuleRecord>(entry);
        if (!Concerns(record.rule, code, endpoint)) {
            continue;
        }
        const std::uint32_t number = record.seen++;
        if (number >= record.rule.skip &&
            (record.rule.count == 0 || number - record.rule.skip < record.rule.count))
        {
            return &record.rule;
        }
    }
    return nullptr;
}

void CopyRule(Request& request, const Rule* rule)
{
    request.limit = ~0u;
    if (rule == nullptr) {
        return;
    }
    request.actions = rule->actions;
    request.status = static_cast<std::int32_t>(rule->status);
    request.ntStatus = rule->ntStatus;
    request.usbdStatus = rule->usbdStatus;
    if (request.Has(Shorten)) {
        request.limit = rule->length;
    }
    request.due = request.Has(Hold) ? Never : KeQueryInterruptTime() + std::uint64_t{rule->milliseconds} * 10'000;
}

void Begin(Request& request, Batch& batch)
{
    if (request.endpoint != nullptr) {
        Endpoint& endpoint = *request.endpoint;
        ++endpoint.begun;
        ++endpoint.unfinished;
        endpoint.most = endpoint.most < endpoint.unfinished ? endpoint.unfinished : endpoint.most;
    }
    if (request.Has(Hold | Delay)) {
        Park(request, request.slot->held, batch);
        KeSetEvent(&g_bus.delaysChanged, IO_NO_INCREMENT, FALSE);
    } else {
        Proceed(request, batch);
    }
}

void Read(Request& request, Batch& batch)
{
    if (IsListEmpty(&request.endpoint->chunks)) {
        Park(request, request.endpoint->waiting, batch);
        return;
    }
    Chunk& chunk = *kernel::FromLink<Chunk>(request.endpoint->chunks.Flink);
    const std::uint32_t bytes = Smaller(Smaller(request.length, request.limit), chunk.length - chunk.consumed);
    RtlCopyMemory(request.data, chunk.Bytes() + chunk.consumed, bytes);
    chunk.consumed += bytes;
    request.endpoint->chunkBytes -= bytes;
    if (chunk.consumed == chunk.length) {
        RemoveEntryList(&chunk.link);
        kernel::Free(&chunk);
    }
    if (request.block != nullptr && wire::Number(request.block + wire::IsoLength) >= 8) {
        wire::Put(request.block + wire::Number(request.block + wire::IsoOffset) + 4, bytes);
    }
    Endpoint& endpoint = *request.endpoint;
    Finish(request, STATUS_SUCCESS, bytes, batch);
    ServeSuppliers(endpoint, batch);
}

bool HasRoom(const Request& request)
{
    const std::uint64_t untaken = request.endpoint->chunkBytes;
    return untaken == 0 || untaken + request.length <= MaximumUntaken;
}

void Store(Request& request, Batch& batch)
{
    Endpoint& endpoint = *request.endpoint;
    const std::uint32_t bytes = Smaller(request.length, request.limit);
    if (request.slot->plug->keepWritten != 0) {
        request.written->length = bytes;
        request.written->connection = ConnectionOf(*request.file);
        endpoint.chunkBytes += bytes;
        InsertTailList(&endpoint.chunks, &request.written->link);
        request.written = nullptr;
    }
    Finish(request, STATUS_SUCCESS, bytes, batch);
}

void Write(Request& request, Batch& batch)
{
    Endpoint& endpoint = *request.endpoint;
    if (!IsListEmpty(&endpoint.waiting) || !HasRoom(request)) {
        Park(request, endpoint.waiting, batch);
        return;
    }
    Store(request, batch);
    ServeTakers(endpoint, batch);
}

void Give(Chunk& chunk, Request& taker, Batch& batch)
{
    const std::uint32_t room = taker.length - static_cast<std::uint32_t>(sizeof(Taken));
    const Taken head{chunk.connection, Smaller(chunk.length, room)};
    RtlCopyMemory(taker.data, &head, sizeof head);
    RtlCopyMemory(taker.data + sizeof head, chunk.Bytes(), head.length);
    Finish(taker, STATUS_SUCCESS, static_cast<std::uint32_t>(sizeof head) + head.length, batch);
}

} // namespace

NTSTATUS OnInstrumentControl(Slot& slot, IRP* irp)
{
    auto* const request = kernel::New<Request>();
    if (request == nullptr) {
        return CompleteNow(irp, STATUS_INSUFFICIENT_RESOURCES);
    }
    request->slot = &slot;
    NTSTATUS status = SetUp(*request, irp);
    if (NT_SUCCESS(status)) {
        Batch batch;
        const LockScope lock(g_bus.lock);
        const bool gone = !slot.plugged || request->file == nullptr ||
                          reinterpret_cast<std::uintptr_t>(request->file->FsContext) != slot.generation;
        CopyRule(*request, gone ? nullptr : Apply(slot, request->code, request->endpoint));
        if (gone) {
            status = STATUS_DEVICE_NOT_CONNECTED;
        } else if (request->Has(Refuse)) {
            status = request->status;
        } else {
            IoMarkIrpPending(irp);
            if (request->endpoint != nullptr && slot.connection != ConnectionOf(*request->file)) {
                SetConnection(slot, ConnectionOf(*request->file), batch);
            }
            Begin(*request, batch);
            return STATUS_PENDING;
        }
    }
    kernel::Free(request->written);
    kernel::Free(request);
    return CompleteNow(irp, status);
}

NTSTATUS MayOpen(Slot& slot)
{
    if (!slot.plugged) {
        return STATUS_DEVICE_NOT_CONNECTED;
    }
    const Rule* const rule = Apply(slot, OpenCode, nullptr);
    return rule != nullptr && (rule->actions & (Refuse | Fail)) != 0 ? static_cast<NTSTATUS>(rule->status)
                                                                     : STATUS_SUCCESS;
}

void Proceed(Request& request, Batch& batch)
{
    if (!request.slot->plugged) {
        Finish(request, STATUS_DEVICE_NOT_CONNECTED, 0, batch); // a stubborn one that outlived its device
    } else if (request.Has(Fail)) {
        Finish(request, request.status, 0, batch);
    } else if (!IsTransfer(request.code)) {
        Answer(request, batch);
    } else if (request.endpoint->IsIn()) { // NOLINT(clang-analyzer-core.CallAndMessage): every transfer has one
        Read(request, batch);
    } else {
        Write(request, batch);
    }
}

void ProceedDue(Slot& slot, std::uint64_t now, Batch& batch)
{
    // Each may end others of the list (an abort does), so the search starts again after each.
    for (LIST_ENTRY* entry = slot.held.Flink; entry != &slot.held;) {
        Request& request = *kernel::FromLink<Request>(entry);
        if (request.due > now) {
            entry = entry->Flink;
            continue;
        }
        if (Claim(request)) {
            request.actions &=
                ~static_cast<std::uint32_t>(Stubborn); // from here on it heeds what was asked meanwhile
            Proceed(request, batch);
        }
        entry = slot.held.Flink;
    }
}

void ServeReads(Endpoint& endpoint, Batch& batch)
{
    while (!IsListEmpty(&endpoint.chunks) && !IsListEmpty(&endpoint.waiting)) {
        Request& request = *kernel::FromLink<Request>(endpoint.waiting.Flink);
        if (Claim(request)) {
            Read(request, batch);
        }
    }
}

void ServeSuppliers(Endpoint& endpoint, Batch& batch)
{
    while (!IsListEmpty(&endpoint.suppliers)) {
        Request& supplier = *kernel::FromLink<Request>(endpoint.suppliers.Flink);
        const std::uint64_t unread = endpoint.chunkBytes;
        if (unread != 0 && unread + supplier.length > MaximumUnread) {
            return;
        }
        if (Claim(supplier)) {
            endpoint.chunkBytes += supplier.length;
            InsertTailList(&endpoint.chunks, &supplier.written->link);
            supplier.written = nullptr;
            Finish(supplier, STATUS_SUCCESS, 0, batch);
        }
    }
}

std::uint32_t ConnectionOf(const FILE_OBJECT& file)
{
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(file.FsContext2));
}

void SetConnection(Slot& slot, std::uint32_t connection, Batch& batch)
{
    slot.connection = connection;
    for (Endpoint& endpoint : slot.endpoints) {
        FinishThose(endpoint.suppliers, STATUS_DEVICE_NOT_CONNECTED, batch, [](const Request&) { return true; });
        for (LIST_ENTRY* entry = endpoint.chunks.Flink; endpoint.IsIn() && entry != &endpoint.chunks;) {
            Chunk* const chunk = kernel::FromLink<Chunk>(entry);
            entry = entry->Flink;
            if (chunk->connection != 0) {
                endpoint.chunkBytes -= chunk->length - chunk->consumed;
                RemoveEntryList(&chunk->link);
                kernel::Free(chunk);
            }
        }
    }
    ServeWatchers(slot, batch);
}

void ServeWatchers(Slot& slot, Batch& batch)
{
    for (LIST_ENTRY* entry = slot.watchers.Flink; entry != &slot.watchers;) {
        Request& watcher = *kernel::FromLink<Request>(entry);
        entry = entry->Flink;
        if (watcher.known != slot.connection && Claim(watcher)) {
            const Connection answer{slot.connection};
            RtlCopyMemory(watcher.data, &answer, sizeof answer);
            Finish(watcher, STATUS_SUCCESS, sizeof answer, batch);
        }
    }
}

void ServeTakers(Endpoint& endpoint, Batch& batch)
{
    for (;;) {
        if (!IsListEmpty(&endpoint.chunks) && !IsListEmpty(&endpoint.takers)) {
            Request& taker = *kernel::FromLink<Request>(endpoint.takers.Flink);
            if (Claim(taker)) {
                Chunk* const chunk = kernel::TakeFirst<Chunk>(endpoint.chunks);
                endpoint.chunkBytes -= chunk->length;
                Give(*chunk, taker, batch);
                kernel::Free(chunk);
            }
        } else if (!endpoint.IsIn() && !IsListEmpty(&endpoint.waiting) &&
                   HasRoom(*kernel::FromLink<Request>(endpoint.waiting.Flink)))
        {
            Request& writer = *kernel::FromLink<Request>(endpoint.waiting.Flink);
            if (Claim(writer)) {
                Store(writer, batch);
            }
        } else {
            return;
        }
    }
}

void FreeChunks(Endpoint& endpoint)
{
    while (Chunk* const chunk = kernel::TakeFirst<Chunk>(endpoint.chunks)) {
        kernel::Free(chunk);
    }
    endpoint.chunkBytes = 0;
}

} // namespace driver
