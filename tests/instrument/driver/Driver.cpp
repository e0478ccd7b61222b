// A driver with the vendor driver's interface and no hardware: what an instrument does, tests say through
// the remote control. One node of the device tree per slot, eight of them, made at the installation.
#include "tests/instrument/driver/Remote.h"
#include "tests/instrument/driver/Transfers.h"

// GUIDs with storage, in this file only.
#include <initguid.h>

namespace driver {

Bus g_bus;

namespace {

DEFINE_GUID(InstrumentInterface, 0x4E7B2C19, 0x8D35, 0x4A60, 0xB1, 0xF2, 0x7C, 0x9E, 0x05, 0xD3, 0xA6, 0x48);

const wchar_t RemoteName[] = L"\\Device\\MorvaneInstrumentRemote";
const wchar_t RemoteLink[] = L"\\DosDevices\\MorvaneInstrumentRemote";

Slot* SlotOf(DEVICE_OBJECT* device)
{
    return device == g_bus.remote ? nullptr : *static_cast<Slot**>(device->DeviceExtension);
}

/// The slot that a device node was made for: its instance is the last part but one of its interface's name,
/// ...#0003#{interface class}. Null when the name is not of that kind or the slot is taken.
Slot* SlotNamedBy(const UNICODE_STRING& interfaceName)
{
    constexpr std::size_t AfterInstance = 39; // "#{", 36 characters, "}"
    const std::size_t length = interfaceName.Length / sizeof(wchar_t);
    if (length <= AfterInstance) {
        return nullptr;
    }
    const std::uint32_t number =
        static_cast<std::uint32_t>(interfaceName.Buffer[length - AfterInstance - 1]) - L'0';
    return number < instrumentbus::SlotCount && g_bus.slots[number].device == nullptr ? &g_bus.slots[number]
                                                                                      : nullptr;
}

void InitializeSlot(Slot& slot)
{
    slot.generation = 1; // a handle that was refused has none: Wine opens it nevertheless, see OnCreate
    InitializeListHead(&slot.rules);
    InitializeListHead(&slot.held);
    InitializeListHead(&slot.watchers);
    for (std::uint32_t i = 0; i < instrumentbus::EndpointCount; ++i) {
        Endpoint& endpoint = slot.endpoints[i];
        endpoint.address = static_cast<std::uint8_t>((i & 15) | (i & 16 ? 0x80 : 0));
        InitializeListHead(&endpoint.waiting);
        InitializeListHead(&endpoint.chunks);
        InitializeListHead(&endpoint.takers);
        InitializeListHead(&endpoint.suppliers);
    }
}

// Wine does not wait for what this says: a refused handle is opened too, but every request on it fails.
NTSTATUS NTAPI OnCreate(DEVICE_OBJECT* device, IRP* irp)
{
    NTSTATUS status = STATUS_SUCCESS;
    if (Slot* const slot = SlotOf(device)) {
        const LockScope lock(g_bus.lock);
        status = MayOpen(*slot);
        if (NT_SUCCESS(status)) {
            ++slot->counters.opens;
            FILE_OBJECT& file = *IoGetCurrentIrpStackLocation(irp)->FileObject;
            file.FsContext = reinterpret_cast<void*>(static_cast<std::uintptr_t>(slot->generation));
            file.FsContext2 = reinterpret_cast<void*>(static_cast<std::uintptr_t>(slot->counters.opens));
        }
    }
    return CompleteNow(irp, status);
}

NTSTATUS NTAPI OnCleanup(DEVICE_OBJECT*, IRP* irp)
{
    DropFile(IoGetCurrentIrpStackLocation(irp)->FileObject);
    return CompleteNow(irp, STATUS_SUCCESS);
}

NTSTATUS NTAPI OnClose(DEVICE_OBJECT* device, IRP* irp)
{
    // Wine sends no cleanup in front of the close.
    FILE_OBJECT* const file = IoGetCurrentIrpStackLocation(irp)->FileObject;
    DropFile(file);
    if (Slot* const slot = SlotOf(device)) {
        Batch batch;
        const LockScope lock(g_bus.lock);
        ++slot->counters.closes;
        if (slot->connection != 0 && slot->connection == ConnectionOf(*file)) {
            SetConnection(*slot, 0, batch);
        }
    }
    return CompleteNow(irp, STATUS_SUCCESS);
}

NTSTATUS NTAPI OnControl(DEVICE_OBJECT* device, IRP* irp)
{
    Slot* const slot = SlotOf(device);
    return slot == nullptr ? OnRemoteControl(irp) : OnInstrumentControl(*slot, irp);
}

NTSTATUS PassDown(DEVICE_OBJECT* lower, IRP* irp)
{
    IoSkipCurrentIrpStackLocation(irp);
    return IoCallDriver(lower, irp);
}

NTSTATUS NTAPI OnPower(DEVICE_OBJECT* device, IRP* irp)
{
    Slot* const slot = SlotOf(device);
    return slot == nullptr ? CompleteNow(irp, STATUS_SUCCESS) : PassDown(slot->lowerDevice, irp);
}

NTSTATUS NTAPI OnPnp(DEVICE_OBJECT* device, IRP* irp)
{
    Slot* const slot = SlotOf(device);
    if (slot == nullptr) {
        return CompleteNow(irp, STATUS_INVALID_DEVICE_REQUEST);
    }
    DEVICE_OBJECT* const lower = slot->lowerDevice;
    switch (IoGetCurrentIrpStackLocation(irp)->MinorFunction) {
    case IRP_MN_START_DEVICE: slot->started = true; break;
    case IRP_MN_REMOVE_DEVICE: {
        UnplugSlot(*slot);
        slot->started = false;
        slot->device = nullptr;
        irp->IoStatus.Status = STATUS_SUCCESS;
        const NTSTATUS status = PassDown(lower, irp);
        RtlFreeUnicodeString(&slot->interfaceName);
        IoDetachDevice(lower);
        IoDeleteDevice(device);
        return status;
    }
    case IRP_MN_SURPRISE_REMOVAL:
    case IRP_MN_QUERY_REMOVE_DEVICE:
    case IRP_MN_CANCEL_REMOVE_DEVICE:
    case IRP_MN_STOP_DEVICE:
    case IRP_MN_QUERY_STOP_DEVICE:
    case IRP_MN_CANCEL_STOP_DEVICE: break;
    default: return PassDown(lower, irp);
    }
    irp->IoStatus.Status = STATUS_SUCCESS;
    return PassDown(lower, irp);
}

NTSTATUS NTAPI AddDevice(DRIVER_OBJECT* driver, DEVICE_OBJECT* physicalDevice)
{
    UNICODE_STRING interfaceName;
    NTSTATUS status = IoRegisterDeviceInterface(physicalDevice, &InstrumentInterface, nullptr, &interfaceName);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    Slot* const slot = SlotNamedBy(interfaceName);
    constexpr ULONG extensionSize = sizeof(Slot*); // NOLINT(bugprone-sizeof-expression): a pointer is all it holds
    DEVICE_OBJECT* device = nullptr;
    status = slot == nullptr
               ? STATUS_INVALID_PARAMETER
               : IoCreateDevice(driver, extensionSize, nullptr, FILE_DEVICE_UNKNOWN, 0, FALSE, &device);
    if (!NT_SUCCESS(status)) {
        RtlFreeUnicodeString(&interfaceName);
        return status;
    }
    *static_cast<Slot**>(device->DeviceExtension) = slot;
    slot->interfaceName = interfaceName;
    slot->physicalDevice = physicalDevice;
    slot->lowerDevice = IoAttachDeviceToDeviceStack(device, physicalDevice);
    slot->device = device;
    device->Flags &= ~static_cast<ULONG>(DO_DEVICE_INITIALIZING);
    return STATUS_SUCCESS;
}

void NTAPI Unload(DRIVER_OBJECT*)
{
    StopDelays();
    UNICODE_STRING link;
    RtlInitUnicodeString(&link, RemoteLink);
    IoDeleteSymbolicLink(&link);
    IoDeleteDevice(g_bus.remote);
}

NTSTATUS MakeRemote(DRIVER_OBJECT* driver)
{
    UNICODE_STRING name;
    UNICODE_STRING link;
    RtlInitUnicodeString(&name, RemoteName);
    RtlInitUnicodeString(&link, RemoteLink);
    NTSTATUS status = IoCreateDevice(driver, 0, &name, FILE_DEVICE_UNKNOWN, 0, FALSE, &g_bus.remote);
    if (NT_SUCCESS(status)) {
        g_bus.remote->Flags &= ~static_cast<ULONG>(DO_DEVICE_INITIALIZING);
        status = IoCreateSymbolicLink(&link, &name);
    }
    return status;
}

} // namespace

NTSTATUS Start(DRIVER_OBJECT* driver)
{
    g_bus.lock.Initialize();
    for (Slot& slot : g_bus.slots) {
        InitializeSlot(slot);
    }
    driver->MajorFunction[IRP_MJ_CREATE] = OnCreate;
    driver->MajorFunction[IRP_MJ_CLEANUP] = OnCleanup;
    driver->MajorFunction[IRP_MJ_CLOSE] = OnClose;
    driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = OnControl;
    driver->MajorFunction[IRP_MJ_PNP] = OnPnp;
    driver->MajorFunction[IRP_MJ_POWER] = OnPower;
    driver->DriverExtension->AddDevice = AddDevice;
    driver->DriverUnload = Unload;
    const NTSTATUS status = MakeRemote(driver);
    return NT_SUCCESS(status) ? StartDelays() : status;
}

} // namespace driver

extern "C" NTSTATUS NTAPI DriverEntry(DRIVER_OBJECT* driver, UNICODE_STRING*);

NTSTATUS NTAPI DriverEntry(DRIVER_OBJECT* object, UNICODE_STRING*)
{
    return driver::Start(object);
}
