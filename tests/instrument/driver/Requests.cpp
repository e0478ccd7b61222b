#include "tests/instrument/driver/Requests.h"

#include "tests/instrument/driver/Wire.h"

namespace driver {

namespace {

void NTAPI OnCancel(DEVICE_OBJECT*, IRP* irp)
{
    IoReleaseCancelSpinLock(irp->CancelIrql);
    Batch batch;
    const LockScope lock(g_bus.lock);
    Request& request = *static_cast<Request*>(irp->Tail.Overlay.DriverContext[0]);
    // After a failed Claim the request is a list of its own.
    RemoveEntryList(&request.link);
    Finish(request, STATUS_CANCELLED, 0, batch);
}

void Count(Endpoint& endpoint, NTSTATUS status, std::uint32_t bytes)
{
    --endpoint.unfinished;
    if (NT_SUCCESS(status)) {
        ++endpoint.completed;
        endpoint.bytes += bytes;
    } else {
        ++endpoint.failed;
    }
}

} // namespace

Batch::~Batch()
{
    while (Request* const request = kernel::TakeFirst<Request>(m_done)) {
        IoCompleteRequest(request->irp, IO_NO_INCREMENT);
        kernel::Free(request->written);
        kernel::Free(request);
    }
}

void Park(Request& request, LIST_ENTRY& list, Batch& batch)
{
    InsertTailList(&list, &request.link);
    if (request.Has(instrumentbus::Stubborn)) {
        return;
    }
    request.irp->Tail.Overlay.DriverContext[0] = &request;
    IoSetCancelRoutine(request.irp, OnCancel);
    if (request.irp->Cancel && IoSetCancelRoutine(request.irp, nullptr) != nullptr) {
        RemoveEntryList(&request.link);
        Finish(request, STATUS_CANCELLED, 0, batch);
    }
}

bool Claim(Request& request)
{
    RemoveEntryList(&request.link);
    if (request.Has(instrumentbus::Stubborn)) {
        return true;
    }
    if (IoSetCancelRoutine(request.irp, nullptr) != nullptr) {
        return true;
    }
    InitializeListHead(&request.link);
    return false;
}

void Finish(Request& request, NTSTATUS status, std::uint32_t bytes, Batch& batch)
{
    if (request.endpoint != nullptr && !request.remote) {
        Count(*request.endpoint, status, bytes);
    }
    if (request.Has(instrumentbus::Statuses) && request.block != nullptr) {
        wire::Put(request.block + wire::NtStatus, request.ntStatus);
        wire::Put(request.block + wire::UsbdStatus, request.usbdStatus);
    }
    request.irp->IoStatus.Status = status;
    request.irp->IoStatus.Information = NT_SUCCESS(status) ? request.prefix + bytes : 0;
    batch.Add(request);
}

NTSTATUS CompleteNow(IRP* irp, NTSTATUS status, std::uint32_t information)
{
    irp->IoStatus.Status = status;
    irp->IoStatus.Information = information;
    IoCompleteRequest(irp, IO_NO_INCREMENT);
    return status;
}

} // namespace driver
