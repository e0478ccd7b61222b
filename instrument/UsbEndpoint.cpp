// The scripted instrument as a USB device.
#include "console/Console.h"
#include "instrument/Endpoint.h"
#include "tests/instrument/InstrumentControl.h"
#include "tests/instrument/InstrumentDriver.h"
#include "tests/instrument/RemoteCall.h"
#include "win32/Handle.h"
#include "win32/OverlappedOperation.h"
#include "win32/WaitSet.h"

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

/// How long an instrument that goes lets the router read what was sent before.
constexpr std::chrono::milliseconds LastReads{200};

class UsbEndpoint : public Endpoint
{
public:
    UsbEndpoint(const UsbPlace& place, Engine& engine, const Observer& observer, HANDLE stop)
        : Endpoint(engine, observer),
          m_place(place),
          m_slotTurn(::CreateMutexW(nullptr, FALSE,
                                    (L"Local\\MorvaneTestInstrumentSlot" + std::to_wstring(place.slot)).c_str())),
          m_taken(sizeof(bus::Taken) + LongestWrite),
          m_waits(stop, m_supply.EventHandle(), m_take.EventHandle(), m_watch.EventHandle())
    {
    }

    ~UsbEndpoint() override
    {
        if (m_slotOurs) {
            ::ReleaseMutex(m_slotTurn.Get());
        }
    }

private:
    // The written bytes come before the connection's end: what the router wrote before it went is taken.
    enum class Slot : DWORD { Stop, Supplied, Taken, Watched, TimedOut = WAIT_TIMEOUT, Failed = WAIT_FAILED };

    void Begin() override
    {
        const DWORD turn = ::WaitForSingleObject(m_slotTurn.Get(), 0);
        m_slotOurs = turn == WAIT_OBJECT_0 || turn == WAIT_ABANDONED;
        if (!m_slotOurs) {
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
        m_remote = bus::OpenRemote();
        StartTaking();
        StartWatching();
    }

    void Await(DWORD milliseconds) override
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

    bool IsWriting() const override { return m_supply.IsPending(); }

    void Write(const Bytes& bytes) override
    {
        const bus::Supply head{m_place.slot, InEndpoint, m_connection};
        m_supplied.resize(sizeof head);
        std::memcpy(m_supplied.data(), &head, sizeof head);
        m_supplied.insert(m_supplied.end(), bytes.begin(), bytes.end());
        // Refused, or mostly complete already because there is space: its event is then not waited for at all.
        m_supply.Control(m_remote.Get(), bus::RemoteSupply, m_supplied.data(),
                         static_cast<DWORD>(m_supplied.size()), nullptr, 0);
        OnSupplied();
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
        if (!m_remote) {
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
        m_take.Cancel();
    }

    void Unplug()
    {
        // The driver drops what is unread. The router always reads: a moment is enough for it to ask again.
        const auto allRead = [](const bus::Counters& counters) { return counters.chunks == 0; };
        m_control->WaitFor(m_place.slot, InEndpoint, allRead, LastReads);
        m_control->Unplug(m_place.slot);
    }

    /// Ends the run because the driver fails a request.
    void OnRefused(const char* what)
    {
        FinishWith(End::Refused, std::string(what) + " failed with error " + std::to_string(::GetLastError()));
    }

    /// True when the operation has its result; ends the run when it failed.
    bool HasFinished(win32::OverlappedOperation& operation, const char* what)
    {
        DWORD length = 0;
        const bool finished = operation.Finish(m_remote.Get(), length);
        if (!finished && ::GetLastError() != ERROR_IO_INCOMPLETE) {
            OnRefused(what);
        }
        return finished;
    }

    void StartTaking()
    {
        const bus::Target target{m_place.slot, OutEndpoint};
        if (!m_take.Control(m_remote.Get(), bus::RemoteTake, &target, sizeof target, m_taken.data(),
                            static_cast<DWORD>(m_taken.size())))
        {
            OnRefused(Taking);
        }
    }

    void OnTaken()
    {
        // What has come meanwhile is taken without going through the wait.
        for (int step = 0; step < Burst && HasFinished(m_take, Taking); ++step) {
            bus::Taken head{};
            std::memcpy(&head, m_taken.data(), sizeof head);
            if (head.connection > m_latestConnection) {
                SetConnection(head.connection); // faster than the watch
            }
            if (head.connection == m_connection) {
                m_engine.Receive(std::span(m_taken).subspan(sizeof head, head.length), console::Now());
            }
            StartTaking();
            PlayWhatIsDue();
        }
    }

    void StartWatching()
    {
        const bus::Watch watch{m_place.slot, m_connection};
        if (!m_watch.Control(m_remote.Get(), bus::RemoteWatch, &watch, sizeof watch, &m_watched, sizeof m_watched))
        {
            OnRefused(Watching);
        }
    }

    void OnWatched()
    {
        if (!HasFinished(m_watch, Watching)) {
            return;
        }
        // A write of the next connection may have told of that already.
        if (m_watched.number == 0 || m_watched.number > m_latestConnection) {
            SetConnection(m_watched.number);
        }
        StartWatching();
    }

    void SetConnection(std::uint32_t connection)
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

    /// Of a connection that is over, whose supply the driver ends or has ended.
    void AwaitSupply()
    {
        DWORD length = 0;
        if (m_supply.IsPending()) {
            ::WaitForSingleObject(m_supply.EventHandle(), INFINITE);
            m_supply.Finish(m_remote.Get(), length);
        }
    }

    void OnSupplied()
    {
        m_supply.ResetEvent();
        DWORD length = 0;
        if (m_supply.Finish(m_remote.Get(), length) || ::GetLastError() == ERROR_IO_INCOMPLETE) {
            return;
        }
        // A connection that is over: the watch reports it next. Only a fault of the driver refuses anything else.
        if (::GetLastError() != ERROR_DEVICE_NOT_CONNECTED) {
            OnRefused("supplying answers");
        }
    }

    static constexpr const char* Taking = "taking what is written";
    static constexpr const char* Watching = "watching for the router";

    const UsbPlace m_place;
    win32::KernelHandle m_slotTurn; // a mutex, ours while the slot is
    bool m_slotOurs = false;
    std::optional<bus::InstrumentControl> m_control; // whose handle keeps the device
    win32::FileHandle m_remote;
    std::vector<std::uint8_t> m_taken;
    std::vector<std::uint8_t> m_supplied;
    bus::Connection m_watched{};
    std::uint32_t m_connection = 0;       // 0: none
    std::uint32_t m_latestConnection = 0; // the last that there was
    win32::OverlappedOperation m_supply;
    win32::OverlappedOperation m_take;
    win32::OverlappedOperation m_watch;
    const win32::WaitSet<Slot, 4> m_waits;
};

} // namespace

std::unique_ptr<Endpoint> MakeUsbEndpoint(const UsbPlace& place, Engine& engine, const Observer& observer,
                                          HANDLE stop)
{
    return std::make_unique<UsbEndpoint>(place, engine, observer, stop);
}

} // namespace instrument
