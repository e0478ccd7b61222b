#include "ProbeSession.h"

#include <objbase.h>
#include <array>
#include <cstdio>

namespace {

constexpr DWORD RetryPause = 250;

std::string Hex(HRESULT result)
{
    std::array<char, 24> text{};
    std::snprintf(text.data(), text.size(), " (0x%08lX)", static_cast<unsigned long>(result));
    return text.data();
}

} // namespace

ProbeSession::ProbeSession(const ProbeOptions& options, const console::StopSignal& stop)
    : m_options(options),
      m_stop(stop),
      m_comReady(!options.attach && SUCCEEDED(::CoInitializeEx(nullptr, COINIT_MULTITHREADED)))
{
}

ProbeSession::~ProbeSession()
{
    m_router.Release();
    if (m_comReady) {
        ::CoUninitialize();
    }
}

std::optional<ProbeFault> ProbeSession::Begin(std::optional<std::chrono::microseconds> noLaterThan)
{
    const std::chrono::microseconds usual = console::Now() + m_options.openTimeout;
    const auto end = noLaterThan ? std::min(usual, *noLaterThan) : usual;
    for (;;) {
        auto fault = TryToBegin();
        if (!fault || fault->code != ExitCode::NoRouter || console::Now() >= end || m_stop.Wait(RetryPause)) {
            return fault;
        }
    }
}

std::optional<ProbeFault> ProbeSession::TryToBegin()
{
    using Result = RouterAutomation::Result;
    if (m_options.attach) {
        return std::nullopt;
    }
    m_process = RouterProcess();
    const auto binding = m_options.lateBound ? RouterAutomation::Binding::Late : RouterAutomation::Binding::Early;
    switch (m_router.Create(binding)) {
    case Result::Done: break;
    case Result::NotRegistered:
        return ProbeFault{ExitCode::NotRegistered,
                          "the router is not registered: run \"MorvanePortRouter.exe /RegServer\"" +
                              Hex(m_router.Error())};
    default: return ProbeFault{ExitCode::NoRouter, "the router does not start" + Hex(m_router.Error())};
    }
    if (auto fault = RegisterPorts()) {
        return fault;
    }
    m_process.Find();
    return std::nullopt;
}

std::optional<ProbeFault> ProbeSession::RegisterPorts()
{
    if (!m_router.IsCreated()) {
        return std::nullopt;
    }
    for (const ProbePort& port : m_options.ports) {
        const auto result = m_router.Register(port.deviceType, port.port, m_options.readSize, m_options.writeSize,
                                              console::Wide(port.pipeName));
        if (result != RouterAutomation::Result::Done) {
            return ProbeFault{ExitCode::NoRouter, port.Label() +
                                                      " can't be registered: the router does not answer" +
                                                      Hex(m_router.Error())};
        }
    }
    return std::nullopt;
}

std::string ProbeSession::EndText() const
{
    const auto code = m_process.WaitForEnd(0);
    return code ? "router ended with code " + std::to_string(static_cast<long>(*code)) : "router still runs";
}

void ProbeSession::End()
{
    // No Unregister: it would also take a port that another client registered first, whose object then never
    // finishes its release. The ports that this object registered are removed with it.
    m_router.Release();
}

std::optional<ProbeFault> ProbeSession::WaitForRouterEnd() const
{
    if (!m_options.waitExit || m_options.attach) {
        return std::nullopt;
    }
    if (!m_process.IsFound()) {
        return ProbeFault{ExitCode::RouterStays, "the router's process was not found"};
    }
    const auto start = console::Now();
    const auto code = m_process.WaitForEnd(static_cast<DWORD>(m_options.waitExit->count()));
    if (!code) {
        return ProbeFault{ExitCode::RouterStays, "the router still runs " +
                                                     std::to_string(m_options.waitExit->count()) +
                                                     " ms after its release"};
    }
    const auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(console::Now() - start);
    console::Say("router ended with code " + std::to_string(static_cast<long>(*code)) + " after " +
                 std::to_string(waited.count()) + " ms");
    return *code == 0 ? std::nullopt : std::optional(ProbeFault{ExitCode::RouterFailed, EndText()});
}
