#include "simulation/unit/Driver.h"

#include "simulation/kernel/Call.h"
#include "simulation/kernel/Devices.h"
#include "simulation/kernel/Scheduler.h"
#include "simulation/kernel/World.h"
#include "tests/instrument/driver/Remote.h"
#include "tests/instrument/driver/Transfers.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <utility>
#include <vector>

namespace driver {

Bus g_bus;

} // namespace driver

namespace sim {

namespace {

using driver::g_bus;
using driver::Slot;

constexpr GUID InstrumentInterface = {
    0x4E7B2C19, 0x8D35, 0x4A60, {0xB1, 0xF2, 0x7C, 0x9E, 0x05, 0xD3, 0xA6, 0x48}};
constexpr const char* RemotePath = "\\\\.\\MorvaneInstrumentRemote";
constexpr const char* SlotPath = "\\\\?\\slot#";
constexpr std::uint64_t PerMicrosecond = 10; // ticks of the kernel's time

/// A handle of an instrument, or of the remote control.
struct DriverFile final : Object
{
    explicit DriverFile(Slot* opened) : Object(Kind::Driven), slot(opened) {}
    void OnClosed() override
    {
        driver::DropFile(&file);
        if (slot == nullptr) {
            return;
        }
        driver::Batch batch;
        ++slot->counters.closes;
        if (slot->connection != 0 && slot->connection == driver::ConnectionOf(file)) {
            driver::SetConnection(*slot, 0, batch);
        }
    }

    Slot* const slot; // null: the remote control
    FILE_OBJECT file{};
};

/// A request on its way through the driver.
struct Packet
{
    IRP irp{};
    Request request;
    std::vector<std::uint8_t> system; // of a buffered request: input and output
    bool isInDispatch = true, isDone = false;
};

std::vector<std::unique_ptr<Packet>> g_packets;

DWORD ErrorOf(NTSTATUS status)
{
    constexpr std::pair<std::uint32_t, DWORD> errors[] = {
        {0, ERROR_SUCCESS},
        {0xC0000001, ERROR_GEN_FAILURE},
        {0xC0000004, 24}, // ERROR_BAD_LENGTH
        {0xC000000D, ERROR_INVALID_PARAMETER},
        {0xC0000010, ERROR_INVALID_FUNCTION},
        {0xC0000022, ERROR_ACCESS_DENIED},
        {0xC0000023, ERROR_INSUFFICIENT_BUFFER},
        {0xC000009A, ERROR_NO_SYSTEM_RESOURCES},
        {0xC000009D, ERROR_DEVICE_NOT_CONNECTED},
        {0xC0000120, ERROR_OPERATION_ABORTED},
        {0xC0000185, ERROR_IO_DEVICE},
    };
    const auto* const at =
        std::ranges::find(errors, static_cast<std::uint32_t>(status), &std::pair<std::uint32_t, DWORD>::first);
    return at != std::end(errors) ? at->second : 317; // ERROR_MR_MID_NOT_FOUND
}

// Output of a buffered request is copied at its end, in the requester's thread.
DWORD End(Packet& packet)
{
    const auto count = static_cast<DWORD>(packet.irp.IoStatus.Information);
    if (!packet.system.empty() && NT_SUCCESS(packet.irp.IoStatus.Status)) {
        std::copy_n(packet.system.begin(), std::min(count, packet.request.length), packet.request.buffer);
    }
    return count;
}

void Forget(const Packet& packet)
{
    std::erase_if(g_packets, [&](const std::unique_ptr<Packet>& known) { return known.get() == &packet; });
}

class InstrumentDriver final : public IDriver
{
public:
    std::vector<std::string> Present(const GUID& interfaceClass) override
    {
        std::vector<std::string> paths;
        for (std::size_t i = 0; i < instrumentbus::SlotCount && interfaceClass.Data1 == InstrumentInterface.Data1;
             ++i)
        {
            if (g_bus.slots[i].interfaceName.isShown) {
                paths.push_back(SlotPath + std::to_string(i));
            }
        }
        return paths;
    }

    HANDLE Open(const std::string& path) override
    {
        if (path == RemotePath) {
            return AddHandle(Ref<Object>(new DriverFile(nullptr)));
        }
        if (!path.starts_with(SlotPath)) {
            Call::Refuse(ERROR_FILE_NOT_FOUND);
            return INVALID_HANDLE_VALUE;
        }
        Slot& slot = g_bus.slots[path.back() - '0'];
        const NTSTATUS status = driver::MayOpen(slot);
        if (!NT_SUCCESS(status)) {
            Call::Refuse(ErrorOf(status));
            return INVALID_HANDLE_VALUE;
        }
        auto* const opened = new DriverFile(&slot);
        ++slot.counters.opens;
        opened->file = {reinterpret_cast<void*>(std::uintptr_t{slot.generation}),
                        reinterpret_cast<void*>(std::uintptr_t{slot.counters.opens})};
        return AddHandle(Ref<Object>(opened));
    }

    BOOL Control(Object& object, DWORD code, std::span<std::uint8_t> in, std::span<std::uint8_t> out,
                 OVERLAPPED* record, DWORD* returned) override
    {
        auto& file = static_cast<DriverFile&>(object);
        g_packets.push_back(std::make_unique<Packet>());
        Packet& packet = *g_packets.back();
        packet.request = Accept(record, object, out.data(), static_cast<DWORD>(out.size()));
        packet.irp.stack.FileObject = &file.file;
        packet.irp.stack.Parameters.DeviceIoControl = {code, static_cast<ULONG>(in.size()),
                                                       static_cast<ULONG>(out.size()), in.data()};
        packet.irp.UserBuffer = out.data();
        if (constexpr DWORD Method = 3; (code & Method) == 0) {
            packet.system.resize(std::max<std::size_t>({in.size(), out.size(), 1}));
            std::ranges::copy(in, packet.system.begin());
            packet.irp.AssociatedIrp.SystemBuffer = packet.system.data();
        }
        const NTSTATUS status = file.slot == nullptr ? driver::OnRemoteControl(&packet.irp)
                                                     : driver::OnInstrumentControl(*file.slot, &packet.irp);
        packet.isInDispatch = false;
        return Answer(packet, file.slot == nullptr, status, returned);
    }

    bool Cancel(Object& file, const OVERLAPPED* record) override
    {
        for (const auto& packet : g_packets) {
            if (packet->request.file.get() == &file && packet->request.record == record) {
                packet->irp.Cancel = true;
                if (const auto routine = IoSetCancelRoutine(&packet->irp, nullptr); routine != nullptr) {
                    routine(nullptr, &packet->irp);
                }
                return true;
            }
        }
        return false;
    }

private:
    // What was marked as pending is answered as pending, though it may be done. The tests' own calls count on
    // record and event of what is complete at its start.
    static BOOL Answer(Packet& packet, bool isRemote, NTSTATUS status, DWORD* returned)
    {
        if (status == static_cast<NTSTATUS>(STATUS_PENDING)) {
            if (packet.isDone) {
                const DWORD count = End(packet);
                Complete(packet.request, ErrorOf(packet.irp.IoStatus.Status), count);
                Forget(packet);
            }
            return Call::Refuse(ERROR_IO_PENDING);
        }
        const DWORD count = End(packet);
        const Request request = packet.request;
        Forget(packet);
        if (!NT_SUCCESS(status)) {
            return RefuseStart(request, ErrorOf(status), true);
        }
        Complete(request, ERROR_SUCCESS, count);
        return isRemote ? TRUE : AnswerStart(request, returned);
    }
};

InstrumentDriver g_driver;

void InitializeSlot(Slot& slot)
{
    slot = {};
    slot.generation = 1;
    slot.started = true;
    for (LIST_ENTRY* const list : {&slot.rules, &slot.held, &slot.watchers}) {
        InitializeListHead(list);
    }
    for (std::uint32_t i = 0; i < instrumentbus::EndpointCount; ++i) {
        driver::Endpoint& endpoint = slot.endpoints[i];
        endpoint.address = static_cast<std::uint8_t>((i & 15) | (i & 16 ? 0x80 : 0));
        for (LIST_ENTRY* const list : {&endpoint.waiting, &endpoint.chunks, &endpoint.takers, &endpoint.suppliers})
        {
            InitializeListHead(list);
        }
    }
}

// Ends the delays that are over at `due`.
void AwaitDelay(std::uint64_t due)
{
    StartFiber([due] {
        ++Current().inKernel;
        const std::uint64_t at = due / PerMicrosecond;
        Block(at - std::min(at, NowUs()), nullptr);
        driver::Batch batch;
        for (Slot& slot : g_bus.slots) {
            driver::ProceedDue(slot, due, batch);
        }
    }).isProduct = false;
}

} // namespace

void LoadInstrumentDriver()
{
    g_packets.clear();
    for (Slot& slot : g_bus.slots) {
        InitializeSlot(slot);
    }
    TheWorld().devices->driver = &g_driver;
}

} // namespace sim

void IoCompleteRequest(IRP* irp, int /*increment*/)
{
    auto& packet = *CONTAINING_RECORD(irp, sim::Packet, irp);
    packet.isDone = true;
    if (!packet.isInDispatch) {
        const DWORD count = sim::End(packet);
        const sim::Request request = packet.request;
        const NTSTATUS status = irp->IoStatus.Status;
        sim::Forget(packet);
        sim::Complete(request, sim::ErrorOf(status), count);
    }
}

void KeSetEvent(KEVENT* /*event*/, int /*increment*/, int /*wait*/)
{
    for (driver::Slot& slot : driver::g_bus.slots) {
        for (LIST_ENTRY* entry = slot.held.Flink; entry != &slot.held; entry = entry->Flink) {
            if (const std::uint64_t due = kernel::FromLink<driver::Request>(entry)->due; due != driver::Never) {
                sim::AwaitDelay(due);
            }
        }
    }
}

std::uint64_t KeQueryInterruptTime()
{
    return sim::NowUs() * sim::PerMicrosecond;
}
