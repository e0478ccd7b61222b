// The module: owns everything else in the process, builds it, runs the message loop and takes it down in order.
//
// The main thread runs all of it. The transport's threads come in through ITransportHost only; what they reach there
// is either fixed before the transport exists or locked by its owner.
#pragma once

#include "diag/CDebugOptionDlg.h"
#include "diag/CDebugThread.h"
#include "diag/DebugOptionsHost.h"
#include "host/CDebugOptionsLock.h"
#include "host/ComServer.h"
#include "host/CommandLine.h"
#include "host/ConfigurationStore.h"
#include "host/PortTable.h"
#include "host/QuitRequest.h"
#include "host/RouterHost.h"
#include "host/TraceFrontEnd.h"
#include "host/TracerOutput.h"
#include "transport/CCommunicationDriver.h"
#include "transport/TransportHost.h"
#include "win32/Windows.h"

#include <memory>
#include <string>

/// One for the process, created, used and destroyed by the main thread.
class CMorvanePortRouterModule final : public ITransportHost, public IDebugOptionsHost, public IRouterHost
{
public:
    using CDebugOptionsLock = ::CDebugOptionsLock;

    explicit CMorvanePortRouterModule(HINSTANCE instance);
    /// Takes down what PostMessageLoop would; only when that was not reached.
    ~CMorvanePortRouterModule() override;
    CMorvanePortRouterModule(const CMorvanePortRouterModule&) = delete;
    CMorvanePortRouterModule& operator=(const CMorvanePortRouterModule&) = delete;

    /// The process's exit code, unless the router ran: then it ends the process itself.
    int WinMain(const wchar_t* commandLine);

    /// Builds the router. The HRESULT of registering the class object, which stops nothing.
    HRESULT PreMessageLoop();
    /// Deletes ports, transport, tracer and dialog, in this order.
    void TearDown() noexcept;

    // IRouterHost
    PortTable& Ports() override { return m_ports; }
    CCommunicationDriver* Transport() override { return m_transport.get(); }
    PortOptions OptionsOfPorts() const override { return m_configuration.OptionsOfPorts(); }
    void RegisterDeviceName(const std::wstring& name, std::int32_t device, std::uint32_t port) override;
    void AddServerLock() override { m_server.AddLock(); }
    void ReleaseServerLock() override { m_server.ReleaseLock(); }
    bool IsStopping() const override { return m_server.IsStopping(); }

    // ITransportHost
    bool SendToPort(std::int32_t deviceType, std::int32_t port, CCommunicationDriver* source,
                    const std::uint8_t* data, std::uint32_t length) override;
    void SendToPorts(std::uint32_t port, CCommunicationDriver* source, const std::uint8_t* data,
                     std::uint32_t length) override;
    void PacketCompleted(std::int32_t deviceType, std::int32_t port) override;
    void SignalAllPorts() override { m_ports.SignalAllPorts(); }
    bool IsSupportedProduct(std::uint16_t vendorId, std::uint16_t productId) override;
    std::int32_t GetBootloaderVersion(std::uint16_t productId) override;
    std::uint32_t FindProcess(const std::wstring& name) override;
    std::wstring GetFirstHostName() override { return L"Lumivista.exe"; }
    std::wstring GetSecondHostName() override { return L"RouterProbe.exe"; }
    bool IsStandalone() override { return m_standalone; }
    void RequestQuit() override { m_quit.Post(); }

    // IDebugOptionsHost
    const DebugOptionsMap& DeviceOptions() const override { return m_configuration.DeviceOptions(); }
    std::uint32_t LogFileLimit() const override { return m_configuration.LogFileLimit(); }
    bool AppendLogFile() const override { return m_configuration.AppendLogFile(); }
    bool SimulateUsb() const override { return m_configuration.IsSimulation(); }
    void ApplySettings(std::uint32_t limit, bool append, bool simulate, const DebugOptionsMap& options) override;
    std::wstring LogFileName() const override;
    std::wstring LogFolder() const override;
    bool IsConnected() const override;
    bool IsUpdatingFirmware() const override;
    std::uint32_t GetTransferredBytes() const override;
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
    bool m_standalone = false; // written before the transport exists

    // What trace calls use stands first: it is there before anything that traces, and goes last.
    CDebugOptionDlg m_dialog;
    TracerOutput m_traceOutput;
    TraceFrontEnd m_traceFrontEnd;

    ConfigurationStore m_configuration;
    CDebugThread::Owner m_tracer;
    PortTable m_ports;
    std::unique_ptr<CCommunicationDriver> m_transport;
    ComServer m_server;
};
