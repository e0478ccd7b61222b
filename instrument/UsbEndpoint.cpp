#include "instrument/UsbEndpoint.h"

#include "console/Console.h"
#include "tests/instrument/InstrumentDriver.h"
#include "tests/instrument/RemoteCall.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <span>
#include <string>
#include <utility>

namespace instrument {

using namespace instrumentbus;

namespace {

// The endpoints of instrumentbus::Instrument.
constexpr std::uint8_t OutEndpoint = 0x02;
constexpr std::uint8_t InEndpoint = 0x86;

constexpr std::size_t LongestWrite = 128u << 10;

constexpr std::chrono::milliseconds InstallationTimeout{30'000};

/// How long an instrument that goes lets the router read what was sent before.
constexpr std::chrono::milliseconds LastReads{200};

win32::KernelHandle SlotMutex(std::uint32_t slot)
{
    const std::wstring name = L"Local\\MorvaneTestInstrumentSlot" + std::to_wstring(slot);
    return win32::KernelHandle(::CreateMutexW(nullptr, FALSE, name.c_str()));
}

} // namespace

UsbEndpoint::UsbEndpoint(const Place& place, Engine& engine, Observer& observer, HANDLE stop)
    : Endpoint(engine, observer),
      m_place(place),
      m_slotTurn(SlotMutex(place.slot)),
      m_taken(sizeof(Taken) + LongestWrite),
      m_waits(stop, m_supply.EventHandle(), m_take.EventHandle(), m_watch.EventHandle())
{
}

UsbEndpoint::~UsbEndpoint()
{
    if (m_slotOurs) {
        ::ReleaseMutex(m_slotTurn.Get());
    }
}

bool UsbEndpoint::TakeSlot()
{
    const DWORD result = ::WaitForSingleObject(m_slotTurn.Get(), 0);
    m_slotOurs = result == WAIT_OBJECT_0 || result == WAIT_ABANDONED;
    return m_slotOurs;
}

void UsbEndpoint::Begin()
{
    if (!TakeSlot()) {
        FinishWith(End::Taken);
        return;
    }
    if (std::string failure = InstallDriver(DriverBesideProgram(), InstallationTimeout); !failure.empty()) {
        FinishWith(End::Refused, std::move(failure));
        return;
    }
    try {
        m_control.emplace();
        m_control->Release(m_place.slot); // rules of an earlier program
        m_latestConnection = m_control->Count(m_place.slot).opens;
        Return();
    } catch (const std::exception& fault) {
        FinishWith(End::Refused, fault.what());
        return;
    }
    m_remote = OpenRemote();
    StartTaking();
    StartWatching();
}

void UsbEndpoint::Await(DWORD milliseconds)
{
    switch (m_waits.Any(milliseconds)) {
    case Slot::Stop: FinishWith(End::Stopped); break;
    case Slot::Supplied: OnSupplied(); break;
    case Slot::Taken: OnTaken(); break;
    case Slot::Watched: OnWatched(); break;
    case Slot::TimedOut:
    case Slot::Failed: break;
    }
}

void UsbEndpoint::Return()
{
    Description description = Instrument(m_place.vendorId, m_place.productId);
    description.leavesWithHandle = true;
    m_control->Plug(m_place.slot, description);
}

void UsbEndpoint::Vanish()
{
    m_connection = 0;
    Unplug();
}

void UsbEndpoint::Unplug()
{
    // The driver drops what is unread. The router always reads: a moment is enough for it to ask again.
    m_control->WaitFor(
        m_place.slot, InEndpoint, [](const instrumentbus::Counters& counters) { return counters.chunks == 0; },
        LastReads);
    m_control->Unplug(m_place.slot);
}

void UsbEndpoint::Leave()
{
    if (!m_remote) {
        return; // it has not begun
    }
    // Unplugged first: that ends supply and watch. Wine's kernel is not up to a cancellation that meets an end.
    Unplug();
    AwaitSupply();
    if (m_connection != 0) {
        ::WaitForSingleObject(m_watch.EventHandle(), INFINITE);
    }
    m_watch.Cancel();
    m_take.Cancel();
}

void UsbEndpoint::OnRefused(const char* what)
{
    FinishWith(End::Refused, std::string(what) + " failed with error " + std::to_string(::GetLastError()));
}

void UsbEndpoint::StartTaking()
{
    const Target target{m_place.slot, OutEndpoint};
    if (!m_take.Control(m_remote.Get(), RemoteTake, &target, sizeof target, m_taken.data(),
                        static_cast<DWORD>(m_taken.size())))
    {
        OnRefused("taking what is written");
    }
}

void UsbEndpoint::StartWatching()
{
    const Watch watch{m_place.slot, m_connection};
    if (!m_watch.Control(m_remote.Get(), RemoteWatch, &watch, sizeof watch, &m_watched, sizeof m_watched)) {
        OnRefused("watching for the router");
    }
}

void UsbEndpoint::OnTaken()
{
    // What has come meanwhile is taken without going through the wait.
    for (int step = 0; step < Burst; ++step) {
        DWORD length = 0;
        if (!m_take.Finish(m_remote.Get(), length)) {
            if (::GetLastError() != ERROR_IO_INCOMPLETE) {
                OnRefused("taking what is written");
            }
            return;
        }
        instrumentbus::Taken head{};
        std::memcpy(&head, m_taken.data(), sizeof head);
        if (head.connection > m_latestConnection) {
            SetConnection(head.connection); // faster than the watch
        }
        if (head.connection == m_connection) {
            m_engine.Receive(std::span<const std::uint8_t>(m_taken).subspan(sizeof head, head.length),
                             console::Now());
        }
        StartTaking();
        PlayWhatIsDue();
    }
}

void UsbEndpoint::OnWatched()
{
    DWORD length = 0;
    if (!m_watch.Finish(m_remote.Get(), length)) {
        if (::GetLastError() != ERROR_IO_INCOMPLETE) {
            OnRefused("watching for the router");
        }
        return;
    }
    // A write of the next connection may have told of that already.
    if (m_watched.number == 0 || m_watched.number > m_latestConnection) {
        SetConnection(m_watched.number);
    }
    StartWatching();
}

void UsbEndpoint::SetConnection(std::uint32_t connection)
{
    if (m_connection != 0) {
        AwaitSupply();
        OnRouterGone({});
    }
    m_connection = connection;
    m_latestConnection = std::max(m_latestConnection, connection);
    if (connection != 0) {
        OnConnected();
    }
}

void UsbEndpoint::AwaitSupply()
{
    DWORD length = 0;
    if (m_supply.IsPending()) {
        ::WaitForSingleObject(m_supply.EventHandle(), INFINITE);
        m_supply.Finish(m_remote.Get(), length);
    }
}

void UsbEndpoint::Write(const instrument::Bytes& bytes)
{
    const Supply head{m_place.slot, InEndpoint, m_connection};
    m_supplied.resize(sizeof head);
    std::memcpy(m_supplied.data(), &head, sizeof head);
    m_supplied.insert(m_supplied.end(), bytes.begin(), bytes.end());
    // Refused, or mostly complete already because there is room: its event is then not waited for at all.
    m_supply.Control(m_remote.Get(), RemoteSupply, m_supplied.data(), static_cast<DWORD>(m_supplied.size()),
                     nullptr, 0);
    OnSupplied();
}

void UsbEndpoint::OnSupplied()
{
    m_supply.ResetEvent();
    DWORD length = 0;
    if (m_supply.Finish(m_remote.Get(), length) || ::GetLastError() == ERROR_IO_INCOMPLETE) {
        return;
    }
    // A connection that is over: the watch tells next. Nothing else is refused but for a fault of the driver.
    if (::GetLastError() != ERROR_DEVICE_NOT_CONNECTED) {
        OnRefused("supplying answers");
    }
}

} // namespace instrument
