// The scripted instrument as a USB device.
#include "console/Console.h"
#include "instrument/Endpoint.h"
#include "tests/instrument/InstrumentControl.h"
#include "tests/instrument/InstrumentDriver.h"
#include "tests/instrument/RemoteCall.h"
#include "win32/Handle.h"

#include <cstring>
#include <exception>
#include <span>

namespace instrument {

namespace {

namespace bus = instrumentbus;

// The endpoints of bus::Instrument.
constexpr std::uint8_t OutEndpoint = 0x02;
constexpr std::uint8_t InEndpoint = 0x86;

static_assert(UsbPlace::Slots == bus::SlotCount);

constexpr std::size_t LongestWrite = 128u << 10;

constexpr std::chrono::milliseconds InstallationTimeout{30'000};

/// How long an instrument that leaves lets the router read what was sent before.
constexpr std::chrono::milliseconds LastReads{200};

class UsbEndpoint : public Endpoint
{
public:
    UsbEndpoint(const UsbPlace& place, Engine& engine, HANDLE stop)
        : Endpoint(engine, stop, sizeof(bus::Taken) + LongestWrite),
          m_place(place),
          m_slotTurn(::CreateMutexW(nullptr, FALSE,
                                    (L"Local\\MorvaneTestInstrumentSlot" + std::to_wstring(place.slot)).c_str()))
    {
        // The written bytes come before the connection's end: what the router wrote before it left is taken.
        m_awaited = {{&m_write, [this] { ResultOf(m_write); }},
                     {&m_read, [this] { TakeReads(); }},
                     {&m_watch, [this] { OnWatched(); }}};
    }

    ~UsbEndpoint() override
    {
        StopTransfers();                  // before m_control, with whose handle the device leaves
        ::ReleaseMutex(m_slotTurn.Get()); // refused, without effect, when the slot is another program's
    }

private:
    void Begin() override
    {
        const DWORD turn = ::WaitForSingleObject(m_slotTurn.Get(), 0);
        if (turn != WAIT_OBJECT_0 && turn != WAIT_ABANDONED) {
            return FinishWith(End::Taken);
        }
        if (std::string fault = bus::InstallDriver(bus::DriverBesideProgram(), InstallationTimeout);
            !fault.empty())
        {
            return FinishWith(End::Refused, std::move(fault));
        }
        try {
            m_control.emplace();
            m_control->Release(m_place.slot); // rules of an earlier program
            m_latestConnection = m_control->Count(m_place.slot).opens;
            Return();
        } catch (const std::exception& fault) {
            return FinishWith(End::Refused, fault.what());
        }
        m_file = bus::OpenRemote();
        StartTaking();
        StartWatching();
    }

    void StartWrite() override
    {
        const bus::Supply head{m_place.slot, InEndpoint, m_connection};
        const auto* const at = reinterpret_cast<const std::uint8_t*>(&head);
        m_writing.insert(m_writing.begin(), at, at + sizeof head);
        m_write.Control(m_file.Get(), bus::RemoteSupply, m_writing.data(), static_cast<DWORD>(m_writing.size()),
                        nullptr, 0);
    }

    void Return() override
    {
        bus::Description description = bus::Instrument(m_place.vendorId, m_place.productId);
        description.leavesWithHandle = true;
        m_control->Plug(m_place.slot, description);
    }

    void Vanish() override
    {
        m_connection = 0;
        Unplug();
    }

    void Leave() override
    {
        if (!m_file) {
            return; // it has not begun
        }
        // Unplugged first: that ends supply and watch. Wine's kernel is not up to a cancellation that meets an
        // end.
        Unplug();
        AwaitSupply();
        if (m_connection != 0) {
            ::WaitForSingleObject(m_watch.EventHandle(), INFINITE);
        }
        m_watch.Cancel();
        StopTransfers();
    }

    void Unplug()
    {
        // The driver drops what is unread. The router always reads: a moment is enough for it to ask again.
        const auto allRead = [](const bus::Counters& counters) { return counters.chunks == 0; };
        m_control->WaitFor(m_place.slot, InEndpoint, allRead, LastReads);
        m_control->Unplug(m_place.slot);
    }

    void OnFailure(const win32::OverlappedOperation& operation) override
    {
        const DWORD error = ::GetLastError();
        // A connection that is over: the watch reports it next. Only a fault of the driver refuses anything else.
        if (&operation == &m_write && error == ERROR_DEVICE_NOT_CONNECTED) {
            return;
        }
        const std::string what = &operation == &m_write ? "supplying answers"
                               : &operation == &m_read  ? "taking what is written"
                                                        : "watching for the router";
        FinishWith(End::Refused, what + " failed with error " + std::to_string(error));
    }

    void StartTaking()
    {
        const bus::Target target{m_place.slot, OutEndpoint};
        if (!m_read.Control(m_file.Get(), bus::RemoteTake, &target, sizeof target, m_readBuffer.data(),
                            static_cast<DWORD>(m_readBuffer.size())))
        {
            OnFailure(m_read);
        }
    }

    void OnRead(DWORD) override
    {
        bus::Taken head{};
        std::memcpy(&head, m_readBuffer.data(), sizeof head);
        if (head.connection > m_latestConnection) {
            SetConnection(head.connection); // faster than the watch
        }
        if (head.connection == m_connection) {
            m_engine.Receive(std::span(m_readBuffer).subspan(sizeof head, head.length), console::Now());
        }
        StartTaking();
        PlayWhatIsDue();
    }

    void StartWatching()
    {
        const bus::Watch watch{m_place.slot, m_connection};
        if (!m_watch.Control(m_file.Get(), bus::RemoteWatch, &watch, sizeof watch, &m_watched, sizeof m_watched)) {
            OnFailure(m_watch);
        }
    }

    void OnWatched()
    {
        if (!ResultOf(m_watch)) {
            return;
        }
        // A write of the next connection may have reported it already.
        if (m_watched.number == 0 || m_watched.number > m_latestConnection) {
            SetConnection(m_watched.number);
        }
        StartWatching();
    }

    void SetConnection(std::uint32_t connection)
    {
        if (m_connection != 0) {
            AwaitSupply();
            m_engine.Disconnected();
            m_engine.Say("router gone");
        }
        m_connection = connection;
        m_latestConnection = std::max(m_latestConnection, connection);
        if (connection != 0) {
            m_engine.Connected(console::Now());
        }
    }

    /// Of a connection that is over, whose supply the driver ends or has ended.
    void AwaitSupply()
    {
        DWORD length = 0;
        if (m_write.IsPending()) {
            ::WaitForSingleObject(m_write.EventHandle(), INFINITE);
            m_write.Finish(m_file.Get(), length);
        }
    }

    const UsbPlace m_place;
    win32::KernelHandle m_slotTurn;                  // a mutex, ours while the slot is
    std::optional<bus::InstrumentControl> m_control; // whose handle keeps the device
    bus::Connection m_watched{};
    std::uint32_t m_connection = 0;       // 0: none
    std::uint32_t m_latestConnection = 0; // the last that there was
    win32::OverlappedOperation m_watch;
};

} // namespace

std::unique_ptr<Endpoint> MakeUsbEndpoint(const UsbPlace& place, Engine& engine, HANDLE stop)
{
    return std::make_unique<UsbEndpoint>(place, engine, stop);
}

} // namespace instrument
