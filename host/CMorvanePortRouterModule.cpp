#include "host/CMorvanePortRouterModule.h"

#include "host/BoundedStep.h"
#include "host/Registration.h"
#include "trace/Trace.h"
#include "transport/CCyUSBDriver.h"
#include "win32/Text.h"

#include <objbase.h>
#include <cstdlib>
#include <new>

namespace {

constexpr DWORD SessionEndFlushLimitMs = 500; // all ports together
constexpr DWORD SessionEndStepLimitMs = 1000; // the ports together, then the transport

/// A run-time engine in this process may have initialised COM in its own way; that one failure is none.
bool MayContinue(HRESULT initialised)
{
    return SUCCEEDED(initialised) ||
           (initialised == RPC_E_CHANGED_MODE && ::GetModuleHandleW(L"Mscoree.dll") != nullptr);
}

/// Runs a step of the start-up, which goes on without what the step would have built when memory is short.
template <class Step>
void Attempt(Step step) noexcept
{
    try {
        step();
    } catch (...) {
        // By design silent: what did not get built is missing, and every user of it tests for that.
    }
}

} // namespace

CMorvanePortRouterModule::CMorvanePortRouterModule(HINSTANCE instance)
    : m_instance(instance),
      m_quit(::GetCurrentThreadId()),
      m_traceOutput(m_dialog),
      m_traceFrontEnd(m_traceOutput),
      m_configuration(m_traceFrontEnd),
      m_server(*this, m_quit)
{
}

int CMorvanePortRouterModule::WinMain(const wchar_t* commandLine)
{
    const HRESULT initialised = ::CoInitialize(nullptr);
    if (!MayContinue(initialised)) {
        return initialised;
    }
    const HRESULT result = RunAction(ParseCommandLine(commandLine));
    if (SUCCEEDED(initialised)) {
        // What a failed start has built holds COM objects and windows: it is destroyed before COM ends.
        TearDown();
        ::CoUninitialize();
    }
    return result;
}

HRESULT CMorvanePortRouterModule::RunAction(CommandLineAction action)
{
    switch (action) {
    case CommandLineAction::RegServer: return RegisterRouter(RegistrationHive::Machine);
    case CommandLineAction::UnregServer: return UnregisterRouter(RegistrationHive::Machine);
    case CommandLineAction::RegServerPerUser: return RegisterRouter(RegistrationHive::User);
    case CommandLineAction::UnregServerPerUser: return UnregisterRouter(RegistrationHive::User);
    case CommandLineAction::RunServer: break;
    }
    return Run();
}

HRESULT CMorvanePortRouterModule::Run()
{
    const HRESULT result = PreMessageLoop();
    if (result == S_OK) {
        RunMessageLoop();
    }
    if (SUCCEEDED(result)) {
        PostMessageLoop();
    }
    return result;
}

HRESULT CMorvanePortRouterModule::PreMessageLoop()
{
    const HRESULT registered = m_server.RegisterClassObjects();
    m_watch.DecideMode();
    m_dialog.Create(m_instance, *this);
    Attempt([this] { m_configuration.LoadConfiguration(); });
    Attempt([this] { StartTracer(); });
    Attempt([this] { TraceDeviceOptions(); });
    Attempt([this] { StartTransport(); });
    return registered;
}

void CMorvanePortRouterModule::StartTracer()
{
    m_tracer = CDebugThread::Create();
    ConfigureTracer();
    m_tracer->SetShowWindow(false);
    m_tracer->SetSessionWindow(m_dialog.Window());
    m_tracer->Start();
    m_traceOutput.Attach(m_tracer.get());
}

void CMorvanePortRouterModule::ConfigureTracer()
{
    m_tracer->SetOptions(m_configuration.CombinedMask(), ConfigurationStore::LogFileName,
                         m_configuration.LogFileLimit(), m_configuration.AppendLogFile());
}

void CMorvanePortRouterModule::TraceDeviceOptions() const
{
    for (const auto& [device, option] : m_configuration.DeviceOptions()) {
        Trace(device, trace::General, "%s, DebugOptions=0x%X", win32::ToAnsi(option.DeviceName).c_str(),
              static_cast<unsigned>(option.GetMask()));
    }
}

void CMorvanePortRouterModule::StartTransport()
{
    m_transport = std::make_unique<CCyUSBDriver>(
        m_configuration.IsSimulation(), TransportHost{m_ports, m_configuration, m_watch, m_configuration});
    m_transport->Reconnect();
}

// Only WM_QUIT ends it: GetMessage's -1 means a message that could not be fetched, and the next one can.
void CMorvanePortRouterModule::RunMessageLoop()
{
    MSG message{};
    for (BOOL got; (got = ::GetMessageW(&message, nullptr, 0, 0)) != 0;) {
        if (got == -1 || m_dialog.TranslateDialogMessage(message)) {
            continue;
        }
        ::TranslateMessage(&message);
        ::DispatchMessageW(&message);
    }
}

void CMorvanePortRouterModule::PostMessageLoop()
{
    TearDown();
    // The class object stays registered and COM initialised, which end with the process; so do the automation
    // objects that clients still hold.
    std::exit(0);
}

void CMorvanePortRouterModule::TearDown() noexcept
{
    m_ports.DeleteAllPorts();
    m_transport.reset();
    if (m_tracer != nullptr) {
        m_tracer->Stop();
        m_traceOutput.Detach();
        m_tracer.reset();
    }
    m_dialog.Destroy();
}

/// TearDown with limits: Windows ends a process that takes longer ("WM_ENDSESSION message"). What does not end in
/// its limit is abandoned and ends with the process.
void CMorvanePortRouterModule::OnSessionEnd()
{
    m_ports.BeginStopAllPorts(SessionEndFlushLimitMs);
    if (EndsWithin(SessionEndStepLimitMs, [this] { m_ports.DeleteAllPorts(); })) {
        EndTransportForSessionEnd();
    } else {
        // Their threads may still call the transport.
        Trace(trace::RouterChannel, trace::General, "CMorvanePortRouterModule::OnSessionEnd() ports abandoned");
        static_cast<void>(m_transport.release());
    }
    if (m_tracer != nullptr && !m_tracer->StopForSessionEnd()) {
        m_traceOutput.Detach();
        static_cast<void>(m_tracer.release());
    }
    // A tracer that stopped in time is joined by TearDown: its thread may wait for this call to return.
    m_dialog.Destroy();
    m_quit.Post();
}

void CMorvanePortRouterModule::EndTransportForSessionEnd()
{
    CCommunicationDriver* const transport = m_transport.release();
    if (transport != nullptr && !EndsWithin(SessionEndStepLimitMs, [transport] { delete transport; })) {
        Trace(trace::RouterChannel, trace::General,
              "CMorvanePortRouterModule::OnSessionEnd() transport abandoned");
    }
}

void CMorvanePortRouterModule::ApplySettings(std::uint32_t limit, bool append, bool simulate,
                                             const DebugOptionsMap& options)
{
    m_configuration.Apply(limit, append, simulate, options);
    if (m_tracer != nullptr) {
        ConfigureTracer();
    }
}
