#include "simulation/scenario/Instrument.h"

#include "simulation/kernel/Devices.h"
#include "simulation/kernel/Scheduler.h"
#include "simulation/scenario/Surroundings.h"

#include <algorithm>
#include <functional>
#include <numeric>
#include <string>

namespace sim {

namespace {

constexpr const char* SimulatorPipe = "\\\\.\\pipe\\UsbPipeSimulator";
constexpr DWORD PipeBuffer = 65536;
constexpr std::uint8_t Isochronous = 1, Interrupt = 3; // attributes of an endpoint
constexpr std::array<EndpointKind, 6> FurtherEndpoints{
    {BulkIn, {0x81, Interrupt}, {0x88, 2}, {0x83, Isochronous}, BulkOut, {0x04, 2}}};
constexpr std::uint64_t LongestOutlivedUs = 100'000; // so long a connection may outlast its device
constexpr DWORD StalledPipeBuffer = 256;             // the router's next write is soon pending

// Small pieces cut headers, but a long answer in small pieces is a run of its own length.
std::size_t PieceOf(const Plan& plan)
{
    int longest = 0;
    for (const PortPlan& port : plan.ports) {
        longest = std::max(longest, port.client.longest);
    }
    return static_cast<std::size_t>(std::max(7, longest / 8));
}

// Garbage, and a packet of a type that no port gets; number 0 is never out of order.
instrument::Bytes OtherBytes()
{
    instrument::Bytes bytes(7, 'x');
    const std::array<std::uint8_t, 3> payload = {1, 2, 3};
    const wire::Header header = wire::BuildHeader(0, wire::PortTraffic + 6, 3, 1, payload.size());
    const wire::Trailer trailer = wire::BuildTrailer(payload);
    bytes.insert(bytes.end(), header.begin(), header.end());
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    bytes.insert(bytes.end(), trailer.begin(), trailer.end());
    return bytes;
}

instrument::Script ScriptOf(const Plan& plan)
{
    instrument::Script script;
    const auto every = [&script](std::uint64_t n, instrument::Rule::Action action) {
        instrument::Rule rule;
        rule.trigger.every = n;
        rule.actions.push_back(std::move(action));
        script.rules.push_back(std::move(rule));
    };
    using instrument::ResponsePlan;
    using namespace std::chrono_literals;
    if (plan.splits) {
        every(3, [piece = PieceOf(plan)](ResponsePlan& answer) { answer.splitInto = piece; });
    }
    if (plan.merges) {
        every(2, [](ResponsePlan& answer) { answer.mergeOf = 3, answer.mergeWait = 5ms; });
    }
    if (plan.doubles) {
        every(7, [](ResponsePlan& answer) { answer.copies = 2; });
    }
    if (plan.delays) {
        every(5, [](ResponsePlan& answer) { answer.delay = 20ms; });
    }
    if (plan.broadcasts) {
        every(11, [](ResponsePlan& answer) {
            answer.extras.push_back(
                {instrument::Address{255, 2}, instrument::Bytes(BroadcastText.begin(), BroadcastText.end())});
        });
    }
    if (plan.BroadcastsNothing()) {
        every(5, [](ResponsePlan& answer) {
            answer.extras.push_back({instrument::Address{255, 2}, instrument::Bytes{}});
        });
    }
    if (plan.skipsNumbers) {
        every(13, [](ResponsePlan& answer) { answer.skippedNumbers = 1; });
    }
    if (plan.sendsOtherBytes) {
        every(9, [](ResponsePlan& answer) { answer.rawAhead = OtherBytes(); });
    }
    for (const PortPlan& port : plan.ports) {
        if (plan.StaysUnanswered(port)) {
            every(1, [](ResponsePlan& answer) { answer.isAnswered = false; });
            script.rules.back().trigger.from = instrument::Address{port.deviceType, port.port};
        }
    }
    return script;
}

} // namespace

Instrument::Instrument(const Plan& plan, Account& account)
    : m_plan(plan), m_account(account), m_engine(ScriptOf(plan))
{
    if (plan.path == Path::Usb) {
        UsbInstrument& device = TheInstrument();
        device.vendorId = Host::VendorId;
        device.productId = Host::ProductId;
        if (plan.hasFurtherEndpoints) {
            device.endpoints = FurtherEndpoints;
        }
        device.wake = Ref<Object>(&ObjectOf(m_wake.Get()));
        UsbInstrument& foreign = TheWorldsForeignDevice();
        foreign.vendorId = 1;
        foreign.productId = 1;
        foreign.isPlugged = plan.foreignDevice;
    }
}

Instrument::~Instrument()
{
    TheInstrument().wake.reset();
}

instrument::Time Instrument::Now()
{
    return instrument::Time(NowUs());
}

void Instrument::Run()
{
    if (m_plan.comesIncomplete && m_plan.path == Path::Usb) {
        ComeIncomplete();
    }
    while (!m_ends) {
        if (m_plan.path == Path::Usb) {
            ServeUsb();
        } else {
            ServePipe();
        }
        m_isThere = false;
        m_account.OnLoss();
        if (!m_ends && m_pulled) {
            ::Sleep(1 + static_cast<DWORD>(Random(m_plan.longestAwayMs)));
        }
        m_pulled = false;
    }
}

void Instrument::End()
{
    m_ends = true;
    m_account.OnInstrumentLeaves();
    m_wake.Set();
}

void Instrument::Pull()
{
    ++m_pulls;
    m_account.OnInstrumentLeaves();
    m_pulled = true;
    m_wake.Set();
}

bool Instrument::MustLeave()
{
    return m_ends || m_pulled;
}

DWORD Instrument::WaitTime() const
{
    const auto due = m_engine.NextDue();
    if (!due) {
        return INFINITE;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*due - Now()).count();
    return static_cast<DWORD>(std::clamp<long>(left, 0, 1000));
}

void Instrument::BeginConnection()
{
    m_engine.Connected(Now());
    m_sent.Clear();
    m_received.Clear();
    m_lastNumber.reset();
    m_account.OnInstrumentConnected();
    m_lossesAtFrame = m_account.Losses() - 1;
}

void Instrument::Receive(std::span<const std::uint8_t> bytes)
{
    m_received.Append(bytes);
    while (const auto frame = wire::ParseFrame(m_received.Bytes())) {
        if (wire::FindSync(m_received.Bytes()) != 0) {
            Fault("the instrument gets bytes that are no packet");
        }
        OnPacket(*frame);
        m_received.Consume(frame->Length());
    }
    m_engine.Receive(bytes, Now());
}

// Numbers count up by one; they restart with a connection, and what was lost leaves a gap.
void Instrument::OnPacket(const wire::Frame& frame)
{
    const auto sum =
        std::accumulate(frame.payload.begin(), frame.payload.end(), std::uint8_t{0}, std::bit_xor<std::uint8_t>());
    if (frame.payload.data()[frame.payload.size()] != sum) {
        Fault("the instrument gets a packet with a wrong checksum");
    }
    const bool numberGap = m_lastNumber && frame.packetNumber != static_cast<std::uint8_t>(*m_lastNumber + 1);
    m_lastNumber = frame.packetNumber;
    if (numberGap && !m_plan.stalls && frame.packetNumber != 0 && m_lossesAtFrame == m_account.Losses() &&
        MayLatencyBeJudged())
    {
        Fault("the instrument gets a packet with a number out of order");
    }
    m_lossesAtFrame = m_account.Losses();
    m_account.OnNumber(frame.packetNumber);
    if (frame.packetType == wire::PortTraffic) {
        m_account.OnInstrumentGot(frame.deviceType, frame.port, frame.payload);
    }
}

void Instrument::OnSent(const instrument::Bytes& bytes)
{
    m_sent.Append(bytes);
    while (const auto sync = wire::FindSync(m_sent.Bytes())) {
        m_sent.Consume(*sync);
        const auto frame = wire::ParseFrame(m_sent.Bytes());
        if (!frame) {
            return;
        }
        if (frame->packetType == wire::PortTraffic) {
            m_account.OnInstrumentSent(frame->deviceType, frame->port, frame->payload);
        }
        m_sent.Consume(frame->Length());
    }
}

void Instrument::StallNowAndThen()
{
    if (m_plan.stalls && !m_hasStalled && m_engine.Counted().requests > 5) {
        m_hasStalled = true;
        TheInstrument().takesWrites = false;
        ::Sleep(400);
        if (m_plan.LeavesStalled()) {
            return Pull();
        }
        TakeWrites(TheInstrument());
    }
}

void Instrument::ServePipe()
{
    const win32::FileHandle pipe(::CreateNamedPipeA(SimulatorPipe, PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED,
                                                    PIPE_TYPE_BYTE, 1, PipeBuffer,
                                                    m_plan.stalls ? StalledPipeBuffer : PipeBuffer, 0, nullptr));
    if (!pipe) {
        ::Sleep(5); // the name is still taken
        return;
    }
    m_isThere = true;
    m_pluggedAt = NowUs();
    win32::OverlappedOperation connect;
    const bool accepted = connect.ConnectPipe(pipe.Get());
    while (accepted && !connect.HasCompleted() && !MustLeave()) {
        const std::array<HANDLE, 2> events{connect.EventHandle(), m_wake.Get()};
        ::WaitForMultipleObjects(2, events.data(), FALSE, INFINITE);
    }
    const bool connected = connect.HasCompleted();
    connect.Cancel();
    if (connected) {
        BeginConnection();
        ServePipeConnection(pipe.Get());
        m_engine.Disconnected();
    }
    m_read.Cancel();
    m_write.Cancel();
}

void Instrument::ServePipeConnection(HANDLE pipe)
{
    for (;;) {
        StallNowAndThen();
        if (!WriteDue(pipe) || MustLeave()) {
            return;
        }
        if (!m_read.IsPending() && !m_read.Read(pipe, m_buffer.data(), static_cast<DWORD>(m_buffer.size()))) {
            return;
        }
        if (!m_read.HasCompleted()) {
            const std::array<HANDLE, 2> events{m_read.EventHandle(), m_wake.Get()};
            ::WaitForMultipleObjects(2, events.data(), FALSE, WaitTime());
        }
        if (m_read.HasCompleted() && !ReadPipe(pipe)) {
            return;
        }
    }
}

bool Instrument::ReadPipe(HANDLE pipe)
{
    DWORD length = 0;
    if (!m_read.Finish(pipe, length)) {
        return false;
    }
    Receive({m_buffer.data(), length});
    return true;
}

bool Instrument::WriteDue(HANDLE pipe)
{
    while (m_engine.Take(Now(), m_due) == instrument::Engine::Order::Write) {
        OnSent(m_due);
        if (!Write(pipe, m_due)) {
            return false;
        }
    }
    return true;
}

bool Instrument::Write(HANDLE pipe, const instrument::Bytes& bytes)
{
    m_write.Write(pipe, bytes.data(), static_cast<DWORD>(bytes.size()));
    while (m_write.IsRunning() && !MustLeave()) {
        const std::array<HANDLE, 2> events{m_write.EventHandle(), m_wake.Get()};
        ::WaitForMultipleObjects(2, events.data(), FALSE, INFINITE);
    }
    DWORD length = 0;
    return m_write.Finish(pipe, length);
}

// A device that is not ready yet, or another one of the same product: an endpoint is missing.
void Instrument::ComeIncomplete()
{
    UsbInstrument& device = TheInstrument();
    const std::span<const EndpointKind> complete = device.endpoints;
    device.endpoints = UsualEndpoints;
    device.endpoints = device.endpoints.subspan(Random(2), 1);
    Plug(device);
    ::Sleep(static_cast<DWORD>(Random(50)));
    Unplug(device);
    device.endpoints = complete;
}

void Instrument::ServeUsb()
{
    UsbInstrument& device = TheInstrument();
    if (m_unpluggedAt != 0 && NowUs() - m_unpluggedAt > LongestOutlivedUs) {
        m_account.OnPluggedAgain();
    }
    Plug(device);
    m_isThere = true;
    m_pluggedAt = NowUs();
    while (!MustLeave()) {
        if (device.connection != nullptr) {
            if (m_plan.Bounces() && Random(2) == 0) {
                Pull();
                break;
            }
            BeginConnection();
            ServeUsbConnection();
            m_engine.Disconnected();
        } else {
            m_wake.Wait(INFINITE);
        }
    }
    Unplug(device);
    m_unpluggedAt = NowUs();
}

void Instrument::ServeUsbConnection()
{
    UsbInstrument& device = TheInstrument();
    // Not by its address: the heap may give the next one the same.
    const std::uint64_t connection = device.connections;
    while (!MustLeave() && device.connection != nullptr && device.connections == connection) {
        StallNowAndThen();
        while (!device.fromRouter.empty()) {
            const Bytes bytes = std::move(device.fromRouter.front());
            device.fromRouter.pop_front();
            Receive(bytes);
        }
        if (!FeedDue() && device.fromRouter.empty()) {
            m_wake.Wait(WaitTime());
        }
    }
}

bool Instrument::FeedDue()
{
    bool any = false;
    while (m_engine.Take(Now(), m_due) == instrument::Engine::Order::Write) {
        OnSent(m_due);
        Feed(TheInstrument(), m_due);
        if (m_plan.sendsOtherBytes && Random(8) == 0) {
            Feed(TheInstrument(), {});
        }
        Point("the instrument sends");
        any = true;
    }
    return any;
}

} // namespace sim
