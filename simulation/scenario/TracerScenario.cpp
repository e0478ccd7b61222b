#include "simulation/scenario/TracerScenario.h"

#include "diag/CDebugThread.h"
#include "simulation/kernel/Scheduler.h"
#include "simulation/scenario/TracerAccount.h"
#include "win32/Thread.h"

#include <algorithm>
#include <array>
#include <memory>
#include <vector>

namespace sim {

namespace {

constexpr std::uint32_t ToFile = 0x00040000, ToWindow = 0x00000004;
constexpr std::uint64_t Flood = 10'800; // lines: more than the tracer keeps

/// How slow the disk is, for the calls that the tracer makes through it.
DWORD g_stallMs = 0;
int g_stalls = 0; // at most
std::uint64_t g_stallOneIn = 0;

BOOL SlowWrite(HANDLE file, const void* data, DWORD length, DWORD* written, OVERLAPPED* record)
{
    if (g_stalls > 0 && OneIn(g_stallOneIn)) {
        --g_stalls;
        ::Sleep(g_stallMs);
    }
    return ::WriteFile(file, data, length, written, record);
}

struct TracerPlan
{
    std::size_t producers;
    std::uint64_t lines; // of each
    bool floods, changesSettings, isHeld, stopsEarly;
    std::uint32_t limitMB; // 4096: 0, which begins a new file with each line
};

TracerPlan DrawTracerPlan()
{
    TracerPlan plan{};
    plan.floods = Random(32) == 0;
    plan.producers = plan.floods ? 1 : 1 + Random(4);
    plan.lines = plan.floods ? Flood + Random(200) : 20 + Random(120);
    plan.changesSettings = Random(3) == 0;
    plan.isHeld = Random(4) == 0;
    plan.stopsEarly = !plan.floods && Random(4) == 0;
    constexpr std::array<std::uint32_t, 4> limits = {10, 1, 4096, 4096};
    plan.limitMB = plan.floods ? 10 : limits[Random(limits.size())];
    g_stallMs = plan.floods ? 2000 : static_cast<DWORD>(1 + Random(10));
    g_stalls = plan.floods ? 1 : 1000;
    constexpr std::array<std::uint64_t, 3> stalls = {0, 64, 8};
    g_stallOneIn = plan.floods ? 100 : stalls[Random(stalls.size())];
    return plan;
}

class TracerRun final
{
public:
    explicit TracerRun(const TracerPlan& plan) : m_plan(plan) { m_account.AllowSize(std::size_t{10} << 20); }
    void Play();

private:
    void Produce(std::size_t producer);
    void ChangeSettings();
    void HoldTheLog() const;
    void AwaitProducers();

    const TracerPlan m_plan;
    TracerAccount m_account{m_plan.producers};
    CDebugThread::Owner m_tracer = CDebugThread::Create({.Disk = {.Write = &SlowWrite}});
    bool m_wantedFile = true;
    win32::Event m_ends{win32::Event::Kind::ManualReset};
    std::vector<std::unique_ptr<win32::Thread>> m_threads;
    win32::Thread m_holder;
};

void TracerRun::Produce(std::size_t producer)
{
    for (std::uint64_t line = 0; line < m_plan.lines; ++line) {
        if (m_plan.stopsEarly && m_ends.IsSet()) {
            return; // not accepted any more: nothing to account for
        }
        const std::size_t fill = m_plan.floods ? 0 : Random(40) == 0 ? Random(60'000) : Random(200);
        std::string text = m_account.NextLine(producer, fill);
        if (Random(4) == 0) {
            m_tracer->AddRawTrace(ToFile | ToWindow, std::move(text));
        } else {
            m_tracer->AddTrace(ToFile | ToWindow, std::move(text)); // which any of the filters lets through
        }
        if (!m_plan.floods && Random(8) == 0) {
            ::Sleep(static_cast<DWORD>(Random(12)));
        }
    }
}

// By the thread that started the tracer.
void TracerRun::ChangeSettings()
{
    const bool wantsFile = Random(3) != 0;
    if (!wantsFile || !m_wantedFile) {
        m_account.OnFileUnwanted(); // also when that ends: a line that was written meanwhile knew the first reason
    }
    m_wantedFile = wantsFile;
    m_tracer->SetOptions((wantsFile ? ToFile : 0) | (wantsFile && Random(2) == 0 ? 0 : ToWindow), nullptr,
                         m_plan.limitMB, true);
}

// A virus scanner, which shares with readers alone.
void TracerRun::HoldTheLog() const
{
    while (!m_ends.Wait(static_cast<DWORD>(Random(20)))) {
        const win32::FileHandle held(::CreateFileW(LogPath, GENERIC_READ,
                                                   FILE_SHARE_READ | (Random(2) == 0 ? FILE_SHARE_WRITE : 0),
                                                   nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        m_ends.Wait(static_cast<DWORD>(Random(20)));
    }
}

void TracerRun::AwaitProducers()
{
    for (const auto& thread : m_threads) {
        while (m_plan.changesSettings &&
               ::WaitForSingleObject(thread->Get(), static_cast<DWORD>(Random(30))) == WAIT_TIMEOUT)
        {
            ChangeSettings();
        }
        thread->Join();
    }
}

void TracerRun::Play()
{
    const bool startsLate = Random(4) == 0;
    m_tracer->SetOptions(ToFile, L"Run.log", m_plan.limitMB, Random(2) == 0);
    Current().isProduct = true; // the tracer's own thread: faults strike its calls
    const bool isStarted = m_tracer->Start();
    Current().isProduct = false;
    if (!isStarted) {
        return;
    }
    if (startsLate) {
        ::Sleep(20);
    }
    for (std::size_t producer = 0; producer < m_plan.producers; ++producer) {
        m_threads.push_back(std::make_unique<win32::Thread>());
        m_threads.back()->Start([this, producer] { Produce(producer); });
    }
    if (m_plan.isHeld) {
        m_holder.Start([this] { HoldTheLog(); });
    }
    if (!m_plan.stopsEarly) {
        AwaitProducers();
        ::Sleep(static_cast<DWORD>(Random(2)) * 3000); // with time to write everything, or without
    } else {
        ::Sleep(static_cast<DWORD>(Random(100)));
        m_ends.Set();
    }
    if (!m_tracer->Stop()) {
        Fault("the tracer does not end in its time");
    }
    m_ends.Set();
    m_holder.Join();
    for (const auto& thread : m_threads) {
        thread->Join();
    }
    if (!m_wantedFile) {
        m_account.OnFileUnwanted();
    }
    m_account.CheckEnd(m_plan.stopsEarly, !m_plan.changesSettings);
}

} // namespace

void PlayTracer()
{
    TracerRun(DrawTracerPlan()).Play();
}

} // namespace sim
