// The module: owns everything else in the process, builds it, runs the message loop and takes it down in order.
//
// The main thread runs all of it. The transport's threads reach only what TransportHost lists; that is fixed
// before the transport exists or locked by its owner.
#pragma once

#include "diag/CDebugOptionDlg.h"
#include "diag/CDebugThread.h"
#include "diag/DebugOptionsHost.h"
#include "host/ComServer.h"
#include "host/CommandLine.h"
#include "host/ConfigurationStore.h"
#include "host/HostWatch.h"
#include "host/PortTable.h"
#include "host/QuitRequest.h"
#include "host/RouterHost.h"
#include "host/TraceFrontEnd.h"
#include "host/TracerOutput.h"
#include "transport/CCommunicationDriver.h"
#include "win32/Windows.h"

#include <memory>
#include <string>

/// One for the process, created, used and destroyed by the main thread.
class CMorvanePortRouterModule final : public IDebugOptionsHost, public IRouterHost
{
public:
    using CDebugOptionsLock = ::CDebugOptionsLock;

    explicit CMorvanePortRouterModule(HINSTANCE instance);
    /// Takes down what PostMessageLoop would; only when that was not reached.
    ~CMorvanePortRouterModule() override { TearDown(); }

    /// The process's exit code, unless the router ran: then it ends the process itself.
    int WinMain(const wchar_t* commandLine);

    /// Builds the router. The HRESULT of registering the class object, which stops nothing.
    HRESULT PreMessageLoop();
    /// Deletes ports, transport, tracer and dialog, in this order.
    void TearDown() noexcept;

    HostWatch& Watch() noexcept { return m_watch; }

    // IRouterHost
    PortTable& Ports() override { return m_ports; }
    CCommunicationDriver* Transport() override { return m_transport.get(); }
    PortOptions OptionsOfPorts() const override { return m_configuration.OptionsOfPorts(); }
    IDeviceNames& Names() override { return m_configuration; }
    void AddServerLock() override { m_server.AddServerLock(); }
    void ReleaseServerLock() override { m_server.ReleaseServerLock(); }

    // IDebugOptionsHost
    const DebugOptionsMap& DeviceOptions() const override { return m_configuration.DeviceOptions(); }
    std::uint32_t LogFileLimit() const override { return m_configuration.LogFileLimit(); }
    bool AppendLogFile() const override { return m_configuration.AppendLogFile(); }
    bool SimulateUsb() const override { return m_configuration.IsSimulation(); }
    void ApplySettings(std::uint32_t limit, bool append, bool simulate, const DebugOptionsMap& options) override;
    std::wstring LogFileName() const override { return ConfigurationStore::LogFileName; }
    std::wstring LogFolder() const override { return m_tracer ? m_tracer->Names().LogFolder : std::wstring(); }
    bool IsConnected() const override { return m_transport && m_transport->IsConnected(); }
    bool IsUpdatingFirmware() const override { return m_transport && m_transport->IsUpdatingFirmware(); }
    std::uint32_t GetTransferredBytes() const override
    {
        return m_transport ? m_transport->GetTransferredBytes() : 0;
    }
    bool IsQuitWanted() const override { return m_quit.IsWanted(); }
    void OnSessionEnd() override;

private:
    HRESULT RunAction(CommandLineAction action);
    HRESULT Run();
    void RunMessageLoop();
    [[noreturn]] void PostMessageLoop();
    void StartTracer();
    void ConfigureTracer();
    void TraceDeviceOptions() const;
    void StartTransport();
    void EndTransportForSessionEnd();

    const HINSTANCE m_instance;
    QuitRequest m_quit;
    HostWatch m_watch{m_quit};

    // What trace calls use stands first: it is there before anything that traces, and is destroyed last.
    CDebugOptionDlg m_dialog;
    TracerOutput m_traceOutput;
    TraceFrontEnd m_traceFrontEnd;

    ConfigurationStore m_configuration;
    CDebugThread::Owner m_tracer;
    PortTable m_ports;
    std::unique_ptr<CCommunicationDriver> m_transport;
    ComServer m_server;
};
