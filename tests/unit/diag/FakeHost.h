// A module for the dialog and the tray icon to ask, and a shell to talk to.
#pragma once

#include "diag/DebugOptionsHost.h"
#include "diag/TrayIcon.h"

#include <functional>
#include <string>
#include <vector>

class FakeHost final : public IDebugOptionsHost
{
public:
    struct Applied
    {
        std::uint32_t limit;
        bool append;
        bool simulate;
        DebugOptionsMap options;
    };

    const DebugOptionsMap& DeviceOptions() const override { return options; }
    std::uint32_t LogFileLimit() const override { return limit; }
    bool AppendLogFile() const override { return append; }
    bool SimulateUsb() const override { return simulate; }
    void ApplySettings(std::uint32_t newLimit, bool newAppend, bool newSimulate,
                       const DebugOptionsMap& newOptions) override
    {
        applied.push_back({newLimit, newAppend, newSimulate, newOptions});
    }
    std::wstring LogFileName() const override { return L"MorvanePortRouter.log"; }
    std::wstring LogFolder() const override { return L"C:\\Router\\Log\\"; }
    bool IsConnected() const override { return connected; }
    bool IsUpdatingFirmware() const override { return updating; }
    std::uint32_t GetTransferredBytes() const override { return bytes; }
    bool IsQuitWanted() const override { return quitWanted; }
    void OnSessionEnd() override
    {
        ++sessionEnds;
        if (onSessionEnd) {
            onSessionEnd();
        }
    }

    DebugOptionsMap options;
    std::uint32_t limit = 10;
    bool append = true;
    bool simulate = false;
    bool connected = false;
    bool updating = false;
    std::uint32_t bytes = 0;
    bool quitWanted = false;
    int sessionEnds = 0;
    std::function<void()> onSessionEnd;
    std::vector<Applied> applied;
};

/// What the shell was told since ForgetShellCalls.
struct ShellCall
{
    DWORD message;
    NOTIFYICONDATAW data;
};
struct Opened
{
    std::wstring verb;
    std::wstring file;
    bool hasParameters;
    int show;
};
const std::vector<ShellCall>& NotifyCalls();
const std::vector<Opened>& ExecuteCalls();
void ForgetShellCalls();

/// From now on the shell answers no, until told otherwise or ForgetShellCalls.
void RefuseShellCalls(bool refuse);

/// A shell that remembers and shows nothing.
Shell RecordingShell();

/// The resource id of a tray icon's handle; 0 for another one.
UINT IconId(HICON icon);
