// What the Debug Options dialog and its tray icon need of the module that owns them.
#pragma once

#include "diag/CDebugOption.h"

#include <cstdint>
#include <string>

/// Main thread only.
class IDebugOptionsHost
{
public:
    virtual ~IDebugOptionsHost() = default;

    virtual const DebugOptionsMap& DeviceOptions() const = 0;
    virtual std::uint32_t LogFileLimit() const = 0; // megabytes
    virtual bool AppendLogFile() const = 0;
    virtual bool SimulateUsb() const = 0;

    /// Stores the settings, takes the records unless there are none, saves both and reconfigures the tracer.
    virtual void ApplySettings(std::uint32_t limit, bool append, bool simulate,
                               const DebugOptionsMap& options) = 0;

    virtual std::wstring LogFileName() const = 0; // bare
    virtual std::wstring LogFolder() const = 0;   // with its trailing backslash

    /// Of the transport; without one: not connected, not updating, 0.
    virtual bool IsConnected() const = 0;
    virtual bool IsUpdatingFirmware() const = 0;
    virtual std::uint32_t GetTransferredBytes() const = 0;

    /// Whether WM_QUIT was posted to this thread.
    virtual bool IsQuitWanted() const = 0;

    /// The Windows session ends. Returns only when the router has ended in order: Windows may end the process once
    /// the caller, the dialog's window procedure, has returned. May destroy the dialog.
    virtual void OnSessionEnd() = 0;
};
