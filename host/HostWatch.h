// The programs that the router runs for.
#pragma once

#include "host/QuitRequest.h"
#include "transport/TransportHost.h"

#include <string>

/// One for the process. Any thread, but for DecideMode.
class HostWatch final : public IHostWatch
{
public:
    /// `quit` is borrowed.
    explicit HostWatch(QuitRequest& quit) noexcept : m_quit(quit) {}

    /// Makes the router standalone if no host program runs now. Main thread, before the transport exists.
    void DecideMode();

    /// Compares the names of executables with their case. 0 also when Windows gives no list of processes.
    std::uint32_t FindProcess(const std::wstring& name) const override;
    std::wstring GetFirstHostName() const override { return L"Lumivista.exe"; }
    std::wstring GetSecondHostName() const override { return L"RouterProbe.exe"; }
    bool IsStandalone() const override { return m_standalone; }
    void RequestQuit() override { m_quit.Post(); }

private:
    QuitRequest& m_quit;
    bool m_standalone = false; // written before the transport exists
};
