// Stand-in for <ntddk.h>: what the driver of the simulated instruments names of Windows' kernel, so that the unit
// tests have the same driver in the simulated Windows.
#pragma once

#include "simulation/standin/constants.h"
#include "simulation/standin/types.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#define NTAPI
#define NT_SUCCESS(status) ((status) >= 0)
#define CONTAINING_RECORD(address, type, field) \
    (reinterpret_cast<type*>(reinterpret_cast<std::uintptr_t>(address) - offsetof(type, field)))

using NTSTATUS = std::int32_t;
using KIRQL = std::uint8_t;
using KSPIN_LOCK = std::uintptr_t;

inline constexpr NTSTATUS STATUS_SUCCESS = 0, STATUS_UNSUCCESSFUL = static_cast<NTSTATUS>(0xC0000001),
                          STATUS_INVALID_PARAMETER = static_cast<NTSTATUS>(0xC000000D),
                          STATUS_INVALID_DEVICE_REQUEST = static_cast<NTSTATUS>(0xC0000010),
                          STATUS_BUFFER_TOO_SMALL = static_cast<NTSTATUS>(0xC0000023),
                          STATUS_INSUFFICIENT_RESOURCES = static_cast<NTSTATUS>(0xC000009A),
                          STATUS_DEVICE_NOT_CONNECTED = static_cast<NTSTATUS>(0xC000009D),
                          STATUS_CANCELLED = static_cast<NTSTATUS>(0xC0000120);

enum KernelConstants { NonPagedPool = 0, IO_NO_INCREMENT = 0 };

struct DEVICE_OBJECT
{
    int unused;
};

struct FILE_OBJECT
{
    void* FsContext;
    void* FsContext2;
};

struct UNICODE_STRING
{
    bool isShown; // of the interface that it names
};

struct KEVENT
{
    int unused;
};

struct LIST_ENTRY
{
    LIST_ENTRY* Flink;
    LIST_ENTRY* Blink;
};

struct IO_STACK_LOCATION
{
    FILE_OBJECT* FileObject;
    struct
    {
        struct
        {
            ULONG IoControlCode, InputBufferLength, OutputBufferLength;
            void* Type3InputBuffer;
        } DeviceIoControl;
    } Parameters;
};

struct IRP
{
    struct
    {
        NTSTATUS Status;
        std::uintptr_t Information;
    } IoStatus;
    struct
    {
        void* SystemBuffer;
    } AssociatedIrp;
    void* UserBuffer;
    bool Cancel;
    KIRQL CancelIrql;
    struct
    {
        struct
        {
            void* DriverContext[4];
        } Overlay;
    } Tail;
    void (*cancelRoutine)(DEVICE_OBJECT*, IRP*);
    IO_STACK_LOCATION stack;
};

inline void InitializeListHead(LIST_ENTRY* list)
{
    list->Flink = list->Blink = list;
}
inline bool IsListEmpty(const LIST_ENTRY* list)
{
    return list->Flink == list;
}
inline void InsertTailList(LIST_ENTRY* list, LIST_ENTRY* entry)
{
    entry->Flink = list;
    entry->Blink = list->Blink;
    list->Blink->Flink = entry;
    list->Blink = entry;
}
inline void RemoveEntryList(LIST_ENTRY* entry)
{
    entry->Blink->Flink = entry->Flink;
    entry->Flink->Blink = entry->Blink;
}
inline LIST_ENTRY* RemoveHeadList(LIST_ENTRY* list)
{
    LIST_ENTRY* const first = list->Flink;
    RemoveEntryList(first);
    return first;
}

// One thread is in the driver at a time: the scheduler changes threads at calls only.
inline void KeInitializeSpinLock(KSPIN_LOCK*) {}
inline void KeAcquireSpinLock(KSPIN_LOCK*, KIRQL*) {}
inline void KeReleaseSpinLock(KSPIN_LOCK*, KIRQL) {}
inline void IoReleaseCancelSpinLock(KIRQL) {}
inline void IoMarkIrpPending(IRP*) {}

inline void* ExAllocatePoolWithTag(int, std::size_t size, ULONG)
{
    return std::malloc(size);
}
inline void ExFreePoolWithTag(void* memory, ULONG)
{
    std::free(memory);
}
inline void RtlZeroMemory(void* memory, std::size_t size)
{
    std::memset(memory, 0, size);
}
inline void RtlCopyMemory(void* to, const void* from, std::size_t size)
{
    if (size != 0) {
        std::memcpy(to, from, size);
    }
}
inline IO_STACK_LOCATION* IoGetCurrentIrpStackLocation(IRP* irp)
{
    return &irp->stack;
}
inline auto IoSetCancelRoutine(IRP* irp, void (*routine)(DEVICE_OBJECT*, IRP*))
{
    const auto before = irp->cancelRoutine;
    irp->cancelRoutine = routine;
    return before;
}
inline NTSTATUS IoSetDeviceInterfaceState(UNICODE_STRING* name, int isShown)
{
    name->isShown = isShown != 0;
    return STATUS_SUCCESS;
}

void IoCompleteRequest(IRP* irp, int increment);
/// The driver sets one event only: when a request with a delay has come.
void KeSetEvent(KEVENT* event, int increment, int wait);
std::uint64_t KeQueryInterruptTime();
