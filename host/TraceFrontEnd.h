// What stands behind `Trace` and `DumpPacket`: decides whether a line is wanted, formats it and hands it on.
//
// Called by every thread of the process. A call that nobody wants costs one look-up: no kernel call, no lock, no
// allocation. The options gate keeps lines out while the options change; it is tested, never waited for.
#pragma once

#include "diag/DebugOptionsHost.h"
#include "host/TraceOptionsTable.h"
#include "win32/MirroredEvent.h"

#include <atomic>
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

/// The newest one serves the process's trace calls; it and its output must outlive every thread that traces.
class TraceFrontEnd
{
public:
    static constexpr std::size_t MaximumLineLength = 2055;

    explicit TraceFrontEnd(ITraceOutput& output);
    ~TraceFrontEnd();
    TraceFrontEnd(const TraceFrontEnd&) = delete;
    TraceFrontEnd& operator=(const TraceFrontEnd&) = delete;

    /// The manual-reset event for CDebugOptionsLock; signalled while the options may be read.
    win32::MirroredEvent& Gate() noexcept { return m_gate; }

    /// Takes over the options that the trace calls use from now on. Main thread, under a CDebugOptionsLock.
    void Publish(const DebugOptionsMap& options);

    TraceOptions Options(std::int32_t device) const noexcept { return m_options.Find(device); }

    /// Formats and hands on a line whose mask is not zero, if the other conditions hold.
    void Write(std::uint32_t effectiveMask, const char* format, std::va_list arguments) noexcept;

    /// Whether dumps are made at all at this moment; the mask is tested by the caller.
    bool MayDump() const noexcept;

    /// Null while there is none.
    static TraceFrontEnd* Current() noexcept { return s_current.load(std::memory_order_acquire); }

private:
    static std::atomic<TraceFrontEnd*> s_current;

    win32::MirroredEvent m_gate{true};
    TraceOptionsTable m_options;
    ITraceOutput& m_output;
};
