#include "simulation/scenario/Scenario.h"

#include "ports/CCDevicePortPipe.h"
#include "simulation/kernel/Memory.h"
#include "simulation/kernel/Scheduler.h"
#include "simulation/scenario/Client.h"
#include "simulation/scenario/Instrument.h"
#include "simulation/scenario/Plan.h"
#include "simulation/scenario/Surroundings.h"
#include "transport/CCyUSBDriver.h"
#include "win32/Thread.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace sim {

namespace {

constexpr DWORD LongestRunMs = 60'000;      // then the clients are told to leave
constexpr DWORD LongestFaultyRunMs = 8'000; // a router without events or memory may never serve
constexpr std::uint64_t LeastToAnswer = 100;
constexpr DWORD DisturbMs = 500;
constexpr DWORD KnockMs = 100;
constexpr const char* PipeFolder = "\\\\.\\pipe\\";
constexpr PortPlan DeafPort{.deviceType = 9, .port = 1, .bufferSize = 0, .client = {}};
constexpr DWORD LongestQuietMs = 5000;           // until the router misses its host programs
constexpr std::uint64_t LongestStopUs = 500'000; // idle; the transport's threads wait for a second at a time

/// Everything of one run, in the order of its parts' lives.
class Session final
{
public:
    explicit Session(const Plan& plan) : m_plan(plan) { WatchPipes(&m_account); }
    ~Session() { WatchPipes(nullptr); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    void Play();

private:
    void AddPorts();
    void StartClients();
    void AwaitClients();
    void Disturb();
    void LeaveHosts();
    void EndRouter();
    void CheckServed() const;

    void AddPort(const PortPlan& port);
    void KnockAtDeafPort() const;
    std::string PipeNameOf(const PortPlan& port) const;

    const Plan m_plan;
    Account m_account;
    TraceReader m_trace{m_account};
    Host m_host{m_account};
    Instrument m_instrument{m_plan, m_account};
    ClientWorld m_world{m_account, m_instrument, m_plan};
    std::unique_ptr<CCyUSBDriver> m_driver;
    std::unique_ptr<CountedTransport> m_transport;
    std::vector<std::unique_ptr<Client>> m_clients;
    win32::Event m_disturbed{win32::Event::Kind::ManualReset}; // no more disturbances
    std::vector<std::unique_ptr<win32::Thread>> m_clientThreads;
    win32::Thread m_disturber;
    win32::Thread m_knocker; // the deaf port's client
    win32::Thread m_instrumentThread;
    bool m_isRefused = false; // who asked for the port was told so
};

std::string Session::PipeNameOf(const PortPlan& port) const
{
    const bool isOdd = m_plan.hasOddName && port.deviceType == m_plan.ports[0].deviceType;
    return (isOdd ? "port\t" : "port") + std::to_string(port.deviceType);
}

void Session::AddPort(const PortPlan& port)
{
    const std::string name = PipeNameOf(port);
    m_account.AddPort(port.deviceType, port.port, PipeFolder + name);
    const PortAddress address{port.deviceType, port.port};
    const PortOptions options{.flushLimitMs = m_plan.flushLimitMs, .restrictPipe = Random(4) == 0};
    const ProductAtWork product;
    try {
        m_host.table.AddPort(address,
                             std::make_unique<CCDevicePortPipe>(m_transport.get(), address, name, port.bufferSize,
                                                                port.bufferSize, options));
        m_account.OnPortAdded(port.deviceType, port.port);
    } catch (const std::bad_alloc&) {
        Note("a port cannot be made");
        m_isRefused = true;
    }
}

void Session::AddPorts()
{
    for (const PortPlan& port : m_plan.ports) {
        AddPort(port);
    }
    if (m_plan.hasDeafPort) {
        AddPort(DeafPort);
        m_knocker.Start([this] { KnockAtDeafPort(); });
    }
}

// A port without a read buffer takes a client and never counts as connected: its pipe is recreated again and
// again.
void Session::KnockAtDeafPort() const
{
    const std::string path = PipeFolder + PipeNameOf(DeafPort);
    while (!m_world.ends && !m_world.portsEnd) {
        const win32::FileHandle pipe(::CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                                   OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
        std::array<char, 8> bytes{};
        win32::OverlappedOperation read;
        if (pipe && read.Read(pipe.Get(), bytes.data(), static_cast<DWORD>(bytes.size())) && !read.HasCompleted())
        {
            ::WaitForSingleObject(read.EventHandle(), KnockMs);
        }
        DWORD length = 0;
        if (read.CancelAndFinish(length)) {
            Fault("a port that cannot read has a message for its client");
        }
        ::Sleep(KnockMs);
    }
}

void Session::StartClients()
{
    for (const PortPlan& port : m_plan.ports) {
        m_clients.push_back(std::make_unique<Client>(port, PipeFolder + PipeNameOf(port), m_world));
        m_clientThreads.push_back(std::make_unique<win32::Thread>());
        m_clientThreads.back()->Start([client = m_clients.back().get()] { client->Run(); });
    }
}

// Pulls the cable and changes the trace settings, until the clients have their answers.
void Session::Disturb()
{
    int pulls = m_plan.pulls;
    const auto pause = [this] {
        return m_plan.pullEveryMs != 0 ? m_plan.pullEveryMs
                                       : static_cast<DWORD>(Random(m_plan.changesTraces ? 20 : DisturbMs));
    };
    while ((pulls > 0 || m_plan.changesTraces) && !m_disturbed.Wait(pause())) {
        if (m_plan.changesTraces) {
            m_trace.ChangeSettings();
        }
        if (pulls > 0 && (!m_plan.changesTraces || Random(16) == 0)) {
            --pulls;
            m_instrument.Pull();
        }
    }
    m_disturbed.Wait(m_plan.pullEveryMs); // for what follows the last pull
}

void Session::AwaitClients()
{
    if (m_plan.endsWithPulls) {
        m_disturber.Join();
        m_world.ends = true;
    }
    const bool oftenFails = MayFaultsStrike() && TheOptions().injection.call == 0;
    const ULONGLONG end = ::GetTickCount64() + (oftenFails ? LongestFaultyRunMs : LongestRunMs);
    const std::uint64_t enough = LeastToAnswer + Random(20);
    while (m_plan.stopsEarly && TheOutcome().requests < enough && ::GetTickCount64() < end) {
        ::Sleep(3);
    }
    for (const auto& thread : m_clientThreads) {
        if (m_plan.stopsEarly) {
            break;
        }
        const ULONGLONG now = ::GetTickCount64();
        ::WaitForSingleObject(thread->Get(), now < end ? static_cast<DWORD>(end - now) : 0);
    }
    m_disturbed.Set();
    m_disturber.Join();
    m_world.portsEnd = true;
}

// Without a host program the router asks for its end, in a second in which nothing happens.
void Session::LeaveHosts()
{
    if (!m_plan.HostsLeave()) {
        return;
    }
    m_host.hostsHaveLeft = true;
    const ULONGLONG end = ::GetTickCount64() + LongestQuietMs;
    while (!m_host.hasAskedToQuit && ::GetTickCount64() < end) {
        ::Sleep(50);
    }
    if (!m_host.hasAskedToQuit && m_instrument.IsThere() && MayLatencyBeJudged()) {
        Fault("no host program is left, and the router does not ask for its end");
    }
}

void Session::EndRouter()
{
    const ProductAtWork product;
    if (Random(2) == 0) {
        m_host.table.BeginStopAllPorts(m_plan.flushLimitMs);
    }
    m_account.OnPortsRemoved();
    m_host.table.DeleteAllPorts();
    const std::uint64_t idle = IdleUs();
    m_driver.reset();
    // A USB driver may keep the router's requests for its limit.
    if (m_plan.path == Path::SimulatorPipe && MayLatencyBeJudged() && IdleUs() - idle > LongestStopUs) {
        Fault("the transport does not hear of its stop: it ends by a timeout");
    }
}

void Session::Play()
{
    if (MayFaultsStrike()) {
        m_account.StopJudging();
    }
    if (m_plan.MayCut()) {
        m_account.ExpectCuts();
    }
    m_host.hostName = Random(2) == 0 ? m_host.GetFirstHostName() : m_host.GetSecondHostName();
    m_host.isStandalone = !m_plan.IsWatched();
    m_instrumentThread.Start([this] { m_instrument.Run(); });
    {
        const ProductAtWork product;
        try {
            m_driver = std::make_unique<CCyUSBDriver>(m_plan.path == Path::SimulatorPipe, m_host);
        } catch (const std::bad_alloc&) {
            Note("a router cannot be made");
        }
    }
    if (m_driver) {
        m_driver->Reconnect();
        m_transport = std::make_unique<CountedTransport>(*m_driver, m_account);
        AddPorts();
        StartClients();
        m_disturber.Start([this] { Disturb(); });
        AwaitClients();
        LeaveHosts();
        EndRouter();
    }
    m_world.ends = true;
    m_knocker.Join();
    for (const auto& thread : m_clientThreads) {
        thread->Join();
    }
    m_instrument.End();
    m_instrumentThread.Join();
    m_account.CheckEnd();
    CheckServed();
}

// One call that failed must not leave a client without answers, unless the router says that it cannot work.
void Session::CheckServed() const
{
    if (TheOptions().injection.call == 0 || m_isRefused || m_trace.HasGivenUp()) {
        return;
    }
    for (const auto& client : m_clients) {
        if (!client->IsServed()) {
            Fault("a client is not served in the end, and no line of the trace says why");
        }
    }
}

} // namespace

void PlayScenario()
{
    Play(DrawPlan(TheOptions().requests));
}

void Play(const Plan& plan)
{
    std::make_unique<Session>(plan)->Play();
}

} // namespace sim
