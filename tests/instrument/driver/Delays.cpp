// The thread that lets delayed requests go on when their time has come.
#include "tests/instrument/driver/Remote.h"
#include "tests/instrument/driver/Transfers.h"

namespace driver {

namespace {

/// Lets go what is due by `now`; returns when the next one will be.
std::uint64_t EndDelays(std::uint64_t now)
{
    std::uint64_t next = Never;
    Batch batch;
    const LockScope lock(g_bus.lock);
    for (Slot& slot : g_bus.slots) {
        ProceedDue(slot, now, batch);
        for (LIST_ENTRY* entry = slot.held.Flink; entry != &slot.held; entry = entry->Flink) {
            const std::uint64_t due = kernel::FromLink<Request>(entry)->due;
            next = due < next ? due : next;
        }
    }
    return next;
}

void NTAPI DelayThread(void*)
{
    while (!g_bus.stopping) {
        const std::uint64_t now = KeQueryInterruptTime();
        const std::uint64_t next = EndDelays(now);
        LARGE_INTEGER timeout;
        timeout.QuadPart = -static_cast<LONGLONG>(next - now); // relative
        KeWaitForSingleObject(&g_bus.delaysChanged, Executive, KernelMode, FALSE,
                              next == Never ? nullptr : &timeout);
    }
    PsTerminateSystemThread(STATUS_SUCCESS);
}

} // namespace

NTSTATUS StartDelays()
{
    KeInitializeEvent(&g_bus.delaysChanged, SynchronizationEvent, FALSE);
    HANDLE thread = nullptr;
    NTSTATUS status =
        PsCreateSystemThread(&thread, THREAD_ALL_ACCESS, nullptr, nullptr, nullptr, DelayThread, nullptr);
    if (NT_SUCCESS(status)) {
        status =
            ObReferenceObjectByHandle(thread, THREAD_ALL_ACCESS, nullptr, KernelMode, &g_bus.delayThread, nullptr);
        ZwClose(thread);
    }
    return status;
}

void StopDelays()
{
    g_bus.stopping = true;
    KeSetEvent(&g_bus.delaysChanged, IO_NO_INCREMENT, FALSE);
    if (g_bus.delayThread != nullptr) {
        KeWaitForSingleObject(g_bus.delayThread, Executive, KernelMode, FALSE, nullptr);
        ObDereferenceObject(g_bus.delayThread);
    }
}

} // namespace driver
