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
    UsbEndpoint(const UsbPlace& place, Engine& engine, const Observer& observer, HANDLE stop)
        : Endpoint(engine, observer, stop,
                   // The written bytes come before the connection's end: what the router wrote before it left is
                   // taken.
                   {{&m_supply, [this] { ResultOf(m_supply, m_remote.Get()); }},
                    {&m_take, [this] { OnTaken(); }},
                    {&m_watch, [this] { OnWatched(); }}}),
          m_place(place),
          m_slotTurn(::CreateMutexW(nullptr, FALSE,
                                    (L"Local\\MorvaneTestInstrumentSlot" + std::to_wstring(place.slot)).c_str())),
          m_taken(sizeof(bus::Taken) + LongestWrite)
    {
    }

    /// Refused, without effect, when the slot is another program's.
    ~UsbEndpoint() override { ::ReleaseMutex(m_slotTurn.Get()); }

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
        m_remote = bus::OpenRemote();
        StartTaking();
        StartWatching();
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
        ResultOf(m_supply, m_remote.Get());
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

    void OnFailure(const win32::OverlappedOperation& operation) override
    {
        const DWORD error = ::GetLastError();
        // A connection that is over: the watch reports it next. Only a fault of the driver refuses anything else.
        if (&operation == &m_supply && error == ERROR_DEVICE_NOT_CONNECTED) {
            return;
        }
        const std::string what = &operation == &m_supply ? "supplying answers"
                               : &operation == &m_take   ? "taking what is written"
                                                         : "watching for the router";
        FinishWith(End::Refused, what + " failed with error " + std::to_string(error));
    }

    void StartTaking()
    {
        const bus::Target target{m_place.slot, OutEndpoint};
        if (!m_take.Control(m_remote.Get(), bus::RemoteTake, &target, sizeof target, m_taken.data(),
                            static_cast<DWORD>(m_taken.size())))
        {
            OnFailure(m_take);
        }
    }

    void OnTaken()
    {
        // What has come meanwhile is taken without going through the wait.
        for (int step = 0; step < Burst && ResultOf(m_take, m_remote.Get()); ++step) {
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
            OnFailure(m_watch);
        }
    }

    void OnWatched()
    {
        if (!ResultOf(m_watch, m_remote.Get())) {
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

    const UsbPlace m_place;
    win32::KernelHandle m_slotTurn;                  // a mutex, ours while the slot is
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
};

} // namespace

std::unique_ptr<Endpoint> MakeUsbEndpoint(const UsbPlace& place, Engine& engine, const Observer& observer,
                                          HANDLE stop)
{
    return std::make_unique<UsbEndpoint>(place, engine, observer, stop);
}

} // namespace instrument
