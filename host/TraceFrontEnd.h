// The router's trace sink: decides whether a line is wanted, formats it and hands it on.
//
// Called by every thread of the process. A call whose line is not wanted costs one look-up: no kernel call, no
// lock, no allocation. The options gate keeps lines out while the options change; it is tested, never waited for.
#pragma once

#include "diag/CDebugOption.h"
#include "host/TraceOptionsTable.h"
#include "trace/TraceSink.h"
#include "win32/MirroredEvent.h"

#include <cstdarg>
#include <cstdint>
#include <string>

/// Where wanted lines go. Every operation may be called by any thread.
class ITraceOutput
{
public:
    virtual ~ITraceOutput() = default;

    virtual bool TracerExists() const noexcept = 0;
    virtual bool DialogExists() const noexcept = 0;
    virtual bool DialogIsVisible() const noexcept = 0;

    /// `mask` is what the device's options left of the caller's class. May throw; the line is lost then.
    virtual void AddTrace(std::uint32_t mask, std::string text) = 0;
};

/// Closes the options gate (a manual-reset event, borrowed) for its lifetime. It neither waits nor excludes
/// another writer: trace calls test the gate and drop their line while it is closed. Main thread.
class CDebugOptionsLock
{
public:
    explicit CDebugOptionsLock(win32::MirroredEvent& gate) noexcept : m_gate(gate) { m_gate.Reset(); }
    virtual ~CDebugOptionsLock() { m_gate.Set(); }
    CDebugOptionsLock(const CDebugOptionsLock&) = delete;
    CDebugOptionsLock& operator=(const CDebugOptionsLock&) = delete;

private:
    win32::MirroredEvent& m_gate;
};

/// Installs itself as the process's sink; it and its output must outlive every thread that traces.
class TraceFrontEnd final : public ITraceSink
{
public:
    static constexpr std::size_t MaximumLineLength = 2055;

    explicit TraceFrontEnd(ITraceOutput& output) : m_output(output) { InstallTraceSink(*this); }
    ~TraceFrontEnd() { RemoveTraceSink(*this); }

    /// The manual-reset event for CDebugOptionsLock; signalled while the options may be read.
    win32::MirroredEvent& Gate() noexcept { return m_gate; }

    /// Takes over the options that the trace calls use from now on. Main thread, under a CDebugOptionsLock.
    void Publish(const DebugOptionsMap& options);

    // ITraceSink
    std::uint32_t EffectiveMask(std::int32_t device, std::uint32_t classMask) const noexcept override
    {
        return classMask & m_options.Find(device).mask;
    }
    void Write(std::int32_t device, std::uint32_t effectiveMask, const char* format,
               std::va_list arguments) noexcept override;
    bool Dump(std::int32_t device, std::uint32_t effectiveMask, const std::uint8_t* data, std::uint32_t length,
              bool hexOnly, std::string& out) override;

private:
    win32::MirroredEvent m_gate{true};
    TraceOptionsTable m_options;
    ITraceOutput& m_output;
};
